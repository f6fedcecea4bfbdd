// zotuning schema: what a schema change means, and the schema for editors.

#include <algorithm>
#include <filesystem>
#include <memory>
#include <system_error>

#include "command_context.h"
#include "editor_files.h"
#include "json_schema.h"
#include "workspace/change_set.h"
#include "workspace/check_json.h"
#include "workspace/schema_compare.h"
#include "workspace/suggest.h"

namespace zotuning::tool {
namespace {

int Compare(CommandContext& context, const std::string& revision) {
  Console& console = context.console;
  int code = kFailed;
  const auto project = LoadProject(context, code);
  if (project == nullptr) return code;
  const auto old_schema = SchemaRevision::Load(project->layout().ProtoDir(), revision, console);
  std::vector<SchemaChange> changes;
  if (old_schema == nullptr || !CompareSchemas(*old_schema, *project, changes, console)) return kFailed;
  std::vector<std::vector<std::string>> rows;
  Json list = Json::array();
  size_t breaking = 0;
  for (const SchemaChange& change : changes) {
    if (change.breaks) ++breaking;
    rows.push_back(
        {change.breaks ? "breaking" : "compatible", change.rule.empty() ? "-" : change.rule, change.name, change.text});
    list.push_back(
        {{"breaking", change.breaks}, {"rule", change.rule}, {"name", change.name}, {"change", change.text}});
  }
  console.Print(Table(rows));
  console.Print(changes.empty() ? "nothing that a bin can hold has changed since " + Printable(revision) + "\n"
                                : Count(breaking, "breaking change") + ", " +
                                      std::to_string(changes.size() - breaking) + " compatible\n");
  console.result() = {{"revision", revision}, {"breaking", breaking}, {"changes", std::move(list)}};
  return breaking > 0 ? kFailed : kDone;
}

struct JsonOptions {
  std::vector<std::string> modules;
  std::string out;
  bool vscode = false;
};

constexpr const char* kSuffix = ".schema.json";

/// The JSON Schemas of modules by name, or of all if none is given. False after errors.
bool MakeSchemas(Project& project, const std::vector<std::string>& names, Json& schemas, Console& console) {
  const std::vector<Project::Module> modules = project.Modules();
  std::vector<std::string> known;
  known.reserve(modules.size());
  for (const Project::Module& module : modules) known.push_back(module.name);
  for (const std::string& name : names) {
    if (std::find(known.begin(), known.end(), name) != known.end()) continue;
    console.Report(Code::kUnknownModule, "no module " + Quoted(name) + DidYouMean(name, known),
                   "'zotuning modules' lists them");
  }
  for (const Project::Module& module : modules) {
    if (module.type == nullptr) continue;
    if (!names.empty() && std::find(names.begin(), names.end(), module.name) == names.end()) continue;
    const std::string path = project.layout().DefaultPath(module.name);
    std::string text;
    if (Exists(path) && !ReadFile(path, text, console)) continue;
    const JsonDocument defaults(text);
    if (!text.empty() && !defaults.ok()) CheckText(defaults, DisplayPath(path), console);
    schemas[module.name] = ModuleSchema(module.name, module.type, defaults);
  }
  return console.ok();
}

/// "file:///..." of a path that need not exist.
std::string FileUri(const std::string& path) {
  std::error_code error;
  const std::string whole = std::filesystem::weakly_canonical(path, error).string();
  std::string uri = "file://";
  for (const char c : error ? path : whole) {
    const bool safe =
        std::isalnum(static_cast<unsigned char>(c)) != 0 || std::string_view("-._~/").find(c) != std::string_view::npos;
    static constexpr char kDigits[] = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(c);
    if (safe) {
      uri += c;
    } else {
      uri.append(1, '%').append(1, kDigits[byte >> 4]).append(1, kDigits[byte & 15]);
    }
  }
  return uri;
}

/// A file to be written with `text`.
bool Plan(const std::string& path, std::string text, ChangeSet& changes, Console& console) {
  std::string old;
  if (!Exists(path)) {
    changes.Create(path, std::move(text));
  } else if (!RefuseSpecialFile(path, console) || !ReadFile(path, old, console)) {
    return false;
  } else {
    changes.Replace(path, std::move(old), std::move(text));
  }
  return true;
}

/// Puts entries into a list of an editor's file, which may be missing or contain comments.
bool PlanEntries(const std::string& path, const std::string& empty, const std::string& list_key,
                 const std::string& id_key, const std::vector<Json>& entries, ChangeSet& changes, Console& console) {
  std::string text = empty, why;
  if (Exists(path) && (!RefuseSpecialFile(path, console) || !ReadFile(path, text, console))) return false;
  std::optional<std::string> merged = MergeEntries(text.empty() ? empty : text, list_key, id_key, entries, &why);
  if (merged) return Plan(path, std::move(*merged), changes, console);
  console.Report(Code::kExists, "this file cannot be added to: " + why, "fix it, or move it away", DisplayPath(path));
  return false;
}

/// The task that shows the faults of 'zotuning check' in Visual Studio Code: those with a position, and those without.
Json CheckTask() {
  const Json base = {{"owner", "zotuning"}, {"fileLocation", Json::array({"relative", "${workspaceFolder}"})}};
  Json place = base, file = base;
  place["pattern"] = {{"regexp", "^(.+?):(\\d+):(\\d+): (error|warning): (.*)$"},
                      {"file", 1},
                      {"line", 2},
                      {"column", 3},
                      {"severity", 4},
                      {"message", 5}};
  file["pattern"] = {{"regexp", "^(?!zotuning: )([^:]+): (error|warning): (.*)$"},
                     {"kind", "file"},
                     {"file", 1},
                     {"severity", 2},
                     {"message", 3}};
  return {{"label", "zotuning check"},
          {"type", "process"},
          {"command", "zotuning"},
          {"args", Json::array({"check"})},
          {"options", {{"cwd", "${workspaceFolder}"}}},
          {"group", "build"},
          {"presentation", {{"reveal", "never"}}},
          {"problemMatcher", Json::array({std::move(place), std::move(file)})}};
}

int WriteJson(CommandContext& context, const JsonOptions& options) {
  Console& console = context.console;
  if (options.vscode && !options.out.empty()) {
    console.Report(Code::kUsage, "--vscode and --out cannot be combined");
    return kMisuse;
  }
  int code = kFailed;
  const auto project = LoadProject(context, code);
  if (project == nullptr) return code;
  Json schemas = Json::object();
  if (!MakeSchemas(*project, options.modules, schemas, console)) return kFailed;
  if (!options.vscode && options.out.empty()) {
    console.result()["schemas"] = schemas;
    const Json& printed = options.modules.size() == 1 ? schemas.front() : schemas;
    console.Print(printed.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
    return kDone;
  }
  const std::string editor = project->dir() + "/.vscode";
  const std::string dir = options.vscode ? editor + "/zotuning" : options.out;
  ChangeSet changes;
  std::vector<Json> mapping;
  bool good = true;
  for (const auto& [module, schema] : schemas.items()) {
    const std::string path = JoinPath(dir, module + kSuffix);
    mapping.push_back({{"fileMatch", Json::array({"**/" + module + ".json", "!**/version/*.json"})},
                       {"url", options.vscode ? "./.vscode/zotuning/" + module + kSuffix : FileUri(path)}});
    good &= Plan(path, schema.dump(2, ' ', false, Json::error_handler_t::replace) + "\n", changes, console);
  }
  if (options.vscode) {
    good &= PlanEntries(editor + "/settings.json", "{}\n", "json.schemas", "url", mapping, changes, console);
    good &= PlanEntries(editor + "/tasks.json", "{\n  \"version\": \"2.0.0\"\n}\n", "tasks", "label", {CheckTask()},
                        changes, console);
  } else {
    good &= Plan(dir + "/json.schemas.json", Json(mapping).dump(2) + "\n", changes, console);
  }
  if (!good || !changes.Apply(console)) return kFailed;
  Json files = Json::array();
  for (const FileChange& change : changes.changes()) {
    files.push_back(DisplayPath(change.path));
    console.Print((change.old_text ? "changed " : "made ") + Printable(DisplayPath(change.path)) + "\n");
  }
  if (changes.empty()) console.Print("everything is up to date\n");
  console.result()["files"] = std::move(files);
  return kDone;
}

void AddJson(CLI::App& schema, CommandContext& context) {
  auto options = std::make_shared<JsonOptions>();
  CLI::App* command = AddCommand(
      schema, context, "json", "JSON Schemas of modules, for editors",
      "An editor with such a schema completes names, shows the comments of the .proto files, and marks what does not\n"
      "fit while it is typed. Ranges and sizes are those of the defaults' rules. Without an option the schemas are\n"
      "printed, by module, or that of the one module named.\n"
      "\n"
      "Examples:\n"
      "  zotuning schema json --vscode\n"
      "  zotuning schema json --out ~/.cache/zotuning/phone\n"
      "  zotuning schema json AfCommon",
      [&context, options] { return WriteJson(context, *options); });
  command->add_option("MODULE", options->modules, "Modules (default: all)");
  command->add_flag(
      "--vscode", options->vscode,
      "Write .vscode: the schemas, their mapping in settings.json, and a task in tasks.json that shows what "
      "'check' finds; what else is in these files stays");
  command
      ->add_option("--out", options->out,
                   "Write the schemas into this folder, and json.schemas.json, the setting of that name for the JSON "
                   "language server of any editor")
      ->type_name("DIR")
      ->check(NotEmpty());
}

}  // namespace

void AddSchema(CLI::App& app, CommandContext& context) {
  CLI::App* schema = app.add_subcommand("schema", "What a change of the schema means, and the schema for editors");
  schema->fallthrough();
  schema->require_subcommand(1);
  schema->footer(
      "Examples:\n"
      "  zotuning schema compare\n"
      "  zotuning schema compare v1.2\n"
      "  zotuning schema json --vscode\n");

  auto revision = std::make_shared<std::string>("HEAD");
  CLI::App* compare =
      AddCommand(*schema, context, "compare", "What a change of the schema does to bins that are on devices already",
                 "Compares the schema with that of a revision of git, by what a bin can hold. The rules are those of\n"
                 "buf. Exit code 1 when a bin would be read differently than it was meant.\n"
                 "\n"
                 "Examples:\n"
                 "  zotuning schema compare\n"
                 "  zotuning schema compare v1.2 --json",
                 [&context, revision] { return Compare(context, *revision); });
  compare->add_option("REVISION", *revision, "The older schema (default: HEAD)")->check(NotEmpty());
  AddJson(*schema, context);
}

}  // namespace zotuning::tool
