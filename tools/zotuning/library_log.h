/// \file
/// Catches everything that the library and protobuf say: the Android log, standard error, and protobuf's own log. With
/// -v it is shown on standard error; otherwise only the lines that explain a failure are, in the tool's words.
#pragma once

#include <string>
#include <vector>

#include "report.h"

namespace zotuning_tool {

constexpr int kErrorPriority = 6;

/// One line of the library on the Android log, "<location> <function>() <message>".
struct LogLine {
  int priority;
  std::string location;  ///< source file and line
  std::string function;
  std::string message;
};

/// Shows the lines from now on (-v).
void ShowLibraryLines(bool show);

/// Catches what is said while it lives. Watches nest; each line goes to the innermost one.
class LibraryWatch {
 public:
  LibraryWatch();
  ~LibraryWatch();
  LibraryWatch(const LibraryWatch&) = delete;
  LibraryWatch& operator=(const LibraryWatch&) = delete;

  const std::vector<LogLine>& lines() const { return lines_; }
  /// What was written to std::cerr.
  const std::string& error_text() const { return error_text_; }

  /// Whether an error line was caught that is none of those that stand there on success.
  bool HasErrors() const;

  /// Reports the caught error lines in the tool's words, duplicates once. Each `from` in a text is replaced by `to`
  /// (a working folder by the one that it stands for). Says `otherwise` when no line explains the failure.
  void Explain(Report& report, const std::string& otherwise, const std::string& from = "",
               const std::string& to = "") const;

 private:
  friend void CatchLine(int priority, const char* text);
  friend void CatchErrorText(const char* text, size_t length);

  std::vector<LogLine> lines_;
  std::string error_text_;
  LibraryWatch* outer_;
  std::streambuf* cerr_buffer_;
};

}  // namespace zotuning_tool
