/// \file
/// Reading length-prefixed records: the framing that ProjConf.bin and the tuning bins share.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace ZO_TUNING {
namespace internal {

struct FileCloser {
  void operator()(std::FILE* file) const { (void)std::fclose(file); }
};
using UniqueFile = std::unique_ptr<std::FILE, FileCloser>;

enum class ReadStatus {
  kOk,
  kEnd,          ///< no byte was left, or could be read, where an integer begins
  kShortLength,  ///< fewer than four bytes were left there
  kBadLength,    ///< the length is negative, or promises more than the file holds
  kShortData,    ///< the file ended, or could not be read on, within the data
  kParseFailed,  ///< the data is no message of the expected type; reading can go on behind it
};

/// Reads 32-bit integers in host byte order and runs of bytes from a file. After a failure the rest of the file counts
/// as used up, as after a read past its end. A length is compared with what the file holds before anything is
/// allocated; where the file's size is not known, memory grows only with the bytes that arrive, a step ahead of them.
class RecordReader {
 public:
  /// `file` is open for binary reading, stays the caller's and has to outlive the reader.
  explicit RecordReader(std::FILE* file);

  [[nodiscard]] ReadStatus ReadInt32(int32_t* value);

  /// Reads `length` bytes. `bytes` points into a buffer of the reader until its next call.
  [[nodiscard]] ReadStatus ReadBytes(int32_t length, std::string_view* bytes);

  /// Bytes consumed so far, counted from where the reader began.
  uint64_t offset() const { return offset_; }

 private:
  ReadStatus Fail(ReadStatus status);

  std::FILE* file_;
  std::string buffer_;
  uint64_t offset_ = 0;
  uint64_t size_ = UINT64_MAX;  ///< bytes in the file, when that is known
  bool used_up_ = false;
};

}  // namespace internal
}  // namespace ZO_TUNING
