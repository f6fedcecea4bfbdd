#include "console.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "transcode/json_lexer.h"
#include "zotuning_version.h"

namespace zotuning::tool {
namespace {

size_t Width(std::string_view text) {
  // Characters, not bytes: continuation bytes of UTF-8 take no column.
  return static_cast<size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

/// For a line or column that may be unknown.
Json PlaceJson(int place) { return place > 0 ? Json(place) : Json(nullptr); }

Json ToJson(const Diagnostic& diagnostic) {
  return {{"code", Name(diagnostic.code)},
          {"severity", diagnostic.severity == Severity::kError ? "error" : "warning"},
          {"file", diagnostic.file},
          {"line", PlaceJson(diagnostic.line)},
          {"column", PlaceJson(diagnostic.column)},
          {"path", diagnostic.path},
          {"message", diagnostic.message},
          {"hint", diagnostic.hint}};
}

/// As lines, with an indent after the first. File names need not be UTF-8; whatever is not becomes the replacement
/// character.
std::string Dump(const Json& value, size_t indent = 0) {
  std::string text = value.dump(2, ' ', false, Json::error_handler_t::replace);
  if (indent == 0) return text;
  std::string indented;
  indented.reserve(text.size() + text.size() / 4);
  size_t begin = 0;
  for (size_t end = text.find('\n'); end != text.npos; begin = end + 1, end = text.find('\n', begin)) {
    indented.append(text, begin, end + 1 - begin).append(indent, ' ');
  }
  return indented.append(text, begin);
}

std::string ToText(const Diagnostic& diagnostic) {
  static const bool colour = MayColour(STDERR_FILENO);
  const bool error = diagnostic.severity == Severity::kError;
  std::string text = diagnostic.file.empty() ? "zotuning" : Printable(diagnostic.file);
  if (diagnostic.line > 0) text += ":" + std::to_string(diagnostic.line) + ":" + std::to_string(diagnostic.column);
  text += ": ";
  if (colour) text += error ? "\033[1;31m" : "\033[1;33m";
  text += error ? "error:" : "warning:";
  if (colour) text += "\033[0m";
  text += " " + Printable(diagnostic.message) + "\n";
  if (!diagnostic.excerpt.empty()) {
    text += "    " + Printable(diagnostic.excerpt) + "\n    ";
    text.append(static_cast<size_t>(std::max(diagnostic.excerpt_column - 1, 0)), ' ');
    text += "^\n";
  }
  if (!diagnostic.hint.empty()) text += "  help: " + Printable(diagnostic.hint) + "\n";
  return text;
}

void AppendHex(const char* before, uint32_t value, const char* after, std::string* text) {
  char digits[16];
  (void)std::snprintf(digits, sizeof(digits), "%02X", value);
  text->append(before).append(digits).append(after);
}

/// The character at the start of `text`; `length` is set to the number of its bytes, 0 if it is not UTF-8.
uint32_t DecodeUtf8(std::string_view text, size_t* length) {
  const auto byte = [&](size_t i) -> uint32_t { return static_cast<unsigned char>(text[i]); };
  const uint32_t first = byte(0);
  *length = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  if (first < 0x80) return first;
  if (text.size() < *length || !ZO_TUNING::internal::IsUtf8(text.data(), text.data() + *length)) {
    *length = 0;
    return 0;
  }
  uint32_t character = first & (0x7Fu >> *length);
  for (size_t i = 1; i < *length; ++i) character = character << 6 | (byte(i) & 0x3F);
  return character;
}

/// Characters that control a terminal, or invisibly change how others are displayed.
bool IsInvisible(uint32_t character) {
  struct Range {
    uint32_t first, last;
  };
  static constexpr Range kRanges[] = {
      {0x80, 0x9F},  // C1 controls
      {0xAD, 0xAD},  // soft hyphen
      {0x600, 0x605},     {0x61C, 0x61C},     {0x6DD, 0x6DD},
      {0x70F, 0x70F},     {0x180E, 0x180E},   {0x200B, 0x200F},  // zero width, and directional marks
      {0x2028, 0x202E},  // line and paragraph separators, embeddings and overrides of direction
      {0x2060, 0x206F},  // word joiner, isolates
      {0xFEFF, 0xFEFF},   {0xFFF9, 0xFFFB},   {0x1BCA0, 0x1BCA3},
      {0x1D173, 0x1D17A}, {0xE0000, 0xE0FFF},  // tags and variation selectors
  };
  return std::any_of(std::begin(kRanges), std::end(kRanges),
                     [&](const Range& range) { return character >= range.first && character <= range.last; });
}

}  // namespace

std::string Printable(std::string_view text, bool keep_lines) {
  std::string printable;
  printable.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    size_t plain = i;
    while (plain < text.size() && text[plain] >= 0x20 && text[plain] < 0x7F) ++plain;
    printable.append(text, i, plain - i);
    i = plain;
    if (i == text.size()) break;
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte < 0x20 || byte == 0x7F) {
      if (keep_lines && (byte == '\n' || byte == '\t')) {
        printable += text[i];
      } else {
        AppendHex("\\x", byte, "", &printable);
      }
      ++i;
      continue;
    }
    size_t length = 1;
    const uint32_t character = byte < 0x80 ? byte : DecodeUtf8(text.substr(i), &length);
    if (length == 0) {
      // Not UTF-8; a terminal with another encoding may take such a byte for a C1 control.
      AppendHex("\\x", byte, "", &printable);
      length = 1;
    } else if (IsInvisible(character)) {
      AppendHex("\\u{", character, "}", &printable);
    } else {
      printable.append(text, i, length);
    }
    i += length;
  }
  return printable;
}

