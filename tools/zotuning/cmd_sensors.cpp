// zotuning sensors: the sensors of the project, with the index that 'pack --ask' asks for, and changes to the list.

#include <unistd.h>

#include <iostream>
#include <memory>

#include "command_context.h"
#include "workspace/sensors.h"

namespace zotuning::tool {
namespace {

struct Options {
  std::string name;
  std::string from;
  std::string to;
  bool yes = false;
};

int List(CommandContext& context) {
  Console& console = context.console;
  int code = kDone;
  const auto project = LoadProject(context, code);
  if (project == nullptr) return code;

  std::vector<std::vector<std::string>> rows = {{"SENSOR", "INDEX", "SETTINGS", "VERSIONS"}};
  Json sensors = Json::array();
  int index = 0;
  for (const std::string& sensor : project->sensors()) {
    const bool exists = Exists(project->layout().ScopeDir(sensor));
    std::vector<Setting> settings;
    std::vector<FoundFile> versions;
    if (exists) {
      project->ListSettings(sensor, settings, console);
      ListFiles(project->layout().ScopeVersionDir(sensor), ".json", versions, console);
    } else {
      console.Report(Code::kMissingFolder, "the folder of the sensor " + Quoted(sensor) + " is missing",
                     "packing needs it; make it, or 'zotuning sensors remove " + sensor + "'",
                     DisplayPath(project->layout().ScopeDir(sensor)));
    }
    const std::string shown_index = exists ? std::to_string(index) : "-";
    rows.push_back({sensor, shown_index, std::to_string(settings.size()), std::to_string(versions.size())});
    sensors.push_back({{"name", sensor},
                       {"index", exists ? Json(index) : Json(nullptr)},
                       {"settings", settings.size()},
                       {"versions", versions.size()}});
    if (exists) ++index;  // only sensors with a folder are counted in the question
  }
  console.Print(Table(rows));
  console.result()["project"] = project->name();
  console.result()["sensors"] = std::move(sensors);
  return kDone;
}

/// The list after a change.
int Changed(CommandContext& context, const std::string& text) {
  Console& console = context.console;
  console.Print(Printable(text) + "\n");
  const auto project =
      Project::Load(context.project_dir.empty() ? Project::FindNearest() : context.project_dir, console);
  if (project == nullptr) return kFailed;
  console.result() = {{"project", project->name()}, {"sensors", project->sensors()}};
  return kDone;
}

int Add(CommandContext& context, const Options& options) {
  int code = kDone;
  const auto project = LoadProject(context, code);
  if (project == nullptr) return code;
  if (!AddSensor(*project, options.name, options.from, context.console)) return kFailed;
  return Changed(context,
                 "added the sensor " + options.name + (options.from.empty() ? "" : ", a copy of " + options.from));
}

int Remove(CommandContext& context, const Options& options) {
  Console& console = context.console;
  int code = kDone;
  const auto project = LoadProject(context, code);
  if (project == nullptr) return code;
  if (!project->RequireSensor(options.name, console)) return kFailed;
  std::vector<Setting> settings;
  if (Exists(project->layout().ScopeDir(options.name))) project->ListSettings(options.name, settings, console);
  if (!options.yes) {
    if (context.json || isatty(STDIN_FILENO) != 1) {
      console.Report(Code::kUsage, "--yes is missing: the folder of " + Quoted(options.name) + " goes with " +
                                       Count(settings.size(), "setting"));
      return kMisuse;
    }
    console.Print("remove the folder of " + Printable(options.name) + " with " + Count(settings.size(), "setting") +
                  "? [y/N] ");
    console.Print("");  // before waiting for the answer
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "y" && answer != "yes") {
      console.Print("nothing is removed\n");
      return kFailed;
    }
  }
  if (!RemoveSensor(*project, options.name, console)) return kFailed;
  return Changed(context, "removed the sensor " + options.name);
}

int Rename(CommandContext& context, const Options& options) {
  int code = kDone;
  const auto project = LoadProject(context, code);
  if (project == nullptr) return code;
  if (!RenameSensor(*project, options.name, options.to, context.console)) return kFailed;
  return Changed(context, "renamed the sensor " + options.name + " to " + options.to);
}

}  // namespace

void AddSensors(CLI::App& app, CommandContext& context) {
  auto options = std::make_shared<Options>();
  CLI::App* sensors = AddCommand(app, context, "sensors", "List the sensors, add, remove and rename them",
                                 "Without a subcommand, lists the sensors with their settings and versions.\n"
                                 "\n"
                                 "Examples:\n"
                                 "  zotuning sensors\n"
                                 "  zotuning sensors --json\n"
                                 "  zotuning sensors add macro --from main_wide",
                                 [&context] { return List(context); });
  sensors->require_subcommand(0, 1);

  CLI::App* add =
      AddCommand(*sensors, context, "add", "List a new sensor and make its folder",
                 "A folder that is there already is listed as it is.\n"
                 "\n"
                 "Examples:\n"
                 "  zotuning sensors add rear\n"
                 "  zotuning sensors add macro --from main_wide    with copies of its settings and versions",
                 [&context, options] { return Add(context, *options); });
  add->add_option("NAME", options->name, "The sensor's name, and that of its folder")->required();
  add->add_option("--from", options->from, "Copy the settings and versions of this sensor")->type_name("SENSOR");

  CLI::App* remove = AddCommand(*sensors, context, "remove", "Take a sensor out of the list and remove its folder",
                                "Asks on a terminal.\n"
                                "\n"
                                "Examples:\n"
                                "  zotuning sensors remove front --yes",
                                [&context, options] { return Remove(context, *options); });
  remove->add_option("NAME", options->name, "The sensor")->required();
  remove->add_flag("--yes", options->yes, "Do not ask");

  CLI::App* rename = AddCommand(*sensors, context, "rename", "Give a sensor and its folder another name",
                                "Examples:\n"
                                "  zotuning sensors rename front selfie",
                                [&context, options] { return Rename(context, *options); });
  rename->add_option("OLD", options->name, "The sensor")->required();
  rename->add_option("NEW", options->to, "Its new name")->required();
}

}  // namespace zotuning::tool
