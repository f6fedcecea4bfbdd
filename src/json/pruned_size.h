/// \file
/// What pruning would make of a message, determined before anything is created.
#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

namespace ZO_TUNING {
namespace internal {

/// Whether the messages that PruneRules would create in `message`, of type `type`, take less than 2 GiB of memory.
/// Creates nothing.
bool PruningFits(const google::protobuf::Message& message, const google::protobuf::Descriptor* type);

/// Whether protobuf's parsers accept `message` again: they go down 100 levels of messages and no further.
bool CanBeRead(const google::protobuf::Message& message);

}  // namespace internal
}  // namespace ZO_TUNING
