/// \file
/// Whether a JSON text mentions every field of a message type.
#pragma once

#include <google/protobuf/descriptor.h>

#include <functional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>

namespace ZO_TUNING {
namespace internal {

/// The names that a field check asks for, in its order. Each message type is entered once however many fields have it:
/// its names do not depend on where it is used, and the first missing one ends a check anyway. That also ends types
/// that contain themselves.
class RequiredFieldNames {
 public:
  /// Called with each name; false ends the walk.
  using Visitor = std::function<bool(const std::string& name)>;

  explicit RequiredFieldNames(Visitor visitor) : visitor_(std::move(visitor)) {}

  /// Visits the names of `field` and of all fields below it. False when the visitor ended the walk.
  bool Walk(const google::protobuf::FieldDescriptor* field);

 private:
  Visitor visitor_;
  std::unordered_set<const google::protobuf::Descriptor*> entered_;
};

/// Whether the names of all fields of `type` occur in `json`; the first missing one is reported.
bool CheckAllFieldsInString(const google::protobuf::Descriptor* type, const std::string& json);

/// Writes to standard error that `name` is missing. Returns false, so that it can be returned in turn.
bool ReportMissingField(std::string_view name);

}  // namespace internal
}  // namespace ZO_TUNING
