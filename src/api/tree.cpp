// New tuning settings: CreateNewTuningSetting, CreateMultipleNewTuningSetting and GetTuningRootFolder. Tested by
// tests/tree/tuning_settings_test.cpp.

#include <algorithm>
#include <string>
#include <vector>

#include "ZoTuningUtils.h"
#include "api/operations.h"
#include "io/directory.h"
#include "schema/schema.h"

using namespace ZO_TUNING::internal;

namespace ZO_TUNING {
namespace internal {
namespace api {

namespace {

constexpr char kModuleLabel[] = "module";
constexpr size_t kMaxFolderPath = 1023;

/// An unreadable default is logged and copied as an empty text.
std::string ReadDefault(const ProjectLayout& layout, const std::string& module) {
  std::string json;
  JSON_FILE_TO_STR(layout.DefaultPath(module), json);
  return json;
}

bool CreateNewTuningSetting(const ProjectLayout& layout, const std::vector<std::string>& label_names,
                            LabelMap& label_map, const std::string& sensor, const std::vector<int>& config) {
  const Schema schema(layout.ProtoDir());
  std::string module;
  for (size_t i = 0; i < label_names.size() && i < config.size(); ++i) {
    if (label_names[i] == kModuleLabel) module = label_map[kModuleLabel][config[i]];
  }
  if (FindType(schema, module) == nullptr) return false;
  const std::string json = ReadDefault(layout, module);
  std::string path;
  TUNING_CONFIG_TO_PATH(layout.dir().c_str(), sensor, label_names, label_map, config, path);
  WriteTextFile(path, json);
  return true;
}

bool CreateMultipleNewTuningSetting(const ProjectLayout& layout, const std::vector<std::string>& label_names,
                                    LabelMap& label_map, const std::string& sensor,
                                    const std::vector<std::vector<int>>& configs) {
  const Schema schema(layout.ProtoDir());
  for (const std::vector<int>& config : configs) {
    const std::string module = config.empty() ? std::string() : label_map[kModuleLabel][config[0]];
    if (FindType(schema, module) == nullptr) {
      TuningLog(kLogError, __LINE__, __func__, "[Quokka] Error to get the module desc from the module - %s",
                module.c_str());
      return false;
    }
    const std::string json = ReadDefault(layout, module);
    std::string path;
    TUNING_CONFIG_TO_PATH(layout.dir().c_str(), sensor, label_names, label_map, config, path);
    if (PathExists(path)) {
      // A deliberate skip, but logged at error priority.
      TuningLog(kLogError, __LINE__, __func__, "[Quokka] (%s) File is existed, Skip this replacing", path.c_str());
      continue;
    }
    WriteTextFile(path, json);
  }
  return true;
}

bool GetTuningRootFolder(const char* dir, std::vector<std::string>& folders) {
  if (dir == nullptr || !PathExists(dir)) {
    TuningLog(kLogError, __LINE__, __func__, "Path is not existed: %s or NULL", dir == nullptr ? "(null)" : dir);
    return false;
  }
  std::vector<DirectoryEntry> entries;
  if (!ReadDirectory(dir, entries).is_open) {
    TuningLog(kLogError, __LINE__, __func__, "Open directory failed: %s", dir);
    return false;
  }
  for (const DirectoryEntry& entry : entries) {
    if (entry.kind != EntryKind::kDirectory) continue;
    std::string path = JoinPath(dir, entry.name);
    path.resize(std::min(path.size(), kMaxFolderPath));
    folders.push_back(std::move(path));
  }
  return true;
}

}  // namespace

}  // namespace api
}  // namespace internal
}  // namespace ZO_TUNING

bool ZoTuningUtils::CreateNewTuningSetting(const char* proj_dir, std::vector<std::string>& label_names,
                                           LabelMap& label_map, std::string& sensor, std::vector<int>& config) {
  return AtBorder(__LINE__, __func__, [&] {
    return api::CreateNewTuningSetting(ProjectLayout(proj_dir), label_names, label_map, sensor, config);
  });
}

bool ZoTuningUtils::CreateMultipleNewTuningSetting(const char* proj_dir, std::vector<std::string>& label_names,
                                                   LabelMap& label_map, std::string& sensor,
                                                   std::vector<std::vector<int>>& configs) {
  return AtBorder(__LINE__, __func__, [&] {
    return api::CreateMultipleNewTuningSetting(ProjectLayout(proj_dir), label_names, label_map, sensor, configs);
  });
}

bool ZoTuningUtils::GetTuningRootFolder(const char* dir, std::vector<std::string>& folders) {
  return AtBorder(__LINE__, __func__, [&] { return api::GetTuningRootFolder(dir, folders); });
}
