// Versions: GetVersionMsgs, UpdateProtoVersionJsonFile and GeneratedNewVersionHeader. Tested by
// tests/version/version_files_test.cpp and version_header_test.cpp.

#include <string>
#include <vector>

#include "ZoTuningUtils.h"
#include "api/operations.h"
#include "io/directory.h"
#include "schema/schema.h"
#include "version/version_files.h"

using namespace ZO_TUNING::internal;

namespace ZO_TUNING {
namespace internal {
namespace api {

namespace {

/// The lines of a scan of version files. Whether files were read, or there are none.
bool ReportVersions(const VersionResult& result, const char* function, const char* version_dir) {
  switch (result.status) {
    case VersionStatus::kOk:
    case VersionStatus::kNotFound:
      break;
    case VersionStatus::kNoFiles:
      TuningLog(kLogWarn, __LINE__, function, "Cannot find any version json file under dir: %s", version_dir);
      break;
    case VersionStatus::kNotListed:
      ReportNotListed(version_dir);
      TuningLog(kLogError, __LINE__, function, "Find json files failed from root: %s", version_dir);
      return false;
    case VersionStatus::kNotConverted:
      ReportNotConverted(result.text, result.reason);
      TuningLog(kLogError, __LINE__, function, "Failed in json str -> msg. for verion json file %s",
                result.path.c_str());
      return false;
    case VersionStatus::kNoField:
      TuningLog(kLogError, __LINE__, function, "Error in finding the field descriptor of %s", result.field);
      return false;
  }
  return true;
}

bool UpdateProtoVersionJsonFile(const ProjectLayout& layout, const char* name, const char* version) {
  if (!HasProjectAndSchema(layout, __func__)) return false;
  const std::string proto_dir = layout.ProtoDir();
  Schema schema(proto_dir);
  const google::protobuf::Descriptor* type = FindVersionType(schema, __func__);
  if (type == nullptr) return false;
  const std::string version_dir = ProjectLayout::VersionDir(proto_dir);
  LogListener listener;
  const VersionResult result = SetVersion(version_dir, schema, type, name, version, listener, ReportTemplateFault);
  if (!result.print_failure.empty()) ReportNotPrinted();
  // Callers match this function name of the lines of the scan.
  ReportVersions(result, "operator()", version_dir.c_str());
  if (result.status != VersionStatus::kOk) {
    TuningLog(kLogError, __LINE__, __func__, "Cannot find version name %s in proto version", name);
  }
  return true;  // whatever the scan found
}

bool GeneratedNewVersionHeader(const std::string& schema_dir) {
  const std::string version_dir = ProjectLayout::VersionDir(schema_dir);
  const std::string header_path = ProjectLayout::HeaderPath(schema_dir);
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
    JSON_FILE_TO_STR(file, json);
    PARSE_VERSION_FROM_STR(json, versions);
  }
  if (!PathExists(header_path)) {
    TuningLog(kLogError, __LINE__, __func__, "[Error] File is not existed: %s", header_path.c_str());
    return false;
  }
  std::string text;
  // A header that exists but cannot be read is emptied, and that counts as success.
  if (HEADER_FILE_TO_STR(header_path, text) && !CONSIST_VERSION_TO_STR(text, versions)) {
    TuningLog(kLogError, __LINE__, __func__, "[Error] Error to fill the string");
    return false;
  }
  STR_TO_HEADER_FILE(header_path, text);
  return true;
}

}  // namespace

bool GetVersionMsgs(const std::string& version_dir, const google::protobuf::Message* prototype,
                    VersionMessages& messages) {
  LogListener listener;
  return ReportVersions(messages.Read(version_dir, prototype, listener), __func__, version_dir.c_str());
}

}  // namespace api
}  // namespace internal
}  // namespace ZO_TUNING

bool ZoTuningUtils::GetVersionMsgs(const char* version_dir, const google::protobuf::Message* prototype,
                                   std::vector<google::protobuf::Message*>& messages) {
  const char* const function = __func__;
  return AtBorder(__LINE__, function, [&] {
    api::LogListener listener;
    return api::ReportVersions(ReadVersionMessages(version_dir, prototype, messages, listener), function, version_dir);
  });
}

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): the published signature.
bool ZoTuningUtils::UpdateProtoVersionJsonFile(const char* proj_dir, const char* name, const char* version) {
  return AtBorder(__LINE__, __func__,
                  [&] { return api::UpdateProtoVersionJsonFile(ProjectLayout(proj_dir), name, version); });
}

bool ZoTuningUtils::GeneratedNewVersionHeader(const std::string& schema_dir) {
  return AtBorder(__LINE__, __func__, [&] { return api::GeneratedNewVersionHeader(schema_dir); });
}
