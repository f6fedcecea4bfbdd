// Tested by tests/schema/stack_depth_test.cpp.

#include "schema/stack_depth.h"

#include <pthread.h>

#include <algorithm>
#include <cstdint>

namespace ZO_TUNING {
namespace internal {

namespace {

// Also used if the stack size is unavailable.
constexpr size_t kAlwaysHeld = size_t{32} << 10;

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

bool StackHolds(size_t levels, size_t bytes_per_level) {
  return levels <= kAlwaysHeld / bytes_per_level || levels <= StackBytesLeft() / bytes_per_level;
}

}  // namespace internal
}  // namespace ZO_TUNING
