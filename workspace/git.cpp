// Tested by tests/workspace/sides_test.cpp.

#include "workspace/git.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "io/unique_fd.h"
#include "io/unique_file-inl.h"

namespace zotuning {
namespace {

using ZO_TUNING::internal::UniqueFd;
using ZO_TUNING::internal::UniqueFile;

struct Pipe {
  UniqueFd read;
  UniqueFd write;
  bool Open() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return false;
    read = UniqueFd(ends[0]);
    write = UniqueFd(ends[1]);
    return true;
  }
};

/// Starts a program with these descriptors; -1 means none. Returns 0 or an errno.
int Spawn(const std::vector<std::string>& arguments, int in, int out, int err, pid_t* process) {
  std::vector<char*> words;
  words.reserve(arguments.size() + 1);
  for (const std::string& argument : arguments) words.push_back(const_cast<char*>(argument.c_str()));
  words.push_back(nullptr);
  // Git's output is parsed, and included in our own messages.
  std::string language = "LC_ALL=C";
  std::vector<char*> environment = {language.data()};
  for (char** each = environ; *each != nullptr; ++each) {
    if (std::strncmp(*each, "LC_ALL=", 7) != 0) environment.push_back(*each);
  }
  environment.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  const int descriptors[] = {in, out, err};
  for (int i = 0; i < 3; ++i) {
    if (descriptors[i] >= 0) {
      posix_spawn_file_actions_adddup2(&actions, descriptors[i], i);
    } else {
      posix_spawn_file_actions_addopen(&actions, i, "/dev/null", O_RDWR, 0);
    }
  }
  // Signals ignored by this process, such as SIGPIPE, must have their default effect in the other.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t defaults;
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  const int error = posix_spawnp(process, words[0], &actions, &attributes, words.data(), environment.data());
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

int WaitFor(pid_t process) {
  int status = 0;
  while (waitpid(process, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// The last line of git's messages, without its "fatal: ".
std::string Reason(const std::string& err) {
  std::string text = err.substr(0, err.find_last_not_of('\n') + 1);
  const size_t fatal = text.rfind("fatal: ");
  if (fatal != text.npos) text.erase(0, fatal + 7);
  return text.substr(0, text.find('\n'));
}

}  // namespace

int RunProgram(const std::vector<std::string>& arguments, std::string& out, std::string& err) {
  Pipe pipe;
  // Messages go to a file, so that reading one stream never blocks the other.
  const UniqueFile messages(std::tmpfile());
  if (messages == nullptr || !pipe.Open()) return -1;
  pid_t process = -1;
  const int error = Spawn(arguments, -1, pipe.write.get(), fileno(messages.get()), &process);
  if (error != 0) {
    errno = error;
    return -1;
  }
  (void)pipe.write.Close();
  char buffer[1 << 13];
  for (;;) {
    const ssize_t count = read(pipe.read.get(), buffer, sizeof(buffer));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    out.append(buffer, static_cast<size_t>(count));
  }
  const int code = WaitFor(process);
  std::rewind(messages.get());
  for (size_t count; (count = std::fread(buffer, 1, sizeof(buffer), messages.get())) > 0;) err.append(buffer, count);
  return code;
}

std::vector<std::string> GitRepository::Command(std::vector<std::string> words) const {
  words.insert(words.begin(), {"git", "--no-optional-locks", "-C", dir_});
  return words;
}

bool GitRepository::Run(std::vector<std::string> words, std::string& out, const std::string& what,
                        DiagnosticSink& sink) const {
  std::string err;
  const int code = RunProgram(Command(std::move(words)), out, err);
  if (code == 0) return true;
  if (code < 0) {
    const int error = errno;
    sink.Report(Code::kGit, error == ENOENT ? what + ": git is not installed" : what + ": " + std::strerror(error));
  } else {
    sink.Report(Code::kGit, what + ": " + Reason(err));
  }
  return false;
}

std::unique_ptr<GitRepository> GitRepository::Open(const std::string& dir, DiagnosticSink& sink) {
  std::unique_ptr<GitRepository> repository(new GitRepository(dir));
  std::string out;
  if (!repository->Run({"rev-parse", "--show-prefix"}, out, "revisions cannot be read", sink)) return nullptr;
  repository->prefix_ = out.substr(0, out.find('\n'));
  return repository;
}

bool GitRepository::List(const std::string& revision, std::map<std::string, GitFile>& files, DiagnosticSink& sink) {
  std::string out;
  // A revision must not be an option, nor what git takes for the index.
  if (revision.empty() || revision[0] == '-') {
    sink.Report(Code::kGit, Quoted(revision) + " is not a revision");
    return false;
  }
  if (!Run({"ls-tree", "-r", "-z", "--full-tree", revision}, out, "cannot read the revision " + Quoted(revision),
           sink)) {
    return false;
  }
  // "MODE TYPE OBJECT<tab>PATH<zero>"
  for (size_t begin = 0; begin < out.size();) {
    const size_t end = std::min(out.find('\0', begin), out.size());
    const std::string entry = out.substr(begin, end - begin);
    begin = end + 1;
    const size_t type = entry.find(' '), object = entry.find(' ', type + 1), tab = entry.find('\t');
    if (type == entry.npos || object == entry.npos || tab == entry.npos) continue;
    if (entry.compare(type + 1, object - type - 1, "blob") != 0) continue;
    files[entry.substr(tab + 1)] = {entry.substr(object + 1, tab - object - 1), entry.compare(0, type, "120000") == 0};
  }
  return true;
}

std::vector<std::string> GitRepository::BeforeChanges(int count, const std::string& files) const {
  CollectingSink ignored;  // before the first commit there is none
  std::string out;
  std::vector<std::string> revisions;
  if (!Run({"log", "-" + std::to_string(count), "--format=%h~", "--", files}, out, "", ignored)) return revisions;
  for (size_t begin = 0, end = 0; (end = out.find('\n', begin)) != out.npos; begin = end + 1) {
    revisions.push_back(out.substr(begin, end - begin));
  }
  return revisions;
}

std::string GitRepository::RevisionBefore(const std::string& files) const {
  CollectingSink ignored;
  std::string out;
  if (!Run({"status", "--porcelain", "--", files}, out, "", ignored) || !out.empty()) return "HEAD";
  const std::vector<std::string> revisions = BeforeChanges(1, files);
  return revisions.empty() ? "HEAD" : revisions[0];
}

bool GitRepository::StartReading(DiagnosticSink& sink) {
  Pipe in, out;
  if (!in.Open() || !out.Open()) {
    sink.Report(Code::kGit, std::string("git cannot be started: ") + std::strerror(errno));
    return false;
  }
  const int error = Spawn(Command({"cat-file", "--batch"}), in.read.get(), out.write.get(), -1, &reader_);
  if (error != 0) {
    sink.Report(Code::kGit, std::string("git cannot be started: ") + std::strerror(error));
    reader_ = -1;
    return false;
  }
  to_reader_ = fdopen(in.write.Release(), "w");
  from_reader_ = fdopen(out.read.Release(), "r");
  return true;
}

bool GitRepository::Read(const std::string& object, std::string& text, DiagnosticSink& sink) {
  if (reader_ < 0 && !StartReading(sink)) return false;
  // "OBJECT TYPE SIZE<line feed>", the bytes, and another line feed; or "OBJECT missing".
  char header[256] = "";
  size_t size = 0;
  const bool answered = to_reader_ != nullptr && from_reader_ != nullptr &&
                        std::fprintf(to_reader_, "%s\n", object.c_str()) > 0 && std::fflush(to_reader_) == 0 &&
                        std::fgets(header, sizeof(header), from_reader_) != nullptr;
  const char* size_text = answered ? std::strrchr(header, ' ') : nullptr;
  bool good = size_text != nullptr && std::strstr(header, " blob ") != nullptr;
  if (good) {
    size = static_cast<size_t>(std::strtoull(size_text, nullptr, 10));
    text.clear();
    // Memory grows with what arrives.
    for (size_t left = size + 1; good && left > 0;) {
      char buffer[1 << 13];
      const size_t count = std::fread(buffer, 1, std::min(left, sizeof(buffer)), from_reader_);
      good = count > 0;
      text.append(buffer, count);
      left -= count;
    }
    if (good) text.pop_back();
  }
  if (!good) sink.Report(Code::kGit, "git cannot read the object " + object);
  return good;
}

GitRepository::~GitRepository() {
  if (to_reader_ != nullptr) (void)std::fclose(to_reader_);
  if (from_reader_ != nullptr) (void)std::fclose(from_reader_);
  if (reader_ >= 0) (void)WaitFor(reader_);
}

}  // namespace zotuning
