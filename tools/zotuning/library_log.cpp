#include "library_log.h"

#include <android/log.h>
#include <google/protobuf/stubs/logging.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <streambuf>

#include "files.h"

namespace zotuning_tool {

void CatchLine(int priority, const char* text);
void CatchErrorText(const char* text, size_t length);

namespace {

bool g_show = false;
LibraryWatch* g_watch = nullptr;

/// With -v a whole JSON text may stand in one line; its begin is enough.
constexpr size_t kShownBytes = 2000;

void Show(const char* prefix, const std::string& text) {
  if (!g_show) return;
  std::string shown = text.substr(0, kShownBytes);
  if (shown.size() < text.size()) shown += " ... (" + std::to_string(text.size()) + " bytes)";
  while (!shown.empty() && shown.back() == '\n') shown.pop_back();
  (void)std::fprintf(stderr, "%s %s\n", prefix, Printable(shown, true).c_str());
}

/// Stands in for the buffer of std::cerr.
class CatchingBuffer : public std::streambuf {
 protected:
  int overflow(int c) override {
    const char byte = static_cast<char>(c);
    if (c != traits_type::eof()) CatchErrorText(&byte, 1);
    return c == traits_type::eof() ? 0 : c;
  }
  std::streamsize xsputn(const char* text, std::streamsize length) override {
    CatchErrorText(text, static_cast<size_t>(length));
    return length;
  }
};

void CatchProtobufLine(google::protobuf::LogLevel level, const char* file, int line, const std::string& message) {
  if (level == google::protobuf::LOGLEVEL_FATAL) {
    (void)std::fprintf(stderr, "zotuning: protobuf: %s:%d: %s\n", file, line, message.c_str());
    return;
  }
  Show("[protobuf]", message);
}

/// Error lines that stand in the log of a call that did all that it should.
bool StandsOnSuccess(const LogLine& line) {
  for (const char* text : {"[Quokka] Getcha the json is", "Stop Parsing", "File is existed, Skip this replacing",
                           "[Quokka] Error to get all json files from default folder",
                           "[Quokka] Warning cannot find any json files under"}) {
    if (line.message.find(text) != std::string::npos) return true;
  }
  return false;
}

/// What a line means to the user: a message that begins with `text` reads `says` and then what follows.
struct Wording {
  const char* text;
  const char* code;
  const char* says;
  bool names_file = false;  ///< what follows is a path and nothing else
};
constexpr Wording kWordings[] = {
    {"Open directory failed: ", "io", "cannot list the directory ", true},
    {"Fail to read json file: ", "io", "cannot read ", true},
    {"Open project config bin file failed: ", "project-config", "cannot read the project configuration ", true},
    {"Read project config bin failed: ", "project-config", "the project configuration is cut short: ", true},
    {"Parse proj_config_msg failed: ", "project-config", "the project configuration does not fit the schema: ", true},
    {"Cannot open output bin file; ", "io", "cannot write "},
    {"Cannot open output file ", "io", "cannot write "},
    {"[Quokka] Open the output default bin file (", "io", "cannot write ("},
    {"Missing default tuning data dir. ", "missing-folder", "the folder of the defaults is missing: ", true},
    {"Missing sensor tuning data dir. ", "missing-folder", "a sensor's folder is missing: ", true},
    {"Find descriptor of ", "schema-type", "the schema has no usable type: "},
    {"Invalid tuning data label type: ", "schema-type",
     "a field of TuningDataLabel is neither int32 nor enum; its protobuf type number is "},
    {"Error in finding the field descriptor of ", "schema-type",
     "the schema's type lacks this field, or has another type for it: "},
    {"[Quokka] Error typing", "bad-choice", "that is the index of no sensor"},
};

/// Lines that only repeat, one level up, what a line before them has said.
bool RepeatsOthers(const LogLine& line) {
  for (const char* text :
       {"Failed in project config message initialization", "Find json files failed from root", "Failed in json str",
        "Get tuning label descriptor failed", "Get tuning version descriptor failed", "Get project config descriptor",
        "Generate tuning label map failed", "Failed in tuning label initialization", "Get descriptor of module",
        "[Quokka] Tuning Data desc pointer is NULL", "[Quokka] Json write to message failed",
        "[Quokka] error to translate the json file"}) {
    if (line.message.find(text) == 0) return true;
  }
  return false;
}

Diagnostic Reworded(const LogLine& line) {
  Diagnostic diagnostic;
  std::string message = line.message.substr(0, kShownBytes);
  while (!message.empty() && message.back() == '\n') message.pop_back();
  for (const Wording& wording : kWordings) {
    if (message.rfind(wording.text, 0) != 0) continue;
    diagnostic.code = wording.code;
    const std::string rest = Shown(message.substr(std::string(wording.text).size()));
    diagnostic.message = wording.says + rest;
    if (wording.names_file) diagnostic.file = rest;
    return diagnostic;
  }
  const std::string tag = "[Quokka] ";
  diagnostic.code = "library";
  diagnostic.message = message.rfind(tag, 0) == 0 ? message.substr(tag.size()) : message;
  return diagnostic;
}

void ReplaceAll(std::string& text, const std::string& from, const std::string& to) {
  if (from.empty()) return;
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
}

}  // namespace

void ShowLibraryLines(bool show) {
  g_show = show;
  google::protobuf::SetLogHandler(&CatchProtobufLine);
}

void CatchLine(int priority, const char* text) {
  const std::string whole = text;
  Show(priority >= kErrorPriority ? "[lib E]" : priority == 5 ? "[lib W]" : "[lib I]", whole);
  if (g_watch == nullptr) return;
  LogLine line{priority, "", "", whole};
  const size_t location_end = whole.find(' ');
  const size_t function_end = whole.find("() ", location_end == std::string::npos ? 0 : location_end);
  if (location_end != std::string::npos && function_end != std::string::npos) {
    line.location = whole.substr(0, location_end);
    line.function = whole.substr(location_end + 1, function_end - location_end - 1);
    line.message = whole.substr(function_end + 3);
  }
  g_watch->lines_.push_back(std::move(line));
}

void CatchErrorText(const char* text, size_t length) {
  if (g_watch != nullptr) g_watch->error_text_.append(text, length);
}

LibraryWatch::LibraryWatch() : outer_(g_watch) {
  static CatchingBuffer buffer;
  cerr_buffer_ = std::cerr.rdbuf(&buffer);
  g_watch = this;
}

LibraryWatch::~LibraryWatch() {
  g_watch = outer_;
  std::cerr.rdbuf(cerr_buffer_);
  if (!error_text_.empty()) Show("[lib stderr]", error_text_);
}

bool LibraryWatch::HasErrors() const {
  return std::any_of(lines_.begin(), lines_.end(),
                     [](const LogLine& line) { return line.priority >= kErrorPriority && !StandsOnSuccess(line); });
}

void LibraryWatch::Explain(Report& report, const std::string& otherwise, const std::string& from,
                           const std::string& to) const {
  std::vector<std::string> said;
  const int errors_before = report.errors();
  for (const bool repeating : {false, true}) {
    // Lines that only repeat others are shown when nothing else is there to show.
    if (repeating && report.errors() > errors_before) break;
    for (const LogLine& line : lines_) {
      if (line.priority < kErrorPriority || StandsOnSuccess(line) || RepeatsOthers(line) != repeating) continue;
      Diagnostic diagnostic = Reworded(line);
      ReplaceAll(diagnostic.message, from, to);
      ReplaceAll(diagnostic.file, from, to);
      if (std::find(said.begin(), said.end(), diagnostic.message) != said.end()) continue;
      said.push_back(diagnostic.message);
      report.Add(std::move(diagnostic));
    }
  }
  if (report.errors() == errors_before)
    report.Error("library", otherwise, "run again with -v to see the library's own lines");
}

}  // namespace zotuning_tool

// The library calls these as plain external functions; defined here, they come before those of the log library.
extern "C" int __android_log_print(int priority, const char* /*tag*/, const char* format, ...) {
  char* text = nullptr;
  va_list arguments;
  va_start(arguments, format);
  const int length = vasprintf(&text, format, arguments);
  va_end(arguments);
  if (length < 0) return -1;
  zotuning_tool::CatchLine(priority, text);
  std::free(text);
  return 1;
}

extern "C" int __android_log_write(int priority, const char* /*tag*/, const char* text) {
  zotuning_tool::CatchLine(priority, text);
  return 1;
}
