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

/// Follows RulePruner without creating anything. What a type comes to is remembered unless it depends on the types that
/// are open around it, so that the work is bounded by the types and by the bytes counted.
class PruningCount {
 public:
  bool Fits(const Message& message, const Descriptor* type) {
    Enter(type);
    Present(message, type);
    return bytes_ <= kMaxBytes;
  }

 private:
  static constexpr size_t kNone = std::numeric_limits<size_t>::max();

  // About what a dynamic message and its allocation take.
  static size_t BytesOf(const Descriptor* type) { return 64 + 16 * static_cast<size_t>(type->field_count()); }

  static bool IsEntered(const FieldDescriptor* field) {
    return !field->is_repeated() && field->type() == FieldDescriptor::TYPE_MESSAGE &&
           !IsStructArrayRule(field->message_type()->name());
  }

  void Enter(const Descriptor* type) { open_[type].push_back(depth_++); }
  void Leave(const Descriptor* type) {
    open_[type].pop_back();
    --depth_;
  }

  void Present(const Message& message, const Descriptor* type) {
    for (int i = 0; i < type->field_count() && bytes_ <= kMaxBytes; ++i) {
      const FieldDescriptor* field = type->field(i);
      if (!IsEntered(field)) continue;
      const Descriptor* below = field->message_type();
      if (!message.GetReflection()->HasField(message, field)) {
        (void)Absent(below);
      } else if (!IsDataType(below->name())) {
        Enter(below);
        Present(message.GetReflection()->GetMessage(message, field), below);
        Leave(below);
      }
    }
  }

  /// Counts a message that would be created. The outermost open type that ended the way down, kNone for none.
  size_t Absent(const Descriptor* type) {
    const auto known = counted_.find(type);
    if (known != counted_.end()) {
      bytes_ += known->second;
      return kNone;
    }
    const std::vector<size_t>& around = open_[type];
    if (!around.empty()) return around.front();
    const size_t before = bytes_;
    const size_t own_depth = depth_;
    size_t outermost = kNone;
    bytes_ += BytesOf(type);
    if (!IsDataType(type->name())) {
      Enter(type);
      for (int i = 0; i < type->field_count() && bytes_ <= kMaxBytes; ++i) {
        if (IsEntered(type->field(i))) outermost = std::min(outermost, Absent(type->field(i)->message_type()));
      }
      Leave(type);
    }
    if (outermost < own_depth) return outermost;
    counted_[type] = bytes_ - before;
    return kNone;
  }

  size_t bytes_ = 0;
  size_t depth_ = 0;
  std::unordered_map<const Descriptor*, std::vector<size_t>> open_;  ///< at which depths a type is open
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
