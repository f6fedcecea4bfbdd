/// \file
/// Files of length-prefixed items, split up so that they can be mutated one by one.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/wire.h"
#include "transcode/random_json.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t max_size);

namespace zofuzz {

/// Takes the number at the start of `bytes`. False if it is too short.
inline bool TakeInt32(std::string_view& bytes, int32_t* value) {
  if (bytes.size() < sizeof(*value)) return false;
  std::memcpy(value, bytes.data(), sizeof(*value));
  bytes.remove_prefix(sizeof(*value));
  return true;
}

/// Takes the item at the start of `bytes`. False if there is none.
inline bool TakeItem(std::string_view& bytes, std::string_view* item) {
  int32_t length = 0;
  if (!TakeInt32(bytes, &length) || length < 0 || static_cast<size_t>(length) > bytes.size()) return false;
  *item = bytes.substr(0, static_cast<size_t>(length));
  bytes.remove_prefix(item->size());
  return true;
}

/// The items of a file, after a count if the format has one, and the bytes after them that are not an item.
struct Pieces {
  Pieces(std::string_view bytes, bool has_count) {
    if (has_count) {
      count = bytes.substr(0, sizeof(int32_t));
      bytes.remove_prefix(count.size());
    }
    std::string_view rest = bytes, item;
    while (TakeItem(rest, &item)) {
      items.emplace_back(item);
      bytes = rest;
    }
    tail = bytes;
  }

  /// With `odd_length` in place of the length of the item `odd`.
  std::string Join(size_t odd = SIZE_MAX, int32_t odd_length = 0) const {
    std::string bytes = count;
    for (size_t i = 0; i < items.size(); ++i)
      bytes += i == odd ? zotest::I32(odd_length) + items[i] : zotest::Item(items[i]);
    return bytes + tail;
  }

  std::string count;
  std::vector<std::string> items;
  std::string tail;
};

/// A mutator for such files: most of its outputs consist of valid items again. A length that does not fit ends the
/// reading at once, as most mutations by the fuzzer itself would.
inline size_t MutateItems(uint8_t* data, size_t size, size_t max_size, unsigned seed, bool has_count) {
  zotest::Random random(seed);
  Pieces pieces(std::string_view(reinterpret_cast<const char*>(data), size), has_count);
  std::vector<std::string>& items = pieces.items;
  if (items.empty() || size + 64 > max_size || random.OneIn(4)) return LLVMFuzzerMutate(data, size, max_size);
  const size_t at = random.Below(items.size()), other = random.Below(items.size());
  std::string& item = items[at];
  size_t odd = SIZE_MAX;
  int32_t odd_length = 0;
  switch (random.Below(8)) {
    case 0:
      items.insert(items.begin() + static_cast<ptrdiff_t>(at), std::string(items[other]));
      break;
    case 1:
      items.erase(items.begin() + static_cast<ptrdiff_t>(at));
      break;
    case 2:
      std::swap(item, items[other]);
      break;
    case 3:
      if (has_count) pieces.count = zotest::I32(static_cast<int32_t>(random.Below(items.size() + 2)) - 1);
      break;
    case 4: {
      const int32_t length = static_cast<int32_t>(item.size());
      const int32_t lengths[] = {-1, 0, length - 1, length + 1, length + 4, INT32_MAX, INT32_MIN};
      odd = at;
      odd_length = random.Pick(lengths);
      break;
    }
    default: {
      const size_t length = item.size(), room = length + 64;
      item.resize(room);
      item.resize(LLVMFuzzerMutate(reinterpret_cast<uint8_t*>(item.data()), length, room));
    }
  }
  const std::string bytes = pieces.Join(odd, odd_length);
  if (bytes.size() > max_size) return LLVMFuzzerMutate(data, size, max_size);
  std::memcpy(data, bytes.data(), bytes.size());
  return bytes.size();
}

}  // namespace zofuzz
