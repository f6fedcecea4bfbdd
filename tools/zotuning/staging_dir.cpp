#include "staging_dir.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <utility>

#include "files.h"

namespace zotuning_tool {
namespace {

constexpr int kTickMilliseconds = 100;
constexpr const char* kPrefix = ".zo_tuning-";
constexpr time_t kStaleSeconds = 60;

/// Opens a folder and locks it against being taken for a stale one; -1 when somebody else has.
int LockFolder(const std::string& path) {
  const int folder = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (folder >= 0 && flock(folder, LOCK_EX | LOCK_NB) == 0) return folder;
  if (folder >= 0) close(folder);
  return -1;
}

/// Removes the working folders that killed processes left in `parent`: nobody has them locked. Young ones stay, as
/// their process may not have come to lock them yet.
void RemoveStale(const std::string& parent) {
  std::vector<std::string> names;
  Report ignored;  // what cannot be listed now is removed by a later run
  ignored.Begin("", true);
  ListNames(parent, names, ignored);
  for (const std::string& name : names) {
    if (name.rfind(kPrefix, 0) != 0) continue;
    const std::string path = std::filesystem::path(parent) / name;
    const int folder = LockFolder(path);
    struct stat info;
    const bool stale = folder >= 0 && fstat(folder, &info) == 0 && info.st_uid == geteuid() &&
                       info.st_mtime + kStaleSeconds < std::time(nullptr);
    std::error_code error;
    if (stale) std::filesystem::remove_all(path, error);
    if (folder >= 0) close(folder);
  }
}

/// Signals that end the process unless somebody has them ignored, as nohup does.
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

/// renameat2 without a replacement of its own: ENOSYS and EINVAL where the system or file system lacks it.
int Rename(const std::string& from, const std::string& to, unsigned flags) {
  return renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), flags) == 0 ? 0 : errno;
}

bool Unsupported(int error) { return error == ENOSYS || error == EINVAL; }

}  // namespace

std::unique_ptr<StagingDir> StagingDir::Make(const std::string& parent, Tick tick, Report& report) {
  std::unique_ptr<StagingDir> folder(new StagingDir(std::move(tick)));
  return folder->Create(parent, report) ? std::move(folder) : nullptr;
}

StagingDir::StagingDir(Tick tick) : tick_(std::move(tick)), signals_(EndingSignals()) {
  // Before anything is made: a signal waits for the watcher, or for the end.
  pthread_sigmask(SIG_BLOCK, &signals_, &mask_before_);
}

bool StagingDir::Create(const std::string& parent, Report& report) {
  if (!MakeDirectories(parent, report, &made_)) return false;
  RemoveStale(parent);
  std::string path = parent + "/" + kPrefix + "XXXXXX";
  if (mkdtemp(path.data()) == nullptr) {
    report.Error("io", std::string("cannot make a working folder in it: ") + std::strerror(errno), "", Shown(parent));
    return false;
  }
  path_ = path;
  lock_ = LockFolder(path_);
  if (pipe2(wake_, O_CLOEXEC) == 0) watcher_ = std::thread([this] { Watch(); });
  return true;
}

StagingDir::~StagingDir() {
  StopWatcher();
  Remove();
  if (lock_ >= 0) close(lock_);
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
  const int descriptor = signalfd(-1, &signals_, SFD_CLOEXEC);
  pollfd sources[] = {{descriptor, POLLIN, 0}, {wake_[0], POLLIN, 0}};
  for (;;) {
    const int ready = poll(sources, 2, kTickMilliseconds);
    if (ready == 0 && tick_) tick_(path_);
    if (sources[1].revents != 0 || (ready < 0 && errno != EINTR)) break;
    signalfd_siginfo info;
    if (ready <= 0 || read(descriptor, &info, sizeof(info)) != static_cast<ssize_t>(sizeof(info))) continue;
    const int number = static_cast<int>(info.ssi_signo);
    // The other thread may be about to stop this one and look at the result; whoever comes second stops for good.
    if (!obeying_.try_lock()) {
      (void)kill(getpid(), number);  // waits until this folder goes
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
  if (descriptor >= 0) close(descriptor);
}

void StagingDir::Remove() const {
  // The library may still be making files in it.
  for (int tries = 0; !path_.empty() && tries < 1000; ++tries) {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
    if (!error && KindOf(path_) == FileKind::kMissing) break;
  }
  for (auto dir = made_.rbegin(); dir != made_.rend(); ++dir) rmdir(dir->c_str());
}

bool StagingDir::Commit(const std::string& name, const std::string& target, bool replace, Report& report) {
  const std::string from = path_ + "/" + name;
  int error = Rename(from, target, RENAME_NOREPLACE);
  if (Unsupported(error) && !Exists(target)) error = std::rename(from.c_str(), target.c_str()) == 0 ? 0 : errno;
  if ((error == EEXIST || Unsupported(error)) && replace) {
    error = Rename(from, target, RENAME_EXCHANGE);
    if (Unsupported(error)) {
      // Two steps where there is no exchange; the old folder goes with this one.
      error = std::rename(target.c_str(), (path_ + "/replaced").c_str()) == 0 &&
                      std::rename(from.c_str(), target.c_str()) == 0
                  ? 0
                  : errno;
    }
  }
  if (error == 0) {
    made_.clear();
    return true;
  }
  report.Error("io", std::string("the finished folder cannot be put in its place: ") + std::strerror(error), "",
               Shown(target));
  return false;
}

}  // namespace zotuning_tool
