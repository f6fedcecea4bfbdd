// The log calls of the library, linked before those of the log library: the text is formatted, so that a wrong format
// shows, and kept.

#include <android/log.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support.h"

extern "C" int __android_log_write(int priority, const char* tag, const char* text) {
  if (std::strcmp(tag, "ZoLOG") == 0) zofuzz::AddLogLine(priority, text);
  return 1;
}

extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char* text = nullptr;
  const int length = vasprintf(&text, format, arguments);
  va_end(arguments);
  if (length < 0) return length;
  __android_log_write(priority, tag, text);
  std::free(text);
  return 1;
}
