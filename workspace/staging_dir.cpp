// Tested by tests/workspace/staging_dir_test.cpp and, through the tool, tests/tools/pack_test.cpp.

#include "staging_dir.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

#include "files.h"

namespace zotuning {
namespace {

using ZO_TUNING::internal::UniqueFd;
namespace fs = std::filesystem;

constexpr int kTickMilliseconds = 100;
constexpr const char* kPrefix = ".zo_tuning-";
constexpr size_t kRandomCharacters = 6;
/// Marks the folder as made here; someone else's folder with such a name lacks it.
constexpr const char* kMarker = ".made-by-zotuning";
/// The name of the old target while it is replaced in two steps. The file kReplacedTarget contains its original path.
constexpr const char* kReplaced = "replaced";
constexpr const char* kReplacedTarget = ".replaced-target";

bool IsStagingName(const std::string& name) {
  const size_t prefix = std::strlen(kPrefix);
  return name.size() == prefix + kRandomCharacters && name.compare(0, prefix, kPrefix) == 0 &&
         std::all_of(name.begin() + static_cast<std::ptrdiff_t>(prefix), name.end(),
                     [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); });
}

/// Opens a folder and locks it against being taken for a stale one; none if someone else has the lock.
UniqueFd LockFolder(const std::string& path) {
  UniqueFd folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (folder.get() >= 0 && flock(folder.get(), LOCK_EX | LOCK_NB) == 0) return folder;
  return UniqueFd();
}

/// Whether the path still leads to the open folder.
bool IsAt(const UniqueFd& folder, const std::string& path) {
  struct stat held, found;
  return fstat(folder.get(), &held) == 0 && lstat(path.c_str(), &found) == 0 && held.st_dev == found.st_dev &&
         held.st_ino == found.st_ino;
}

/// renameat2; ENOSYS and EINVAL if the system or file system lacks the flag, EXDEV on an overlay.
int Rename(const std::string& from, const std::string& to, unsigned flags) {
  return renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), flags) == 0 ? 0 : errno;
}

bool Unsupported(int error) { return error == ENOSYS || error == EINVAL || error == EXDEV; }

/// Moves the folder `target` aside, to `aside`; returns the errno of a failure, else 0. An overlay that has it from a
/// lower layer cannot rename it; there it is copied instead.
int MoveAside(const std::string& target, const std::string& aside) {
  if (std::rename(target.c_str(), aside.c_str()) == 0) return 0;
  if (errno != EXDEV) return errno;
  const std::string copy = aside + ".copy";
  std::error_code error;
  fs::copy(target, copy, fs::copy_options::recursive, error);
  // Complete before anything is removed.
  if (!error && std::rename(copy.c_str(), aside.c_str()) != 0) return errno;
  if (!error) fs::remove_all(target, error);
  return error.value();
}

/// Whether every entry of the folder `aside` is also in `target`.
bool HoldsAllOf(const std::string& target, const std::string& aside) {
  std::vector<std::string> names;
  CollectingSink ignored;
  return ListNames(aside, names, ignored) &&
         std::all_of(names.begin(), names.end(), [&](const std::string& name) { return Exists(target + "/" + name); });
}

/// Restores the folder that a killed run had moved aside. False if it is still in there.
bool PutBack(const std::string& staging) {
  const std::string aside = staging + "/" + kReplaced;
  if (KindOf(aside) == FileKind::kMissing) return true;
  std::string name;
  CollectingSink ignored;
  if (!ReadFile(staging + "/" + kReplacedTarget, name, ignored) || name.find('/') != std::string::npos) return false;
  const std::string target = fs::path(staging).parent_path() / name;
  // If the new folder is already in place, the old one is no longer needed.
  if (KindOf(target) != FileKind::kMissing && HoldsAllOf(target, aside)) return true;
  std::error_code error;
  fs::remove_all(target, error);
  return !error && std::rename(aside.c_str(), target.c_str()) == 0;
}

/// Removes the staging folders that killed runs left in `parent`.
void RemoveStale(const std::string& parent) {
  std::vector<std::string> names;
  CollectingSink ignored;  // what cannot be listed now is removed by a later run
  ListNames(parent, names, ignored);
  for (const std::string& name : names) {
    if (!IsStagingName(name)) continue;
    const std::string path = fs::path(parent) / name;
    const UniqueFd folder = LockFolder(path);
    struct stat info;
    if (folder.get() < 0 || fstat(folder.get(), &info) != 0 || info.st_uid != geteuid()) continue;
    std::error_code error;
    if (KindOf(path + "/" + kMarker) != FileKind::kRegular) {
      rmdir(path.c_str());  // killed before the marker was made; one with contents is someone else's and stays
    } else if (PutBack(path)) {
      fs::remove_all(path, error);
    }
  }
}

/// Signals that end the process unless they are ignored, as under nohup.
sigset_t EndingSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction action;
    if (sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) continue;
    sigaddset(&signals, number);
  }
  return signals;
}

}  // namespace

std::unique_ptr<StagingDir> StagingDir::Make(const std::string& parent, Tick tick, DiagnosticSink& sink) {
  std::unique_ptr<StagingDir> folder(new StagingDir(std::move(tick)));
  return folder->Create(parent, sink) ? std::move(folder) : nullptr;
}

StagingDir::StagingDir(Tick tick) : tick_(std::move(tick)), signals_(EndingSignals()) {
  // Before anything is created: a signal waits for the watcher, or for the end.
  pthread_sigmask(SIG_BLOCK, &signals_, &mask_before_);
}

