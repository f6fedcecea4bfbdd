#include "support/log.h"

#include <android/log.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <regex>
#include <utility>

namespace zotest {
namespace {

std::mutex g_mutex;
std::vector<RawLine> g_lines;

void Keep(int priority, const char* tag, const std::string& text) {
  const std::lock_guard<std::mutex> lock(g_mutex);
  g_lines.push_back({priority, tag, text});
}

// "file.cpp:12 Function() message" as "<priority> Function: message"; empty for any other form.
std::string Digest(const RawLine& line) {
  static const std::regex form(R"([^/: ]+\.(cpp|h):[0-9]+ ([^ ]+)\(\) )");
  const std::string head = line.text.substr(0, 200);
  std::smatch match;
  const bool fits = line.tag == "ZoLOG" && line.priority >= 4 && line.priority <= 6 &&
                    std::regex_search(head, match, form, std::regex_constants::match_continuous);
  return fits ? Line(line.priority, match.str(2), line.text.substr(static_cast<size_t>(match.length()))) : "";
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
    EXPECT_FALSE(digest.empty()) << "not the form of a log line: " << line.tag << " | " << line.text.substr(0, 500);
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
  zotest::Keep(priority, tag, std::strcmp(format, "%s %s") == 0 ? text : std::string("(another format) ") + text);
  std::free(text);
  return length;
}

extern "C" int __android_log_write(int priority, const char* tag, const char* text) {
  zotest::Keep(priority, tag, text);
  return static_cast<int>(std::strlen(text));
}
