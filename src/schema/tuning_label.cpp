// Tested by tests/schema/tuning_label_test.cpp.

#include "schema/tuning_label.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/unknown_field_set.h>

namespace ZO_TUNING {
namespace internal {

namespace {

using google::protobuf::FieldDescriptor;

/// The field of a label that reflection can set and read as one value, or null.
const FieldDescriptor* FindLabelField(const google::protobuf::Descriptor* type, const std::string& name) {
  const FieldDescriptor* field = type->FindFieldByName(name);
  return field == nullptr || field->is_repeated() ? nullptr : field;
}

LabelResult Fault(LabelStatus status, const std::string& field) {
  LabelResult result;
  result.status = status;
  result.field = field;
  return result;
}

LabelResult BadType(const FieldDescriptor* field) {
  LabelResult result = Fault(LabelStatus::kBadType, field->name());
  result.field_type = field->type();
  return result;
}

}  // namespace

LabelResult AppendLabels(const google::protobuf::Descriptor* type, std::vector<std::string>& names,
                         LabelMap& value_names) {
  for (int i = 0; i < type->field_count(); ++i) {
    const FieldDescriptor* field = type->field(i);
    names.push_back(field->name());
    if (field->type() == FieldDescriptor::TYPE_INT32) {
      value_names[field->name()] = {};
      continue;
    }
    if (field->type() != FieldDescriptor::TYPE_ENUM) return BadType(field);
    const google::protobuf::EnumDescriptor* enumeration = field->enum_type();
    const size_t prefix_length = enumeration->name().size() + 1;
    for (int k = 0; k < enumeration->value_count(); ++k) {
      const google::protobuf::EnumValueDescriptor* value = enumeration->value(k);
      if (value->name().size() < prefix_length) {
        LabelResult result = Fault(LabelStatus::kNoShortName, field->name());
        result.value = value;
        return result;
      }
      value_names[field->name()][value->number()] = value->name().substr(prefix_length);
    }
  }
  return {};
}

LabelResult SetLabelValues(google::protobuf::Message* label, const google::protobuf::Descriptor* type,
                           const std::vector<std::string>& names, const std::vector<int>& values) {
  const google::protobuf::Reflection* reflection = label->GetReflection();
  for (size_t i = 0; i < values.size(); ++i) {
    if (i >= names.size()) {
      LabelResult result = Fault(LabelStatus::kTooFewNames, {});
      result.name_count = names.size();
      result.value_count = values.size();
      return result;
    }
    const FieldDescriptor* field = FindLabelField(type, names[i]);
    if (field == nullptr) return Fault(LabelStatus::kNoField, names[i]);
    if (field->type() == FieldDescriptor::TYPE_INT32) {
      reflection->SetInt32(label, field, values[i]);
    } else if (field->type() == FieldDescriptor::TYPE_ENUM) {
      reflection->SetEnumValue(label, field, values[i]);
    } else {
      return BadType(field);
    }
  }
  return {};
}

LabelResult GetLabelValues(const google::protobuf::Message& label, const google::protobuf::Descriptor* type,
                           const std::vector<std::string>& names, std::vector<int>& values) {
  values.assign(names.size(), kLabelNotSet);
  const google::protobuf::Reflection* reflection = label.GetReflection();
  for (size_t i = 0; i < names.size(); ++i) {
    const FieldDescriptor* field = FindLabelField(type, names[i]);
    if (field == nullptr) return Fault(LabelStatus::kNoField, names[i]);
    if (field->type() == FieldDescriptor::TYPE_INT32) {
      values[i] = reflection->GetInt32(label, field);
    } else if (field->type() == FieldDescriptor::TYPE_ENUM) {
      values[i] = reflection->GetEnumValue(label, field);
    } else {
      return BadType(field);
    }
  }
  return {};
}

std::string LabelBytes(const google::protobuf::Message& label) {
  const google::protobuf::Reflection* reflection = label.GetReflection();
  std::vector<const FieldDescriptor*> fields;
  reflection->ListFields(label, &fields);  // by field number, as on the wire
  std::string bytes;
  {
    google::protobuf::io::StringOutputStream stream(&bytes);
    google::protobuf::io::CodedOutputStream out(&stream);
    for (const FieldDescriptor* field : fields) {
      out.WriteTag(static_cast<uint32_t>(field->number()) << 3);
      out.WriteVarint32SignExtended(field->type() == FieldDescriptor::TYPE_ENUM ? reflection->GetEnumValue(label, field)
                                                                                : reflection->GetInt32(label, field));
    }
  }
  // The numbers that a closed enum does not define are kept there.
  std::string unknown;
  (void)reflection->GetUnknownFields(label).SerializeToString(&unknown);
  return bytes + unknown;
}

}  // namespace internal
}  // namespace ZO_TUNING
