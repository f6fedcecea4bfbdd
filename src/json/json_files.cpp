// Tested by tests/json/json_files_test.cpp.

#include "json/json_files.h"

#include <utility>

#include "schema/project_layout-inl.h"

namespace ZO_TUNING {
namespace internal {

namespace {

// A folder with a longer path is not entered.
constexpr size_t kMaxFolderPath = 1023;

}  // namespace

DirectoryResult FindJsonFiles(const char* dir, std::vector<std::string>& files, FileListener& listener) {
  struct Folder {
    std::string path;
    std::vector<DirectoryEntry> entries;
    size_t next;
  };
  Folder root{dir == nullptr ? "" : dir, {}, 0};
  const DirectoryResult result = ReadDirectory(dir, root.entries);
  std::vector<Folder> open;  // not recursion: folders can be nested deeper than a stack
  open.push_back(std::move(root));
  while (!open.empty()) {
    Folder& folder = open.back();
    if (folder.next == folder.entries.size()) {
      open.pop_back();
      continue;
    }
    const DirectoryEntry& entry = folder.entries[folder.next++];
    std::string path = JoinPath(folder.path, entry.name);
    if (entry.kind != EntryKind::kDirectory) {
      if (HasSuffix(entry.name, kJsonSuffix)) files.push_back(std::move(path));
    } else if (entry.name != kVersionFolder) {
      const bool is_cut = path.size() > kMaxFolderPath;
      // A truncated path may exist elsewhere, or even lead back here; it is never entered.
      if (is_cut) path.resize(kMaxFolderPath);
      Folder below{path, {}, 0};
      if (is_cut || !ReadDirectory(path.c_str(), below.entries).is_open) {
        listener.OnFolderPassedOver(path);
      } else {
        open.push_back(std::move(below));
      }
    }
  }
  return result;
}

}  // namespace internal
}  // namespace ZO_TUNING
