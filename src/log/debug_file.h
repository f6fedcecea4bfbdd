/// \file
/// The debug file of the exported logger, shared by the logger and the timing helpers.
#pragma once

#include <cstdio>

namespace ZO_TUNING {
namespace internal {

constexpr unsigned kLevelError = 1;
constexpr unsigned kLevelWarning = 4;
constexpr unsigned kLevelInfo = 16;
constexpr unsigned kLevelVerbose = 32;
constexpr unsigned kLevelTime = 64;

/// Where the debug file is opened; writable, so that a test can lead it elsewhere.
extern char debug_file_path[1024];

/// The open debug file, or null.
extern std::FILE* debug_file;

/// Writes `text` to the Android log at the priority of `level`, and as one line to the debug file when that is open.
/// Neither opens nor closes the file.
void WriteLoggerText(unsigned level, const char* text);

}  // namespace internal
}  // namespace ZO_TUNING
