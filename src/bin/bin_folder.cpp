// Tested by tests/bin/dump_test.cpp.

#include "bin/bin_folder.h"

#include <utility>

namespace ZO_TUNING {
namespace internal {

DirectoryResult ListBins(const char* dir, BinListing& listing) {
  std::vector<DirectoryEntry> entries;
  const DirectoryResult result = ReadDirectory(dir, entries);
  for (DirectoryEntry& entry : entries) {
    if (entry.kind == EntryKind::kDirectory) continue;
    if (HasSuffix(entry.name, kBinSuffix)) {
      listing.names.push_back(entry.name.substr(0, entry.name.rfind('.')));
      listing.paths.push_back(JoinPath(dir, entry.name));
    } else {
      listing.others.push_back(std::move(entry.name));
    }
  }
  return result;
}

}  // namespace internal
}  // namespace ZO_TUNING
