// What is wrong with a text by itself; fit_check.cpp checks it against a message type. Tested by
// tests/workspace/check_json_test.cpp.

#include "workspace/check_json.h"

#include <algorithm>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "workspace/findings.h"
#include "workspace/json_path.h"

namespace zotuning {
namespace {

/// Duplicate keys in objects.
class DuplicateCheck {
 public:
  DuplicateCheck(const JsonDocument& document, Findings& findings) : document_(document), findings_(findings) {}

  void Run() {
    // An explicit stack; texts can be nested deeper than the call stack allows.
    std::vector<Level> levels;
    if (document_.root()) levels.push_back(Enter(document_.root()));
    while (!levels.empty()) {
      Level& level = levels.back();
      JsonValue inner;
      while (inner.empty() && level.member != level.members_end) inner = (*level.member).value(), ++level.member;
      while (inner.empty() && level.element != level.elements_end) inner = *level.element, ++level.element;
      if (inner.empty()) {
        levels.pop_back();
      } else {
        levels.push_back(Enter(inner));
      }
    }
  }

 private:
  /// The rest of an object or list.
  struct Level {
    JsonMembers::Iterator member, members_end;
    JsonElements::Iterator element, elements_end;
  };

  Level Enter(const JsonValue& value) {
    keys_.clear();
    for (const JsonMember member : value.members()) {
      const auto [first, added] = keys_.emplace(member.key(), member.key_begin());
      if (!added && !findings_.Full(Severity::kError)) {
        findings_.AddDuplicateKey(member, first->second, JsonPath::Of(member.value()).ToString());
      }
    }
    return {value.members().begin(), value.members().end(), value.elements().begin(), value.elements().end()};
  }

  const JsonDocument& document_;
  Findings& findings_;
  std::unordered_map<std::string, size_t> keys_;  ///< with the position of the first one
};

}  // namespace

void CheckText(const JsonDocument& document, const std::string& file, DiagnosticSink& sink) {
  Findings findings(document, FitOptions().max_diagnostics);
  // Finding a path means searching from the start of the text: only a few for large ones.
  constexpr size_t kMaxPaths = 100, kMaxBytes = 50'000'000;
  size_t paths = std::min(kMaxPaths, 1 + kMaxBytes / (document.text().size() + 1));
  for (const JsonFault& fault : document.faults()) {
    std::string path;
    if (paths > 0) {
      path = JsonPath::Of(document.ValueAt(fault.offset)).ToString();
      --paths;
    }
    findings.Add(fault.code, fault.offset, fault.end, path, fault.message, fault.hint,
                 fault.lenient ? Severity::kWarning : Severity::kError);
  }
  const JsonValue root = document.root();
  if (root && !root.is_object() && root.kind() != JsonKind::kInvalid) {
    findings.Add(Code::kJsonRoot, root.begin(), root.begin() + 1, "", "the text is not an object { ... }",
                 "a file holds one object, the message of its module");
  }
  findings.Report(file, sink);
}

void CheckDuplicateKeys(const JsonDocument& document, const std::string& file, DiagnosticSink& sink) {
  Findings findings(document, FitOptions().max_diagnostics);
  DuplicateCheck(document, findings).Run();
  findings.Report(file, sink);
}

void CheckFit(const JsonDocument& document, const google::protobuf::Descriptor* type, const FitOptions& options,
              const std::string& file, DiagnosticSink& sink) {
  FitChecker(options).Check(document, type, file, sink);
}

}  // namespace zotuning
