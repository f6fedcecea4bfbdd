// New tuning settings: CreateNewTuningSetting, CreateMultipleNewTuningSetting and GetTuningRootFolder. Tested by
// tests/tree/tuning_settings_test.cpp.

#include <cstdio>
#include <string>
#include <vector>

#include "ZoTuningUtils.h"
#include "io/directory.h"
#include "schema/schema.h"

using namespace ZO_TUNING::internal;

namespace {

using LabelMap = std::map<std::string, std::map<int, std::string>>;

constexpr char kModuleLabel[] = "module";

std::string ReadDefault(const std::string& proj_dir, const std::string& module) {
  std::string json;
  // An unreadable default is logged there and copied as an empty text.
  ZO_TUNING::JSON_FILE_TO_STR(proj_dir + "/" + "default" + "/" + module + ".json", json);
  return json;
}

}  // namespace

bool ZoTuningUtils::CreateNewTuningSetting(const char* proj_dir, std::vector<std::string>& label_names,
                                           LabelMap& label_map, std::string& sensor, std::vector<int>& config) try {
  const PassFailuresOn guard;
  const Schema schema(std::string(proj_dir) + "/" + "proto");
  std::string module;
  for (size_t i = 0; i < label_names.size() && i < config.size(); ++i) {
    if (label_names[i] == kModuleLabel) module = label_map[kModuleLabel][config[i]];
  }
  if (schema.FindType(module) == nullptr) return false;
  const std::string json = ReadDefault(proj_dir, module);
  std::string path;
  ZO_TUNING::TUNING_CONFIG_TO_PATH(proj_dir, sensor, label_names, label_map, config, path);
  ZO_TUNING::JSON_STR_TO_FILE(path, json);
  return true;
} catch (...) {
  return ReportException(__LINE__, __func__);
}

bool ZoTuningUtils::CreateMultipleNewTuningSetting(const char* proj_dir, std::vector<std::string>& label_names,
                                                   LabelMap& label_map, std::string& sensor,
                                                   std::vector<std::vector<int>>& configs) try {
  const PassFailuresOn guard;
  const Schema schema(std::string(proj_dir) + "/" + "proto");
  for (const std::vector<int>& config : configs) {
    const std::string module = config.empty() ? std::string() : label_map[kModuleLabel][config[0]];
    if (schema.FindType(module) == nullptr) {
      TuningLog(kLogError, __LINE__, __func__, "[Quokka] Error to get the module desc from the module - %s",
                module.c_str());
      return false;
    }
    const std::string json = ReadDefault(proj_dir, module);
    std::string path;
    ZO_TUNING::TUNING_CONFIG_TO_PATH(proj_dir, sensor, label_names, label_map, config, path);
    if (PathExists(path)) {
      // A deliberate skip, at error priority all the same.
      TuningLog(kLogError, __LINE__, __func__, "[Quokka] (%s) File is existed, Skip this replacing", path.c_str());
      continue;
    }
    ZO_TUNING::JSON_STR_TO_FILE(path, json);
  }
  return true;
} catch (...) {
  return ReportException(__LINE__, __func__);
}

bool ZoTuningUtils::GetTuningRootFolder(const char* dir, std::vector<std::string>& folders) try {
  if (dir == nullptr || !PathExists(dir)) {
    TuningLog(kLogError, __LINE__, __func__, "Path is not existed: %s or NULL", dir == nullptr ? "(null)" : dir);
    return false;
  }
  std::vector<DirectoryEntry> entries;
  if (!ReadDirectory(dir, entries)) {
    TuningLog(kLogError, __LINE__, __func__, "Open directory failed: %s", dir);
    return false;
  }
  for (const DirectoryEntry& entry : entries) {
    if (!entry.is_directory) continue;
    char path[1024];
    // A path too long is cut.
    (void)std::snprintf(path, sizeof(path), "%s%s%s", dir, "/", entry.name.c_str());
    folders.emplace_back(path);
  }
  return true;
} catch (...) {
  return ReportException(__LINE__, __func__);
}
