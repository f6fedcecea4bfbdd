// CheckFieldInString and the walk behind it. Tested by tests/schema/field_check_test.cpp.

#include "schema/field_check.h"

#include <iostream>

#include "ZoTuningUtils.h"

namespace ZO_TUNING {
namespace internal {

bool RequiredFieldNames::Walk(const google::protobuf::FieldDescriptor* field) {
  const std::string& name = field->name();
  if (name == "rule" || name == "value" || name == "description") return true;
  if (!visitor_(name)) return false;
  if (field->type() != google::protobuf::FieldDescriptor::TYPE_MESSAGE) return true;
  const google::protobuf::Descriptor* type = field->message_type();
  if (type == nullptr || !entered_.insert(type).second) return true;
  for (int i = 0; i < type->field_count(); ++i) {
    if (!Walk(type->field(i))) return false;
  }
  return true;
}

bool CheckAllFieldsInString(const google::protobuf::Descriptor* type, const std::string& json) {
  RequiredFieldNames names(
      [&json](const std::string& name) { return json.find(name) != std::string::npos || ReportMissingField(name); });
  for (int i = 0; i < type->field_count(); ++i) {
    if (!names.Walk(type->field(i))) return false;
  }
  return true;
}

bool ReportMissingField(std::string_view name) {
  std::cerr << "Error: Field '" << name << "' not found in Json." << std::endl;
  return false;
}

}  // namespace internal

bool CheckFieldInString(const google::protobuf::FieldDescriptor* field, const std::string& json) try {
  internal::RequiredFieldNames names([&json](const std::string& name) {
    return json.find(name) != std::string::npos || internal::ReportMissingField(name);
  });
  return names.Walk(field);
} catch (...) {
  return internal::ReportException(__LINE__, __func__);
}

}  // namespace ZO_TUNING
