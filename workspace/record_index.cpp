// Tested by tests/workspace/sides_test.cpp.

#include "workspace/record_index.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string_view>

namespace zotuning {
namespace {

using ZO_TUNING::internal::BinItem;
using ZO_TUNING::internal::BinScanner;

constexpr size_t kChunk = size_t{64} << 10;

/// The next bytes of an item; none at its end, or if the file has become shorter.
std::string_view ReadChunk(std::FILE* file, uint64_t offset, uint64_t size, std::vector<char>& chunk) {
  chunk.resize(kChunk);
  const size_t wanted = static_cast<size_t>(std::min<uint64_t>(size, chunk.size()));
  size_t got = 0;
  while (got < wanted) {
    const ssize_t count = pread(fileno(file), chunk.data() + got, wanted - got, static_cast<off_t>(offset + got));
    if (count <= 0) return {};
    got += static_cast<size_t>(count);
  }
  return {chunk.data(), got};
}

}  // namespace

RecordIndex::Item RecordIndex::ItemAt(BinScanner& scanner) {
  const BinItem& first = scanner.is_version() ? scanner.version() : scanner.record().label;
  const BinItem& last = scanner.is_version() ? scanner.version() : scanner.record().module;
  const uint64_t end = last.offset + sizeof(last.length) + static_cast<uint64_t>(last.length);
  return {first.offset, end - first.offset, scanner.is_version(), false};
}

size_t RecordIndex::Hash(std::FILE* file, const Item& item) {
  size_t hash = item.is_version ? 1 : 0;
  for (uint64_t done = 0; done < item.size;) {
    const std::string_view bytes = ReadChunk(file, item.offset + done, item.size - done, ours_);
    if (bytes.empty()) break;
    hash = hash * 31 + std::hash<std::string_view>()(bytes);
    done += bytes.size();
  }
  return hash;
}

void RecordIndex::Add(BinScanner& scanner) {
  items_.push_back(ItemAt(scanner));
  by_hash_.emplace(Hash(file_, items_.back()), items_.size() - 1);
}

bool RecordIndex::Take(std::FILE* other, BinScanner& scanner) {
  const Item theirs = ItemAt(scanner);
  const auto [begin, end] = by_hash_.equal_range(Hash(other, theirs));
  for (auto candidate = begin; candidate != end; ++candidate) {
    Item& ours = items_[candidate->second];
    if (ours.size != theirs.size || ours.is_version != theirs.is_version) continue;
    uint64_t done = 0;
    while (done < ours.size) {
      const std::string_view bytes = ReadChunk(file_, ours.offset + done, ours.size - done, ours_);
      if (bytes.empty() || bytes != ReadChunk(other, theirs.offset + done, theirs.size - done, theirs_)) break;
      done += bytes.size();
    }
    if (done < ours.size) continue;
    ours.is_taken = true;
    by_hash_.erase(candidate);
    return true;
  }
  return false;
}

}  // namespace zotuning
