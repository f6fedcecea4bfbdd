// The tuning data label: GetProjectTuningLabelsMap, and the pair InitTuningLabelMsg and ParseTuningLabelMsg. Tested by
// tests/schema/tuning_label_test.cpp.

#include <string>

#include "ZoTuningUtils.h"

using namespace ZO_TUNING::internal;
using google::protobuf::FieldDescriptor;

namespace {

/// The field of a label that reflection can set and read as one value, or null.
const FieldDescriptor* FindLabelField(const google::protobuf::Descriptor* descriptor, const std::string& name) {
  const FieldDescriptor* field = descriptor->FindFieldByName(name);
  return field == nullptr || field->is_repeated() ? nullptr : field;
}

}  // namespace

bool ZoTuningUtils::GetProjectTuningLabelsMap(const google::protobuf::Descriptor* descriptor,
                                              std::vector<std::string>& label_names,
                                              std::map<std::string, std::map<int, std::string>>& label_map) try {
  for (int i = 0; i < descriptor->field_count(); ++i) {
    const FieldDescriptor* field = descriptor->field(i);
    label_names.push_back(field->name());
    if (field->type() == FieldDescriptor::TYPE_INT32) {
      label_map[field->name()] = {};
    } else if (field->type() == FieldDescriptor::TYPE_ENUM) {
      const google::protobuf::EnumDescriptor* type = field->enum_type();
      const size_t prefix_length = type->name().size() + 1;
      for (int k = 0; k < type->value_count(); ++k) {
        const google::protobuf::EnumValueDescriptor* value = type->value(k);
        if (value->name().size() < prefix_length) {
          TuningLog(kLogError, __LINE__, __func__,
                    "Value %s of enum %s has no short name, please name it %s_ and the short name",
                    value->name().c_str(), type->full_name().c_str(), type->name().c_str());
          return false;
        }
        label_map[field->name()][value->number()] = value->name().substr(prefix_length);
      }
    } else {
      TuningLog(kLogError, __LINE__, __func__, "Invalid tuning data label type: %d", static_cast<int>(field->type()));
      return false;
    }
  }
  return true;
} catch (...) {
  return ReportException(__LINE__, __func__);
}

bool ZoTuningUtils::InitTuningLabelMsg(google::protobuf::Message* message,
                                       const google::protobuf::Descriptor* descriptor,
                                       std::vector<std::string>& label_names,
                                       const std::vector<int>& label_values) try {
  const google::protobuf::Reflection* reflection = message->GetReflection();
  for (size_t i = 0; i < label_values.size(); ++i) {
    if (i >= label_names.size()) {
      TuningLog(kLogError, __LINE__, __func__, "There are %zu label values but only %zu label names",
                label_values.size(), label_names.size());
      return false;
    }
    const FieldDescriptor* field = FindLabelField(descriptor, label_names[i]);
    if (field == nullptr) {
      TuningLog(kLogError, __LINE__, __func__, "Error in finding the field descriptor of %s", label_names[i].c_str());
      return false;
    }
    if (field->type() == FieldDescriptor::TYPE_INT32) {
      reflection->SetInt32(message, field, label_values[i]);
    } else if (field->type() == FieldDescriptor::TYPE_ENUM) {
      reflection->SetEnumValue(message, field, label_values[i]);
    } else {
      TuningLog(kLogError, __LINE__, __func__, "Unexpected field type in tuning label: %d",
                static_cast<int>(field->type()));
      return false;
    }
  }
  return true;
} catch (...) {
  return ReportException(__LINE__, __func__);
}

bool ZoTuningUtils::ParseTuningLabelMsg(google::protobuf::Message* message,
                                        const google::protobuf::Descriptor* descriptor,
                                        std::vector<std::string>& label_names, std::vector<int>& label_values) try {
  label_values.assign(label_names.size(), -1);
  const google::protobuf::Reflection* reflection = message->GetReflection();
  for (size_t i = 0; i < label_names.size(); ++i) {
    const FieldDescriptor* field = FindLabelField(descriptor, label_names[i]);
    if (field == nullptr) {
      TuningLog(kLogError, __LINE__, __func__, "Error in finding the field descriptor of %s", label_names[i].c_str());
      return false;
    }
    if (field->type() == FieldDescriptor::TYPE_INT32) {
      label_values[i] = reflection->GetInt32(*message, field);
    } else if (field->type() == FieldDescriptor::TYPE_ENUM) {
      label_values[i] = reflection->GetEnumValue(*message, field);
    } else {
      TuningLog(kLogError, __LINE__, __func__, "Unexpected field type in tuning label: %d",
                static_cast<int>(field->type()));
      return false;
    }
  }
  return true;
} catch (...) {
  return ReportException(__LINE__, __func__);
}
