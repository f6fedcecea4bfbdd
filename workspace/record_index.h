/// \file
/// Which versions and records two bins have in common, byte for byte and in whatever order. Memory grows by a few bytes
/// with each item of one of them, and not with the size of an item, nor with the other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <unordered_map>
#include <vector>

#include "bin/bin_scanner.h"

namespace zotuning {

/// The items of one bin, each to be taken out once.
class RecordIndex {
 public:
  /// `file` is the bin; it stays the caller's and has to outlive the index.
  explicit RecordIndex(std::FILE* file) : file_(file) {}

  /// Adds the item that a scanner of the bin is at.
  void Add(ZO_TUNING::internal::BinScanner& scanner);

  /// Takes out an item with the bytes of the one that a scanner of the bin `other` is at. False when none is left.
  bool Take(std::FILE* other, ZO_TUNING::internal::BinScanner& scanner);

  /// Whether the item that was added as the index-th was taken out.
  bool is_taken(size_t index) const { return items_[index].is_taken; }

 private:
  /// A version, or a record with its label.
  struct Item {
    uint64_t offset;
    uint64_t size;
    bool is_version;
    bool is_taken;
  };
  static Item ItemAt(ZO_TUNING::internal::BinScanner& scanner);
  size_t Hash(std::FILE* file, const Item& item);

  std::FILE* file_;
  std::vector<Item> items_;
  std::vector<char> ours_, theirs_;                  ///< bytes of an item, a piece at a time
  std::unordered_multimap<size_t, size_t> by_hash_;  ///< places in items_ of those that are not taken
};

}  // namespace zotuning
