/// \file
/// Whether bytes are a message of a type, without making the message. Memory does not grow with the bytes.
#pragma once

#include <google/protobuf/descriptor.h>

#include <cstdint>

#include "io/record_reader.h"

namespace ZO_TUNING {
namespace internal {

/// Whether CheckWire can judge messages of a type. It cannot where a verdict depends on more than the bytes at hand: on
/// required fields, extensions or message sets, in the type itself or in one that it holds.
bool CanCheckWire(const google::protobuf::Descriptor* type);

enum class WireVerdict {
  kMessage,
  kNoMessage,
  kNotRead,  ///< the reader ended within the bytes
};

/// Whether the next `length` bytes of `reader` are a message of `type`: the verdict of protobuf's ParseFromArray. All
/// of them are read when they are. CanCheckWire has to be true of the type.
WireVerdict CheckWire(RecordReader& reader, int32_t length, const google::protobuf::Descriptor* type);

}  // namespace internal
}  // namespace ZO_TUNING
