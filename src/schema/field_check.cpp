// CheckFieldInString and the class FieldCheck behind it. Tested by tests/schema/field_check_test.cpp.

#include "schema/field_check.h"

#include <iostream>

#include "ZoTuningUtils.h"

namespace ZO_TUNING {
namespace internal {

bool FieldCheck::Check(const google::protobuf::FieldDescriptor* field) {
  const std::string& name = field->name();
  if (name == "rule" || name == "value" || name == "description") return true;
  if (json_.find(name) == std::string::npos) {
    std::cerr << "Error: Field '" << name << "' not found in Json." << std::endl;
    return false;
  }
  if (field->type() != google::protobuf::FieldDescriptor::TYPE_MESSAGE) return true;
  const google::protobuf::Descriptor* type = field->message_type();
  if (type == nullptr || !visited_.insert(type).second) return true;
  for (int i = 0; i < type->field_count(); ++i) {
    if (!Check(type->field(i))) return false;
  }
  return true;
}

}  // namespace internal

bool CheckFieldInString(const google::protobuf::FieldDescriptor* field, const std::string& json) try {
  return internal::FieldCheck(json).Check(field);
} catch (...) {
  return internal::ReportException(__LINE__, __func__);
}

}  // namespace ZO_TUNING
