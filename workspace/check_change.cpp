// Tested through the tool's command set.

#include "workspace/check_change.h"

#include <set>
#include <utility>
#include <vector>

#include "workspace/check_json.h"

namespace zotuning {
namespace {

bool IsOfRule(Code code) {
  return code == Code::kRuleRange || code == Code::kRuleLength || code == Code::kRuleTable ||
         code == Code::kRuleNotFinite;
}

std::vector<Diagnostic> FaultsOf(const JsonDocument& document, const google::protobuf::Descriptor* type,
                                 const std::string& file) {
  CollectingSink sink;
  CheckText(document, file, sink);
  CheckFit(document, type, FitOptions(), file, sink);
  return sink.Take();
}

}  // namespace

bool CheckChange(const JsonDocument& before, const JsonDocument& after, const google::protobuf::Descriptor* type,
                 bool allow_rules, const std::string& file, DiagnosticSink& sink) {
  std::multiset<std::pair<Code, std::string>> known;
  for (const Diagnostic& fault : FaultsOf(before, type, file)) known.emplace(fault.code, fault.path);
  bool good = true;
  for (Diagnostic& fault : FaultsOf(after, type, file)) {
    if (const auto same = known.find({fault.code, fault.path}); same != known.end()) {
      known.erase(same);
      continue;
    }
    if (IsOfRule(fault.code)) {
      if (allow_rules) continue;
      fault.severity = Severity::kError;
    }
    good &= fault.severity != Severity::kError;
    sink.Add(std::move(fault));
  }
  return good;
}

}  // namespace zotuning
