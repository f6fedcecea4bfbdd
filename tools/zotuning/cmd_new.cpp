// zotuning new: settings by label values, as copies of the modules' defaults or of other settings.

#include <unistd.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "command_context.h"
#include "workspace/label_choice.h"

namespace zotuning::tool {
namespace {

struct Options {
  std::string sensor;
  std::vector<std::string> labels;
  std::vector<std::string> from;
  bool force = false;
  bool dry_run = false;
};

/// What is to be created, and the outcome.
struct Planned {
  NewSetting setting;
  std::string state;
};

/// Where "--from" says to copy from: a path relative to the current or the project's folder, or the labels of one
/// setting. False after errors; `misuse` gives the kind.
bool ReadSource(const Project& project, const Options& options, CopySource& source, bool& misuse, Console& console) {
  if (options.from.empty()) return true;
  if (options.from[0].find('=') == std::string::npos) {
    misuse = options.from.size() > 1;
    if (misuse) {
      console.Report(Code::kUsage, "--from takes one setting, not also " + Quoted(options.from[1]));
      return false;
    }
    std::string path = options.from[0];
    const std::string inside = project.dir() + "/" + path;
    if (path[0] != '/' && !Exists(path) && Exists(inside)) path = inside;
    source = [&console, path](const std::string& module) {
      if (ModuleOfFile(path) == module) return path;
      console.Report(Code::kUsage,
                     "a setting of " + Quoted(module) + " cannot be a copy of one of " + Quoted(ModuleOfFile(path)), "",
                     DisplayPath(path));
      return std::string();
    };
    return true;
  }
  LabelChoice choice;
  std::vector<std::string> words = options.from;
  // The module is that of each setting to be created.
  const bool module_given =
      std::any_of(words.begin(), words.end(), [](const std::string& word) { return word.rfind("module=", 0) == 0; });
  if (!module_given) words.push_back("module=" + project.ValueNames(0).back());
  const ChoiceResult result = ParseLabelChoice(project, words, true, choice, console);
  misuse = result == ChoiceResult::kMisuse;
  if (result != ChoiceResult::kOk) return false;
  const std::vector<std::vector<int>> values = choice.Combine();
  misuse = values.size() > 1 || choice.scopes.size() > 1 || !CheckLevels(project, choice, console);
  if (misuse) {
    if (console.ok()) console.Report(Code::kUsage, "--from takes one setting, not several");
    return false;
  }
  const std::string scope = choice.scopes.empty() ? options.sensor : choice.scopes[0];
  source = [&project, &console, scope, value = values[0], module_given](const std::string& module) {
    std::vector<int> of_module = value;
    for (const auto& [number, name] : project.labels().ValuesOf(0)) {
      if (name == module && !module_given) of_module[0] = number;
    }
    std::string path = project.dir() + "/" + project.SettingPath(scope, of_module);
    if (ModuleOfFile(path) != module) {
      console.Report(Code::kUsage,
                     "a setting of " + Quoted(module) + " cannot be a copy of one of " + Quoted(ModuleOfFile(path)));
    } else if (!Exists(path)) {
      console.Report(Code::kNoMatch, "there is no such setting to copy", "'zotuning tree' lists the settings",
                     DisplayPath(path));
    } else {
      return path;
    }
    return std::string();
  };
  return true;
}

void Create(Planned& planned, Console& console) {
  std::vector<std::string> made;
  const std::string dir = planned.setting.path.substr(0, planned.setting.path.rfind('/'));
  if (RefuseSpecialFile(planned.setting.path, console) && MakeDirectories(dir, console, &made) &&
      ReplaceFile(planned.setting.path, planned.setting.text, console)) {
    return;
  }
  planned.state = "failed";
  for (auto folder = made.rbegin(); folder != made.rend(); ++folder) rmdir(folder->c_str());
}

int Run(CommandContext& context, const Options& options) {
  Console& console = context.console;
  int code = kDone;
  const auto project = LoadProject(context, code);
  if (project == nullptr) return code;
  if (project->labels().names()[0] != "module") {
    console.Report(Code::kSchemaType,
                   "the first field of TuningDataLabel must be 'module', not " + Quoted(project->labels().names()[0]));
    return kFailed;
  }
  project->RequireSensor(options.sensor, console);
  LabelChoice choice;
  const ChoiceResult result = ParseLabelChoice(*project, options.labels, false, choice, console);
  if (result == ChoiceResult::kMisuse) return kMisuse;
  if (!console.ok()) return kFailed;
  if (!CheckLevels(*project, choice, console)) return kMisuse;
  CopySource source;
  bool misuse = false;
  if (!ReadSource(*project, options, source, misuse, console)) return misuse ? kMisuse : kFailed;
  std::vector<NewSetting> settings_to_make;
  if (!PlanSettings(*project, options.sensor, choice.Combine(), source, settings_to_make, console)) return kFailed;
  std::vector<Planned> plan;
  plan.reserve(settings_to_make.size());
  for (NewSetting& setting : settings_to_make) plan.push_back({std::move(setting), ""});

  std::vector<std::vector<std::string>> rows;
  Json settings = Json::array();
  for (Planned& planned : plan) {
    const bool exists = Exists(planned.setting.path);
    planned.state = options.dry_run ? "would be made" : "made";
    if (exists && options.force) {
      planned.state = options.dry_run ? "would be replaced" : "replaced";
    } else if (exists) {
      planned.state = "kept";
      console.Warn(Code::kExists, "this setting exists; it is kept", "--force replaces it",
                   DisplayPath(planned.setting.path));
    }
    if (!options.dry_run && planned.state != "kept") Create(planned, console);
    rows.push_back({DisplayPath(planned.setting.path), planned.state});
    settings.push_back({{"file", DisplayPath(planned.setting.path)},
                        {"labels", LabelJson(*project, planned.setting.values)},
                        {"state", planned.state}});
  }
  console.Print(Table(rows));
  console.result()["settings"] = std::move(settings);
  return kDone;
}

}  // namespace

void AddNew(CLI::App& app, CommandContext& context) {
  auto options = std::make_shared<Options>();
  CLI::App* command = AddCommand(
      app, context, "new", "Make tuning settings of a sensor from the modules' defaults or other settings",
      "Labels are given by name, in any order; several values of one label make one setting each. A setting\n"
      "that exists is kept, and named, unless --force is given.\n"
      "\n"
      "Examples:\n"
      "  zotuning new --sensor main_wide module=AfCommon\n"
      "  zotuning new --sensor main_wide module=AfCommon mode=1 scenario=Video\n"
      "  zotuning new --sensor main_wide module=AfCommon,AWBCommon mode=1,2 --dry-run\n"
      "  zotuning new --sensor front module=AfCommon mode=1 --from main_wide/mode_0/AfCommon.json\n"
      "  zotuning new --sensor front module=AfCommon mode=2 --from sensor=main_wide mode=0",
      [&context, options] { return Run(context, *options); });
  command->add_option("--sensor", options->sensor, "The sensor that the settings are for")->required()->type_name("S");
  command->add_option("LABEL=VALUE", options->labels, "Label values, 'module' among them")->required();
  command
      ->add_option("--from", options->from,
                   "Copy this setting instead of the default: a path, or its labels as for a new one (and sensor=S)")
      ->type_name("SETTING");
  command->add_flag("--force", options->force, "Replace settings that exist");
  command->add_flag("--dry-run", options->dry_run, "Print the paths, make nothing");
}

}  // namespace zotuning::tool
