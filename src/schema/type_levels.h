/// \file
/// How deeply message types are nested. Protobuf creates and walks messages recursively, one call per level, and a
/// schema can have more levels than fit on a stack.
#pragma once

#include <google/protobuf/descriptor.h>

#include <cstddef>
#include <unordered_map>

namespace ZO_TUNING {
namespace internal {

/// Counts the levels of types and caches the results.
class TypeLevels {
 public:
  /// The levels of message types from `type` down, itself included; those of a cycle are added up, each once. Does not
  /// recurse.
  size_t Count(const google::protobuf::Descriptor* type);

 private:
  std::unordered_map<const google::protobuf::Descriptor*, size_t> levels_;
};

/// Whether the rest of this thread's stack is enough for messages of this many levels.
bool StackHolds(size_t levels);

}  // namespace internal
}  // namespace ZO_TUNING
