/// \file
/// Messages as length-prefixed records: the framing that ProjConf.bin and the tuning bins share. RecordReader reads
/// them back.
#pragma once

#include <google/protobuf/message.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

namespace ZO_TUNING {
namespace internal {

/// Whether the length of a message fits a record.
inline bool FitsRecord(size_t size) { return size <= static_cast<size_t>(std::numeric_limits<int32_t>::max()); }

/// The record of a message: an int32 length in host byte order, then the wire bytes. Empty if the message does not fit
/// one.
inline std::string RecordOf(const google::protobuf::Message& message) {
  const size_t size = message.ByteSizeLong();
  if (!FitsRecord(size)) return {};
  const int32_t length = static_cast<int32_t>(size);
  std::string record(sizeof(length) + size, '\0');
  std::memcpy(&record[0], &length, sizeof(length));
  // The partial form: with checks enabled, protobuf stops at an unset required field; without, it writes what there is.
  message.SerializePartialToArray(&record[sizeof(length)], length);
  return record;
}

}  // namespace internal
}  // namespace ZO_TUNING
