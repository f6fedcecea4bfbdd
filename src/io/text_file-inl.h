/// \file
/// Text files as the public functions read and write them.
#pragma once

#include <fstream>
#include <sstream>
#include <string>

namespace ZO_TUNING {
namespace internal {

/// Replaces `text` with the contents of the file. False, with `text` unchanged, if it cannot be opened. A file that
/// cannot be read to its end counts as far as it was read.
[[nodiscard]] inline bool ReadTextFile(const std::string& path, std::string& text) {
  const std::ifstream file(path);
  if (file.fail() || file.bad()) return false;
  std::ostringstream contents;
  // Otherwise the stream swallows a lack of memory.
  contents.exceptions(std::ios::failbit);
  try {
    contents << file.rdbuf();
  } catch (const std::ios::failure&) {
    // Nothing was read, or not all: what there is counts.
  }
  text = contents.str();
  return true;
}

/// Replaces the file. Failures are not detected.
inline void WriteTextFile(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::out | std::ios::ate);
  file << text;
  file.close();
}

}  // namespace internal
}  // namespace ZO_TUNING
