#include "json_check.h"

#include <google/protobuf/message.h>

#include <algorithm>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "ZoTuningUtils.h"
#include "files.h"
#include "json_locate.h"
#include "library_log.h"
#include "suggest.h"

namespace zotuning_tool {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::EnumDescriptor;
using google::protobuf::FieldDescriptor;

constexpr const char* kInvalidValue = "invalid value ";

/// What protobuf's status message says, taken apart: "(a.b[2]): invalid value 5 for type TYPE_X", "(a) key: reason".
struct Status {
  JsonPath path;
  std::string value;   ///< of an invalid value, as the message spells it
  std::string type;    ///< that the value was meant for
  std::string reason;  ///< what remains
};

Status ParseStatus(const std::string& message) {
  Status status;
  std::string rest = message.substr(0, message.find('\n'));
  std::string location;
  if (!rest.empty() && rest[0] == '(') {
    const size_t end = rest.find(')');
    location = rest.substr(1, end == std::string::npos ? end : end - 1);
    rest = end == std::string::npos ? "" : rest.substr(end + 1);
  }
  status.path = ParseJsonPath(location);
  const size_t colon = rest.find(": ");
  if (colon == std::string::npos) {
    status.reason = rest;
    return status;
  }
  const std::string key =
      rest.substr(rest[0] == ' ' && !location.empty() ? 1 : 0, colon - (rest[0] == ' ' && !location.empty() ? 1 : 0));
  rest = rest.substr(colon + 2);
  if (!key.empty()) status.path.push_back({key, -1});
  if (rest.rfind(kInvalidValue, 0) != 0) {
    status.reason = rest;
    return status;
  }
  const size_t type = rest.rfind(" for type ");
  const size_t value = std::string(kInvalidValue).size();
  status.value = rest.substr(value, type == std::string::npos ? type : type - value);
  if (type != std::string::npos) status.type = rest.substr(type + 10);
  return status;
}

/// The field that a path leads to, null where it leaves the schema.
const FieldDescriptor* FieldAt(const Descriptor* type, const JsonPath& path) {
  const FieldDescriptor* field = nullptr;
  for (const JsonStep& step : path) {
    if (type == nullptr) return nullptr;
    field = type->FindFieldByName(step.name);
    if (field == nullptr) field = type->FindFieldByCamelcaseName(step.name);
    if (field == nullptr) return nullptr;
    type = field->message_type();
  }
  return field;
}

std::vector<std::string> FieldNames(const Descriptor* type) {
  std::vector<std::string> names;
  names.reserve(static_cast<size_t>(type->field_count()));
  for (int i = 0; i < type->field_count(); ++i) names.push_back(type->field(i)->name());
  return names;
}

std::vector<std::string> EnumNames(const EnumDescriptor* type) {
  std::vector<std::string> names;
  names.reserve(static_cast<size_t>(type->value_count()));
  for (int i = 0; i < type->value_count(); ++i) names.push_back(type->value(i)->name());
  return names;
}

void SetPosition(Diagnostic& diagnostic, const std::string& text, size_t offset) {
  const TextPosition position = PositionAt(text, offset);
  diagnostic.line = position.line;
  diagnostic.column = position.column;
  diagnostic.excerpt = position.excerpt;
  diagnostic.excerpt_column = position.excerpt_column;
}

/// A text of the right grammar that does not fit the type.
Diagnostic ExplainMisfit(const std::string& text, const Descriptor* type, const std::string& message) {
  Diagnostic diagnostic;
  diagnostic.code = "json-misfit";
  Status status = ParseStatus(message);
  if (message.rfind("Message too deep", 0) == 0) {
    diagnostic.message = "objects are nested too deep; 100 levels are the limit";
    size_t deepest = 0, deepest_offset = 0;
    ScanJson(text, [&](const JsonPath& path, const JsonValue& value) {
      if (path.size() > deepest && deepest <= 100) {
        deepest = path.size();
        deepest_offset = value.key_offset;
      }
    });
    SetPosition(diagnostic, text, deepest_offset);
    return diagnostic;
  }
  bool key_at_fault = false;
  const std::string object_for_scalar = "Starting an object on a scalar field";
  const std::string cannot_set = "Cannot set '";
  if (status.reason.rfind("Cannot find field", 0) == 0 && !status.path.empty()) {
    const std::string key = status.path.back().name;
    const JsonPath above(status.path.begin(), status.path.end() - 1);
    const FieldDescriptor* parent = FieldAt(type, above);
    const Descriptor* owner = above.empty() ? type : parent == nullptr ? nullptr : parent->message_type();
    diagnostic.code = "json-unknown-key";
    diagnostic.message = owner == nullptr ? "no field " + Quoted(Excerpt(key))
                                          : Quoted(owner->full_name()) + " has no field " + Quoted(Excerpt(key)) +
                                                DidYouMean(key, FieldNames(owner));
    key_at_fault = true;
  } else if (status.value == object_for_scalar) {
    if (status.path.empty() || status.path.back().name != status.type) status.path.push_back({status.type, -1});
    diagnostic.message = Quoted(status.type) + " is a plain value, not an object";
  } else if (const size_t at = status.value.find(cannot_set); at != std::string::npos) {
    const size_t begin = at + cannot_set.size();
    const std::string key = status.value.substr(begin, status.value.find('\'', begin) - begin);
    status.path.push_back({key, -1});
    diagnostic.message = "only one of the fields of a oneof may be set; " + Quoted(key) + " is one too many";
    key_at_fault = true;
  } else if (!status.value.empty()) {
    const FieldDescriptor* field = FieldAt(type, status.path);
    std::string wanted = field == nullptr ? status.type : field->type_name();
    if (field != nullptr && field->message_type() != nullptr)
      wanted = "an object " + field->message_type()->full_name();
    if (field != nullptr && field->enum_type() != nullptr) wanted = "enum " + field->enum_type()->full_name();
    diagnostic.message = Excerpt(status.value) + " is no value for the field " +
                         Quoted(status.path.empty() ? "" : Excerpt(status.path.back().name)) + " (" + wanted + ")";
    if (field != nullptr && field->enum_type() != nullptr && status.value.size() > 2) {
      diagnostic.message += DidYouMean(status.value.substr(1, status.value.size() - 2), EnumNames(field->enum_type()));
    }
  } else {
    const std::string key = status.path.empty() ? "" : status.path.back().name;
    diagnostic.message = status.reason.find("not repeating") != std::string::npos
                             ? Quoted(Excerpt(key)) + " is a single value, not a list"
                             : Excerpt(status.reason.empty() ? message : status.reason, 400);
  }
  diagnostic.path = JsonPathText(status.path);
  if (const auto found = FindJsonValue(text, status.path, status.value)) {
    SetPosition(diagnostic, text, key_at_fault ? found->key_offset : found->offset);
  }
  return diagnostic;
}

Diagnostic Explain(const std::string& text, const Descriptor* type, const std::string& message) {
  if (const auto fault = ScanJson(text)) {
    Diagnostic diagnostic;
    diagnostic.code = "json-syntax";
    diagnostic.message = fault->message;
    diagnostic.hint = fault->hint;
    SetPosition(diagnostic, text, fault->offset);
    return diagnostic;
  }
  return ExplainMisfit(text, type, message);
}

/// The path of a field of this name below `field`, "" when there is none.
std::string PathTo(const FieldDescriptor* field, const std::string& name, std::set<const Descriptor*>& open) {
  if (field->name() == "rule" || field->name() == "value" || field->name() == "description") return "";
  if (field->name() == name) return name;
  const Descriptor* type = field->message_type();
  if (type == nullptr || !open.insert(type).second) return "";
  for (int i = 0; i < type->field_count(); ++i) {
    const std::string below = PathTo(type->field(i), name, open);
    if (!below.empty()) return field->name() + "." + below;
  }
  return "";
}

/// The field check of packing, which asks only whether each name occurs. Goes on where the library stops.
bool CheckFields(const std::string& file, const std::string& text, const Descriptor* type, Report& report) {
  std::set<std::string> missing;
  for (int i = 0; i < type->field_count(); ++i) {
    const LibraryWatch watch;
    if (ZO_TUNING::CheckFieldInString(type->field(i), text)) continue;
    const size_t begin = watch.error_text().find('\'') + 1;
    const std::string name = watch.error_text().substr(begin, watch.error_text().rfind('\'') - begin);
    if (!missing.insert(name).second) continue;
    std::set<const Descriptor*> open;
    Diagnostic diagnostic;
    diagnostic.code = "json-missing-field";
    diagnostic.file = Shown(file);
    diagnostic.path = PathTo(type->field(i), name, open);
    diagnostic.message = "the field " + Quoted(name) + " is missing; every field has to be spelled out";
    if (diagnostic.path != name && !diagnostic.path.empty()) diagnostic.hint = "it belongs at " + diagnostic.path;
    report.Add(std::move(diagnostic));
  }
  return missing.empty();
}

}  // namespace

