/// \file
/// Reading directories, and telling files apart by their names.
#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>
#include <vector>

namespace ZO_TUNING {
namespace internal {

inline bool PathExists(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0;
}

/// What a directory says about an entry; a link is not followed.
enum class EntryKind {
  kFile,
  kDirectory,
  kLink,
  kOther,    ///< a pipe, socket or device
  kUnknown,  ///< not provided by some file systems
};

struct DirectoryEntry {
  std::string name;
  EntryKind kind;
};

struct [[nodiscard]] DirectoryResult {
  bool is_open = false;  ///< whether the directory could be opened; `entries` then holds what could be read
  int error = 0;         ///< errno of the failure to open it or read it to its end, or 0

  bool is_complete() const { return is_open && error == 0; }
};

/// Appends the entries of `dir` without "." and "..", in directory order. The directory is closed before this returns,
/// so a walk needs one descriptor however deep it goes. Null is a directory that cannot be opened.
DirectoryResult ReadDirectory(const char* dir, std::vector<DirectoryEntry>& entries);

/// Whether the part of `name` from its last "." on is exactly `suffix`, which starts with that dot.
inline bool HasSuffix(std::string_view name, std::string_view suffix) {
  const size_t dot = name.rfind('.');
  return dot != std::string_view::npos && name.substr(dot) == suffix;
}

}  // namespace internal
}  // namespace ZO_TUNING
