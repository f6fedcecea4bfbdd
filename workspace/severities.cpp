// Tested by tests/tools/check_test.cpp.

#include "workspace/severities.h"

#include <algorithm>
#include <utility>

#include "workspace/suggest.h"

namespace zotuning {
namespace {

const CodeInfo* RequireCode(const std::string& name, const std::string& file, DiagnosticSink& sink) {
  if (const CodeInfo* info = FindCode(name)) return info;
  std::vector<std::string> names;
  for (const CodeInfo& info : kCodes) names.emplace_back(info.name);
  sink.Report(Code::kUsage, "no code " + Quoted(name) + DidYouMean(name, names),
              "'zotuning check --explain all' lists them", file);
  return nullptr;
}

/// The advice of the code's row as a hint: "Remove the comma." becomes "remove the comma".
std::string UsualHint(Code code) {
  std::string hint = Info(code).mend;
  if (hint.size() > 1 && hint[0] >= 'A' && hint[0] <= 'Z' && hint[1] >= 'a') hint[0] = static_cast<char>(hint[0] + 32);
  if (!hint.empty() && hint.back() == '.') hint.pop_back();
  return hint;
}

}  // namespace

bool SeverityFilter::SetSeverities(const std::map<std::string, std::string>& severities, const std::string& file) {
  bool good = true;
  for (const auto& [name, severity] : severities) {
    const CodeInfo* info = RequireCode(name, file, sink_);
    if (info == nullptr) {
      good = false;
    } else if (severity == "off") {
      off_.insert(info->code);
    } else {
      severities_[info->code] = severity == "error" ? Severity::kError : Severity::kWarning;
    }
  }
  return good;
}

bool SeverityFilter::AddCodes(const std::vector<std::string>& names, std::set<Code>& codes) {
  bool good = true;
  for (const std::string& name : names) {
    const CodeInfo* info = RequireCode(name, "", sink_);
    good &= info != nullptr;
    if (info != nullptr) codes.insert(info->code);
  }
  return good;
}

bool SeverityFilter::makes_errors() const {
  return std::any_of(severities_.begin(), severities_.end(), [](const auto& each) {
    return each.second == Severity::kError && Info(each.first).severity == Severity::kWarning;
  });
}

void SeverityFilter::Add(Diagnostic diagnostic) {
  const Code code = diagnostic.code;
  if (ignored_.count(code) != 0 || off_.count(code) != 0) return;
  if (!selected_.empty() && selected_.count(code) == 0) return;
  if (const auto set = severities_.find(code); set != severities_.end()) diagnostic.severity = set->second;
  if (allows(code) && diagnostic.severity == Severity::kError) {
    diagnostic.severity = Severity::kWarning;
    diagnostic.message += " (allowed)";
  } else if (strict_) {
    diagnostic.severity = Severity::kError;
  }
  if (diagnostic.hint.empty()) diagnostic.hint = UsualHint(code);
  ++(diagnostic.severity == Severity::kError ? errors_ : warnings_);
  if (!diagnostic.file.empty()) files_.insert(diagnostic.file);
  sink_.Add(std::move(diagnostic));
}

}  // namespace zotuning
