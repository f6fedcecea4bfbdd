/// \file
/// A folder beside the target in which output is made, to be put in its place whole.
#pragma once

#include <csignal>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "report.h"

namespace zotuning_tool {

/// A new hidden folder that is removed again when the object goes, and when SIGINT, SIGTERM or SIGHUP ends the process
/// meanwhile; so are the folders that had to be made for it, unless something was moved out. At most one lives at a
/// time. What a killed process left is removed by a later one.
class StagingDir {
 public:
  /// Called about ten times a second from another thread, with the folder's path; the last time with "".
  using Tick = std::function<void(const std::string&)>;

  /// Makes it in `parent`, which is made where it is missing; null after an error.
  static std::unique_ptr<StagingDir> Make(const std::string& parent, Tick tick, Report& report);
  ~StagingDir();
  StagingDir(const StagingDir&) = delete;
  StagingDir& operator=(const StagingDir&) = delete;

  const std::string& path() const { return path_; }

  /// Waits for a signal that is being obeyed, which then never returns; ends the ticks. Call it before looking at what
  /// was made in the folder: a signal removes that.
  void StopWatcher();

  /// Renames `name` in the folder to `target` in one step. An existing target is replaced when `replace`, as one step
  /// too where the file system can exchange names; otherwise it is an error.
  bool Commit(const std::string& name, const std::string& target, bool replace, Report& report);

 private:
  explicit StagingDir(Tick tick);
  bool Create(const std::string& parent, Report& report);
  void Watch();
  void Remove() const;

  std::string path_;               ///< "" until it is made
  std::vector<std::string> made_;  ///< missing folders above it, the outer first
  Tick tick_;
  int lock_ = -1;  ///< keeps later runs from taking the folder for one left by a killed process
  sigset_t signals_;
  sigset_t mask_before_;
  int wake_[2] = {-1, -1};
  std::mutex obeying_;
  std::thread watcher_;
};

}  // namespace zotuning_tool
