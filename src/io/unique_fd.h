/// \file
/// The owner of a file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace ZO_TUNING {
namespace internal {

/// Owns a file descriptor; a negative number means none.
class UniqueFd {
 public:
  explicit UniqueFd(int number = -1) : number_(number) {}
  UniqueFd(UniqueFd&& other) noexcept : number_(other.Release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) {
      (void)Close();
      number_ = other.Release();
    }
    return *this;
  }
  ~UniqueFd() { (void)Close(); }

  int get() const { return number_; }
  bool is_open() const { return number_ >= 0; }
  int Release() { return std::exchange(number_, -1); }

  /// False, with errno set, if what was written may not have reached the file.
  bool Close() {
    const int closing = Release();
    return closing < 0 || ::close(closing) == 0;
  }

 private:
  int number_;
};

}  // namespace internal
}  // namespace ZO_TUNING
