// Tested by tests/workspace/files_test.cpp.

#include "files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "bin/bin_folder.h"
#include "io/directory.h"
#include "io/unique_fd.h"

namespace zotuning {
namespace {

using ZO_TUNING::internal::DirectoryEntry;
using ZO_TUNING::internal::EntryKind;
using ZO_TUNING::internal::UniqueFd;

const char* SpecialName(mode_t mode) {
  return S_ISFIFO(mode) ? "a named pipe" : S_ISSOCK(mode) ? "a socket" : "a device";
}

/// The entries of one directory by name, none of unknown kind; false if it cannot be read to its end.
bool ReadEntries(const std::string& dir, std::vector<DirectoryEntry>& entries, DiagnosticSink& sink) {
  const auto result = ZO_TUNING::internal::ReadDirectory(dir.c_str(), entries);
  if (!result.is_complete()) {
    return ReportSystemError(result.is_open ? "list all of the directory" : "list the directory", dir, result.error,
                             sink);
  }
  for (DirectoryEntry& entry : entries) {
    struct stat info;
    if (entry.kind != EntryKind::kUnknown || lstat((dir + "/" + entry.name).c_str(), &info) != 0) continue;
    entry.kind = S_ISDIR(info.st_mode)   ? EntryKind::kDirectory
                 : S_ISREG(info.st_mode) ? EntryKind::kFile
                 : S_ISLNK(info.st_mode) ? EntryKind::kLink
                                         : EntryKind::kOther;
  }
  std::sort(entries.begin(), entries.end(),
            [](const DirectoryEntry& a, const DirectoryEntry& b) { return a.name < b.name; });
  return true;
}

bool WalkFiles(const std::string& dir, const std::string& relative, std::string_view suffix,
               std::vector<FoundFile>& files, DiagnosticSink& sink) {
  std::vector<DirectoryEntry> entries;
  bool good = ReadEntries(dir, entries, sink);
  for (const DirectoryEntry& entry : entries) {
    const std::string path = dir + "/" + entry.name;
    if (entry.kind == EntryKind::kDirectory) {
      if (entry.name != "version") good &= WalkFiles(path, relative + entry.name + "/", suffix, files, sink);
    } else if (suffix.empty() || ZO_TUNING::internal::HasSuffix(entry.name, suffix)) {
      if (entry.kind == EntryKind::kFile || RefuseSpecialFile(path, sink)) {
        files.push_back({relative + entry.name, path});
      } else {
        good = false;
      }
    }
  }
  return good;
}

/// Writes all of `text`; returns the errno of a failure, else 0.
int WriteAll(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(file, text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    text.remove_prefix(static_cast<size_t>(count));
  }
  return 0;
}

/// Writes into the existing file; returns the errno of a failure, else 0.
int WriteInPlace(const std::string& path, std::string_view text) {
  UniqueFd file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK, 0666));
  if (file.get() < 0) return errno;
  const int error = WriteAll(file.get(), text);
  return file.Close() || error != 0 ? error : errno;
}

mode_t NewFileMode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

enum class Then { kReplace, kRemove };

/// Writes a new file beside `path`, with the mode and owner of `old` if given, that takes its place or is removed
/// again; returns the errno of a failure, else 0. `in_place` says that the folder or the owner does not allow it;
/// nothing was then changed.
int WriteBeside(const std::string& path, std::string_view text, const struct stat* old, Then then, bool* in_place) {
  const size_t slash = path.rfind('/');
  const size_t name = slash == std::string::npos ? 0 : slash + 1;
  // Its suffix is never that of a setting.
  std::string beside = path.substr(0, name) + "." + path.substr(name, NAME_MAX - 8) + ".XXXXXX";
  UniqueFd file(mkostemp(beside.data(), O_CLOEXEC));
  if (file.get() < 0) {
    *in_place = old != nullptr && (errno == EACCES || errno == EPERM || errno == EROFS);
    return errno;
  }
  int error = 0;
  if (old != nullptr) {
    const bool owned = old->st_uid == geteuid() && old->st_gid == getegid();
    if (!owned && fchown(file.get(), old->st_uid, old->st_gid) != 0) {
      *in_place = true;
      error = errno;
    }
  }
  if (error == 0 && fchmod(file.get(), old == nullptr ? NewFileMode() : old->st_mode & 07777) != 0) error = errno;
  if (error == 0) error = WriteAll(file.get(), text);
  if (!file.Close() && error == 0) error = errno;
  if (error == 0 && then == Then::kReplace && rename(beside.c_str(), path.c_str()) != 0) error = errno;
  if (error != 0 || then == Then::kRemove) unlink(beside.c_str());
  return error;
}

