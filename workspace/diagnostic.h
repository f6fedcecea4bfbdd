/// \file
/// Errors and warnings about a project, as values: one struct, its receivers, and the codes (diagnostic_codes.inc).
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zotuning {

enum class Severity { kError, kWarning };

/// Kinds of diagnostics. One row of diagnostic_codes.inc makes each.
enum class Code {
#define ZOTUNING_CODE(enumerator, ...) enumerator,
#include "workspace/diagnostic_codes.inc"
#undef ZOTUNING_CODE
};

/// A row of the table of codes. Texts are plain sentences, for people.
struct CodeInfo {
  Code code;
  Severity severity;  ///< unless the caller or the user's settings override it
  const char* name;   ///< stable and short, for example "json-syntax"
  const char* summary;
  const char* why;      ///< what goes wrong otherwise
  const char* example;  ///< what the fault looks like; may have several lines
  const char* mend;     ///< what to do
};

/// All codes, indexed by their enumerators.
inline constexpr CodeInfo kCodes[] = {
#define ZOTUNING_CODE(enumerator, name, severity, ...) {Code::enumerator, Severity::severity, name, __VA_ARGS__},
#include "workspace/diagnostic_codes.inc"
#undef ZOTUNING_CODE
};

constexpr const CodeInfo& Info(Code code) { return kCodes[static_cast<size_t>(code)]; }
constexpr const char* Name(Code code) { return Info(code).name; }
/// The code of that name, or null.
const CodeInfo* FindCode(std::string_view name);

/// One error or warning. Lines and columns count from 1, columns in characters; 0 means "unknown".
struct Diagnostic {
  Code code = Code::kInternal;
  Severity severity = Severity::kError;
  std::string file;
  int line = 0;
  int column = 0;
  int end_line = 0;  ///< where it ends; `end_column` is the first one after it
  int end_column = 0;
  std::string path;  ///< the JSON path within the file, for example "zones[2].weight.value"
  std::string message;
  std::string hint;
  std::string excerpt;     ///< the line of the file around the position, for people only
  int excerpt_column = 0;  ///< of the position within the excerpt, from 1

  Diagnostic() = default;
  /// With the severity of the code's row.
  Diagnostic(Code code, std::string message, std::string hint = "", std::string file = "");
};

/// Receives diagnostics as they are found.
class DiagnosticSink {
 public:
  virtual ~DiagnosticSink() = default;
  virtual void Add(Diagnostic diagnostic) = 0;

  /// With the severity of the code's row.
  void Report(Code code, std::string message, std::string hint = "", std::string file = "");
  void Error(Code code, std::string message, std::string hint = "", std::string file = "");
  void Warn(Code code, std::string message, std::string hint = "", std::string file = "");
};

/// Keeps diagnostics in the order in which they arrive.
class CollectingSink : public DiagnosticSink {
 public:
  void Add(Diagnostic diagnostic) override;

  const std::vector<Diagnostic>& diagnostics() const { return diagnostics_; }
  std::vector<Diagnostic> Take() { return std::exchange(diagnostics_, {}); }
  size_t errors() const { return errors_; }
  /// Whether there were no errors.
  bool ok() const { return errors_ == 0; }

 private:
  std::vector<Diagnostic> diagnostics_;
  size_t errors_ = 0;
};

/// Quotes a name for a message: 'name'.
inline std::string Quoted(std::string_view name) { return "'" + std::string(name) + "'"; }

}  // namespace zotuning
