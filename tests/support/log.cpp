#include "support/log.h"

#include <android/log.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace zotest {
namespace {

std::mutex g_mutex;
std::vector<RawLine> g_lines;
constexpr const char* kOtherForm = "(another form) ";

void Keep(int priority, const char* tag, const std::string& text) {
  const std::lock_guard<std::mutex> lock(g_mutex);
  g_lines.push_back({priority, tag, text});
}

// "file.cpp:12 Function() message" as "<priority> Function: message"; empty for any other shape.
std::string Digest(const RawLine& line) {
  const size_t colon = line.text.find(':');
  const size_t blank = line.text.find(' ');
  const size_t end = line.text.find("() ");
  if (line.tag != "ZoLOG" || line.priority < 4 || line.priority > 6 || colon >= blank || end == std::string::npos)
    return "";
  const std::string file = line.text.substr(0, colon);
  const std::string number = line.text.substr(colon + 1, blank - colon - 1);
  const bool source = file.find('/') == std::string::npos && file.find_last_of('.') != std::string::npos;
  if (!source || number.empty() || number.find_first_not_of("0123456789") != std::string::npos) return "";
  return std::to_string(line.priority) + ' ' + line.text.substr(blank + 1, end - blank - 1) + ": " +
         line.text.substr(end + 3);
}

}  // namespace

std::vector<RawLine> TakeRawLog() {
  const std::lock_guard<std::mutex> lock(g_mutex);
  return std::exchange(g_lines, {});
}

Strings TakeLog(int lowest) {
  Strings taken;
  for (const RawLine& line : TakeRawLog()) {
    const std::string digest = Digest(line);
    if (digest.empty())
      ADD_FAILURE() << "not the form of a log line: " << line.tag << " | " << line.text.substr(0, 500);
    if (line.priority >= lowest) taken.push_back(digest);
  }
  return taken;
}

}  // namespace zotest

extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char* text = nullptr;
  const int length = vasprintf(&text, format, arguments);
  va_end(arguments);
  if (length < 0) return length;
  zotest::Keep(priority, tag, std::strcmp(format, "%s %s") == 0 ? text : std::string(zotest::kOtherForm) + text);
  std::free(text);
  return length;
}

extern "C" int __android_log_write(int priority, const char* tag, const char* text) {
  zotest::Keep(priority, tag, text);
  return static_cast<int>(std::strlen(text));
}
