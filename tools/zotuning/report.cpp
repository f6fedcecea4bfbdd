#include "report.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "zotuning_version.h"

namespace zotuning_tool {
namespace {

size_t Width(std::string_view text) {
  // Characters, not bytes: continuation bytes of UTF-8 take no place.
  return static_cast<size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

Json ToJson(const Diagnostic& diagnostic) {
  return {{"code", diagnostic.code},       {"severity", diagnostic.severity == Severity::kError ? "error" : "warning"},
          {"file", diagnostic.file},       {"line", diagnostic.line},
          {"column", diagnostic.column},   {"path", diagnostic.path},
          {"message", diagnostic.message}, {"hint", diagnostic.hint}};
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

}  // namespace

std::string Printable(std::string_view text, bool keep_lines) {
  std::string printable;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte < 0x20 && !(keep_lines && (c == '\n' || c == '\t'))) || byte == 0x7F) {
      constexpr char kDigits[] = "0123456789ABCDEF";
      printable.append("\\x").append(1, kDigits[byte >> 4]).append(1, kDigits[byte & 15]);
    } else {
      printable += c;
    }
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

std::string Count(size_t count, std::string_view noun) {
  return std::to_string(count) + " " + std::string(noun) + (count == 1 ? "" : "s");
}

std::string Table(const std::vector<std::vector<std::string>>& rows) {
  std::vector<size_t> widths;
  for (const auto& row : rows) {
    if (row.size() > widths.size()) widths.resize(row.size());
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], Width(row[i]));
  }
  std::string text;
  for (const auto& row : rows) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) {
      line += Printable(row[i]);
      if (i + 1 < row.size()) line.append(widths[i] - Width(row[i]) + 2, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + "\n";
  }
  return text;
}

void Report::Begin(std::string command, bool json) {
  command_ = std::move(command);
  json_ = json;
}

void Report::Add(Diagnostic diagnostic) {
  if (diagnostic.severity == Severity::kError) ++errors_;
  if (!json_) {
    WriteOut("");  // so that results and messages stand in order where both go to one place
    const std::string text = ToText(diagnostic);
    (void)std::fwrite(text.data(), 1, text.size(), stderr);
  }
  diagnostics_.push_back(std::move(diagnostic));
}

void Report::Error(std::string code, std::string message, std::string hint, std::string file) {
  Diagnostic diagnostic;
  diagnostic.code = std::move(code);
  diagnostic.message = std::move(message);
  diagnostic.hint = std::move(hint);
  diagnostic.file = std::move(file);
  Add(std::move(diagnostic));
}

void Report::Warn(std::string code, std::string message, std::string hint, std::string file) {
  Diagnostic diagnostic;
  diagnostic.code = std::move(code);
  diagnostic.severity = Severity::kWarning;
  diagnostic.message = std::move(message);
  diagnostic.hint = std::move(hint);
  diagnostic.file = std::move(file);
  Add(std::move(diagnostic));
}

void Report::Print(std::string_view text) {
  if (!json_) WriteOut(text);
}

void Report::WriteOut(std::string_view text) {
  errno = 0;
  const bool written =
      text.empty() ? std::fflush(stdout) == 0 : std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  if (!written && output_error_ == 0) output_error_ = errno == 0 ? EIO : errno;
}

int Report::Finish(int code) {
  if (code == kDone && !ok()) code = kFailed;
  if (json_) {
    Json diagnostics = Json::array();
    for (const Diagnostic& diagnostic : diagnostics_) diagnostics.push_back(ToJson(diagnostic));
    const Json object = {{"tool", "zotuning"},  {"version", ZOTUNING_VERSION}, {"command", command_},
                         {"ok", code == kDone}, {"diagnostics", diagnostics},  {"result", result_}};
    // File names need not be UTF-8; whatever is not becomes the replacement character.
    const std::string text = object.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
    WriteOut(text);
  }
  WriteOut("");
  // A reader that went away has what it wanted.
  if (output_error_ != 0 && output_error_ != EPIPE) {
    (void)std::fprintf(stderr, "zotuning: error: cannot write to standard output: %s\n", std::strerror(output_error_));
    if (code == kDone) code = kFailed;
  }
  return code;
}

}  // namespace zotuning_tool
