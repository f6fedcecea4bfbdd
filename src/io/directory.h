/// \file
/// Reading directories, and telling files by their names.
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
  kUnknown,  ///< some file systems do not say
};

struct DirectoryEntry {
  std::string name;
  EntryKind kind;
};

struct [[nodiscard]] DirectoryResult {
  bool is_open = false;  ///< whether the directory could be opened; `entries` holds what was read of it then
  int error = 0;         ///< errno of the failure to open it or to read it to its end, 0 without one

  bool is_complete() const { return is_open && error == 0; }
};

/// Appends the entries of `dir` without "." and "..", in directory order. The directory is closed again before this
/// returns, so that a walk holds one descriptor however deep it goes. Null is a directory that cannot be opened.
DirectoryResult ReadDirectory(const char* dir, std::vector<DirectoryEntry>& entries);

/// Whether the part of `name` from its last "." on is exactly `suffix`, which starts with that dot.
inline bool HasSuffix(std::string_view name, std::string_view suffix) {
  const size_t dot = name.rfind('.');
  return dot != std::string_view::npos && name.substr(dot) == suffix;
}

}  // namespace internal
}  // namespace ZO_TUNING
