// Version messages and version JSON files: GetVersionMsgs and UpdateProtoVersionJsonFile. Tested by
// tests/version/version_files_test.cpp.

#include <memory>
#include <string>
#include <vector>

#include "ZoTuningUtils.h"
#include "io/directory.h"
#include "schema/schema.h"

using namespace ZO_TUNING::internal;
using google::protobuf::FieldDescriptor;

namespace {

// A field that reflection cannot read as one text counts as missing.
const FieldDescriptor* FindTextField(const google::protobuf::Descriptor* type, const char* name) {
  const FieldDescriptor* field = type->FindFieldByName(name);
  const bool usable = field != nullptr && field->type() == FieldDescriptor::TYPE_STRING && !field->is_repeated();
  return usable ? field : nullptr;
}

}  // namespace

bool ZoTuningUtils::GetVersionMsgs(const char* version_dir, const google::protobuf::Message* prototype,
                                   std::vector<google::protobuf::Message*>& messages) try {
  const PassFailuresOn guard;
  messages.clear();
  std::vector<std::string> files;
  if (!FindAllJsonFiles(version_dir, files)) {
    TuningLog(kLogError, __LINE__, __func__, "Find json files failed from root: %s", version_dir);
    return false;
  }
  if (files.empty()) {
    TuningLog(kLogWarn, __LINE__, __func__, "Cannot find any version json file under dir: %s", version_dir);
    return true;
  }
  messages.resize(files.size(), nullptr);
  for (size_t i = 0; i < files.size(); ++i) {
    std::string json;
    ZO_TUNING::JSON_FILE_TO_STR(files[i], json);
    messages[i] = prototype->New();
    if (!ZO_TUNING::JSON_STR_TO_MSG(json, messages[i])) {
      TuningLog(kLogError, __LINE__, __func__, "Failed in json str -> msg. for verion json file %s", files[i].c_str());
      return false;
    }
  }
  return true;
} catch (...) {
  return ReportException(__LINE__, __func__);
}

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): the published signature.
bool ZoTuningUtils::UpdateProtoVersionJsonFile(const char* proj_dir, const char* name, const char* version) try {
  const PassFailuresOn guard;
  const std::string proto_dir = std::string(proj_dir) + "/" + "proto";
  if (!PathExists(proj_dir)) {
    TuningLog(kLogError, __LINE__, __func__, "Cannot find project dir: %s", proj_dir);
    return false;
  }
  if (!PathExists(proto_dir)) {
    TuningLog(kLogError, __LINE__, __func__, "Cannot find project proto folder in input proj_dir: %s",
              proto_dir.c_str());
    return false;
  }
  Schema schema(proto_dir);
  const google::protobuf::Descriptor* type = schema.FindType("Version");
  if (type == nullptr) {
    TuningLog(kLogError, __LINE__, __func__, "Get tuning version descriptor failed");
    return false;
  }
  const std::string version_dir = proto_dir + "/" + "version";

  // Callers match the function name "operator()" of the lines of this scan: it stays a function object.
  // NOLINTBEGIN(bugprone-lambda-function-name)
  const auto update_first_match = [&]() -> bool {
    std::vector<std::string> files;
    if (!FindAllJsonFiles(version_dir.c_str(), files)) {
      TuningLog(kLogError, __LINE__, __func__, "Find json files failed from root: %s", version_dir.c_str());
      return false;
    }
    if (files.empty()) {
      TuningLog(kLogWarn, __LINE__, __func__, "Cannot find any version json file under dir: %s", version_dir.c_str());
      return false;
    }
    for (const std::string& file : files) {
      std::string json;
      ZO_TUNING::JSON_FILE_TO_STR(file, json);
      const std::unique_ptr<google::protobuf::Message> message = schema.NewMessage(type);
      if (!ZO_TUNING::JSON_STR_TO_MSG(json, message.get())) {
        TuningLog(kLogError, __LINE__, __func__, "Failed in json str -> msg. for verion json file %s", file.c_str());
        return false;
      }
      const google::protobuf::Reflection* reflection = message->GetReflection();
      const FieldDescriptor* name_field = FindTextField(type, "name");
      if (name_field == nullptr) {
        TuningLog(kLogError, __LINE__, __func__, "Error in finding the field descriptor of %s", "name");
        return false;
      }
      if (reflection->GetString(*message, name_field) != name) continue;
      const FieldDescriptor* version_field = FindTextField(type, "version");
      if (version_field == nullptr) {
        TuningLog(kLogError, __LINE__, __func__, "Error in finding the field descriptor of %s", "version");
        return false;
      }
      reflection->SetString(message.get(), version_field, version);
      std::string rewritten;
      ZO_TUNING::MSG_TO_JSON_STR(message.get(), type, rewritten);
      ZO_TUNING::JSON_STR_TO_FILE(file, rewritten);
      return true;
    }
    return false;
  };
  // NOLINTEND(bugprone-lambda-function-name)
  if (!update_first_match()) {
    TuningLog(kLogError, __LINE__, __func__, "Cannot find version name %s in proto version", name);
  }
  return true;  // whatever the scan found
} catch (...) {
  return ReportException(__LINE__, __func__);
}
