/// \file
/// Reading files, one after another, into one buffer.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace ZO_TUNING {
namespace internal {

/// Number of zero bytes that follow a text, so that a lexer needs no bounds checks.
constexpr size_t kTextPadding = 64;

/// The text of the last file read, followed by kTextPadding zero bytes.
class PaddedFile {
 public:
  /// Replaces the text. False, with errno set, if the file cannot be opened or read to its end; EFBIG for a file of 2
  /// GiB or more.
  [[nodiscard]] bool Read(const std::string& path);

  /// Valid until the next Read.
  std::string_view text() const { return {buffer_.get(), size_}; }

 private:
  void Grow(size_t capacity);

  std::unique_ptr<char[]> buffer_;
  size_t capacity_ = 0;
  size_t size_ = 0;
};

}  // namespace internal
}  // namespace ZO_TUNING
