#include "workspace/findings.h"

#include <algorithm>
#include <utility>

namespace zotuning {

void Findings::Add(Code code, size_t begin, size_t end, std::string path, std::string message, std::string hint) {
  Add(code, begin, end, std::move(path), std::move(message), std::move(hint), Info(code).severity);
}

void Findings::Add(Code code, size_t begin, size_t end, std::string path, std::string message, std::string hint,
                   Severity severity) {
  if (Full(severity)) return;
  ++counts_[static_cast<size_t>(severity)];
  Diagnostic diagnostic(code, std::move(message), std::move(hint));
  diagnostic.severity = severity;
  diagnostic.path = std::move(path);
  findings_.push_back({begin, end, std::move(diagnostic)});
}

void Findings::AddDuplicateKey(const JsonMember& member, size_t first, std::string path) {
  const std::string line = std::to_string(document_.PositionOf(first).line);
  std::string message = "the key " + Quoted(Excerpt(path)) + " is there already";
  Add(Code::kJsonDuplicateKey, member.key_begin(), member.key_end(), std::move(path), std::move(message),
      "the first one is in line " + line + "; remove one of them");
}

void Findings::Report(const std::string& file, DiagnosticSink& sink) {
  std::stable_sort(findings_.begin(), findings_.end(),
                   [](const Finding& a, const Finding& b) { return a.begin < b.begin; });
  for (Finding& finding : findings_) {
    finding.diagnostic.file = file;
    SetPosition(document_, finding.begin, finding.end, &finding.diagnostic);
    sink.Add(std::move(finding.diagnostic));
  }
  if (dropped_) sink.Report(Code::kMoreFaults, "the file has more faults than are listed", "", file);
  findings_.clear();
}

}  // namespace zotuning
