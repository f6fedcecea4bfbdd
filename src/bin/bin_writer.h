/// \file
/// Writing a tuning bin. Format: docs/tuning-bin.md; BinReader is its mirror.
#pragma once

#include <google/protobuf/message.h>

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "io/unique_file-inl.h"

namespace ZO_TUNING {
namespace internal {

/// Writes one bin through a buffer that is always flushed: what was written before a failure is in the file. A failure
/// sticks: later writes do nothing, and ok() and Close() stay false.
class BinWriter {
 public:
  BinWriter() = default;
  BinWriter(const BinWriter&) = delete;
  BinWriter& operator=(const BinWriter&) = delete;

  /// Creates or empties the file. False if it cannot be opened; see error().
  [[nodiscard]] bool Open(const std::string& path);

  /// The version block: the number of messages, then each of them.
  void WriteVersions(const std::vector<google::protobuf::Message*>& versions);

  /// The length of `message` and its wire bytes.
  void WriteMessage(const google::protobuf::Message& message);

  /// The length of `bytes` and the bytes, an already serialised message.
  void WriteMessageBytes(std::string_view bytes);

  /// Flushes and closes. False if any byte did not reach the file; see error().
  [[nodiscard]] bool Close();

  bool ok() const { return error_ == 0; }

  /// The errno of the first failure, or 0.
  int error() const { return error_; }

 private:
  void Write(const void* data, size_t size);
  void Fail(int error);

  std::string stream_buffer_;  // outlives file_, which flushes through it when it closes
  UniqueFile file_;
  std::string message_bytes_;
  int error_ = 0;
};

}  // namespace internal
}  // namespace ZO_TUNING
