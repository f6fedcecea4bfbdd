#include "support/child.h"

#include <gtest/gtest.h>

#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "support/log.h"

namespace zotest {
namespace {
constexpr int kCannotRun = 77;
}

bool InChild(const std::function<void()>& body) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    EXPECT_NO_THROW(body());  // it must not escape into the test program's own run
    EXPECT_THAT(TakeLog(6), testing::IsEmpty()) << "error lines that the test did not expect";
    std::fflush(nullptr);
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  if (WIFEXITED(status) && WEXITSTATUS(status) == kCannotRun) return false;
  EXPECT_EQ(status, 0) << "the child failed, see above";
  return true;
}

void CannotRunHere() { _exit(kCannotRun); }

void FeedStdin(const std::string& text) {
  std::FILE* file = std::tmpfile();
  std::fwrite(text.data(), 1, text.size(), file);
  std::rewind(file);
  dup2(fileno(file), STDIN_FILENO);
}

void LimitFileSize(size_t bytes) {
  signal(SIGXFSZ, SIG_IGN);
  const rlimit limit = {bytes, bytes};
  if (setrlimit(RLIMIT_FSIZE, &limit) != 0) CannotRunHere();
}

void MountSmallDisk(const std::string& dir, size_t bytes) {
  if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("none", dir.c_str(), "tmpfs", 0, ("size=" + std::to_string(bytes)).c_str()) != 0) {
    CannotRunHere();
  }
}

void BecomeNobody() {
  constexpr uid_t kNobody = 65534;
  if (setgid(kNobody) != 0 || setuid(kNobody) != 0) CannotRunHere();
}

}  // namespace zotest
