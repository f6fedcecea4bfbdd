/// \file
/// Which diagnostics reach the user, and how severe they are.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "workspace/diagnostic.h"

namespace zotuning {

/// Filters diagnostics as the user has asked.
class SeverityFilter : public DiagnosticSink {
 public:
  explicit SeverityFilter(DiagnosticSink& sink) : sink_(sink) {}

  /// Names of codes and "error", "warning" or "off", from `file`. False after an error at an unknown code.
  bool SetSeverities(const std::map<std::string, std::string>& severities, const std::string& file);
  /// Only these codes; none of these. False after an error at an unknown one.
  bool Select(const std::vector<std::string>& names) { return AddCodes(names, selected_); }
  bool Ignore(const std::vector<std::string>& names) { return AddCodes(names, ignored_); }
  /// These become warnings, marked as allowed. False after an error at an unknown one.
  bool Allow(const std::vector<std::string>& names) { return AddCodes(names, allowed_); }
  /// Treat warnings as errors.
  void SetStrict(bool strict) { strict_ = strict; }

  void Add(Diagnostic diagnostic) override;

  bool allows(Code code) const { return allowed_.count(code) != 0; }
  /// Whether errors may have been downgraded, and whether warnings may have become errors.
  bool changes_severities() const { return !allowed_.empty() || !severities_.empty() || !off_.empty(); }
  bool makes_errors() const;
  size_t errors() const { return errors_; }
  size_t warnings() const { return warnings_; }
  /// With at least one diagnostic.
  size_t files() const { return files_.size(); }

 private:
  bool AddCodes(const std::vector<std::string>& names, std::set<Code>& codes);

  DiagnosticSink& sink_;
  std::set<Code> selected_, ignored_, allowed_;
  std::map<Code, Severity> severities_;
  std::set<Code> off_;
  bool strict_ = false;
  size_t errors_ = 0;
  size_t warnings_ = 0;
  std::set<std::string> files_;
};

}  // namespace zotuning
