// Tested by tests/workspace/project_settings_test.cpp.

#include "workspace/project_settings.h"

#include <charconv>
#include <cmath>

#include "workspace/files.h"
#include "workspace/json_document.h"
#include "workspace/json_path.h"
#include "workspace/suggest.h"

namespace zotuning {
namespace {

/// Comments become spaces, so that all positions stay the same.
void BlankComments(std::string& text) {
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '"') {
      for (++i; i < text.size() && text[i] != '"'; ++i) {
        if (text[i] == '\\') ++i;
      }
      continue;
    }
    if (text[i] != '/' || i + 1 >= text.size()) continue;
    size_t end = i;
    if (text[i + 1] == '/') {
      end = std::min(text.find('\n', i), text.size());
    } else if (text[i + 1] == '*') {
      const size_t close = text.find("*/", i + 2);
      if (close == text.npos) return;  // JSON's own error names the position
      end = close + 2;
    }
    for (; i < end; ++i) {
      if (text[i] != '\n') text[i] = ' ';
    }
    if (i > 0) --i;
  }
}

class Reader {
 public:
  Reader(const JsonDocument& document, const std::string& file, DiagnosticSink& sink)
      : document_(document), file_(file), sink_(sink) {}

  bool Read(ProjectSettings& settings) {
    for (const JsonFault& fault : document_.faults()) {
      if (!fault.lenient) Report(fault.offset, fault.end, fault.message, fault.hint);
    }
    if (!good_) return false;
    if (!document_.root().is_object()) {
      Refuse(document_.root(), "the file must hold one object");
      return false;
    }
    for (const JsonMember member : document_.root().members()) {
      if (member.key() == "diff") {
        ReadDiff(member.value(), settings);
      } else if (member.key() == "severities") {
        ReadSeverities(member.value(), settings);
      } else {
        RefuseKey(member, {"diff", "severities"});
      }
    }
    return good_;
  }

 private:
  void Report(size_t begin, size_t end, std::string message, std::string hint = "") {
    good_ = false;
    Diagnostic diagnostic(Code::kProjectSettings, std::move(message), std::move(hint), file_);
    SetPosition(document_, begin, end, &diagnostic);
    sink_.Add(std::move(diagnostic));
  }

  void Refuse(const JsonValue& value, std::string message) { Report(value.begin(), value.end(), std::move(message)); }

  void RefuseKey(const JsonMember& member, const std::vector<std::string>& known) {
    Report(member.key_begin(), member.key_end(),
           "unknown key " + Quoted(member.key()) + DidYouMean(member.key(), known));
  }

  /// Rejects a value that is not an object.
  bool IsObject(const JsonValue& value, const std::string& key) {
    if (!value.is_object()) Refuse(value, Quoted(key) + " must be an object");
    return value.is_object();
  }

  void ReadDiff(const JsonValue& value, ProjectSettings& settings) {
    if (!IsObject(value, "diff")) return;
    for (const JsonMember member : value.members()) {
      if (member.key() != "tolerances") {
        RefuseKey(member, {"tolerances"});
      } else if (!member.value().is_array()) {
        Refuse(member.value(), "'tolerances' must be a list");
      } else {
        for (const JsonValue element : member.value().elements()) ReadTolerance(element, settings);
      }
    }
  }

  void ReadTolerance(const JsonValue& value, ProjectSettings& settings) {
    if (!IsObject(value, "tolerances")) return;
    PathTolerance tolerance;
    for (const JsonMember member : value.members()) {
      if (member.key() == "path") {
        if (!member.value().is_string()) Refuse(member.value(), "'path' must be a string");
        tolerance.pattern = member.value().String();
      } else if (member.key() == "abs") {
        ReadNumber(member, tolerance.tolerance.absolute);
      } else if (member.key() == "rel") {
        ReadNumber(member, tolerance.tolerance.relative);
      } else {
        RefuseKey(member, {"path", "abs", "rel"});
      }
    }
    if (tolerance.pattern.empty()) Refuse(value, "'path' is missing, for example \"AfCommon.zones.*\"");
    settings.tolerances.push_back(std::move(tolerance));
  }

  void ReadNumber(const JsonMember& member, double& number) {
    const std::string_view raw = member.value().raw();
    const auto [end, error] = std::from_chars(raw.data(), raw.data() + raw.size(), number);
    const bool read = member.value().is_number() && error == std::errc() && end == raw.data() + raw.size();
    if (!read || !std::isfinite(number) || number < 0) {
      Refuse(member.value(), Quoted(member.key()) + " must be a number from 0 up");
    }
  }

  void ReadSeverities(const JsonValue& value, ProjectSettings& settings) {
    if (!IsObject(value, "severities")) return;
    for (const JsonMember member : value.members()) {
      const std::string name = member.key(), severity = member.value().String();
      std::vector<std::string> names;
      for (const CodeInfo& code : kCodes) names.emplace_back(code.name);
      if (FindCode(name) == nullptr) {
        RefuseKey(member, names);
      } else if (severity != "error" && severity != "warning" && severity != "off") {
        Refuse(member.value(), "a severity is \"error\", \"warning\" or \"off\"");
      }
      settings.severities[name] = severity;
    }
  }

  const JsonDocument& document_;
  const std::string& file_;
  DiagnosticSink& sink_;
  bool good_ = true;
};

}  // namespace

bool ParseProjectSettings(std::string text, const std::string& file, ProjectSettings& settings, DiagnosticSink& sink) {
  BlankComments(text);
  const JsonDocument document(std::move(text));
  return Reader(document, file, sink).Read(settings);
}

SettingsResult ReadProjectSettings(const std::string& dir, ProjectSettings& settings, DiagnosticSink& sink) {
  const std::string path = dir + "/zotuning.json";
  if (!Exists(path)) return SettingsResult::kOk;
  std::string text;
  if (!ReadFile(path, text, sink)) return SettingsResult::kNotRead;
  const bool good = ParseProjectSettings(std::move(text), DisplayPath(path), settings, sink);
  return good ? SettingsResult::kOk : SettingsResult::kFaulty;
}

}  // namespace zotuning
