// Tested by tests/json/rules_test.cpp.

#include "json/pruned_size.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <unordered_map>
#include <vector>

#include "json/rules-inl.h"

namespace ZO_TUNING {
namespace internal {

namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

constexpr size_t kMaxBytes = static_cast<size_t>(std::numeric_limits<int32_t>::max());
constexpr int kReadLevels = 100;

/// Mirrors RulePruner without creating anything. The size of a type is cached unless it depends on the types that are
/// open around it, so that the work is bounded by the types and by the bytes counted.
class PruningCount {
 public:
  bool Fits(const Message& message, const Descriptor* type) {
    CountIn(message, type);
    return bytes_ <= kMaxBytes;
  }

 private:
  static constexpr size_t kNone = std::numeric_limits<size_t>::max();

  // Roughly what a dynamic message and its allocation take.
  static size_t BytesOf(const Descriptor* type) { return 64 + 16 * static_cast<size_t>(type->field_count()); }

  static bool IsCreated(const FieldDescriptor* field) {
    return !field->is_repeated() && field->type() == FieldDescriptor::TYPE_MESSAGE &&
           !IsStructArrayRule(field->message_type()->name());
  }

  /// Counts what would be created in an existing message. Its type is not open yet.
  void CountIn(const Message& message, const Descriptor* type) {
    open_.emplace(type, open_.size());
    for (int i = 0; i < type->field_count() && bytes_ <= kMaxBytes; ++i) {
      const FieldDescriptor* field = type->field(i);
      if (!IsCreated(field)) continue;
      const Descriptor* below = field->message_type();
      if (!message.GetReflection()->HasField(message, field)) {
        (void)CountAbsent(below);
      } else if (!IsDataType(below->name()) && open_.count(below) == 0) {
        CountIn(message.GetReflection()->GetMessage(message, field), below);
      }
    }
    open_.erase(type);
  }

  /// Counts a message that would be created. Returns the least depth of an open type at which it ended, or kNone.
  size_t CountAbsent(const Descriptor* type) {
    const auto known = counted_.find(type);
    if (known != counted_.end()) {
      bytes_ += known->second;
      return kNone;
    }
    const size_t before = bytes_, depth = open_.size();
    bytes_ += BytesOf(type);
    const auto [opened, is_first] = open_.emplace(type, depth);
    if (!is_first) return opened->second;
    size_t least = kNone;
    for (int i = 0; i < type->field_count() && bytes_ <= kMaxBytes && !IsDataType(type->name()); ++i) {
      if (IsCreated(type->field(i))) least = std::min(least, CountAbsent(type->field(i)->message_type()));
    }
    open_.erase(type);
    // A type in a cycle is smaller inside the other types of the cycle.
    if (least > depth) counted_[type] = bytes_ - before;
    return least;
  }

  size_t bytes_ = 0;
  std::unordered_map<const Descriptor*, size_t> open_;  ///< with the depth of each
  std::unordered_map<const Descriptor*, size_t> counted_;
};

bool Nests(const Message& message, int levels) {
  const google::protobuf::Reflection* reflection = message.GetReflection();
  std::vector<const FieldDescriptor*> fields;
  reflection->ListFields(message, &fields);
  for (const FieldDescriptor* field : fields) {
    if (field->cpp_type() != FieldDescriptor::CPPTYPE_MESSAGE) continue;
    if (levels == 0) return false;
    if (!field->is_repeated()) {
      if (!Nests(reflection->GetMessage(message, field), levels - 1)) return false;
      continue;
    }
    for (int i = 0; i < reflection->FieldSize(message, field); ++i) {
      if (!Nests(reflection->GetRepeatedMessage(message, field, i), levels - 1)) return false;
    }
  }
  return true;
}

}  // namespace

bool PruningFits(const Message& message, const Descriptor* type) { return PruningCount().Fits(message, type); }

bool CanBeRead(const Message& message) { return Nests(message, kReadLevels); }

}  // namespace internal
}  // namespace ZO_TUNING
