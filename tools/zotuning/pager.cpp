#include "pager.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace zotuning::tool {
namespace {

std::string PagerCommand() {
  for (const char* name : {"GIT_PAGER", "PAGER"}) {
    const char* command = std::getenv(name);
    if (command != nullptr) return command;
  }
  return "less";
}

}  // namespace

Pager::Pager() {
  if (isatty(STDOUT_FILENO) != 1) return;
  const std::string command = PagerCommand();
  if (command.empty() || command == "cat") return;
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return;
  (void)std::fflush(stdout);
  process_ = fork();
  if (process_ == 0) {
    (void)std::signal(SIGPIPE, SIG_DFL);
    (void)dup2(ends[0], STDIN_FILENO);
    // As in git: less exits at once if everything fits, shows colours, and leaves the screen as it is.
    (void)setenv("LESS", "FRX", 0);
    execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  (void)close(ends[0]);
  if (process_ > 0) {
    // The pager gets Ctrl+C as well, and decides.
    (void)std::signal(SIGINT, SIG_IGN);
    out_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    (void)dup2(ends[1], STDOUT_FILENO);
    if (isatty(STDERR_FILENO) == 1) {
      err_ = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
      (void)dup2(ends[1], STDERR_FILENO);
    }
  }
  (void)close(ends[1]);
}

Pager::~Pager() {
  if (process_ <= 0) return;
  (void)std::fflush(stdout);
  (void)std::fflush(stderr);
  (void)dup2(out_, STDOUT_FILENO);
  (void)close(out_);
  if (err_ >= 0) {
    (void)dup2(err_, STDERR_FILENO);
    (void)close(err_);
  }
  while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
  }
  (void)std::signal(SIGINT, SIG_DFL);
}

}  // namespace zotuning::tool
