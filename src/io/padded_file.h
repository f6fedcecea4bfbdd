/// \file
/// Reading files whole, one after another, into one buffer.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace ZO_TUNING {
namespace internal {

/// Zero bytes that are readable after a text, so that a lexer needs no bounds checks.
constexpr size_t kTextPadding = 64;

/// The text of the file read last, with kTextPadding zero bytes after it.
class PaddedFile {
 public:
  /// Replaces the text. False, with errno set, when the file cannot be opened or read to its end;
  /// EFBIG for one of 2 GiB and more.
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