bool MayColour(int descriptor) {
  const char* no_color = std::getenv("NO_COLOR");
  const char* term = std::getenv("TERM");
  if (no_color != nullptr && *no_color != '\0') return false;
  if (term != nullptr && std::strcmp(term, "dumb") == 0) return false;
  return isatty(descriptor) == 1;
}

void Columns::Measure(const Cells& row) {
  widths_.resize(std::max(widths_.size(), row.size()));
  for (size_t i = 0; i < row.size(); ++i) widths_[i] = std::max(widths_[i], Width(row[i]));
}

std::string Columns::Line(const Cells& row) const {
  std::string line;
  for (size_t i = 0; i < row.size(); ++i) {
    line += Printable(row[i]);
    // A row wider than when it was measured just makes its line longer.
    if (i + 1 < row.size()) line.append(widths_[i] - std::min(widths_[i], Width(row[i])) + 2, ' ');
  }
  line.erase(line.find_last_not_of(' ') + 1);
  return line + "\n";
}

std::string Table(const std::vector<Cells>& rows) {
  Columns columns;
  for (const Cells& row : rows) columns.Measure(row);
  std::string text;
  for (const Cells& row : rows) text += columns.Line(row);
  return text;
}

void Console::Begin(std::string command, bool json) {
  command_ = std::move(command);
  json_ = json;
}

void Console::Add(Diagnostic diagnostic) {
  if (diagnostic.severity == Severity::kError) ++errors_;
  if (!json_ || printed_) {
    WriteOut("");  // so that results and messages are in order if both go to the same place
    const std::string text = ToText(diagnostic);
    (void)std::fwrite(text.data(), 1, text.size(), stderr);
  }
  diagnostics_.push_back(std::move(diagnostic));
}

void Console::Print(std::string_view text) {
  if (!json_) WriteOut(text);
}

void Console::WriteOut(std::string_view text) {
  errno = 0;
  const bool written =
      text.empty() ? std::fflush(stdout) == 0 : std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  if (!written && output_error_ == 0) output_error_ = errno == 0 ? EIO : errno;
}

std::string Console::ElementText(const Json& element) { return Dump(element, 6); }

void Console::StreamResult(const Streams& streams, bool done) {
  if (json_) PrintObject(done && ok(), streams);
}

void Console::PrintObject(bool done, const Streams& streams) {
  printed_ = true;
  Json diagnostics = Json::array();
  for (const Diagnostic& diagnostic : diagnostics_) diagnostics.push_back(ToJson(diagnostic));
  std::string text = Dump({{"tool", "zotuning"},
                           {"version", ZOTUNING_VERSION},
                           {"command", command_},
                           {"ok", done},
                           {"diagnostics", std::move(diagnostics)}});
  text.resize(text.size() - 2);  // the end of the object
  text += ",\n  \"result\": ";
  if (streams.empty()) {
    WriteOut(text + Dump(result_, 2) + "\n}\n");
    return;
  }
  text += "{";
  const char* before = "\n    ";
  for (const auto& [key, value] : result_.items()) {
    text += before + Json(key).dump() + ": ";
    before = ",\n    ";
    const auto stream = streams.find(key);
    if (stream == streams.end()) {
      text += Dump(value, 4);
      continue;
    }
    WriteOut(text + "[");
    bool empty = true;
    stream->second([&](std::string_view element) {
      WriteOut(empty ? "\n      " : ",\n      ");
      WriteOut(element);
      empty = false;
    });
    text = empty ? "]" : "\n    ]";
  }
  WriteOut(text + "\n  }\n}\n");
}

int Console::Finish(int code) {
  if (code == kDone && !ok()) code = kFailed;
  if (json_ && !printed_) PrintObject(code == kDone, {});
  WriteOut("");
  // A reader that went away has what it wanted.
  if (output_error_ != 0 && output_error_ != EPIPE) {
    (void)std::fprintf(stderr, "zotuning: error: cannot write to standard output: %s\n", std::strerror(output_error_));
    if (code == kDone) code = kFailed;
  }
  return code;
}

}  // namespace zotuning::tool
