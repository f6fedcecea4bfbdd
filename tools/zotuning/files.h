/// \file
/// Files and folders as the tool sees them: every failure is reported, nothing is passed over in silence.
#pragma once

#include <sys/types.h>

#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "report.h"

namespace zotuning_tool {

enum class FileKind {
  kMissing,
  kRegular,
  kDirectory,
  kSpecial,
  kDanglingLink,
  kUnknown,  ///< there or not, the system does not say; errno tells why
};

/// Links are followed.
FileKind KindOf(const std::string& path);
inline bool Exists(const std::string& path) { return KindOf(path) != FileKind::kMissing; }
inline bool IsDirectory(const std::string& path) { return KindOf(path) == FileKind::kDirectory; }

/// Tells apart what a file was at one time and at another: a file written to, or put in its place, is another.
struct FileState {
  dev_t device = 0;
  ino_t number = 0;
  off_t size = -1;
  timespec written = {};

  bool operator!=(const FileState& other) const;
};
FileState StateOf(const std::string& path);

/// A path for people: without "./" at its head.
std::string Shown(const std::string& path);

/// The folder of bins that `dir` means: itself, or the one in it that pack made when it was given `dir`.
std::string BinFolderAt(const std::string& dir);

/// Reads a regular file whole. False after one error that names it.
bool ReadFile(const std::string& path, std::string& text, Report& report);

/// Replaces a file whole; what is written has reached the file system. False after one error that names it.
bool WriteFile(const std::string& path, std::string_view text, Report& report);

/// Makes a directory and its missing parents, whose paths are appended to `made`. False after one error.
bool MakeDirectories(const std::string& path, Report& report, std::vector<std::string>* made = nullptr);

/// Appends the names of the entries of one directory. False after an error when they could not all be read.
bool ListNames(const std::string& dir, std::vector<std::string>& names, Report& report);

/// A file below a directory that was listed.
struct FoundFile {
  std::string relative;
  std::string path;
};

/// Appends the files below `dir` whose name ends in `suffix`, by name. As in the library, directories called "version"
/// below `dir` are not entered, and nor are links to directories. False after an error for each directory that cannot
/// be listed to its end and each special file (which would block whoever opens it) or dangling link among the files;
/// these are left out.
bool ListFiles(const std::string& dir, std::string_view suffix, std::vector<FoundFile>& files, Report& report);

/// Reports a path that is there, or may be, and is neither a regular file nor a directory. True when there was none to
/// report.
bool RefuseSpecialFile(const std::string& path, Report& report);

}  // namespace zotuning_tool
