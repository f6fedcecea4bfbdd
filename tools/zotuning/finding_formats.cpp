#include "finding_formats.h"

#include <algorithm>
#include <set>

#include "zotuning_version.h"

namespace zotuning::tool {
namespace {

/// A path as a URI: percent-encodes everything that is not safe in one.
std::string Uri(const std::string& path) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string uri;
  for (const char c : path) {
    const auto byte = static_cast<unsigned char>(c);
    const bool safe = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                      std::string_view("-._~/").find(c) != std::string_view::npos;
    if (safe) {
      uri += c;
    } else {
      uri.append(1, '%').append(1, kDigits[byte >> 4]).append(1, kDigits[byte & 15]);
    }
  }
  return uri;
}

const char* Level(Severity severity) { return severity == Severity::kError ? "error" : "warning"; }

Json SarifLocation(const Diagnostic& diagnostic) {
  Json physical = {{"artifactLocation", {{"uri", Uri(diagnostic.file)}}}};
  // Lines count from 1; without one, the region is left out.
  if (diagnostic.line > 0) {
    physical["region"] = {{"startLine", diagnostic.line}, {"startColumn", std::max(diagnostic.column, 1)}};
    if (diagnostic.end_line > 0) {
      physical["region"]["endLine"] = diagnostic.end_line;
      physical["region"]["endColumn"] = std::max(diagnostic.end_column, 1);
    }
  }
  Json location = {{"physicalLocation", std::move(physical)}};
  if (!diagnostic.path.empty()) location["logicalLocations"] = {{{"fullyQualifiedName", diagnostic.path}}};
  return location;
}

/// `property` also escapes what separates the properties of a workflow command.
std::string GithubText(const std::string& text, bool property) {
  std::string escaped;
  for (const char c : text) {
    if (c == '%') {
      escaped += "%25";
    } else if (c == '\r') {
      escaped += "%0D";
    } else if (c == '\n') {
      escaped += "%0A";
    } else if (property && c == ':') {
      escaped += "%3A";
    } else if (property && c == ',') {
      escaped += "%2C";
    } else {
      escaped += c;
    }
  }
  return escaped;
}

}  // namespace

Json SarifLog(const std::vector<Diagnostic>& diagnostics) {
  std::set<Code> used;
  for (const Diagnostic& diagnostic : diagnostics) used.insert(diagnostic.code);
  Json rules = Json::array();
  for (const Code code : used) {
    const CodeInfo& info = Info(code);
    rules.push_back({{"id", info.name},
                     {"shortDescription", {{"text", info.summary}}},
                     {"fullDescription", {{"text", info.why}}},
                     {"help", {{"text", info.mend}}},
                     {"defaultConfiguration", {{"level", Level(info.severity)}}}});
  }
  Json results = Json::array();
  for (const Diagnostic& diagnostic : diagnostics) {
    std::string text = diagnostic.message;
    if (!diagnostic.hint.empty()) text += " (" + diagnostic.hint + ")";
    Json result = {
        {"ruleId", Name(diagnostic.code)}, {"level", Level(diagnostic.severity)}, {"message", {{"text", text}}}};
    if (!diagnostic.file.empty()) result["locations"] = {SarifLocation(diagnostic)};
    results.push_back(std::move(result));
  }
  const Json driver = {{"name", "zotuning"}, {"version", ZOTUNING_VERSION}, {"rules", std::move(rules)}};
  Json run = {{"tool", {{"driver", driver}}}, {"columnKind", "unicodeCodePoints"}, {"results", std::move(results)}};
  return {
      {"$schema", "https://json.schemastore.org/sarif-2.1.0.json"}, {"version", "2.1.0"}, {"runs", {std::move(run)}}};
}

std::string GithubLines(const std::vector<Diagnostic>& diagnostics) {
  std::string lines;
  for (const Diagnostic& diagnostic : diagnostics) {
    lines += std::string("::") + Level(diagnostic.severity) + " ";
    if (!diagnostic.file.empty()) lines += "file=" + GithubText(diagnostic.file, true) + ",";
    if (diagnostic.line > 0) {
      lines += "line=" + std::to_string(diagnostic.line) + ",col=" + std::to_string(diagnostic.column) + ",";
    }
    lines += std::string("title=") + Name(diagnostic.code) + "::" + GithubText(diagnostic.message, false);
    if (!diagnostic.hint.empty()) lines += "%0A" + GithubText(diagnostic.hint, false);
    lines += "\n";
  }
  return lines;
}

}  // namespace zotuning::tool
