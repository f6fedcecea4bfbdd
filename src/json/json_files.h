/// \file
/// The walk over a tree of JSON files.
#pragma once

#include <string>
#include <vector>

#include "io/directory.h"

namespace ZO_TUNING {
namespace internal {

/// Notified of what is skipped on the way, as it happens.
class FileListener {
 public:
  virtual ~FileListener() = default;

  /// A folder below the walked one cannot be opened, or its path is too long to enter (`path` is then truncated).
  virtual void OnFolderPassedOver([[maybe_unused]] const std::string& path) {}

  /// A JSON file cannot be read; it counts as an empty text.
  virtual void OnFileNotRead([[maybe_unused]] const std::string& path) {}
};

/// Appends the paths of all "*.json" entries below `dir` to `files`, in directory order. Directories named "version"
/// below `dir` are skipped. The result is about `dir` itself; null cannot be opened.
DirectoryResult FindJsonFiles(const char* dir, std::vector<std::string>& files, FileListener& listener);

}  // namespace internal
}  // namespace ZO_TUNING
