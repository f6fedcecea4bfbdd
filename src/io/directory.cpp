// Tested by tests/json/json_files_test.cpp and, with a failing system, tests/faults/operations_test.cpp.

#include "io/directory.h"

#include <dirent.h>

#include <cerrno>
#include <memory>

namespace ZO_TUNING {
namespace internal {

namespace {

EntryKind KindOf(unsigned char type) {
  switch (type) {
    case DT_REG:
      return EntryKind::kFile;
    case DT_DIR:
      return EntryKind::kDirectory;
    case DT_LNK:
      return EntryKind::kLink;
    case DT_UNKNOWN:
      return EntryKind::kUnknown;
    default:
      return EntryKind::kOther;
  }
}

}  // namespace

DirectoryResult ReadDirectory(const char* dir, std::vector<DirectoryEntry>& entries) {
  if (dir == nullptr) return {false, EFAULT};
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(opendir(dir), &closedir);
  if (stream == nullptr) return {false, errno};
  for (;;) {
    errno = 0;
    const dirent* entry = readdir(stream.get());
    if (entry == nullptr) return {true, errno};
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") entries.push_back({std::string(name), KindOf(entry->d_type)});
  }
}

}  // namespace internal
}  // namespace ZO_TUNING
