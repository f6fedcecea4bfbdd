/// \file
/// How deep message types hold one another. Protobuf makes and walks messages by calls within calls, one a level, and a
/// schema can hold more levels than a stack.
#pragma once

#include <google/protobuf/descriptor.h>

#include <cstddef>
#include <unordered_map>

namespace ZO_TUNING {
namespace internal {

/// Counts the levels of types and remembers them.
class TypeLevels {
 public:
  /// The levels of message types from `type` down, itself among them; those of a cycle count together, each once. Takes
  /// no stack.
  size_t Count(const google::protobuf::Descriptor* type);

 private:
  std::unordered_map<const google::protobuf::Descriptor*, size_t> levels_;
};

/// Whether what is left of this thread's stack is enough for messages of so many levels.
bool StackHolds(size_t levels);

}  // namespace internal
}  // namespace ZO_TUNING
