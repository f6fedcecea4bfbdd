// Tested by tests/schema/schema_import_test.cpp.

#include "schema/type_levels.h"

#include <pthread.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace ZO_TUNING {
namespace internal {

namespace {

using google::protobuf::Descriptor;

// What any stack holds, and twice what protobuf's calls were seen to take for a level.
constexpr size_t kLevelsAlwaysHeld = 256;
constexpr size_t kStackBytesPerLevel = 1024;

size_t StackBytesLeft() {
  pthread_attr_t attributes;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) return 0;
  void* lowest = nullptr;
  size_t size = 0;
  const bool known = pthread_attr_getstack(&attributes, &lowest, &size) == 0;
  (void)pthread_attr_destroy(&attributes);
  const auto here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
  const auto end = reinterpret_cast<uintptr_t>(lowest);
  return known && here > end ? here - end : 0;
}

}  // namespace

size_t TypeLevels::Count(const Descriptor* type) {
  struct Open {
    const Descriptor* type;
    int next_field;
    size_t below;
  };
  std::vector<Open> open;
  const auto enter = [&](const Descriptor* entered) {
    const bool is_new = levels_.emplace(entered, 0).second;  // 0 while it is open
    if (is_new) open.push_back({entered, 0, 0});
    return is_new;
  };
  enter(type);
  while (!open.empty()) {
    Open& top = open.back();
    if (top.next_field == top.type->field_count()) {
      levels_[top.type] = top.below + 1;
      open.pop_back();
      continue;
    }
    const Descriptor* next = top.type->field(top.next_field)->message_type();
    if (next != nullptr && enter(next)) continue;  // and comes back to this field
    if (next != nullptr) top.below = std::max(top.below, levels_[next]);
    ++top.next_field;
  }
  return levels_[type];
}

bool StackHolds(size_t levels) {
  return levels <= kLevelsAlwaysHeld || levels <= StackBytesLeft() / kStackBytesPerLevel;
}

}  // namespace internal
}  // namespace ZO_TUNING
