// The tuning data label: GetProjectTuningLabelsMap, and the pair InitTuningLabelMsg and ParseTuningLabelMsg. Tested by
// tests/schema/tuning_label_test.cpp.

#include "schema/tuning_label.h"

#include "ZoTuningUtils.h"
#include "api/operations.h"

using namespace ZO_TUNING::internal;

namespace ZO_TUNING {
namespace internal {
namespace api {

void ReportLabelType(const LabelResult& result) {
  static constexpr char kFunction[] = "GetProjectTuningLabelsMap";
  if (result.status == LabelStatus::kBadType) {
    TuningLog(kLogError, __LINE__, kFunction, "Invalid tuning data label type: %d",
              static_cast<int>(result.field_type));
  } else if (result.status == LabelStatus::kNoShortName) {
    const google::protobuf::EnumDescriptor* type = result.value->type();
    TuningLog(kLogError, __LINE__, kFunction,
              "Value %s of enum %s has no short name, please name it %s_ and the short name",
              result.value->name().c_str(), type->full_name().c_str(), type->name().c_str());
  }
}

bool ReportLabel(const LabelResult& result, const char* function) {
  switch (result.status) {
    case LabelStatus::kOk:
    case LabelStatus::kNoShortName:  // of the type, not of its messages
      break;
    case LabelStatus::kBadType:
      TuningLog(kLogError, __LINE__, function, "Unexpected field type in tuning label: %d",
                static_cast<int>(result.field_type));
      break;
    case LabelStatus::kNoField:
      TuningLog(kLogError, __LINE__, function, "Error in finding the field descriptor of %s", result.field.c_str());
      break;
    case LabelStatus::kTooFewNames:
      TuningLog(kLogError, __LINE__, function, "There are %zu label values but only %zu label names",
                result.value_count, result.name_count);
      break;
  }
  return result.ok();
}

bool ParseTuningLabelMsg(const google::protobuf::Message& message, const google::protobuf::Descriptor* descriptor,
                         const std::vector<std::string>& label_names, std::vector<int>& label_values) {
  return ReportLabel(GetLabelValues(message, descriptor, label_names, label_values), __func__);
}

}  // namespace api
}  // namespace internal
}  // namespace ZO_TUNING

bool ZoTuningUtils::GetProjectTuningLabelsMap(const google::protobuf::Descriptor* descriptor,
                                              std::vector<std::string>& label_names,
                                              std::map<std::string, std::map<int, std::string>>& label_map) {
  return AtBorder(__LINE__, __func__, [&] {
    const LabelResult result = AppendLabels(descriptor, label_names, label_map);
    api::ReportLabelType(result);
    return result.ok();
  });
}

bool ZoTuningUtils::InitTuningLabelMsg(google::protobuf::Message* message,
                                       const google::protobuf::Descriptor* descriptor,
                                       std::vector<std::string>& label_names, const std::vector<int>& label_values) {
  const char* const function = __func__;
  return AtBorder(__LINE__, function, [&] {
    return api::ReportLabel(SetLabelValues(message, descriptor, label_names, label_values), function);
  });
}

bool ZoTuningUtils::ParseTuningLabelMsg(google::protobuf::Message* message,
                                        const google::protobuf::Descriptor* descriptor,
                                        std::vector<std::string>& label_names, std::vector<int>& label_values) {
  return AtBorder(__LINE__, __func__,
                  [&] { return api::ParseTuningLabelMsg(*message, descriptor, label_names, label_values); });
}
