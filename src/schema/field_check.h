/// \file
/// Whether a JSON text mentions every field of a message type.
#pragma once

#include <google/protobuf/descriptor.h>

#include <string>
#include <unordered_set>

namespace ZO_TUNING {
namespace internal {

/// The field check of one text. Each message type is looked at once however many fields have it: its answer does not
/// depend on where it is used, and the first missing name ends the check anyway. That also ends types that contain
/// themselves.
class FieldCheck {
 public:
  /// `json` has to outlive the check.
  explicit FieldCheck(const std::string& json) : json_(json) {}

  /// Whether the names of `field` and of all fields below it occur in the text; the first missing one is written to
  /// standard error.
  bool Check(const google::protobuf::FieldDescriptor* field);

 private:
  const std::string& json_;
  std::unordered_set<const google::protobuf::Descriptor*> visited_;
};

}  // namespace internal
}  // namespace ZO_TUNING
