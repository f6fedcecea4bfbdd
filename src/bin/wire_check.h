/// \file
/// Whether bytes are a message of a type, without creating the message. Memory does not grow with the bytes.
#pragma once

#include <google/protobuf/descriptor.h>

#include <cstdint>

#include "io/record_reader.h"

namespace ZO_TUNING {
namespace internal {

/// Whether CheckWire can check messages of a type. It cannot if the result depends on more than the bytes at hand: on
/// required fields, extensions or message sets, in the type itself or in a type that it contains.
bool CanCheckWire(const google::protobuf::Descriptor* type);

enum class WireVerdict {
  kMessage,
  kNoMessage,
  kNotRead,  ///< the reader ended within the bytes
};

/// Whether the next `length` bytes of `reader` are a message of `type`: the result of protobuf's ParseFromArray. If so,
/// all of them have been read. Requires CanCheckWire(type).
WireVerdict CheckWire(RecordReader& reader, int32_t length, const google::protobuf::Descriptor* type);

}  // namespace internal
}  // namespace ZO_TUNING
