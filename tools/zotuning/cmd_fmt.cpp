// zotuning fmt: the canonical form of JSON files.

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include <memory>
#include <optional>
#include <utility>

#include "command_context.h"
#include "json/json_text-inl.h"
#include "workspace/change_set.h"
#include "workspace/check_json.h"
#include "workspace/format.h"
#include "workspace/message_text.h"
#include "workspace/suggest.h"

namespace zotuning::tool {
namespace {

using google::protobuf::Descriptor;

struct Options {
  std::vector<std::string> files;
  std::string module;
  std::string stdin_path;
  bool check = false;
  bool dry_run = false;
};

/// The type of a module; null after an error.
const Descriptor* TypeOf(const Project& project, const std::string& module, const std::string& file, Console& console) {
  for (const Project::Module& each : project.Modules()) {
    if (each.name == module && each.type != nullptr) return each.type;
  }
  console.Report(Code::kUnknownModule, "no module " + Quoted(module) + DidYouMean(module, project.ValueNames(0)),
                 "the name of the file is that of its module", file);
  return nullptr;
}

std::string BytesOf(const google::protobuf::Message& message) {
  std::string bytes;
  google::protobuf::io::StringOutputStream stream(&bytes);
  google::protobuf::io::CodedOutputStream out(&stream);
  out.SetSerializationDeterministic(true);  // maps have a different order in each message
  message.SerializePartialToCodedStream(&out);
  out.Trim();
  return bytes;
}

/// Whether two texts pack the same, or neither does.
bool PackTheSame(Project& project, const Descriptor* type, const std::string& left, const std::string& right) {
  const auto left_message = project.schema().NewMessage(type), right_message = project.schema().NewMessage(type);
  const bool good = ZO_TUNING::internal::ParseJson(left, left_message.get()).ok;
  if (good != ZO_TUNING::internal::ParseJson(right, right_message.get()).ok) return false;
  return !good || BytesOf(*left_message) == BytesOf(*right_message);
}

/// The canonical form of a text; nothing after an error.
std::optional<std::string> Format(Project& project, const Descriptor* type, const std::string& text,
                                  const std::string& file, Console& console) {
  const JsonDocument document(text);
  if (!document.ok() || !document.root().is_object()) {
    CollectingSink faults;
    CheckText(document, file, faults);
    for (Diagnostic& fault : faults.Take()) {
      if (fault.severity == Severity::kError) console.Add(std::move(fault));
    }
    return std::nullopt;
  }
  std::optional<std::string> form = FormatJson(document, type);
  if (!form) {
    console.Report(Code::kJsonTooDeep, "the values are nested too deeply to be laid out", "", file);
  } else if (*form != text && !PackTheSame(project, type, text, *form)) {
    console.Report(Code::kInternal, "the canonical form would pack something else; the file is left as it is", "",
                   file);
    form.reset();
  }
  return form;
}

int FormatInput(Project& project, const Options& options, Console& console) {
  const std::string file = options.stdin_path.empty() ? "standard input" : DisplayPath(options.stdin_path);
  const std::string module = options.module.empty() ? ModuleOfFile(options.stdin_path) : options.module;
  const Descriptor* type = TypeOf(project, module, file, console);
  std::string text;
  if (type == nullptr || !ReadStandardInput(text, console)) return kFailed;
  const std::optional<std::string> form = Format(project, type, text, file, console);
  if (!form) return kFailed;
  if (options.check) {
    if (*form == text) return kDone;
    console.Report(Code::kNotFormatted, "this text is not in the canonical form", "", file);
    return kFailed;
  }
  console.Print(*form);
  console.result()["text"] = *form;
  return kDone;
}

/// The files given, those below folders given, or all settings.
std::vector<std::string> ListInputs(const Project& project, const Options& options, Console& console) {
  std::vector<std::string> paths;
  for (const std::string& file : options.files) {
    if (!IsDirectory(file)) {
      paths.push_back(file);
      continue;
    }
    std::vector<FoundFile> found;
    ListFiles(file, ".json", found, console);
    for (FoundFile& each : found) paths.push_back(std::move(each.path));
  }
  if (!options.files.empty()) return paths;
  for (const std::string& scope : project.Scopes()) {
    std::vector<Setting> settings;
    const FileKind kind = KindOf(project.layout().ScopeDir(scope));
    if (kind == FileKind::kDirectory || kind == FileKind::kUnknown) project.ListSettings(scope, settings, console);
    for (Setting& setting : settings) paths.push_back(std::move(setting.path));
  }
  return paths;
}

int Run(CommandContext& context, const Options& options) {
  Console& console = context.console;
  const bool input = options.files == std::vector<std::string>{"-"};
  for (const std::string& file : options.files) {
    if (file != "-" || input) continue;
    console.Report(Code::kUsage, "'-' is for standard input alone");
    return kMisuse;
  }
  if (input ? options.module.empty() == options.stdin_path.empty()
            : !options.module.empty() || !options.stdin_path.empty()) {
    console.Report(Code::kUsage, "the module of standard input is named by --module or --stdin-path",
                   "zotuning fmt - --stdin-path main_wide/mode_0/AfCommon.json");
    return kMisuse;
  }
  int code = kDone;
  const auto project = LoadProject(context, code);
  if (project == nullptr) return code;
  if (input) return FormatInput(*project, options, console);

  ChangeSet set;
  std::vector<std::vector<std::string>> rows;
  Json files = Json::array();
  size_t count = 0;
  for (const std::string& path : ListInputs(*project, options, console)) {
    const std::string file = DisplayPath(path);
    const Descriptor* type =
        TypeOf(*project, options.module.empty() ? ModuleOfFile(path) : options.module, file, console);
    std::string text;
    if (type == nullptr || !RefuseSpecialFile(path, console) || !ReadFile(path, text, console)) continue;
    std::optional<std::string> form = Format(*project, type, text, file, console);
    if (!form) continue;
    ++count;
    if (*form == text) continue;
    if (options.check) {
      console.Report(Code::kNotFormatted, "this file is not in the canonical form",
                     "'zotuning fmt " + file + "' writes it", file);
    }
    rows.push_back({file, "formatted"});
    files.push_back(file);
    set.Replace(path, std::move(text), std::move(*form));
  }
  console.result()["files"] = std::move(files);
  if (options.dry_run) {
    const std::string diff = set.Diff(project->dir());
    console.Print(diff);
    console.result()["diff"] = diff;
  } else if (!options.check) {
    if (!set.Apply(console)) return kFailed;
    console.Print(Table(rows));
    console.Print(Count(rows.size(), "file") + " of " + std::to_string(count) + " formatted\n");
  }
  return kDone;
}

}  // namespace

void AddFmt(CLI::App& app, CommandContext& context) {
  auto options = std::make_shared<Options>();
  CLI::App* command = AddCommand(
      app, context, "fmt", "Put settings and defaults into their canonical form",
      "Fields in the order of the schema, lines indented as the library prints them, tables one row to a line,\n"
      "short lists in one line; numbers stay as they are written, and what is packed stays the same. Quotes, commas\n"
      "and the like that packing takes and other programs reject are fixed; a file that does not parse is left alone.\n"
      "\n"
      "Examples:\n"
      "  zotuning fmt\n"
      "  zotuning fmt --check\n"
      "  zotuning fmt default main_wide/mode_0/AfCommon.json --dry-run\n"
      "  zotuning fmt - --stdin-path main_wide/mode_0/AfCommon.json < main_wide/mode_0/AfCommon.json",
      [&context, options] { return Run(context, *options); });
  command->add_option("FILE", options->files, "Files and folders instead of all settings; '-' is standard input");
  command->add_option("--module", options->module, "The module of standard input")->type_name("MODULE");
  command->add_option("--stdin-path", options->stdin_path, "The file that standard input stands for")
      ->type_name("FILE");
  command->add_flag("--check", options->check, "Name the files that are not in the canonical form, write nothing");
  command->add_flag("--dry-run", options->dry_run, "Print the change for 'git apply', write nothing");
}

}  // namespace zotuning::tool
