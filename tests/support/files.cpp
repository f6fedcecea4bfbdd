#include "support/files.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace zotest {

namespace fs = std::filesystem;

TempDir::TempDir() {
  std::string pattern = (fs::temp_directory_path() / "zotuning-XXXXXX").string();
  root_ = mkdtemp(&pattern[0]);
  path_ = root_ + "/Größe 5%s%n";
  fs::create_directory(path_);
  fs::permissions(root_, fs::perms(0755));
}

TempDir::~TempDir() {
  std::error_code ignored;
  fs::remove_all(root_, ignored);
}

void MakeDirs(const std::string& dir) { fs::create_directories(dir); }

void Write(const std::string& path, std::string_view text) {
  MakeDirs(fs::path(path).parent_path());
  std::ofstream file(path, std::ios::binary);
  file << text;
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

std::string Read(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);
  return {std::istreambuf_iterator<char>(file), {}};
}

bool Exists(const std::string& path) { return fs::exists(fs::symlink_status(path)); }

unsigned Mode(const std::string& path) { return static_cast<unsigned>(fs::status(path).permissions()); }

Strings Tree(const std::string& dir) {
  Strings found;
  for (const auto& entry : fs::recursive_directory_iterator(dir)) {
    found.push_back(fs::relative(entry.path(), dir).string() + (entry.is_directory() ? "/" : ""));
  }
  std::sort(found.begin(), found.end());
  return found;
}

Strings JsonInOrder(const std::string& dir) {
  Strings found;
  for (const auto& entry : fs::directory_iterator(dir)) {
    const std::string path = dir + "/" + entry.path().filename().string();
    if (entry.is_directory() && !entry.is_symlink()) {
      if (entry.path().filename() == "version") continue;
      for (const std::string& below : JsonInOrder(path)) found.push_back(below);
    } else if (path.size() > 5 && path.compare(path.size() - 5, 5, ".json") == 0) {
      found.push_back(path);
    }
  }
  return found;
}

bool HoldsOpen(const std::string& path) {
  const fs::directory_iterator open("/proc/self/fd");
  std::error_code gone;
  return std::any_of(begin(open), end(open), [&](const auto& fd) { return fs::read_symlink(fd, gone) == path; });
}

}  // namespace zotest
