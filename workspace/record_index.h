/// \file
/// Which versions and records two bins have in common, byte for byte and in any order. Memory grows by a few bytes per
/// item of one of them, and does not depend on the size of an item or on the other bin.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <unordered_map>
#include <vector>

#include "bin/bin_scanner.h"

namespace zotuning {

/// The items of one bin, each of which can be taken once.
class RecordIndex {
 public:
  /// `file` is the bin; it remains the caller's and must outlive the index.
  explicit RecordIndex(std::FILE* file) : file_(file) {}

  /// Adds the item at which a scanner of the bin is.
  void Add(ZO_TUNING::internal::BinScanner& scanner);

  /// Takes an item with the same bytes as the one at which a scanner of the bin `other` is. False if none is left.
  bool Take(std::FILE* other, ZO_TUNING::internal::BinScanner& scanner);

  /// Whether the index-th added item was taken.
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
