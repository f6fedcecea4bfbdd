// zotuning which: the setting for a situation, and the nearest ones if there is none.

#include <algorithm>
#include <memory>
#include <optional>

#include "command_context.h"
#include "workspace/files.h"
#include "workspace/json_document.h"
#include "workspace/json_path.h"
#include "workspace/label_choice.h"

namespace zotuning::tool {
namespace {

struct Options {
  std::string sensor;
  std::vector<std::string> labels;
  std::string value;
};

/// A setting compared with the requested situation.
struct Candidate {
  Setting setting;
  const char* kind = "near";
  size_t common = 0;     ///< levels that both set to the same value
  size_t other = 0;      ///< levels that both set, to different values
  size_t open = 0;       ///< levels that only one of them sets
  std::string why = {};  ///< how its levels differ from those requested
};

/// How a setting's levels compare with those requested.
void Measure(const Project& project, const std::vector<int>& wanted, Candidate& candidate) {
  const std::vector<int>& values = candidate.setting.values;
  const auto note = [&](const std::string& text) { candidate.why += (candidate.why.empty() ? "" : ", ") + text; };
  for (size_t i = 1; i < wanted.size(); ++i) {
    const std::string& name = project.labels().names()[i];
    if (wanted[i] == kLabelNotSet && values[i] == kLabelNotSet) continue;
    if (values[i] == wanted[i]) {
      ++candidate.common;
    } else if (values[i] == kLabelNotSet) {
      ++candidate.open;
      note(name + " is not set");
    } else {
      ++(wanted[i] == kLabelNotSet ? candidate.open : candidate.other);
      note(name + " is " + project.ValueText(i, values[i]));
    }
  }
  if (candidate.other == 0 && candidate.open == 0) candidate.kind = "exact";
}

bool IsNearer(const Candidate& a, const Candidate& b) {
  if (a.common != b.common) return a.common > b.common;
  if (a.other != b.other) return a.other < b.other;
  if (a.open != b.open) return a.open < b.open;
  return a.setting.path < b.setting.path;
}

/// The settings of one module, the exact one first, then the near ones; the default last.
std::vector<Candidate> Rank(const Project& project, const std::vector<int>& wanted,
                            const std::vector<Setting>& settings, const std::vector<Setting>& defaults) {
  std::vector<Candidate> candidates;
  for (const Setting& setting : settings) {
    if (setting.values[0] != wanted[0]) continue;
    Candidate candidate{setting};
    Measure(project, wanted, candidate);
    candidates.push_back(std::move(candidate));
  }
  std::sort(candidates.begin(), candidates.end(), IsNearer);
  const bool exact = !candidates.empty() && std::string_view(candidates[0].kind) == "exact";
  if (exact) {
    candidates.erase(std::remove_if(candidates.begin(), candidates.end(),
                                    [](const Candidate& each) { return std::string_view(each.kind) != "exact"; }),
                     candidates.end());
  }
  for (const Setting& setting : defaults) {
    if (setting.values[0] == wanted[0]) candidates.push_back({setting, "default"});
  }
  return candidates;
}

/// The value at a path of a setting, on one line; nothing if it has none.
std::optional<std::string> ValueAt(const Setting& setting, const JsonPath& path, Console& console) {
  std::string text;
  if (!RefuseSpecialFile(setting.path, console) || !ReadFile(setting.path, text, console)) return std::nullopt;
  const JsonDocument document(std::move(text));
  const JsonValue value = path.Find(document.root());
  if (!value) return std::nullopt;
  std::string line;
  bool space = false;
  for (const char c : value.raw()) {
    const bool is_space = c == ' ' || c == '\n' || c == '\t' || c == '\r';
    if (!is_space) line += (space && !line.empty() ? " " : "") + std::string(1, c);
    space = is_space;
  }
  return line;
}

constexpr const char* kNoLevel = "without levels";

std::string LevelText(const Project& project, const std::vector<int>& wanted) {
  std::vector<int> levels = wanted;
  levels[0] = kLabelNotSet;
  const std::string text = project.LabelText(levels);
  return text.empty() ? kNoLevel : text;
}

/// One value of each label, kLabelNotSet where none was given. Returns an exit code.
int ReadSituation(const Project& project, const Options& options, std::vector<int>& wanted, Console& console) {
  LabelChoice situation;
  const ChoiceResult read = ParseLabelChoice(project, options.labels, false, situation, console);
  if (read != ChoiceResult::kOk) return read == ChoiceResult::kMisuse ? kMisuse : kFailed;
  for (size_t i = 0; i < situation.values.size(); ++i) {
    const std::vector<int>& values = situation.values[i];
    if (values.size() > 1) {
      console.Report(Code::kUsage, "a situation has one value of " + Quoted(project.labels().names()[i]));
      return kMisuse;
    }
    wanted.push_back(values.empty() ? kLabelNotSet : values[0]);
  }
  return kDone;
}

/// Prints the settings that are for the situation `wanted`, or near it, and returns them as JSON. With a `path`, their
/// values there; `found` becomes true when there is one.
Json ShowModule(const Project& project, const std::vector<int>& wanted, const std::vector<Candidate>& candidates,
                const JsonPath* path, bool& found, Console& console) {
  const std::string name = project.ModuleName(wanted);
  const bool exact = !candidates.empty() && std::string_view(candidates[0].kind) == "exact";
  const std::string levels = LevelText(project, wanted);
  console.Print(
      Printable(name + ": " + (exact ? levels : "no setting " + (levels == kNoLevel ? levels : "for " + levels))) +
      "\n");
  std::vector<std::vector<std::string>> rows;
  Json settings = Json::array();
  for (const Candidate& candidate : candidates) {
    const std::string shown = DisplayPath(candidate.setting.path);
    std::vector<std::string> row = {std::string("  ") + candidate.kind, shown};
    Json json = {{"kind", candidate.kind}, {"path", shown}, {"labels", LabelJson(project, candidate.setting.values)}};
    if (std::string_view(candidate.kind) != "default") json["levels_in_common"] = candidate.common;
    if (path != nullptr) {
      const std::optional<std::string> value = ValueAt(candidate.setting, *path, console);
      found |= value.has_value();
      row.push_back(value ? Excerpt(*value) : "no such value");
      json["value"] = value ? Json::parse(*value, nullptr, false) : Json(nullptr);
      if (json["value"].is_discarded()) json["value"] = *value;
    }
    if (std::string_view(candidate.kind) == "near") {
      row.push_back(Count(candidate.common, "level") + " in common; " + candidate.why);
    }
    rows.push_back(std::move(row));
    settings.push_back(std::move(json));
  }
  if (!rows.empty()) console.Print(Table(rows));
  return {{"module", name}, {"exact", exact}, {"settings", std::move(settings)}};
}

int Run(CommandContext& context, const Options& options) {
  Console& console = context.console;
  int code = kDone;
  const auto project = LoadProject(context, code);
  if (project == nullptr) return code;
  if (!project->RequireSensor(options.sensor, console)) return kFailed;
  std::vector<int> wanted;
  code = ReadSituation(*project, options, wanted, console);
  if (code != kDone) return code;
  std::string why;
  const std::optional<JsonPath> path = JsonPath::Parse(options.value, &why);
  if (!path) {
    console.Report(Code::kUsage, Quoted(options.value) + " is not a path: " + why, "for example zones[2].weight.value");
    return kMisuse;
  }
  const bool shows_value = !options.value.empty();
  std::vector<Setting> settings, defaults;
  project->ListSettings(options.sensor, settings, console);
  project->ListSettings(kDefaultScope, defaults, console);

  std::vector<int> modules;
  for (const Project::Module& module : project->Modules()) modules.push_back(module.number);
  if (wanted[0] != kLabelNotSet) modules = {wanted[0]};
  Json results = Json::array();
  bool found = false;
  for (const int module : modules) {
    wanted[0] = module;
    const std::vector<Candidate> candidates = Rank(*project, wanted, settings, defaults);
    results.push_back(ShowModule(*project, wanted, candidates, shows_value ? &*path : nullptr, found, console));
  }
  console.result() = {{"sensor", options.sensor}, {"modules", std::move(results)}};
  if (shows_value && !found) {
    console.Report(Code::kNoSide, "none of these settings has a value at " + Quoted(options.value));
  }
  return kDone;
}

}  // namespace

void AddWhich(CLI::App& app, CommandContext& context) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      AddCommand(app, context, "which", "Show which setting is for a situation, and what is near it",
                 "A setting is for the situation of its labels and for no other; there is no inheritance\n"
                 "between settings. Where none is for this one, those near it are listed, the one with the\n"
                 "most levels in common first, then the default. Without a module, for every module.\n"
                 "\n"
                 "Examples:\n"
                 "  zotuning which main_wide module=AfCommon mode=1 scenario=Video\n"
                 "  zotuning which main_wide mode=1\n"
                 "  zotuning which front module=AfCommon mode=1 --value lens.macro_code.value",
                 [&context, options] { return Run(context, *options); });
  command->add_option("SENSOR", options->sensor, "The sensor")->required();
  command->add_option("LABEL=VALUE", options->labels, "Labels of the situation; those left out are not set")
      ->expected(0, -1);
  command->add_option("--value", options->value, "Show the value at this path in each")->type_name("PATH");
}

}  // namespace zotuning::tool
