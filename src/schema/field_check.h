/// \file
/// Whether a JSON text mentions every field of a message type.
#pragma once

#include <google/protobuf/descriptor.h>

#include <functional>
#include <string>
#include <unordered_set>
#include <utility>

namespace ZO_TUNING {
namespace internal {

/// The names that a field check looks for, in order. Each message type is entered once however many fields have it: its
/// names do not depend on where it is used, and the first missing one ends a check anyway. That also stops recursive
/// types.
class RequiredFieldNames {
 public:
  /// Called with each name; false ends the walk.
  using Visitor = std::function<bool(const std::string& name)>;

  explicit RequiredFieldNames(Visitor visitor) : visitor_(std::move(visitor)) {}

  /// Visits the names of `field` and of all fields below it. False if the visitor ended the walk.
  bool Walk(const google::protobuf::FieldDescriptor* field);

 private:
  Visitor visitor_;
  std::unordered_set<const google::protobuf::Descriptor*> entered_;
};

/// The first name that does not occur in `json`, of `field` and the fields below it, or of all fields of a type. Null
/// if all occur; otherwise it belongs to the descriptor.
const std::string* FindMissingField(const google::protobuf::FieldDescriptor* field, const std::string& json);
const std::string* FindMissingField(const google::protobuf::Descriptor* type, const std::string& json);

}  // namespace internal
}  // namespace ZO_TUNING
