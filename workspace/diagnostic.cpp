#include "workspace/diagnostic.h"

#include <algorithm>
#include <iterator>

namespace zotuning {

const CodeInfo* FindCode(std::string_view name) {
  const auto* found =
      std::find_if(std::begin(kCodes), std::end(kCodes), [&](const CodeInfo& info) { return name == info.name; });
  return found == std::end(kCodes) ? nullptr : found;
}

Diagnostic::Diagnostic(Code of_code, std::string its_message, std::string its_hint, std::string in_file)
    : code(of_code),
      severity(Info(of_code).severity),
      file(std::move(in_file)),
      message(std::move(its_message)),
      hint(std::move(its_hint)) {}

void DiagnosticSink::Report(Code code, std::string message, std::string hint, std::string file) {
  Add(Diagnostic(code, std::move(message), std::move(hint), std::move(file)));
}

void DiagnosticSink::Error(Code code, std::string message, std::string hint, std::string file) {
  Diagnostic diagnostic(code, std::move(message), std::move(hint), std::move(file));
  diagnostic.severity = Severity::kError;
  Add(std::move(diagnostic));
}

void DiagnosticSink::Warn(Code code, std::string message, std::string hint, std::string file) {
  Diagnostic diagnostic(code, std::move(message), std::move(hint), std::move(file));
  diagnostic.severity = Severity::kWarning;
  Add(std::move(diagnostic));
}

void CollectingSink::Add(Diagnostic diagnostic) {
  errors_ += diagnostic.severity == Severity::kError ? 1 : 0;
  diagnostics_.push_back(std::move(diagnostic));
}

}  // namespace zotuning
