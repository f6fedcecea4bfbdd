// Tested by tests/schema/field_check_test.cpp.

#include "schema/field_check.h"

namespace ZO_TUNING {
namespace internal {

namespace {

/// Walks fields until a name is missing, and keeps that name.
class MissingField {
 public:
  explicit MissingField(const std::string& json)
      : names_([this, &json](const std::string& name) {
          if (json.find(name) == std::string::npos) missing_ = &name;
          return missing_ == nullptr;
        }) {}

  const std::string* In(const google::protobuf::FieldDescriptor* field) {
    (void)names_.Walk(field);
    return missing_;
  }

 private:
  const std::string* missing_ = nullptr;
  RequiredFieldNames names_;
};

}  // namespace

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

const std::string* FindMissingField(const google::protobuf::FieldDescriptor* field, const std::string& json) {
  return MissingField(json).In(field);
}

const std::string* FindMissingField(const google::protobuf::Descriptor* type, const std::string& json) {
  MissingField missing(json);
  for (int i = 0; i < type->field_count(); ++i) {
    if (const std::string* name = missing.In(type->field(i))) return name;
  }
  return nullptr;
}

}  // namespace internal
}  // namespace ZO_TUNING
