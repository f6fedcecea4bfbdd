/// \file
/// What a command has to say: results on standard output, messages on standard error, or both in one JSON object.
#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace zotuning_tool {

using Json = nlohmann::ordered_json;

/// Exit codes of every command.
constexpr int kDone = 0;
constexpr int kFailed = 1;  ///< the job failed, or found faults
constexpr int kMisuse = 2;

enum class Severity { kError, kWarning };

/// One message. `line` and `column` count from 1, columns in characters; 0 stands for "unknown".
struct Diagnostic {
  std::string code;  ///< stable short name of the kind of fault, for example "json-syntax"
  Severity severity = Severity::kError;
  std::string file;
  int line = 0;
  int column = 0;
  std::string path;  ///< the JSON path of the fault within the file
  std::string message;
  std::string hint;
  std::string excerpt;  ///< the source line, for people only
  int excerpt_column = 0;
};

/// Collects what a command reports and prints it in the form asked for.
class Report {
 public:
  /// Before anything is reported. With `json` everything waits for Finish, which prints one object.
  void Begin(std::string command, bool json);

  void Add(Diagnostic diagnostic);
  void Error(std::string code, std::string message, std::string hint = "", std::string file = "");
  void Warn(std::string code, std::string message, std::string hint = "", std::string file = "");

  /// Result text for people; dropped with --json, where `result` says the same.
  void Print(std::string_view text);
  Json& result() { return result_; }

  bool json() const { return json_; }
  /// Whether no error has been reported.
  bool ok() const { return errors_ == 0; }
  int errors() const { return errors_; }

  /// Prints the JSON object, when asked for, and gives the exit code: `code`, but never 0 after an error.
  int Finish(int code);

 private:
  /// Writes to standard output; an empty text flushes it.
  void WriteOut(std::string_view text);

  std::string command_;
  bool json_ = false;
  int output_error_ = 0;  ///< errno of the first failed write to standard output
  int errors_ = 0;
  std::vector<Diagnostic> diagnostics_;
  Json result_ = Json::object();
};

/// `text` with control characters as \xNN, so that no name can steer a terminal. Line feeds stay when `keep_lines`.
std::string Printable(std::string_view text, bool keep_lines = false);

/// Whether `descriptor` is a terminal that may be coloured (NO_COLOR and TERM=dumb forbid it).
bool MayColour(int descriptor);

/// "1 bin", "3 bins".
std::string Count(size_t count, std::string_view noun);

/// Rows as columns of equal width, two blanks between them, the first row being the heading.
std::string Table(const std::vector<std::vector<std::string>>& rows);

/// Quotes a name for a message: 'name'.
inline std::string Quoted(std::string_view name) { return "'" + std::string(name) + "'"; }

}  // namespace zotuning_tool
