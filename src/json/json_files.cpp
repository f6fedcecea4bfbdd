// FindAllJsonFiles, the walk over a tree of JSON files. Tested by tests/json/json_files_test.cpp.

#include <cstdio>
#include <string>
#include <vector>

#include "ZoTuningUtils.h"
#include "io/directory.h"

using namespace ZO_TUNING::internal;

bool ZoTuningUtils::FindAllJsonFiles(const char* dir, std::vector<std::string>& files) try {
  const PassFailuresOn guard;
  std::vector<DirectoryEntry> entries;
  if (!ReadDirectory(dir, entries)) {
    TuningLog(kLogError, __LINE__, __func__, "Open directory failed: %s", dir);
    return false;
  }
  for (const DirectoryEntry& entry : entries) {
    if (entry.is_directory) {
      if (entry.name == "version") continue;
      char path[1024];
      const int length = std::snprintf(path, sizeof(path), "%s%s%s", dir, "/", entry.name.c_str());
      if (length >= static_cast<int>(sizeof(path))) {
        // A cut path may exist elsewhere, even lead back here; it is never entered.
        TuningLog(kLogError, __LINE__, __func__, "Open directory failed: %s", path);
        continue;
      }
      FindAllJsonFiles(path, files);  // a subdirectory that cannot be opened is logged and passed over
    } else if (HasSuffix(entry.name, ".json")) {
      files.push_back(std::string(dir) + "/" + entry.name);
    }
  }
  return true;
} catch (...) {
  return ReportException(__LINE__, __func__);
}
