/// \file
/// A change over many files: shown as a diff, or made in all of them or, when one fails, in none where that is
/// possible.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "workspace/diagnostic.h"

namespace zotuning {

/// What becomes of one file. Texts may hold any bytes.
struct FileChange {
  std::string path;                     ///< where it is afterwards; of a file that is removed, where it was
  std::string old_path;                 ///< where it was; like `path` unless it is renamed
  std::optional<std::string> old_text;  ///< as it was read; none for a new file
  std::optional<std::string> new_text;  ///< none for a file that is removed
};

/// Collects changes. A path is the old one of one change at most, and the new one of one at most, so that files may be
/// swapped.
class ChangeSet {
 public:
  /// A file whose text stays the same is left out.
  void Replace(std::string path, std::string old_text, std::string new_text);
  void Create(std::string path, std::string text);
  void Remove(std::string path, std::string old_text);
  /// `new_text` may be `old_text`. Neither path may be that of a link.
  void Rename(std::string old_path, std::string new_path, std::string old_text, std::string new_text);
  /// A directory that is removed at the end if it is empty then. Named from the inner ones to the outer ones.
  void RemoveIfEmpty(std::string dir) { emptied_.push_back(std::move(dir)); }

  /// Adds the changes of another set after these.
  void Append(ChangeSet other);

  bool empty() const { return changes_.empty(); }
  /// In the order in which they were named.
  const std::vector<FileChange>& changes() const { return changes_; }

  /// All changes as a unified diff for `git apply`. Paths are those from the root of the git repository that the
  /// directory `base` is in, as git takes them in any of its folders; without a repository those from `base`. A file
  /// that is no text (holds a zero byte) is named, but its bytes are not in it.
  std::string Diff(const std::string& base) const;

  /// Makes all changes. First each file has to be what was read and each new path has to be free; otherwise nothing is
  /// written. A file is replaced whole, by one written beside it; missing directories are made. When one fails, the
  /// files written so far are put back. False after errors that tell what could not be written, whether everything is
  /// as it was, and, if not, each file that is not.
  /// SIGINT, SIGTERM and SIGHUP wait meanwhile.
  bool Apply(DiagnosticSink& sink) const;

 private:
  struct FileStates;

  bool Check(DiagnosticSink& sink) const;

  std::vector<FileChange> changes_;
  std::vector<std::string> emptied_;
};

/// The lines that differ between two texts as hunks of a unified diff with three lines of context, without the heading
/// lines; "" for equal texts.
std::string DiffLines(std::string_view old_text, std::string_view new_text);

}  // namespace zotuning
