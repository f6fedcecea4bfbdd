// zotuning set: changes values in many settings; everything else in their files stays as it is.

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>
#include <utility>

#include "command_context.h"
#include "workspace/assign.h"
#include "workspace/change_set.h"
#include "workspace/check_change.h"
#include "workspace/check_setting.h"
#include "workspace/selection.h"

namespace zotuning::tool {
namespace {

struct Options {
  std::vector<std::string> assignments;
  std::vector<std::string> where;
  std::string from;
  bool create = false;
  bool force = false;
  bool round = false;
  bool dry_run = false;
};

/// What is to be set: assignments, or a path and the data for it.
struct Values {
  std::vector<PathPattern> paths;
  std::vector<Assignment> assignments;
  TableData data;
};

/// Reads what the words ask for. False after errors of usage.
bool ReadWords(const Options& options, Values& values, Console& console) {
  const bool from = !options.from.empty();
  if (from && options.assignments.size() != 1) {
    console.Report(Code::kUsage, "--from is for one PATH", "zotuning set PATH --from FILE");
    return false;
  }
  for (const std::string& word : options.assignments) {
    std::string why;
    if (from) {
      std::optional<PathPattern> path = PathPattern::Parse(word, &why);
      if (!path) {
        console.Report(Code::kUsage, Quoted(word) + " is not a path: " + why);
        return false;
      }
      values.paths.push_back(std::move(*path));
      continue;
    }
    std::optional<Assignment> assignment = ParseAssignment(word, &why);
    if (!assignment) {
      console.Report(Code::kUsage, why, "for example gain=1.5, 'gain.table*=1.05' or PATH --from FILE");
      return false;
    }
    assignment->round = options.round;
    values.paths.push_back(assignment->path);
    values.assignments.push_back(std::move(*assignment));
  }
  return true;
}

bool ReadData(const std::string& from, TableData& data, Console& console) {
  std::string text;
  if (from == "-" ? !ReadStandardInput(text, console) : !ReadFile(from, text, console)) return false;
  const TableData::Form form = FormOf(from, text);
  return data.Read(std::move(text), form, from == "-" ? "standard input" : DisplayPath(from), console);
}

/// Values of several modules are set only if all of them were given.
bool RequireOneModule(const Selection& selection, const LabelChoice& choice, Console& console) {
  std::vector<std::string> names;
  for (const SelectedSetting& setting : selection.settings()) {
    const std::string& name = selection.ModuleOf(setting).module.name;
    if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
  }
  if (names.size() <= 1 || !choice.values[0].empty()) return true;
  std::string list;
  for (const std::string& name : names) list += (list.empty() ? "" : ",") + name;
  console.Report(Code::kAmbiguousMatch, "several modules have the path: " + list,
                 "choose with --where module=" + names[0] + ", or name them all: module=" + list);
  return false;
}

/// A setting before and after.
struct Changed {
  SelectedSetting selected;
  std::string before;
  std::string after;
  bool is_new;
};

/// Appends the settings that the labels name and that do not exist, as copies of the defaults.
int PlanNew(Project& project, const LabelChoice& choice, const Selection& selection, std::vector<Changed>& changes,
            Console& console) {
  if (choice.scopes.empty() ||
      std::find(choice.scopes.begin(), choice.scopes.end(), kDefaultScope) != choice.scopes.end()) {
    console.Report(
        Code::kUsage, "--create needs sensors",
        "for example --where sensor=" + (project.sensors().empty() ? "NAME" : project.sensors()[0]) + " module=MODULE");
    return kMisuse;
  }
  if (!CheckLevels(project, choice, console)) return kMisuse;
  for (const std::string& scope : choice.scopes) {
    std::vector<std::vector<int>> values;
    for (std::vector<int>& each : choice.Combine()) {
      const std::string path = project.dir() + "/" + project.SettingPath(scope, each);
      const FileKind kind = KindOf(path);
      if (kind == FileKind::kUnknown) {
        ReportSystemError("look at", path, errno, console);
        return kFailed;
      }
      if (kind == FileKind::kMissing) values.push_back(std::move(each));
    }
    std::vector<NewSetting> plan;
    if (!PlanSettings(project, scope, values, nullptr, plan, console)) return kFailed;
    for (NewSetting& setting : plan) {
      const std::string name = project.ModuleName(setting.values);
      size_t module = 0;
      while (selection.modules()[module].module.name != name) ++module;
      changes.push_back({{{scope, "", setting.path, setting.values, {}}, module}, setting.text, setting.text, true});
    }
  }
  return kDone;
}

/// Sets the values in the text of one setting. False after errors.
bool Change(Project& project, const Selection& selection, const Values& values, const Options& options,
            Changed& changed, Console& console) {
  const SelectedModule& module = selection.ModuleOf(changed.selected);
  const std::string file = DisplayPath(changed.selected.setting.path);
  for (size_t i = 0; i < values.assignments.size(); ++i) {
    if (!Assign(module.paths[i], values.assignments[i], file, &changed.after, console)) return false;
  }
  if (!options.from.empty() && !values.data.Assign(module.paths[0], file, &changed.after, console)) return false;
  if (changed.after == changed.before) return true;
  const JsonDocument before(changed.before), after(changed.after);
  const size_t errors = console.errors();
  CheckChange(before, after, module.module.type, options.force, file, console);
  if (console.errors() > errors) return false;
  CollectingSink known;
  return !CheckSettingText(project.schema(), file, changed.before, module.module.type, Fields::kAll, known) ||
         CheckSettingText(project.schema(), file, changed.after, module.module.type, Fields::kAll, console);
}

/// Makes the changes, or prints them. The exit code.
int Write(const Project& project, std::vector<Changed>& changes, bool dry_run, Console& console) {
  ChangeSet set;
  std::vector<std::vector<std::string>> rows;
  Json settings = Json::array();
  for (Changed& changed : changes) {
    const Setting& setting = changed.selected.setting;
    const bool same = !changed.is_new && changed.before == changed.after;
    const std::string state = same ? "unchanged" : changed.is_new ? "made" : "changed";
    rows.push_back({DisplayPath(setting.path), state});
    settings.push_back(
        {{"file", DisplayPath(setting.path)}, {"labels", LabelJson(project, setting.values)}, {"state", state}});
    changed.is_new ? set.Create(setting.path, std::move(changed.after))
                   : set.Replace(setting.path, std::move(changed.before), std::move(changed.after));
  }
  if (dry_run) {
    const std::string diff = set.Diff(project.dir());
    console.Print(diff);
    console.result()["diff"] = diff;
  } else if (!set.Apply(console)) {
    return kFailed;
  } else {
    console.Print(Table(rows));
  }
  console.result()["settings"] = std::move(settings);
  return kDone;
}

int Run(CommandContext& context, const Options& options) {
  Console& console = context.console;
  Values values;
  if (!ReadWords(options, values, console)) return kMisuse;
  int code = kDone;
  const auto project = LoadProject(context, code);
  if (project == nullptr) return code;
  LabelChoice choice;
  const ChoiceResult parsed = ParseLabelChoice(*project, options.where, true, choice, console);
  if (parsed != ChoiceResult::kOk) return parsed == ChoiceResult::kMisuse ? kMisuse : kFailed;
  if (!options.from.empty() && !ReadData(options.from, values.data, console)) return kFailed;

  Selection selection;
  if (!selection.FindModules(*project, choice, values.paths, console)) return kFailed;
  std::vector<Changed> changes;
  if (options.create) {
    code = PlanNew(*project, choice, selection, changes, console);
    if (code != kDone) return code;
    // As in 'new', labels that are not given are not set.
    for (size_t i = 0; i < choice.values.size(); ++i) {
      if (choice.values[i].empty()) choice.values[i] = {kLabelNotSet};
    }
  }
  CollectingSink listing;
  selection.FindSettings(*project, choice, listing);
  for (Diagnostic& fault : listing.Take()) {
    // There need not be a setting if one is to be created.
    if (changes.empty() || fault.code != Code::kNoMatch) console.Add(std::move(fault));
  }
  if (!console.ok() || !RequireOneModule(selection, choice, console)) return kFailed;
  for (const SelectedSetting& selected : selection.settings()) {
    std::string text;
    if (ReadFile(selected.setting.path, text, console)) changes.push_back({selected, text, text, false});
  }
  for (Changed& changed : changes) Change(*project, selection, values, options, changed, console);
  if (!console.ok()) {
    console.Print("Nothing was changed.\n");
    return kFailed;
  }

  return Write(*project, changes, options.dry_run, console);
}

}  // namespace

void AddSet(CLI::App& app, CommandContext& context) {
  auto options = std::make_shared<Options>();
  CLI::App* command = AddCommand(
      app, context, "set", "Change values of settings",
      "Paths and --where are those of 'get'. Values are JSON; *= multiplies and += adds, also each number of a list\n"
      "or table. What is not named stays as it is, byte for byte. All settings are checked against type and rules\n"
      "before the first one is written; either all are changed or, after an error, none.\n"
      "\n"
      "Examples:\n"
      "  zotuning set lens.macro_code=720 --where module=AfCommon\n"
      "  zotuning set 'red.gain*=1.05' 'red.gain[0][*]=1' --where module=LensShading sensor=main_wide\n"
      "  zotuning set red.gain --from gain.csv --where module=LensShading sensor=main_wide mode=2\n"
      "  zotuning set lens.macro_code=700 --create --where sensor=front module=AfCommon mode=1 scenario=Video\n"
      "  zotuning set 'zones[*].weight*=0.9' --where module=AfCommon --dry-run | git apply",
      [&context, options] { return Run(context, *options); });
  command->add_option("PATH=VALUE", options->assignments, "What to set; a PATH alone with --from")->required();
  AddWhere(*command, options->where);
  command->add_option("--from", options->from, "Take the values from this JSON, CSV or TSV file; '-' is standard input")
      ->type_name("FILE")
      ->check(NotEmpty());
  command->add_flag("--create", options->create, "Make the settings that the labels name and that do not exist");
  command->add_flag("--round", options->round, "Results for whole numbers become the nearest ones");
  command->add_flag("--force", options->force, "Set values that the rules do not allow");
  command->add_flag("--dry-run", options->dry_run, "Print the change for 'git apply', write nothing");
}

}  // namespace zotuning::tool
