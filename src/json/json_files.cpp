// Tested by tests/json/json_files_test.cpp.

#include "json/json_files.h"

#include <utility>

#include "schema/project_layout-inl.h"

namespace ZO_TUNING {
namespace internal {

namespace {

// A folder whose path is longer is not entered.
constexpr size_t kMaxFolderPath = 1023;

}  // namespace

DirectoryResult FindJsonFiles(const char* dir, std::vector<std::string>& files, FileListener& listener) {
  std::vector<DirectoryEntry> entries;
  const DirectoryResult result = ReadDirectory(dir, entries);
  for (const DirectoryEntry& entry : entries) {
    std::string path = JoinPath(dir, entry.name);
    if (entry.kind != EntryKind::kDirectory) {
      if (HasSuffix(entry.name, kJsonSuffix)) files.push_back(std::move(path));
    } else if (entry.name != kVersionFolder) {
      const bool is_cut = path.size() > kMaxFolderPath;
      // A cut path may exist elsewhere, even lead back here; it is never entered.
      if (is_cut) path.resize(kMaxFolderPath);
      if (is_cut || !FindJsonFiles(path.c_str(), files, listener).is_open) listener.OnFolderPassedOver(path);
    }
  }
  return result;
}

}  // namespace internal
}  // namespace ZO_TUNING
