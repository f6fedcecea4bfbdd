// Tested by tests/tools/version_test.cpp.

#include "version_files.h"

#include <algorithm>
#include <utility>

#include "check_setting.h"
#include "json_document.h"
#include "version/version_text-inl.h"

namespace zotuning {
namespace {

using ZO_TUNING::internal::kVersionBufferSize;

std::string TextField(const google::protobuf::Message& message, const char* name) {
  const auto* field = message.GetDescriptor()->FindFieldByName(name);
  if (field == nullptr || field->type() != google::protobuf::FieldDescriptor::TYPE_STRING || field->is_repeated()) {
    return "";
  }
  return message.GetReflection()->GetString(message, field);
}

/// Why the scan misses or misreads the value of a key; `at` is set to the position.
std::string KeyFault(const VersionFile& file, const JsonDocument& document, const std::string& key,
                     const std::string& value, size_t* at) {
  const std::string quoted = "\"" + key + "\"";
  const size_t first = file.text.find(quoted);
  *at = first == std::string::npos ? document.root().begin() : first;
  if (first == std::string::npos) return "it finds no key " + quoted + "; the key has to be in double quotes";
  for (const JsonMember member : document.root().members()) {
    if (member.key() != key) continue;
    if (member.key_begin() != first) return "an earlier " + quoted + " is taken for the field: a nested key, or a text";
    const std::string_view raw = member.value().raw();
    *at = member.value().begin();
    if (raw.empty() || raw[0] != '"') return "the value of " + quoted + " is not a text in double quotes";
    if (raw.find('\\') != std::string_view::npos) return "the value of " + quoted + " holds an escape sequence";
    return TextFault(value);
  }
  return "its first " + quoted + " is not the file's own field";
}

using Lines = std::vector<std::string>;

/// The #define block without its numbers, which follow the order of the file system, sorted.
Lines Unnumbered(const Lines& lines, size_t kept) {
  Lines pairs;
  std::string name;
  for (size_t i = kept; i < lines.size(); ++i) {
    const size_t digits_end = lines[i].find_first_not_of("0123456789", std::string("#define VERSION").size());
    const bool numbered = lines[i].rfind("#define VERSION", 0) == 0 && digits_end != std::string::npos &&
                          digits_end > std::string("#define VERSION").size();
    const std::string rest = numbered ? lines[i].substr(digits_end) : lines[i];
    if (numbered && rest.rfind("_NAME ", 0) == 0) {
      name = rest;
    } else {
      pairs.push_back(name + rest);
      name.clear();
    }
  }
  if (!pairs.empty()) std::sort(pairs.begin(), pairs.end() - 1);
  return pairs;
}

}  // namespace

bool ReadVersionFiles(Project& project, const std::string& scope, std::vector<VersionFile>& files,
                      DiagnosticSink& sink) {
  std::vector<FoundFile> found;
  bool good = ListFiles(project.layout().ScopeVersionDir(scope), ".json", found, sink);
  for (const FoundFile& each : found) {
    VersionFile file{scope, each.path, StateOf(each.path), "", nullptr, "", ""};
    if (ReadFile(each.path, file.text, sink)) {
      file.message = project.schema().NewMessage(project.version_type());
      if (!ParseJson(each.path, file.text, file.message.get(), sink)) file.message = nullptr;
    }
    if (file.message != nullptr) {
      file.name = TextField(*file.message, "name");
      file.version = TextField(*file.message, "version");
    }
    good &= file.message != nullptr;
    files.push_back(std::move(file));
  }
  return good;
}

std::string TextFault(const std::string& text) {
  if (text.size() >= kVersionBufferSize) {
    return "a value of " + std::to_string(text.size()) + " bytes is cut at " + std::to_string(kVersionBufferSize - 1);
  }
  for (const char c : text) {
    if (c == '"') return "a double quote ends the value";
    if (c == '\\') return "a backslash does not survive in a C string";
    if (c == '\n' || c == '\r' || c == '\0') return "a line end or zero byte breaks the line of the header";
  }
  return "";
}

bool ReportScanFault(const VersionFile& file, Severity severity, DiagnosticSink& sink) {
  const auto scanned = ZO_TUNING::internal::ScanVersionText(file.text);
  const bool right = scanned.status == ZO_TUNING::internal::ScanStatus::kOk && scanned.name.text == file.name &&
                     scanned.version.text == file.version;
  if (right && TextFault(file.name).empty() && TextFault(file.version).empty()) return true;
  const JsonDocument document(file.text);
  Diagnostic diagnostic(Code::kVersionMisread, "", "write it as plain text in double quotes, without backslashes",
                        DisplayPath(file.path));
  diagnostic.severity = severity;
  std::string fault;
  for (const auto& [key, value] : {std::pair<const char*, const std::string&>{"name", file.name},
                                   std::pair<const char*, const std::string&>{"version", file.version}}) {
    size_t at = 0;
    fault = KeyFault(file, document, key, value, &at);
    if (fault.empty()) continue;
    SetPosition(document, at, at, &diagnostic);
    diagnostic.path = key;
    break;
  }
  diagnostic.message = "the version header would get this file wrong: " +
                       (fault.empty() ? "its plain text scan reads values other than the file's fields" : fault);
  sink.Add(std::move(diagnostic));
  return false;
}

std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  size_t begin = 0;
  for (size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', begin)) {
    lines.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  if (begin < text.size()) lines.push_back(text.substr(begin));
  return lines;
}

std::string HeaderText(const std::string& header, const std::vector<VersionFile>& files) {
  std::vector<std::string> versions;
  for (const VersionFile& file : files) versions.insert(versions.end(), {file.name, file.version});
  return ZO_TUNING::internal::NewHeader(header, versions);
}

bool HeaderIsCurrent(const std::string& header, const std::vector<VersionFile>& files) {
  const size_t kept = SplitLines(ZO_TUNING::internal::KeptHeader(header)).size();
  return Unnumbered(SplitLines(header), kept) == Unnumbered(SplitLines(HeaderText(header, files)), kept);
}

}  // namespace zotuning
