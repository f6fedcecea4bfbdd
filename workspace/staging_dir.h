/// \file
/// A folder beside the target in which output is made and then moved into place.
#pragma once

#include <csignal>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "diagnostic.h"
#include "io/unique_fd.h"

namespace zotuning {

/// A new hidden folder that is removed when the object is destroyed, and when SIGINT, SIGTERM or SIGHUP ends the
/// process meanwhile; so are the folders created for it, unless something was moved out. At most one exists at a time.
/// What a killed run left is removed by the next one in the same folder, and a target that it had moved aside is
/// restored: such a folder has a name of exactly the form made here, belongs to this user, is not locked by a process,
/// and contains only the marker file, or nothing.
class StagingDir {
 public:
  /// Called about ten times a second from another thread, with the folder's path; the last time with "".
  using Tick = std::function<void(const std::string&)>;
  /// Inspects the old folder once it has been moved aside. False, after an error, keeps it.
  using MayReplace = std::function<bool(const std::string& dir, DiagnosticSink& sink)>;

  /// Creates it in `parent`, which is created if missing; null after an error.
  static std::unique_ptr<StagingDir> Make(const std::string& parent, Tick tick, DiagnosticSink& sink);
  ~StagingDir();
  StagingDir(const StagingDir&) = delete;
  StagingDir& operator=(const StagingDir&) = delete;

  const std::string& path() const { return path_; }

  /// Waits for a signal handler in progress, which then never returns; ends the ticks. Call it before inspecting what
  /// was made in the folder: a signal removes that.
  void StopWatcher();

  /// Renames `name` in the folder to `target`, which is in the same parent, in one step. An existing target is replaced
  /// if `may_replace` is given and accepts its contents at that moment: also in one step if the file system can
  /// exchange names, otherwise in two. After an error the target is as it was; if even restoring it fails, the message
  /// says where it is.
  bool Commit(const std::string& name, const std::string& target, const MayReplace& may_replace, DiagnosticSink& sink);

 private:
  explicit StagingDir(Tick tick);
  bool Create(const std::string& parent, DiagnosticSink& sink);
  void Watch();
  void Remove() const;
  int Exchange(const std::string& from, const std::string& target, const MayReplace& may_replace, DiagnosticSink& sink);
  int ReplaceInTwoSteps(const std::string& from, const std::string& target, const MayReplace& may_replace,
                        DiagnosticSink& sink);

  std::string path_;               ///< "" until it is created, and when it has to stay
  std::vector<std::string> made_;  ///< missing folders above it, the outer first
  Tick tick_;
  ZO_TUNING::internal::UniqueFd lock_;  ///< keeps later runs from taking the folder for one that a killed process left
  sigset_t signals_;
  sigset_t mask_before_;
  int wake_[2] = {-1, -1};
  std::mutex obeying_;
  std::thread watcher_;
};

}  // namespace zotuning
