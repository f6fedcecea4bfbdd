/// \file
/// Reading a tuning bin. Format: docs/tuning-bin.md; BinWriter is its mirror.
#pragma once

#include <google/protobuf/message.h>

#include <cstdint>
#include <cstdio>
#include <string_view>

#include "io/record_reader.h"

namespace ZO_TUNING {
namespace internal {

/// Reads the items of one bin in order: the version count, then length and message of each version, then length and
/// message of label and module until the end. The caller knows which message comes next.
class BinReader {
 public:
  /// `file` is open for binary reading, remains the caller's and must outlive the reader.
  explicit BinReader(std::FILE* file) : records_(file) {}

  /// The number of version messages that follow; 0 if the bin has no version block, is too short for the number, or the
  /// number is negative.
  int32_t ReadVersionCount();

  /// The length of the next message. kEnd if the bin ends properly.
  [[nodiscard]] ReadStatus ReadLength(int32_t* length) { return records_.ReadInt32(length); }

  /// The bytes of the next message, valid until the next call.
  [[nodiscard]] ReadStatus ReadBytes(int32_t length, std::string_view* bytes) {
    return records_.ReadBytes(length, bytes);
  }

  /// Replaces `message` with the next `length` bytes; kParseFailed if they are not a message of its type.
  [[nodiscard]] ReadStatus ReadMessage(int32_t length, google::protobuf::Message* message);

  /// Bytes consumed so far.
  uint64_t offset() const { return records_.offset(); }

 private:
  RecordReader records_;
};

}  // namespace internal
}  // namespace ZO_TUNING
