/// \file
/// A change to several files: shown as a diff, or made in all of them or, if one fails, in none where possible.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "workspace/diagnostic.h"

namespace zotuning {

/// The change to one file. Texts may contain any bytes.
struct FileChange {
  std::string path;                     ///< where it is afterwards; of a removed file, where it was
  std::string old_path;                 ///< where it was; equals `path` unless it is renamed
  std::optional<std::string> old_text;  ///< as it was read; none for a new file
  std::optional<std::string> new_text;  ///< none if the file is removed
};

/// Collects changes. A path may be the old path of one change and the new path of one, so files can be swapped.
class ChangeSet {
 public:
  /// A file whose text does not change is left out.
  void Replace(std::string path, std::string old_text, std::string new_text);
  void Create(std::string path, std::string text);
  void Remove(std::string path, std::string old_text);
  /// `new_text` may equal `old_text`. Neither path may be a link.
  void Rename(std::string old_path, std::string new_path, std::string old_text, std::string new_text);
  /// A directory to remove at the end if it is then empty. Name inner ones before outer ones.
  void RemoveIfEmpty(std::string dir) { emptied_.push_back(std::move(dir)); }

  /// Adds the changes of another set after these.
  void Append(ChangeSet other);

  bool empty() const { return changes_.empty(); }
  /// In the order in which they were added.
  const std::vector<FileChange>& changes() const { return changes_; }

  /// All changes as a unified diff for `git apply`. Paths start at the root of the git repository that contains the
  /// directory `base`, so git accepts them in any of its folders; without a repository they start at `base`. A binary
  /// file (with a zero byte) is named without its bytes.
  std::string Diff(const std::string& base) const;

  /// Makes all changes. First, each file must still be as it was read and each new path must be free; otherwise nothing
  /// is written. A file is replaced by one written beside it; missing directories are created. If one fails, the files
  /// written so far are restored. False after errors that say what could not be written, whether everything was
  /// restored, and if not, which files were not. SIGINT, SIGTERM and SIGHUP are held back meanwhile.
  bool Apply(DiagnosticSink& sink) const;

 private:
  struct FileStates;

  bool Check(DiagnosticSink& sink) const;

  std::vector<FileChange> changes_;
  std::vector<std::string> emptied_;
};

/// The lines that differ between two texts as hunks of a unified diff with three lines of context, without file
/// headers; "" for equal texts.
std::string DiffLines(std::string_view old_text, std::string_view new_text);

}  // namespace zotuning
