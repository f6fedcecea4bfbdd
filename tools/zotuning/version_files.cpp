#include "version_files.h"

#include <algorithm>

#include "ZoTuningUtils.h"
#include "files.h"
#include "json_check.h"
#include "json_locate.h"
#include "library_log.h"

namespace zotuning_tool {
namespace {

constexpr size_t kMaxScannedBytes = 1023;

std::string TextField(const google::protobuf::Message& message, const char* name) {
  const auto* field = message.GetDescriptor()->FindFieldByName(name);
  if (field == nullptr || field->type() != google::protobuf::FieldDescriptor::TYPE_STRING || field->is_repeated()) {
    return "";
  }
  return message.GetReflection()->GetString(message, field);
}

/// Why the scan misses or misreads the value of one key.
std::string KeyFault(const VersionFile& file, const std::string& key, const std::string& value) {
  const std::string quoted = "\"" + key + "\"";
  const size_t first = file.text.find(quoted);
  if (first == std::string::npos) return "it finds no key " + quoted + "; the key has to stand in double quotes";
  const auto own = FindJsonValue(file.text, {{key, -1}});
  if (!own) return "its first " + quoted + " is not the file's own field";
  if (own->key_offset != first) return "an earlier " + quoted + " is taken for the field: a nested key, or a text";
  if (own->raw.empty() || own->raw[0] != '"') return "the value of " + quoted + " is no text in double quotes";
  if (own->raw.find('\\') != std::string_view::npos) return "the value of " + quoted + " holds an escape sequence";
  return TextFault(value);
}

}  // namespace

bool ReadVersionFiles(Project& project, const std::string& scope, std::vector<VersionFile>& files, Report& report) {
  const auto* type = project.schema().RequireType("Version", report);
  std::vector<FoundFile> found;
  bool good = ListFiles(project.VersionDir(scope), ".json", found, report) && type != nullptr;
  if (type == nullptr) return false;
  for (const FoundFile& each : found) {
    VersionFile file{scope, each.path, "", false, "", ""};
    file.fits = ReadFile(each.path, file.text, report) &&
                CheckJson(each.path, file.text, type, project.schema(), Fields::kAny, report);
    if (file.fits) {
      const auto message = project.schema().NewMessage(type);
      const LibraryWatch watch;
      ZO_TUNING::JSON_STR_TO_MSG(file.text, message.get());
      file.name = TextField(*message, "name");
      file.version = TextField(*message, "version");
    }
    good &= file.fits;
    files.push_back(std::move(file));
  }
  return good;
}

std::string TextFault(const std::string& text) {
  if (text.size() > kMaxScannedBytes) {
    return "a value of " + std::to_string(text.size()) + " bytes is cut at " + std::to_string(kMaxScannedBytes);
  }
  for (const char c : text) {
    if (c == '"') return "a double quote ends the value";
    if (c == '\\') return "a backslash does not survive a text of C";
    if (c == '\n' || c == '\r' || c == '\0') return "a line end or zero byte breaks the line of the header";
  }
  return "";
}

std::string ScanFault(const VersionFile& file) {
  std::vector<std::string> scanned;
  {
    const LibraryWatch watch;
    ZO_TUNING::PARSE_VERSION_FROM_STR(file.text, scanned);
  }
  const bool right = scanned.size() == 2 && scanned[0] == file.name && scanned[1] == file.version;
  const std::string unsafe = TextFault(file.name) + TextFault(file.version);
  if (right && unsafe.empty()) return "";
  for (const auto& [key, value] : {std::pair<const char*, const std::string&>{"name", file.name},
                                   std::pair<const char*, const std::string&>{"version", file.version}}) {
    std::string fault = KeyFault(file, key, value);
    if (!fault.empty()) return fault;
  }
  return "its plain text scan reads other values than the file's fields";
}

}  // namespace zotuning_tool
