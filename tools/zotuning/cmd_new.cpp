// zotuning new: tuning settings by named label values, as copies of the modules' defaults.

#include <unistd.h>

#include <algorithm>
#include <map>
#include <memory>

#include "command_context.h"
#include "label_arguments.h"
#include "workspace/check_setting.h"

namespace zotuning::tool {
namespace {

struct Options {
  std::string sensor;
  std::vector<std::string> labels;
  bool force = false;
  bool dry_run = false;
};

/// A setting to be made.
struct Planned {
  std::vector<int> values;
  std::string path;
  std::string default_text;
  std::string state;
};

/// Reads "label=value,value ..." into one list of values per label. The exit code, kDone when all is well.
int ParseLabels(const Project& project, const std::vector<std::string>& words, std::vector<std::vector<int>>& choices,
                Console& console) {
  const std::vector<std::string>& names = project.labels().names();
  const int code = ReadLabelArguments(project, words, choices, console);
  if (code != kDone) return code;
  if (choices[0].empty()) {
    console.Report(
        Code::kUsage, "the label " + Quoted(names[0]) + " is missing",
        "for example " + names[0] + "=" + (project.ValueNames(0).empty() ? "NAME" : project.ValueNames(0).back()));
    return kMisuse;
  }
  // A path ends at the first label that is not set.
  size_t first_unset = 1;
  while (first_unset < names.size() && !choices[first_unset].empty()) ++first_unset;
  for (size_t i = first_unset; i < names.size(); ++i) {
    if (choices[i].empty()) continue;
    console.Report(Code::kUsage, Quoted(names[i]) + " needs " + Quoted(names[first_unset]) + " as well",
                   "the levels of the tree follow each other in the order of 'zotuning labels'");
    return kMisuse;
  }
  return kDone;
}

/// All combinations of the choices, the last label changing fastest.
std::vector<std::vector<int>> Combine(const std::vector<std::vector<int>>& choices) {
  std::vector<std::vector<int>> combined = {{}};
  for (const std::vector<int>& values : choices) {
    std::vector<std::vector<int>> longer;
    for (const std::vector<int>& begun : combined) {
      for (const int value : values.empty() ? std::vector<int>{kLabelNotSet} : values) {
        longer.push_back(begun);
        longer.back().push_back(value);
      }
    }
    combined = std::move(longer);
  }
  return combined;
}

/// Checks everything that can be checked before anything is made.
bool Plan(Project& project, const Options& options, std::vector<Planned>& plan, Console& console) {
  std::map<std::string, std::string> defaults;
  for (Planned& planned : plan) {
    const std::string module = project.ModuleName(planned.values);
    const auto* type = project.RequireType(module, console);
    if (type == nullptr) continue;
    if (defaults.find(module) == defaults.end()) {
      const std::string path = project.layout().DefaultPath(module);
      std::string text;
      if (!Exists(path)) {
        console.Report(Code::kMissingDefault, "the module " + Quoted(module) + " has no default yet",
                       "'zotuning template " + module + "' makes it", DisplayPath(path));
      } else if (RefuseSpecialFile(path, console) && ReadFile(path, text, console)) {
        CheckSettingText(project.schema(), path, text, type, Fields::kAll, console);
      }
      defaults[module] = text;
    }
    planned.default_text = defaults[module];
    planned.path = project.dir() + "/" + project.SettingPath(options.sensor, planned.values);
    // The names of values and sensors may look like other levels of the tree when they are read back.
    const std::vector<int> read_back = project.LabelsOf(planned.path);
    if (read_back != planned.values) {
      console.Report(
          Code::kAmbiguousPath,
          "the labels " + project.LabelText(planned.values) + " would read back as " + project.LabelText(read_back),
          "a name in the path looks like another level", DisplayPath(planned.path));
    }
  }
  return console.ok();
}

void Create(Planned& planned, Console& console) {
  std::vector<std::string> made;
  const std::string dir = planned.path.substr(0, planned.path.rfind('/'));
  if (RefuseSpecialFile(planned.path, console) && MakeDirectories(dir, console, &made) &&
      ReplaceFile(planned.path, planned.default_text, console)) {
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
    console.Report(Code::kSchemaType, "the first field of TuningDataLabel has to be 'module', not " +
                                          Quoted(project->labels().names()[0]));
    return kFailed;
  }
  project->RequireSensor(options.sensor, console);
  std::vector<std::vector<int>> choices;
  code = ParseLabels(*project, options.labels, choices, console);
  if (code != kDone || !console.ok()) return code == kMisuse ? kMisuse : kFailed;
  if (!IsDirectory(project->layout().ScopeDir(options.sensor))) {
    console.Report(Code::kMissingFolder, "the folder of the sensor " + Quoted(options.sensor) + " is missing", "",
                   DisplayPath(project->layout().ScopeDir(options.sensor)));
    return kFailed;
  }
  std::vector<Planned> plan;
  for (std::vector<int>& values : Combine(choices)) plan.push_back({std::move(values), "", "", ""});
  if (!Plan(*project, options, plan, console)) return kFailed;

  std::vector<std::vector<std::string>> rows;
  Json settings = Json::array();
  for (Planned& planned : plan) {
    const bool exists = Exists(planned.path);
    planned.state = options.dry_run ? "would be made" : "made";
    if (exists && options.force) {
      planned.state = options.dry_run ? "would be replaced" : "replaced";
    } else if (exists) {
      planned.state = "kept";
      console.Report(Code::kExists, "this setting exists; it is kept", "--force replaces it with the default",
                     DisplayPath(planned.path));
    }
    if (!options.dry_run && planned.state != "kept") Create(planned, console);
    rows.push_back({DisplayPath(planned.path), planned.state});
    settings.push_back({{"file", DisplayPath(planned.path)},
                        {"labels", LabelJson(*project, planned.values)},
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
      app, context, "new", "Make tuning settings of a sensor from the modules' defaults",
      "Labels are given by name, in any order; several values of one label make one setting each. A setting\n"
      "that exists is kept, and named, unless --force is given.\n"
      "\n"
      "Examples:\n"
      "  zotuning new --sensor main_wide module=AfCommon\n"
      "  zotuning new --sensor main_wide module=AfCommon mode=1 scenario=Video\n"
      "  zotuning new --sensor main_wide module=AfCommon,AWGain mode=1,2 --dry-run",
      [&context, options] { return Run(context, *options); });
  command->add_option("--sensor", options->sensor, "The sensor that the settings are for")->required()->type_name("S");
  command->add_option("LABEL=VALUE", options->labels, "Label values, 'module' among them")->required();
  command->add_flag("--force", options->force, "Replace settings that exist");
  command->add_flag("--dry-run", options->dry_run, "Print the paths, make nothing");
}

}  // namespace zotuning::tool
