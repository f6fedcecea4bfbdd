/// \file
/// Bodies of the public functions TUNING_CONFIG_TO_PATH and PATH_TO_TUNING_CONFIG. Contracts: ZoTuningUtils.h.
#pragma once

#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "api/border-inl.h"
#include "schema/labels-inl.h"
#include "schema/project_layout-inl.h"
#include "tree/tuning_path-inl.h"

namespace ZO_TUNING {
namespace internal {
namespace api {

inline void TUNING_CONFIG_TO_PATH(const char* proj_dir, const std::string& sensor,
                                  const std::vector<std::string>& label_names, LabelMap& label_map,
                                  const std::vector<int>& config, std::string& path) {
  std::string built = ProjectLayout(proj_dir).ScopeDir(sensor);
  // Callers rely on names that were looked up being in their map afterwards.
  const size_t levels = std::min(config.size(), label_names.size());
  for (size_t i = 1; i < levels && config[i] != kLabelNotSet; ++i) {
    if (label_names[i] != kModeLabel) label_map[label_names[i]][config[i]];
  }
  if (levels > 0) label_map[label_names[0]][config[0]];
  const Labels labels(label_names, label_map);
  for (const std::string& folder : SettingFolders(labels, config)) {
    built += "/" + folder;
    struct stat info;
    if (stat(built.c_str(), &info) != 0) mkdir(built.c_str(), 0700);
  }
  path = JoinPath(built, SettingFile(labels, config));
}

/// The line of PATH_TO_TUNING_CONFIG about a file that is not named after a module.
inline void ReportUnknownModule(const std::string& module_name) {
  TuningLog(
      kLogError, __LINE__, "PATH_TO_TUNING_CONFIG",
      "Unknown module name %s in EnumTuningDataLable_Module, please check the setting of EnumTuningDataLable_Module in project",
      module_name.c_str());
}

inline void PATH_TO_TUNING_CONFIG(const std::string& path, const std::vector<std::string>& label_names,
                                  LabelMap& label_map, std::vector<int>& config) {
  // Callers rely on names that were looked up being in their map afterwards.
  const auto enter = [&](const std::string& label) { label_map[label]; };
  const PathResult result = ReadSettingPath(Labels(label_names, label_map), path, config, enter);
  if (!result.ok) ReportUnknownModule(result.module_name);
}

}  // namespace api
}  // namespace internal

inline void TUNING_CONFIG_TO_PATH(const char* proj_dir, const std::string& sensor,
                                  std::vector<std::string>& label_names,
                                  std::map<std::string, std::map<int, std::string>>& label_map,
                                  const std::vector<int>& config, std::string& path) {
  internal::AtBorder(__LINE__, __func__, [&] {
    internal::api::TUNING_CONFIG_TO_PATH(proj_dir, sensor, label_names, label_map, config, path);
  });
}

inline void PATH_TO_TUNING_CONFIG(const std::string& path, std::vector<std::string>& label_names,
                                  std::map<std::string, std::map<int, std::string>>& label_map,
                                  std::vector<int>& config) {
  internal::AtBorder(__LINE__, __func__,
                     [&] { internal::api::PATH_TO_TUNING_CONFIG(path, label_names, label_map, config); });
}

}  // namespace ZO_TUNING
