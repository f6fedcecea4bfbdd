// GeneratedNewVersionHeader, the rewriting of the version header. Its steps are public inline functions
// (version_header-inl.h). Tested by tests/version/version_header_test.cpp.

#include <string>
#include <vector>

#include "ZoTuningUtils.h"
#include "io/directory.h"

using namespace ZO_TUNING::internal;

bool ZoTuningUtils::GeneratedNewVersionHeader(const std::string& schema_dir) try {
  const PassFailuresOn guard;
  const std::string version_dir = schema_dir + "/" + "version";
  const std::string header_path = schema_dir + "/../src/" + "ZoTuningVersion" + ".h";
  for (const std::string& dir : {schema_dir, version_dir}) {
    if (!PathExists(dir)) {
      TuningLog(kLogError, __LINE__, __func__, "Path is not existed: %s", dir.c_str());
      return false;
    }
  }
  std::vector<std::string> files;
  if (!FindAllJsonFiles(version_dir.c_str(), files)) {
    TuningLog(kLogError, __LINE__, __func__, "Find all json files failed");
    return false;
  }
  std::vector<std::string> versions;
  for (const std::string& file : files) {
    // A file that cannot be read or scanned contributes nothing; the numbering goes on without a gap.
    std::string json;
    ZO_TUNING::JSON_FILE_TO_STR(file, json);
    ZO_TUNING::PARSE_VERSION_FROM_STR(json, versions);
  }
  if (!PathExists(header_path)) {
    TuningLog(kLogError, __LINE__, __func__, "[Error] File is not existed: %s", header_path.c_str());
    return false;
  }
  std::string text;
  // A header that exists but cannot be read is emptied, and that counts as success.
  if (ZO_TUNING::HEADER_FILE_TO_STR(header_path, text) && !ZO_TUNING::CONSIST_VERSION_TO_STR(text, versions)) {
    TuningLog(kLogError, __LINE__, __func__, "[Error] Error to fill the string");
    return false;
  }
  ZO_TUNING::STR_TO_HEADER_FILE(header_path, text);
  return true;
} catch (...) {
  return ReportException(__LINE__, __func__);
}
