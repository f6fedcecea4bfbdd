/// \file
/// Reading length-prefixed records: the framing that ProjConf.bin and the tuning bins share.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "io/unique_file-inl.h"

namespace ZO_TUNING {
namespace internal {

enum class ReadStatus {
  kOk,
  kEnd,          ///< no byte was left, or could be read, at the start of an integer
  kShortLength,  ///< fewer than four bytes were left there
  kBadLength,    ///< the length is negative, or exceeds the rest of the file
  kShortData,    ///< the file ended, or could not be read on, within the data
  kParseFailed,  ///< the data is not a message of the expected type; reading can continue after it
};

/// Reads 32-bit integers in host byte order and runs of bytes from a file or from memory. After a failure the rest
/// counts as consumed, as after a read past the end. A length is compared with what is left before anything is
/// allocated; if the size of a file is unknown, memory grows only with the bytes that arrive, one step ahead of them.
class RecordReader {
 public:
  /// `file` is open for binary reading, remains the caller's and must outlive the reader.
  explicit RecordReader(std::FILE* file);
  /// `bytes` must outlive the reader.
  explicit RecordReader(std::string_view bytes) : memory_(bytes), size_(bytes.size()) {}

  [[nodiscard]] ReadStatus ReadInt32(int32_t* value);

  /// Reads `length` bytes. `bytes` points into a buffer of the reader until its next call.
  [[nodiscard]] ReadStatus ReadBytes(int32_t length, std::string_view* bytes);

  /// Bytes consumed so far, counted from where the reader started.
  uint64_t offset() const { return offset_; }

 private:
  ReadStatus Fail(ReadStatus status);
  size_t Read(void* to, size_t wanted);

  std::FILE* file_ = nullptr;  ///< null if the bytes are in memory
  std::string_view memory_;
  std::string buffer_;
  uint64_t offset_ = 0;
  uint64_t size_ = UINT64_MAX;  ///< total number of bytes, if known
  bool used_up_ = false;
};

}  // namespace internal
}  // namespace ZO_TUNING
