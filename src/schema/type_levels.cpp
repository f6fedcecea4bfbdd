// Tested by tests/schema/stack_depth_test.cpp and schema_import_test.cpp.

#include "schema/type_levels.h"

#include "schema/stack_depth.h"

namespace ZO_TUNING {
namespace internal {

using google::protobuf::Descriptor;

size_t TypeLevels::Count(const Descriptor* type) {
  const auto field_type = [](const Descriptor* holder, size_t i, const Descriptor** next) {
    const int index = static_cast<int>(i);
    if (index >= holder->field_count()) return false;
    *next = holder->field(index)->message_type();
    return true;
  };
  return LongestChain(type, levels_, field_type, [](const Descriptor*) { return size_t{1}; });
}

bool StackHolds(size_t levels) { return StackHolds(levels, kStackPerTypeLevel); }

}  // namespace internal
}  // namespace ZO_TUNING
