/// \file
/// Which fields of an object a text has named.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ZO_TUNING {
namespace internal {

/// A set of field indices. Allocates nothing for objects of up to 64 fields.
class SeenFields {
 public:
  explicit SeenFields(size_t field_count) : more_(field_count > 64 ? field_count / 64 : 0) {}
  bool Test(size_t index) const { return (Word(index) >> (index % 64) & 1) != 0; }
  void Set(size_t index) { Word(index) |= uint64_t{1} << (index % 64); }

 private:
  uint64_t& Word(size_t index) { return index < 64 ? first_ : more_[index / 64 - 1]; }
  const uint64_t& Word(size_t index) const { return index < 64 ? first_ : more_[index / 64 - 1]; }

  uint64_t first_ = 0;
  std::vector<uint64_t> more_;
};

}  // namespace internal
}  // namespace ZO_TUNING
