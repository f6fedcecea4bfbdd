/// \file
/// Reading directories, and telling files by their names.
#pragma once

#include <dirent.h>
#include <sys/stat.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace ZO_TUNING {
namespace internal {

inline bool PathExists(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0;
}

struct DirectoryEntry {
  std::string name;
  bool is_directory;  ///< as the directory says; a link to a directory is none
};

/// Appends the entries of `dir` without "." and "..", in directory order. The directory is closed again before this
/// returns, so that a walk holds one descriptor however deep it goes. False when it cannot be opened.
inline bool ReadDirectory(const char* dir, std::vector<DirectoryEntry>& entries) {
  if (dir == nullptr) return false;
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(opendir(dir), &closedir);
  if (stream == nullptr) return false;
  while (const dirent* entry = readdir(stream.get())) {
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    entries.push_back({std::string(name), entry->d_type == DT_DIR});
  }
  return true;
}

/// Whether the part of `name` from its last "." on is exactly `suffix`, which begins with that point.
inline bool HasSuffix(std::string_view name, std::string_view suffix) {
  const size_t point = name.rfind('.');
  return point != std::string_view::npos && name.substr(point) == suffix;
}

}  // namespace internal
}  // namespace ZO_TUNING
