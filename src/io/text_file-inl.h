/// \file
/// Text files as the public functions read and write them.
#pragma once

#include <fstream>
#include <sstream>
#include <string>

namespace ZO_TUNING {
namespace internal {

/// Replaces `text` with the whole file. False, with `text` untouched, when it cannot be opened. A file that cannot be
/// read to its end counts as far as it was read.
[[nodiscard]] inline bool ReadTextFile(const std::string& path, std::string& text) {
  const std::ifstream file(path);
  if (file.fail() || file.bad()) return false;
  std::ostringstream contents;
  // Otherwise the stream keeps it to itself when memory runs out.
  contents.exceptions(std::ios::failbit);
  try {
    contents << file.rdbuf();
  } catch (const std::ios::failure&) {
    // Nothing was read, or not all: what there is counts.
  }
  text = contents.str();
  return true;
}

/// Replaces the file. Failures are not noticed.
inline void WriteTextFile(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::out | std::ios::ate);
  file << text;
  file.close();
}

}  // namespace internal
}  // namespace ZO_TUNING