bool Write(const std::string& path, std::string_view text, Then then, DiagnosticSink& sink) {
  struct stat info;
  const bool exists = stat(path.c_str(), &info) == 0;
  std::string target = path;
  if (exists) {
    if (!S_ISREG(info.st_mode)) {
      return ReportSystemError("write", path, S_ISDIR(info.st_mode) ? EISDIR : EINVAL, sink);
    }
    // The target of a link is replaced, not the link.
    const std::unique_ptr<char, decltype(&std::free)> resolved(realpath(path.c_str(), nullptr), &std::free);
    if (resolved != nullptr) target = resolved.get();
    if (access(target.c_str(), W_OK) != 0) return ReportSystemError("write", path, errno, sink);
  }
  bool in_place = exists && info.st_nlink > 1;
  int error = in_place ? 0 : WriteBeside(target, text, exists ? &info : nullptr, then, &in_place);
  if (in_place) error = then == Then::kReplace ? WriteInPlace(target, text) : 0;
  return error == 0 || ReportSystemError("write", path, error, sink);
}

}  // namespace

FileKind KindOf(const std::string& path) {
  struct stat info;
  if (stat(path.c_str(), &info) != 0) {
    if (errno != ENOENT && errno != ENOTDIR && errno != ELOOP) return FileKind::kUnknown;
    return lstat(path.c_str(), &info) == 0 ? FileKind::kDanglingLink : FileKind::kMissing;
  }
  if (S_ISREG(info.st_mode)) return FileKind::kRegular;
  return S_ISDIR(info.st_mode) ? FileKind::kDirectory : FileKind::kSpecial;
}

bool FileState::operator!=(const FileState& other) const {
  return device != other.device || number != other.number || size != other.size ||
         written.tv_sec != other.written.tv_sec || written.tv_nsec != other.written.tv_nsec;
}

FileState StateOf(const std::string& path) {
  struct stat info;
  if (stat(path.c_str(), &info) != 0) return {};
  return {info.st_dev, info.st_ino, info.st_size, info.st_mtim};
}

std::string DisplayPath(const std::string& path) {
  size_t begin = 0;
  while (path.compare(begin, 2, "./") == 0 && path.size() > begin + 2) begin += 2;
  return path.substr(begin);
}

std::string BinFolderAt(const std::string& dir) {
  const std::string inner = ZO_TUNING::internal::BinFolder(dir);
  return IsDirectory(inner) ? inner : dir;
}

bool ReportSystemError(const std::string& what, const std::string& path, int error, DiagnosticSink& sink) {
  sink.Report(Code::kIo, "cannot " + what + " " + DisplayPath(path) + ": " + std::strerror(error), "",
              DisplayPath(path));
  return false;
}

bool RefuseSpecialFile(const std::string& path, DiagnosticSink& sink) {
  switch (KindOf(path)) {
    case FileKind::kSpecial: {
      struct stat info;
      const mode_t mode = stat(path.c_str(), &info) == 0 ? info.st_mode : 0;
      sink.Report(Code::kSpecialFile, std::string("this is ") + SpecialName(mode) + ", not a file",
                  "it is not read: that could block forever", DisplayPath(path));
      return false;
    }
    case FileKind::kDanglingLink:
      sink.Report(Code::kIo, "this is a link to nothing", "", DisplayPath(path));
      return false;
    case FileKind::kUnknown:
      return ReportSystemError("look at", path, errno, sink);
    default:
      return true;
  }
}