bool CheckJson(const std::string& file, const std::string& text, const Descriptor* type, SchemaView& schema,
               Fields fields, Report& report) {
  const auto message = schema.NewMessage(type);
  std::string said;
  bool fits;
  {
    const LibraryWatch watch;
    fits = ZO_TUNING::JSON_STR_TO_MSG(text, message.get());
    said = watch.error_text();
    if (!fits && said.empty()) {
      watch.Explain(report, Shown(file) + " cannot be converted");
      return false;
    }
  }
  if (fits) return fields == Fields::kAny || CheckFields(file, text, type, report);
  const std::string prefix = "Failed to parse JSON: ";
  if (said.rfind(prefix, 0) == 0) said.erase(0, prefix.size());
  while (!said.empty() && said.back() == '\n') said.pop_back();
  Diagnostic diagnostic = Explain(text, type, said);
  diagnostic.file = Shown(file);
  report.Add(std::move(diagnostic));
  return false;
}

bool CheckSetting(Project& project, const Setting& setting, Fields fields, Report& report) {
  const std::string module = project.ModuleName(setting.values);
  if (module.empty()) {
    const std::string file = setting.relative.substr(setting.relative.rfind('/') + 1);
    const std::string name = file.substr(0, file.rfind('.'));
    report.Error("unknown-module", "no module " + Quoted(name) + DidYouMean(name, project.ValueNames(0)),
                 "'zotuning modules' lists them", Shown(setting.path));
    return false;
  }
  const Descriptor* type = project.schema().RequireType(module, report);
  std::string text;
  return type != nullptr && ReadFile(setting.path, text, report) &&
         CheckJson(setting.path, text, type, project.schema(), fields, report);
}

bool CheckVersionFiles(Project& project, const std::string& scope, size_t& count, Report& report) {
  const Descriptor* type = project.schema().RequireType("Version", report);
  std::vector<FoundFile> files;
  bool good = type != nullptr && ListFiles(project.VersionDir(scope), ".json", files, report);
  for (const FoundFile& file : files) {
    std::string text;
    good &= type != nullptr && ReadFile(file.path, text, report) &&
            CheckJson(file.path, text, type, project.schema(), Fields::kAny, report);
    ++count;
  }
  return good;
}

}  // namespace zotuning_tool
