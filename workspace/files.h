/// \file
/// Files and folders as the workspace uses them: every failure is reported, nothing is skipped silently, and a replaced
/// file has either its old or its new content.
#pragma once

#include <sys/types.h>

#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "diagnostic.h"

namespace zotuning {

enum class FileKind {
  kMissing,
  kRegular,
  kDirectory,
  kSpecial,
  kDanglingLink,
  kUnknown,  ///< the system does not say whether it exists; see errno
};

/// Links are followed.
FileKind KindOf(const std::string& path);
inline bool Exists(const std::string& path) { return KindOf(path) != FileKind::kMissing; }
inline bool IsDirectory(const std::string& path) { return KindOf(path) == FileKind::kDirectory; }

/// Identifies a file at one time: a file that was written to or replaced is different.
struct FileState {
  dev_t device = 0;
  ino_t number = 0;
  off_t size = -1;
  timespec written = {};

  bool operator!=(const FileState& other) const;
};
FileState StateOf(const std::string& path);

/// A path for people: without a leading "./".
std::string DisplayPath(const std::string& path);

/// The folder of bins that `dir` means: itself, or the one that pack made in it.
std::string BinFolderAt(const std::string& dir);

/// Reports that `what` ("read", "write") failed for `path`, with the reason of `error`, an errno. Returns false.
bool ReportSystemError(const std::string& what, const std::string& path, int error, DiagnosticSink& sink);

/// Reads a regular file. False after one error that names it, also for one of 2 GiB or more.
bool ReadFile(const std::string& path, std::string& text, DiagnosticSink& sink);

/// Reads standard input to its end. False after one error.
bool ReadStandardInput(std::string& text, DiagnosticSink& sink);

/// Creates or replaces a file. The text is written to a file beside it that takes its place, with the mode and owner of
/// the old one; links are followed. A file with several hard links, or whose folder or owner does not allow this, is
/// written in place. False after one error that names it; the old file is then intact, unless it was written in place.
bool ReplaceFile(const std::string& path, std::string_view text, DiagnosticSink& sink);

/// Whether ReplaceFile would create or replace the file; performs all but its last step, and undoes it. False after the
/// error that it would report.
bool CanReplaceFile(const std::string& path, std::string_view text, DiagnosticSink& sink);

/// Creates a new file. False, with nothing created, after one error that names it; or, if one exists by now, without an
/// error and with `exists` set.
bool CreateFile(const std::string& path, std::string_view text, bool* exists, DiagnosticSink& sink);

/// Creates a directory and its missing parents, whose paths are appended to `made`. False after one error.
bool MakeDirectories(const std::string& path, DiagnosticSink& sink, std::vector<std::string>* made = nullptr);

/// Appends the names of the entries of one directory, sorted. False after an error if not all could be read.
bool ListNames(const std::string& dir, std::vector<std::string>& names, DiagnosticSink& sink);

/// A file below a listed directory.
struct FoundFile {
  std::string relative;
  std::string path;
};

/// Appends the files below `dir` whose name ends in `suffix` (all for ""), ordered by the bytes of their paths. As in
/// the library, directories called "version" below `dir` are skipped; so are links to directories. False after an error
/// for each directory that cannot be listed completely and each special file (which would block whoever opens it) or
/// dangling link among the files; these are left out.
bool ListFiles(const std::string& dir, std::string_view suffix, std::vector<FoundFile>& files, DiagnosticSink& sink);

/// Reports a path that exists, or may exist, and is neither a regular file nor a directory. True if there is nothing to
/// report.
bool RefuseSpecialFile(const std::string& path, DiagnosticSink& sink);

}  // namespace zotuning
