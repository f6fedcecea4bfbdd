/// \file
/// Tuning configuration to path and back. Bodies of the public functions TUNING_CONFIG_TO_PATH and
/// PATH_TO_TUNING_CONFIG. Contracts: ZoTuningUtils.h; the grammar of the paths: docs/json-trees.md.
#pragma once

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "log/tuning_log-inl.h"

namespace ZO_TUNING {
namespace internal {

/// A level of the tree as it is read back: the folder prefix and the index of the label value that it gives.
struct TreeLevel {
  const char* prefix;
  size_t index;
};

inline constexpr size_t kModeIndex = 1;

// In the order in which the prefixes are tried: a sub-function folder holds "function_" as well.
inline constexpr TreeLevel kTreeLevels[] = {
    {"filter_", 7},   {"scene_", 6},    {"sub_function_", 5},  {"function_", 4},
    {"feature0_", 3}, {"scenario_", 2}, {"mode_", kModeIndex},
};

/// Sets config[index] to the number whose name in `names` is `name`; the highest one wins. Untouched without a match,
/// and where the configuration has no such element.
inline void ReadNamedValue(const std::map<int, std::string>& names, const std::string& name, size_t index,
                           std::vector<int>& config) {
  if (index >= config.size()) return;
  for (const auto& [number, value_name] : names) {
    if (value_name == name) config[index] = number;
  }
}

/// Reads one folder name into `config`. False when it is no level of the tree.
inline bool ReadTreeLevel(const std::string& folder, std::map<std::string, std::map<int, std::string>>& label_map,
                          std::vector<int>& config) {
  const auto* level = std::find_if(std::begin(kTreeLevels), std::end(kTreeLevels), [&](const TreeLevel& tried) {
    return folder.find(tried.prefix) != std::string::npos;
  });
  if (level == std::end(kTreeLevels)) return false;
  const std::string prefix = level->prefix;
  // Cut at the prefix's length, wherever the prefix was found.
  const std::string value = folder.substr(prefix.size());
  if (level->index == kModeIndex) {
    // NOLINTNEXTLINE(cert-err34-c): a mode that is no number is 0.
    if (kModeIndex < config.size()) config[kModeIndex] = std::atoi(value.c_str());
  } else {
    ReadNamedValue(label_map[prefix.substr(0, prefix.size() - 1)], value, level->index, config);
  }
  return true;
}

}  // namespace internal

inline void TUNING_CONFIG_TO_PATH(const char* proj_dir, const std::string& sensor,
                                  std::vector<std::string>& label_names,
                                  std::map<std::string, std::map<int, std::string>>& label_map,
                                  const std::vector<int>& config, std::string& path) try {
  std::string built = proj_dir;
  built += "/" + sensor;
  const size_t levels = std::min(config.size(), label_names.size());
  for (size_t i = 1; i < levels; ++i) {
    if (config[i] == -1) break;
    const std::string& name = label_names[i];
    built += "/" + name + "_";
    built += name == "mode" ? std::to_string(config[i]) : label_map[name][config[i]];
    struct stat info;
    if (stat(built.c_str(), &info) != 0) mkdir(built.c_str(), 0700);
  }
  built += "/";
  if (!label_names.empty() && !config.empty()) built += label_map[label_names[0]][config[0]];
  built += ".json";
  path = std::move(built);
} catch (...) {
  internal::ReportException(__LINE__, __func__);
}

inline void PATH_TO_TUNING_CONFIG(const std::string& path, std::vector<std::string>& label_names,
                                  std::map<std::string, std::map<int, std::string>>& label_map,
                                  std::vector<int>& config) try {
  config.assign(label_names.size(), -1);
  constexpr const char* kSeparators = "/\\";
  std::string dir = path;
  const size_t file_separator = path.find_last_of(kSeparators);
  if (file_separator != std::string::npos) {
    std::string module = path.substr(file_separator + 1);
    module = module.substr(0, module.rfind('.'));
    if (!label_names.empty()) internal::ReadNamedValue(label_map[label_names[0]], module, 0, config);
    if (config.empty() || config[0] == -1) {
      internal::TuningLog(
          internal::kLogError, __LINE__, __func__,
          "Unknown module name %s in EnumTuningDataLable_Module, please check the setting of EnumTuningDataLable_Module in project",
          module.c_str());
      return;
    }
    dir = path.substr(0, file_separator);
  }
  for (size_t separator = dir.find_last_of(kSeparators); separator != std::string::npos;
       separator = dir.find_last_of(kSeparators)) {
    if (!internal::ReadTreeLevel(dir.substr(separator + 1), label_map, config)) break;
    dir.resize(separator);
  }
} catch (...) {
  internal::ReportException(__LINE__, __func__);
}

}  // namespace ZO_TUNING
