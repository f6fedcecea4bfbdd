/// \file
/// Reading a git repository through git itself: what is at a revision, without a checkout.
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "workspace/diagnostic.h"

namespace zotuning {

/// Runs a program to its end, without a shell and in the "C" locale, with empty standard input. `out` and `err` receive
/// its output. Returns the exit code, 128 plus the number of the signal that ended it, or -1 with errno set if it could
/// not be started.
int RunProgram(const std::vector<std::string>& arguments, std::string& out, std::string& err);

/// What a revision has at one path.
struct GitFile {
  std::string object;
  bool is_link;
};

class GitRepository {
 public:
  /// The repository that `dir` is in; null after an error.
  static std::unique_ptr<GitRepository> Open(const std::string& dir, DiagnosticSink& sink);
  ~GitRepository();
  GitRepository(const GitRepository&) = delete;
  GitRepository& operator=(const GitRepository&) = delete;

  /// `dir` relative to the root of the work tree, with a trailing "/"; "" for the root.
  const std::string& prefix() const { return prefix_; }

  /// Adds all files of a revision by their paths from the root. False after an error.
  bool List(const std::string& revision, std::map<std::string, GitFile>& files, DiagnosticSink& sink);

  /// The revisions just before the last `count` changes of `files`, a pattern within `dir`, newest first; none after an
  /// error.
  std::vector<std::string> BeforeChanges(int count, const std::string& files = ".") const;

  /// The revision before the last change of `files`: HEAD if they differ from it.
  std::string RevisionBefore(const std::string& files) const;

  /// Replaces `text` with the content of an object. False after an error.
  bool Read(const std::string& object, std::string& text, DiagnosticSink& sink);

 private:
  explicit GitRepository(std::string dir) : dir_(std::move(dir)) {}
  std::vector<std::string> Command(std::vector<std::string> words) const;
  bool Run(std::vector<std::string> words, std::string& out, const std::string& what, DiagnosticSink& sink) const;
  bool StartReading(DiagnosticSink& sink);

  std::string dir_;
  std::string prefix_;
  // The process that delivers objects, started for the first one.
  pid_t reader_ = -1;
  std::FILE* to_reader_ = nullptr;
  std::FILE* from_reader_ = nullptr;
};

}  // namespace zotuning
