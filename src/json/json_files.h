/// \file
/// The walk over a tree of JSON files.
#pragma once

#include <string>
#include <vector>

#include "io/directory.h"

namespace ZO_TUNING {
namespace internal {

/// Told of what is passed over on the way, as it happens.
class FileListener {
 public:
  virtual ~FileListener() = default;

  /// A folder below the one that is walked cannot be opened, or its path is too long to be entered (`path` is cut
  /// then).
  virtual void OnFolderPassedOver([[maybe_unused]] const std::string& path) {}

  /// A JSON file cannot be read; it counts as an empty text.
  virtual void OnFileNotRead([[maybe_unused]] const std::string& path) {}
};

/// Appends the paths of all "*.json" entries below `dir` to `files`, in directory order. Directories named "version"
/// below `dir` are not entered. The result tells of `dir` itself; null cannot be opened.
DirectoryResult FindJsonFiles(const char* dir, std::vector<std::string>& files, FileListener& listener);

}  // namespace internal
}  // namespace ZO_TUNING