bool ReadFile(const std::string& path, std::string& text, DiagnosticSink& sink) {
  // Without O_NONBLOCK, a pipe put in place of the file would block right here.
  const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat info;
  if (file.get() < 0 || fstat(file.get(), &info) != 0) return ReportSystemError("read", path, errno, sink);
  if (!S_ISREG(info.st_mode)) {
    return ReportSystemError("read", path, S_ISDIR(info.st_mode) ? EISDIR : EINVAL, sink);
  }
  // More than protobuf reads, and than any text or bin of a project has.
  if (info.st_size > INT_MAX) return ReportSystemError("read", path, EFBIG, sink);
  // One more byte, so that the end of the file is found without growing.
  text.resize(static_cast<size_t>(info.st_size) + 1);
  for (size_t size = 0;;) {
    if (size == text.size()) text.resize(2 * size);
    const ssize_t count = read(file.get(), &text[size], text.size() - size);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return ReportSystemError("read", path, errno, sink);
    size += static_cast<size_t>(count);
    if (count == 0) {
      text.resize(size);
      return true;
    }
  }
}

bool ReadStandardInput(std::string& text, DiagnosticSink& sink) {
  text.clear();
  for (char buffer[1 << 13];;) {
    const ssize_t count = read(STDIN_FILENO, buffer, sizeof(buffer));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return ReportSystemError("read", "standard input", errno, sink);
    if (count == 0) return true;
    text.append(buffer, static_cast<size_t>(count));
  }
}

bool ReplaceFile(const std::string& path, std::string_view text, DiagnosticSink& sink) {
  return Write(path, text, Then::kReplace, sink);
}

bool CanReplaceFile(const std::string& path, std::string_view text, DiagnosticSink& sink) {
  return Write(path, text, Then::kRemove, sink);
}

bool CreateFile(const std::string& path, std::string_view text, bool* exists, DiagnosticSink& sink) {
  UniqueFd file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
  *exists = file.get() < 0 && errno == EEXIST;
  if (*exists) return false;
  if (file.get() < 0) return ReportSystemError("write", path, errno, sink);
  int error = WriteAll(file.get(), text);
  if (!file.Close() && error == 0) error = errno;
  if (error == 0) return true;
  unlink(path.c_str());
  return ReportSystemError("write", path, error, sink);
}

bool MakeDirectories(const std::string& path, DiagnosticSink& sink, std::vector<std::string>* made) {
  if (IsDirectory(path)) return true;
  for (size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
    const std::string dir = path.substr(0, end);
    if (mkdir(dir.c_str(), 0777) == 0) {
      if (made != nullptr) made->push_back(dir);
    } else if (const int error = errno; !IsDirectory(dir)) {
      // A file in the way is "not a directory", rather than "exists".
      return ReportSystemError("make the directory", dir, error == EEXIST ? ENOTDIR : error, sink);
    }
    if (end == std::string::npos) return true;
  }
}

bool ListNames(const std::string& dir, std::vector<std::string>& names, DiagnosticSink& sink) {
  std::vector<DirectoryEntry> entries;
  const bool good = ReadEntries(dir, entries, sink);
  for (DirectoryEntry& entry : entries) names.push_back(std::move(entry.name));
  return good;
}

bool ListFiles(const std::string& dir, std::string_view suffix, std::vector<FoundFile>& files, DiagnosticSink& sink) {
  const size_t first = files.size();
  const bool good = WalkFiles(dir, "", suffix, files, sink);
  std::sort(files.begin() + static_cast<std::ptrdiff_t>(first), files.end(),
            [](const FoundFile& a, const FoundFile& b) { return a.relative < b.relative; });
  return good;
}

}  // namespace zotuning
