/// \file
/// Whether bytes are a message of a type, without creating the message. Memory does not grow with the bytes.
#pragma once

#include <google/protobuf/descriptor.h>

#include <cstdint>
#include <vector>

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

/// A field of a message that its type does not have, or has in another form.
struct UnknownField {
  const google::protobuf::Descriptor* type;  ///< of the message
  uint32_t number;

  bool operator==(const UnknownField& other) const { return type == other.type && number == other.number; }
};
constexpr size_t kMaxUnknownFields = 20;

/// Whether the next `length` bytes of `reader` are a message of `type`: the verdict of protobuf's ParseFromArray. All
/// of them are read when they are. CanCheckWire has to be true of the type for that. Null for a message of any type.
/// The unknown fields that are met are added to `unknown`, each once, until there are kMaxUnknownFields.
WireVerdict CheckWire(RecordReader& reader, int32_t length, const google::protobuf::Descriptor* type,
                      std::vector<UnknownField>* unknown = nullptr);

}  // namespace internal
}  // namespace ZO_TUNING
