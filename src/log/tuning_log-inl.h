/// \file
/// TuningLog, the one way in which the exported operations report. It is inline and hidden, so that the inline
/// functions of the public header carry their own copy into the program that compiles them and need nothing but liblog
/// there.
#pragma once

#include <android/log.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace ZO_TUNING {
namespace internal {

inline constexpr int kLogInfo = 4;
inline constexpr int kLogWarn = 5;
inline constexpr int kLogError = 6;

/// Where a log call is. Made implicitly from __LINE__; the file is that of the call.
struct SourceLine {
  // NOLINTNEXTLINE(google-explicit-constructor): made of the __LINE__ that every call passes.
  SourceLine(int line_number, const char* file_path = __builtin_FILE()) : line(line_number), file(file_path) {
    if (const char* slash = std::strrchr(file_path, '/')) file = slash + 1;
  }
  int line;
  const char* file;  ///< base name
};

/// Writes "<file>:<line> <function>() <message>" to the Android log under "ZoLOG". Priorities below 4 are dropped, and
/// so is a message that cannot be formatted.
// NOLINTNEXTLINE(cert-dcl50-cpp): variadic like the log call it makes, so that the compiler checks its formats.
__attribute__((visibility("hidden"), format(printf, 4, 5))) inline void TuningLog(int priority, SourceLine at,
                                                                                  const char* function,
                                                                                  const char* format, ...) {
  if (priority < kLogInfo) return;
  char* message = nullptr;
  va_list arguments;
  va_start(arguments, format);
  const int message_length = vasprintf(&message, format, arguments);
  va_end(arguments);
  if (message_length < 0) return;
  char* location = nullptr;
  if (asprintf(&location, "%s:%d %s()", at.file, at.line, function) >= 0) {
    __android_log_print(priority, "ZoLOG", "%s %s", location, message);
    std::free(location);
  }
  std::free(message);
}

}  // namespace internal
}  // namespace ZO_TUNING
