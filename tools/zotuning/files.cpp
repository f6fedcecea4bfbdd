#include "files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "bin/bin_folder.h"
#include "io/directory.h"

namespace zotuning_tool {
namespace {

/// Owns a file descriptor.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() { Close(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int number() const { return number_; }
  bool Close() {
    const int closing = std::exchange(number_, -1);
    return closing < 0 || close(closing) == 0;
  }

 private:
  int number_;
};

bool Fail(const std::string& what, const std::string& path, Report& report) {
  const std::string reason = std::strerror(errno);
  report.Error("io", "cannot " + what + " " + Shown(path) + ": " + reason, "", Shown(path));
  return false;
}

const char* SpecialName(mode_t mode) {
  return S_ISFIFO(mode) ? "a named pipe" : S_ISSOCK(mode) ? "a socket" : "a device";
}

struct Entry {
  std::string name;
  unsigned char type;  ///< DT_..., a link not followed
};

/// The entries of one directory by name; false when it cannot be opened or its stream breaks off.
bool ReadEntries(const std::string& dir, std::vector<Entry>& entries, Report& report) {
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(opendir(dir.c_str()), &closedir);
  if (stream == nullptr) return Fail("list the directory", dir, report);
  errno = 0;
  while (const dirent* entry = readdir(stream.get())) {
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    entries.push_back({std::string(name), entry->d_type});
    struct stat info;
    if (entry->d_type == DT_UNKNOWN && lstat((dir + "/" + entries.back().name).c_str(), &info) == 0) {
      entries.back().type = static_cast<unsigned char>(IFTODT(info.st_mode));
    }
    errno = 0;
  }
  if (errno != 0) return Fail("list all of the directory", dir, report);
  std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.name < b.name; });
  return true;
}

bool Walk(const std::string& dir, const std::string& relative, std::string_view suffix, std::vector<FoundFile>& files,
          Report& report) {
  std::vector<Entry> entries;
  bool good = ReadEntries(dir, entries, report);
  for (const Entry& entry : entries) {
    const std::string path = dir + "/" + entry.name;
    if (entry.type == DT_DIR) {
      if (entry.name != "version") good &= Walk(path, relative + entry.name + "/", suffix, files, report);
    } else if (ZO_TUNING::internal::HasSuffix(entry.name, suffix)) {
      if (entry.type == DT_REG || RefuseSpecialFile(path, report)) {
        files.push_back({relative + entry.name, path});
      } else {
        good = false;
      }
    }
  }
  return good;
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

std::string Shown(const std::string& path) {
  size_t begin = 0;
  while (path.compare(begin, 2, "./") == 0 && path.size() > begin + 2) begin += 2;
  return path.substr(begin);
}

std::string BinFolderAt(const std::string& dir) {
  const std::string inner = ZO_TUNING::internal::BinFolder(dir);
  return IsDirectory(inner) ? inner : dir;
}

bool RefuseSpecialFile(const std::string& path, Report& report) {
  switch (KindOf(path)) {
    case FileKind::kSpecial: {
      struct stat info;
      const mode_t mode = stat(path.c_str(), &info) == 0 ? info.st_mode : 0;
      report.Error("special-file", std::string("this is ") + SpecialName(mode) + ", not a file",
                   "it is not read: that could block for ever", Shown(path));
      return false;
    }
    case FileKind::kDanglingLink:
      report.Error("io", "this is a link to nothing", "", Shown(path));
      return false;
    case FileKind::kUnknown:
      return Fail("look at", path, report);
    default:
      return true;
  }
}

bool ReadFile(const std::string& path, std::string& text, Report& report) {
  // Without O_NONBLOCK a pipe put in the file's place would block right here.
  Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat info;
  if (file.number() < 0 || fstat(file.number(), &info) != 0) return Fail("read", path, report);
  if (!S_ISREG(info.st_mode)) {
    errno = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
    return Fail("read", path, report);
  }
  text.clear();
  char buffer[1 << 16];
  for (;;) {
    const ssize_t count = read(file.number(), buffer, sizeof(buffer));
    if (count == 0) return true;
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return Fail("read", path, report);
    text.append(buffer, static_cast<size_t>(count));
  }
}

bool WriteFile(const std::string& path, std::string_view text, Report& report) {
  Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (file.number() < 0) return Fail("write", path, report);
  while (!text.empty()) {
    const ssize_t count = write(file.number(), text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return Fail("write", path, report);
    text.remove_prefix(static_cast<size_t>(count));
  }
  return file.Close() || Fail("write", path, report);
}

bool MakeDirectories(const std::string& path, Report& report, std::vector<std::string>* made) {
  if (IsDirectory(path)) return true;
  for (size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
    const std::string dir = path.substr(0, end);
    if (mkdir(dir.c_str(), 0777) == 0) {
      if (made != nullptr) made->push_back(dir);
    } else if (const int error = errno; !IsDirectory(dir)) {
      // A file in the way is "not a directory", rather than "exists".
      errno = error == EEXIST ? ENOTDIR : error;
      return Fail("make the directory", dir, report);
    }
    if (end == std::string::npos) return true;
  }
}

bool ListNames(const std::string& dir, std::vector<std::string>& names, Report& report) {
  std::vector<Entry> entries;
  const bool good = ReadEntries(dir, entries, report);
  for (Entry& entry : entries) names.push_back(std::move(entry.name));
  return good;
}

bool ListFiles(const std::string& dir, std::string_view suffix, std::vector<FoundFile>& files, Report& report) {
  return Walk(dir, "", suffix, files, report);
}

}  // namespace zotuning_tool
