/// \file
/// Files and directories of the tests and the fuzz targets.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zotest {

using Strings = std::vector<std::string>;

/// A directory that removes itself. Its name contains a space, a non-ASCII letter and what printf would expand.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }
  const std::string& str() const { return path_; }

 private:
  std::string root_, path_;
};

void MakeDirs(const std::string& dir);
// These two throw on failure.
void Write(const std::string& path, std::string_view text);  ///< creates missing directories as well
std::string Read(const std::string& path);
bool Exists(const std::string& path);
unsigned Mode(const std::string& path);  ///< permission bits

/// Everything below `dir` as sorted relative paths, directories with a trailing "/".
Strings Tree(const std::string& dir);

/// The paths of the "*.json" files below `dir` in the order of a walk that enters each directory when the directory
/// stream returns it, without directories named "version".
Strings JsonInOrder(const std::string& dir);

/// Whether this process has the file open.
bool HoldsOpen(const std::string& path);

}  // namespace zotest
