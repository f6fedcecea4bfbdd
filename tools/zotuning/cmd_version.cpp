// zotuning version: the version files of the project, and the header generated from them.

#include <algorithm>
#include <filesystem>
#include <memory>

#include "command_context.h"
#include "version/version_files.h"
#include "version/version_text-inl.h"
#include "workspace/check_setting.h"
#include "workspace/json_document.h"
#include "workspace/suggest.h"
#include "workspace/version_files.h"

namespace zotuning::tool {
namespace {

using Lines = std::vector<std::string>;

/// The name used in the list.
std::string ScopeName(const std::string& scope) { return scope == kDefaultScope ? "project" : scope; }

int List(CommandContext& context) {
  Console& console = context.console;
  int code = kDone;
  const auto project = LoadProject(context, code);
  if (project == nullptr) return code;
  std::vector<std::vector<std::string>> rows = {{"NAME", "VERSION", "OF", "FILE"}};
  Json versions = Json::array();
  for (const std::string& scope : project->Scopes()) {
    std::vector<VersionFile> files;
    ReadVersionFiles(*project, scope, files, console);
    for (const VersionFile& file : files) {
      if (file.message == nullptr) continue;
      const std::string of = ScopeName(scope);
      rows.push_back({file.name, file.version, of, DisplayPath(file.path)});
      versions.push_back(
          {{"name", file.name}, {"version", file.version}, {"of", of}, {"file", DisplayPath(file.path)}});
      if (scope == kDefaultScope) ReportScanFault(file, Severity::kWarning, console);
    }
  }
  console.Print(Table(rows));
  console.result()["versions"] = std::move(versions);
  return kDone;
}

/// The text of a version file with another version: only that member's value changes, or the member is added at the
/// end.
std::string TextWithVersion(const std::string& text, const google::protobuf::FieldDescriptor* field,
                            const std::string& version) {
  const JsonDocument document(text);
  const std::string value = EncodeJsonString(version);
  std::string changed = text;
  size_t key_begin = 0, last_end = 0;
  JsonValue old;  // of duplicates the last, which is the one that counts
  for (const JsonMember member : document.root().members()) {
    if (member.KeyIs(field->name()) || member.KeyIs(field->json_name())) old = member.value();
    key_begin = member.key_begin();
    last_end = member.value().end();
  }
  if (old) return changed.replace(old.begin(), old.end() - old.begin(), value);
  const std::string added = EncodeJsonString(field->name()) + ": " + value;
  if (last_end == 0) return changed.insert(document.root().begin() + 1, added);
  // Separated in the same way as the member before it.
  const size_t before = text.find_last_not_of(" \t\r\n", key_begin - 1) + 1;
  return changed.insert(last_end, "," + text.substr(before, key_begin - before) + added);
}

/// The file of the version called `name`, among those of the project and all sensors, or only of `of`. Null after an
/// error.
const VersionFile* FindVersion(const std::vector<VersionFile>& files, const std::string& name, const std::string& of,
                               Console& console) {
  Lines names;
  std::vector<const VersionFile*> matches;
  for (const VersionFile& file : files) {
    if (!of.empty() && of != ScopeName(file.scope)) continue;
    names.push_back(file.name);
    if (file.name == name) matches.push_back(&file);
  }
  if (matches.size() == 1) return matches[0];
  if (matches.empty()) {
    console.Report(Code::kUnknownVersion, "no version is called " + Quoted(name) + DidYouMean(name, names),
                   "'zotuning version list' lists them");
    return nullptr;
  }
  const bool apart = matches[0]->scope != matches[1]->scope;
  console.Report(Code::kSameNames,
                 Count(matches.size(), "file") + " hold a version called " + Quoted(name) + ": " +
                     DisplayPath(matches[0]->path) + " and " + DisplayPath(matches[1]->path),
                 apart ? "choose one with --of, for example --of " + ScopeName(matches[0]->scope) : "keep one of them",
                 DisplayPath(matches[1]->path));
  return nullptr;
}

int Set(CommandContext& context, const std::string& name, const std::string& version, const std::string& of) {
  Console& console = context.console;
  int code = kDone;
  const auto project = LoadProject(context, code);
  if (project == nullptr) return code;
  if (!of.empty() && of != ScopeName(kDefaultScope) && !project->RequireSensor(of, console)) return kFailed;
  std::vector<VersionFile> files;
  bool good = true;
  for (const std::string& scope : project->Scopes()) {
    if (IsDirectory(project->layout().ScopeVersionDir(scope))) {
      good &= ReadVersionFiles(*project, scope, files, console);
    }
  }
  if (!good) return kFailed;
  const VersionFile* match = FindVersion(files, name, of, console);
  if (match == nullptr) return kFailed;
  if (const std::string fault = TextFault(version); !fault.empty()) {
    console.Error(Code::kVersionMisread, "the version header cannot hold this value: " + fault,
                  "use plain text without quotes and backslashes", DisplayPath(match->path));
    return kFailed;
  }
  const auto* field = ZO_TUNING::internal::FindTextField(project->version_type(), "version");
  if (field == nullptr) {
    console.Report(Code::kSchemaType, "the message type Version has no text field 'version'", "",
                   DisplayPath(project->layout().ProtoDir()));
    return kFailed;
  }
  const std::string text = TextWithVersion(match->text, field, version);
  // Whatever the file looked like, it is written only if it then says what was asked for.
  const auto message = project->schema().NewMessage(project->version_type());
  if (!ParseJson(match->path, text, message.get(), console)) return kFailed;
  if (message->GetReflection()->GetString(*message, field) != version) {
    console.Report(Code::kUsage, "the version " + Quoted(version) + " cannot be written as JSON", "it must be UTF-8",
                   DisplayPath(match->path));
    return kFailed;
  }
  if (!ReplaceFile(match->path, text, console)) return kFailed;
  console.Print(Printable(name) + " is now " + Printable(version) + " (" + Printable(DisplayPath(match->path)) + ")\n");
  console.result() = {{"name", name}, {"version", version}, {"file", DisplayPath(match->path)}};
  return kDone;
}

/// What is needed before the header can be compared or written.
bool CheckHeader(Project& project, const std::string& path, std::vector<VersionFile>& files, std::string& text,
                 Console& console) {
  if (!ReadVersionFiles(project, kDefaultScope, files, console)) return false;
  if (files.empty()) {
    console.Report(Code::kNoVersions, "there is no version file from which to make the header", "",
                   DisplayPath(project.layout().ScopeVersionDir(kDefaultScope)));
  }
  for (const VersionFile& file : files) ReportScanFault(file, Severity::kError, console);
  if (!Exists(path)) {
    console.Report(Code::kNoHeader, "the project has no version header", "make it with a line that contains [3AProto]",
                   DisplayPath(path));
  } else if (RefuseSpecialFile(path, console) && ReadFile(path, text, console) &&
             text.find("[3AProto]") == std::string::npos) {
    console.Report(Code::kNoMarker, "the header has no line that contains [3AProto]; the generated lines would pile up",
                   "", DisplayPath(path));
  }
  return console.ok();
}

int Header(CommandContext& context, bool check) {
  Console& console = context.console;
  int code = kDone;
  const auto project = LoadProject(context, code);
  if (project == nullptr) return code;
  const std::string shown = DisplayPath(project->dir() + "/src/ZoTuningVersion.h");
  // Beside the schema's folder, wherever that is linked to.
  std::error_code error;
  const std::string linked = project->layout().HeaderPath();
  const std::string path = std::filesystem::equivalent(linked, shown, error) ? shown : linked;
  std::vector<VersionFile> files;
  std::string found;
  if (!CheckHeader(*project, path, files, found, console)) return kFailed;
  const std::string wanted = HeaderText(found, files);
  const size_t kept = SplitLines(ZO_TUNING::internal::KeptHeader(found)).size();
  const Lines found_lines = SplitLines(found), wanted_lines = SplitLines(wanted);
  const bool current = HeaderIsCurrent(found, files);
  console.result() = {{"file", shown}, {"versions", files.size()}, {"current", current}};
  if (check) {
    if (current) {
      console.Print(Printable(shown) + " is up to date\n");
      return kDone;
    }
    Json removed = Json::array(), added = Json::array();
    for (size_t i = kept; i < std::max(found_lines.size(), wanted_lines.size()); ++i) {
      const std::string* old_line = i < found_lines.size() ? &found_lines[i] : nullptr;
      const std::string* new_line = i < wanted_lines.size() ? &wanted_lines[i] : nullptr;
      if (old_line != nullptr && new_line != nullptr && *old_line == *new_line) continue;
      if (old_line != nullptr) removed.push_back(*old_line);
      if (new_line != nullptr) added.push_back(*new_line);
      console.Print((old_line == nullptr ? "" : "-" + Printable(*old_line) + "\n") +
                    (new_line == nullptr ? "" : "+" + Printable(*new_line) + "\n"));
    }
    console.result()["removed"] = std::move(removed);
    console.result()["added"] = std::move(added);
    console.Report(Code::kHeaderOutdated, "the header is out of date", "'zotuning version header' updates it", shown);
    return kFailed;
  }
  // An unchanged file is not touched, so that nothing is recompiled; a full disk is still reported.
  const bool written = wanted == found ? CanReplaceFile(path, wanted, console) : ReplaceFile(path, wanted, console);
  if (!written) return kFailed;
  console.result()["current"] = true;
  console.Print(Printable(shown) + (wanted == found ? " is unchanged, " : " is written, ") +
                Count(files.size(), "version") + "\n");
  return kDone;
}

}  // namespace

void AddVersion(CLI::App& app, CommandContext& context) {
  CLI::App* version = app.add_subcommand("version", "List or set versions, make the version header");
  version->fallthrough();
  version->require_subcommand(1);
  version->footer(
      "Examples:\n"
      "  zotuning version list\n"
      "  zotuning version set AF 1.4\n"
      "  zotuning version header --check\n");

  AddCommand(*version, context, "list", "List the versions of the project and its sensors",
             "Examples:\n"
             "  zotuning version list\n"
             "  zotuning version list --json",
             [&context] { return List(context); });

  auto name = std::make_shared<std::string>();
  auto of = std::make_shared<std::string>();
  auto value = std::make_shared<std::string>();
  CLI::App* set = AddCommand(*version, context, "set", "Set one version of the project",
                             "Examples:\n"
                             "  zotuning version set AF 1.4",
                             [&context, name, value, of] { return Set(context, *name, *value, *of); });
  set->add_option("NAME", *name, "The name in the version file")->required();
  set->add_option("VALUE", *value, "Its new version")->required();
  set->add_option("--of", *of, "Only a version of the project ('project') or of this sensor")->type_name("SENSOR");

  auto check = std::make_shared<bool>(false);
  CLI::App* header = AddCommand(*version, context, "header", "Make src/ZoTuningVersion.h from the project's versions",
                                "Everything up to the line that contains [3AProto] is kept.\n"
                                "\n"
                                "Examples:\n"
                                "  zotuning version header\n"
                                "  zotuning version header --check    for continuous integration: 1 when out of date",
                                [&context, check] { return Header(context, *check); });
  header->add_flag("--check", *check, "Write nothing; exit with 1 and show the difference when it is out of date");
}

}  // namespace zotuning::tool
