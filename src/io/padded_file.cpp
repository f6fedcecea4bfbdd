// Tested by tests/io/padded_file_test.cpp.

#include "io/padded_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

#include "io/unique_fd.h"

namespace ZO_TUNING {
namespace internal {

namespace {

constexpr size_t kFirstCapacity = size_t{64} << 10;

// Protobuf counts the bytes of a text in an int, and truncates longer ones.
constexpr size_t kMaxSize = std::numeric_limits<int32_t>::max();

bool TooLarge() {
  errno = EFBIG;
  return false;
}

}  // namespace

bool PaddedFile::Read(const std::string& path) {
  size_ = 0;
  const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.get() < 0) return false;
  struct stat info;
  if (fstat(file.get(), &info) != 0) return false;
  if (S_ISREG(info.st_mode) && static_cast<uint64_t>(info.st_size) > kMaxSize) return TooLarge();
  // One more byte, so that the end of the file is found without growing.
  const size_t expected = S_ISREG(info.st_mode) ? static_cast<size_t>(info.st_size) + 1 : 0;
  if (capacity_ < expected + kTextPadding) Grow(std::max(expected + kTextPadding, kFirstCapacity));
  for (;;) {
    if (capacity_ - size_ <= kTextPadding) Grow(2 * capacity_);
    const ssize_t got = read(file.get(), buffer_.get() + size_, capacity_ - size_ - kTextPadding);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    if (got == 0) break;
    size_ += static_cast<size_t>(got);
    if (size_ > kMaxSize) return TooLarge();
  }
  std::memset(buffer_.get() + size_, 0, kTextPadding);
  return true;
}

void PaddedFile::Grow(size_t capacity) {
  std::unique_ptr<char[]> buffer(new char[capacity]);
  if (size_ > 0) std::memcpy(buffer.get(), buffer_.get(), size_);
  buffer_ = std::move(buffer);
  capacity_ = capacity;
}

}  // namespace internal
}  // namespace ZO_TUNING
