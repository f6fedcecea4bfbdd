/// \file
/// The tuning data label: its type, and conversion between its messages and label values.
#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <string>
#include <vector>

#include "schema/labels-inl.h"

namespace ZO_TUNING {
namespace internal {

enum class LabelStatus {
  kOk,
  kBadType,      ///< `field` is neither int32 nor enum
  kNoShortName,  ///< the name of `value` is too short for its enum
  kNoField,      ///< the type has no singular field `field`
  kTooFewNames,  ///< there are more values than names
};

struct [[nodiscard]] LabelResult {
  LabelStatus status = LabelStatus::kOk;
  std::string field;
  google::protobuf::FieldDescriptor::Type field_type{};          ///< with kBadType
  const google::protobuf::EnumValueDescriptor* value = nullptr;  ///< with kNoShortName
  size_t name_count = 0;                                         ///< with kTooFewNames
  size_t value_count = 0;                                        ///< with kTooFewNames

  bool ok() const { return status == LabelStatus::kOk; }
};

/// Appends the field names of the label type to `names` and enters the short names of their enum values into
/// `value_names`; the entry of an int32 label is emptied. Ends at the first fault (kBadType, whose name has already
/// been appended, or kNoShortName).
LabelResult AppendLabels(const google::protobuf::Descriptor* type, std::vector<std::string>& names,
                         LabelMap& value_names);

/// Sets the fields names[i] of a label to values[i]. Ends at the first fault (kTooFewNames, kNoField, kBadType); fields
/// already set keep their values.
LabelResult SetLabelValues(google::protobuf::Message* label, const google::protobuf::Descriptor* type,
                           const std::vector<std::string>& names, const std::vector<int>& values);

/// Replaces `values` with those of the fields `names` of a label. Ends at the first fault (kNoField, kBadType); it and
/// all later values are then kLabelNotSet.
LabelResult GetLabelValues(const google::protobuf::Message& label, const google::protobuf::Descriptor* type,
                           const std::vector<std::string>& names, std::vector<int>& values);

/// The wire bytes of a label that SetLabelValues filled. Protobuf's own writer creates a descriptor for each number
/// that an enum does not define, kLabelNotSet among them, and never frees it.
std::string LabelBytes(const google::protobuf::Message& label);

}  // namespace internal
}  // namespace ZO_TUNING
