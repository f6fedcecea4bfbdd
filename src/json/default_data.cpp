// GenerateDefaultModuleData, the template of one module. Tested by tests/json/default_data_test.cpp.

#include <memory>
#include <string>

#include "ZoTuningUtils.h"
#include "io/directory.h"
#include "schema/schema.h"

using namespace ZO_TUNING::internal;

bool ZoTuningUtils::GenerateDefaultModuleData(const char* proj_dir, const char* module) try {
  const PassFailuresOn guard;
  const std::string default_dir = std::string(proj_dir) + "/" + "default";
  const std::string json_path = default_dir + "/" + module + ".json";
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
  if (!PathExists(default_dir)) {
    TuningLog(kLogError, __LINE__, __func__, "Cannot find project default folder under input proj_dir: %s",
              default_dir.c_str());
    return false;
  }
  Schema schema(proto_dir);
  const google::protobuf::Descriptor* type = schema.FindType(module);
  if (type == nullptr) {
    std::string qualified;
    ZO_TUNING::ADD_NAMESPACE_TO_CLASSNAME(module, qualified);
    TuningLog(kLogError, __LINE__, __func__, "Get descriptor of module %s failed", qualified.c_str());
    return false;
  }
  const std::unique_ptr<google::protobuf::Message> message = schema.NewMessage(type);
  std::string json;
  ZO_TUNING::MSG_TO_JSON_STR(message.get(), type, json);
  // True from here on, although printing or writing may have failed.
  ZO_TUNING::JSON_STR_TO_FILE(json_path, json);
  return true;
} catch (...) {
  return ReportException(__LINE__, __func__);
}
