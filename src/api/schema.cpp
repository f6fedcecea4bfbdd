// Finding schema types and fields: ImportDescriptors, GetDescByClassName and CheckFieldInString. Tested by
// tests/schema/schema_import_test.cpp and field_check_test.cpp.

#include "schema/schema.h"

#include <iostream>
#include <string>

#include "ZoTuningUtils.h"
#include "api/operations.h"
#include "schema/field_check.h"

using namespace ZO_TUNING::internal;

namespace ZO_TUNING {
namespace internal {
namespace api {

namespace {

constexpr char kGetDescByClassName[] = "GetDescByClassName";

void ReportMissingType(const char* class_name) {
  TuningLog(kLogError, __LINE__, kGetDescByClassName,
            "Find descriptor of %s failed, please check the protos under project dir", class_name);
}

}  // namespace

void ReportType(const TypeResult& result) {
  switch (result.status) {
    case TypeStatus::kFound:
      break;
    case TypeStatus::kMissing:
      ReportMissingType(result.qualified_name.c_str());
      break;
    case TypeStatus::kTooManyLevels:
      TuningLog(kLogError, __LINE__, kGetDescByClassName,
                "Message type %s holds %zu levels of message types, too many for the stack of this thread; please "
                "check the protos under project dir",
                result.full_name.c_str(), result.levels);
      break;
  }
}

const google::protobuf::Descriptor* FindType(const Schema& schema, const std::string& short_name) {
  const TypeResult result = schema.Find(short_name);
  ReportType(result);
  return result.type;
}

bool FindBinTypes(const Schema& schema, const char* function, BinTypes& types, const char* no_label) {
  types.label = FindType(schema, "TuningDataLabel");
  if (types.label == nullptr) {
    TuningLog(kLogError, __LINE__, function, "%s", no_label);
    return false;
  }
  types.version = FindVersionType(schema, function);
  return types.version != nullptr;
}

const google::protobuf::Descriptor* FindVersionType(const Schema& schema, const char* function) {
  const google::protobuf::Descriptor* type = FindType(schema, "Version");
  if (type == nullptr) TuningLog(kLogError, __LINE__, function, "Get tuning version descriptor failed");
  return type;
}

bool HasProjectAndSchema(const ProjectLayout& layout, const char* function, const char* no_project) {
  const std::string proto_dir = layout.ProtoDir();
  if (!PathExists(layout.dir())) {
    TuningLog(kLogError, __LINE__, function, "%s: %s", no_project, layout.dir().c_str());
    return false;
  }
  if (!PathExists(proto_dir)) {
    TuningLog(kLogError, __LINE__, function, "Cannot find project proto folder in input proj_dir: %s",
              proto_dir.c_str());
    return false;
  }
  return true;
}

void ReportMissingField(const std::string& name) {
  std::cerr << "Error: Field '" << name << "' not found in Json." << std::endl;
}

}  // namespace api
}  // namespace internal

bool CheckFieldInString(const google::protobuf::FieldDescriptor* field, const std::string& json) {
  return AtBorder(__LINE__, __func__, [&] {
    const std::string* missing = FindMissingField(field, json);
    if (missing != nullptr) api::ReportMissingField(*missing);
    return missing == nullptr;
  });
}

}  // namespace ZO_TUNING

void ZoTuningUtils::ImportDescriptors(const char* dir, google::protobuf::compiler::Importer& importer) {
  // What cannot be listed or loaded is passed over in silence.
  AtBorder(__LINE__, __func__, [&] { (void)ImportFiles(dir, importer, nullptr); });
}

const google::protobuf::Descriptor* ZoTuningUtils::GetDescByClassName(
    const google::protobuf::compiler::Importer& importer, const char* class_name) {
  return AtBorder(__LINE__, __func__, [&] {
    const google::protobuf::Descriptor* type = FindTypeByName(*importer.pool(), class_name);
    if (type == nullptr) api::ReportMissingType(class_name);
    return type;
  });
}