bool StagingDir::Create(const std::string& parent, DiagnosticSink& sink) {
  if (!MakeDirectories(parent, sink, &made_)) return false;
  RemoveStale(parent);
  constexpr int kTries = 10;
  for (int tries = 0; lock_.get() < 0; ++tries) {
    std::string path = parent + "/" + kPrefix + std::string(kRandomCharacters, 'X');
    if (mkdtemp(path.data()) == nullptr) {
      return ReportSystemError("make a working folder in", parent, errno, sink);
    }
    UniqueFd lock = LockFolder(path);
    // Another run may have taken the folder, empty and not yet locked, for a stale one.
    if (lock.get() < 0 || !IsAt(lock, path)) {
      rmdir(path.c_str());
      if (tries < kTries) continue;
      return ReportSystemError("make a working folder in", parent, EBUSY, sink);
    }
    path_ = path;
    lock_ = std::move(lock);
  }
  const UniqueFd marker(openat(lock_.get(), kMarker, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (marker.get() < 0) return ReportSystemError("make a file in", path_, errno, sink);
  if (pipe2(wake_, O_CLOEXEC) == 0) watcher_ = std::thread([this] { Watch(); });
  return true;
}

StagingDir::~StagingDir() {
  StopWatcher();
  Remove();
  pthread_sigmask(SIG_SETMASK, &mask_before_, nullptr);
}

void StagingDir::StopWatcher() {
  const std::lock_guard<std::mutex> lock(obeying_);
  if (!watcher_.joinable()) return;
  close(wake_[1]);  // the watcher sees the end of the pipe
  watcher_.join();
  close(wake_[0]);
  if (tick_) tick_("");
}

void StagingDir::Watch() {
  const UniqueFd descriptor(signalfd(-1, &signals_, SFD_CLOEXEC));
  pollfd sources[] = {{descriptor.get(), POLLIN, 0}, {wake_[0], POLLIN, 0}};
  for (;;) {
    const int ready = poll(sources, 2, kTickMilliseconds);
    if (ready == 0 && tick_) tick_(path_);
    if (sources[1].revents != 0 || (ready < 0 && errno != EINTR)) break;
    signalfd_siginfo info;
    if (ready <= 0 || read(descriptor.get(), &info, sizeof(info)) != static_cast<ssize_t>(sizeof(info))) continue;
    const int number = static_cast<int>(info.ssi_signo);
    // The other thread may be about to stop this one and look at the result; whoever is second stops for good.
    if (!obeying_.try_lock()) {
      (void)kill(getpid(), number);  // waits until this folder is removed
      break;
    }
    Remove();
    (void)std::signal(number, SIG_DFL);
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, number);
    pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
    (void)raise(number);
    _exit(128 + number);
  }
}

void StagingDir::Remove() const {
  // The other thread may still be making files in it.
  for (int tries = 0; !path_.empty() && tries < 1000; ++tries) {
    std::error_code error;
    fs::remove_all(path_, error);
    if (!error && KindOf(path_) == FileKind::kMissing) break;
  }
  for (auto dir = made_.rbegin(); dir != made_.rend(); ++dir) rmdir(dir->c_str());
}

int StagingDir::Exchange(const std::string& from, const std::string& target, const MayReplace& may_replace,
                         DiagnosticSink& sink) {
  int error = Rename(from, target, RENAME_EXCHANGE);
  if (error != 0 || may_replace(from, sink)) return error;
  // Someone put something into the old folder meanwhile.
  error = Rename(from, target, RENAME_EXCHANGE);
  if (error == 0) return ECANCELED;
  const std::string kept = std::exchange(path_, "");
  sink.Report(Code::kIo, "the old folder cannot be put back; it is kept as " + DisplayPath(from), "",
              DisplayPath(target));
  made_.clear();
  return ECANCELED;
}

int StagingDir::ReplaceInTwoSteps(const std::string& from, const std::string& target, const MayReplace& may_replace,
                                  DiagnosticSink& sink) {
  const std::string aside = path_ + "/" + kReplaced;
  // The next run restores from this if this one is killed in between.
  if (!ReplaceFile(path_ + "/" + kReplacedTarget, fs::path(target).filename().string(), sink)) return ECANCELED;
  int error = MoveAside(target, aside);
  if (error != 0) return error;
  if (!may_replace(aside, sink)) {
    error = ECANCELED;
  } else if (std::rename(from.c_str(), target.c_str()) != 0) {
    error = errno;
  }
  if (error == 0 || std::rename(aside.c_str(), target.c_str()) == 0) return error;
  sink.Report(Code::kIo,
              "the old folder cannot be put back (" + std::string(std::strerror(errno)) + "); it is kept as " +
                  DisplayPath(aside) + ", and the next run puts it back",
              "", DisplayPath(target));
  path_.clear();
  made_.clear();
  return error;
}

bool StagingDir::Commit(const std::string& name, const std::string& target, const MayReplace& may_replace,
                        DiagnosticSink& sink) {
  const std::string from = path_ + "/" + name;
  int error = Rename(from, target, RENAME_NOREPLACE);
  if (Unsupported(error) && !Exists(target)) error = std::rename(from.c_str(), target.c_str()) == 0 ? 0 : errno;
  if ((error == EEXIST || Unsupported(error)) && may_replace != nullptr) {
    error = Exchange(from, target, may_replace, sink);
    if (Unsupported(error)) error = ReplaceInTwoSteps(from, target, may_replace, sink);
  }
  if (error == 0) {
    made_.clear();
    return true;
  }
  if (error != ECANCELED) {
    sink.Report(Code::kIo, std::string("cannot move the output into place: ") + std::strerror(error), "",
                DisplayPath(target));
  }
  return false;
}

}  // namespace zotuning
