// zotuning get: values of settings, by path.

#include <map>
#include <memory>
#include <utility>

#include "command_context.h"
#include "workspace/assign.h"
#include "workspace/check_json.h"
#include "workspace/format.h"
#include "workspace/selection.h"

namespace zotuning::tool {
namespace {

struct Options {
  std::string path;
  std::vector<std::string> where;
  std::string format = "text";
};

/// Whether a single setting is selected, as needed by formats that contain only values.
bool RequireOne(const Selection& selection, const std::string& format, Console& console) {
  if (selection.settings().size() == 1) return true;
  std::string names;
  constexpr size_t kMaxNames = 3;
  for (size_t i = 0; i < selection.settings().size() && i < kMaxNames; ++i) {
    names += (i == 0 ? "" : ", ") + DisplayPath(selection.settings()[i].setting.path);
  }
  console.Report(Code::kAmbiguousMatch,
                 "--format " + format + " prints the values of one setting, and these are " +
                     std::to_string(selection.settings().size()) + ": " + names +
                     (selection.settings().size() > kMaxNames ? ", ..." : ""),
                 "name one with --where; 'label=' stands for a label that is not set");
  return false;
}

int Run(CommandContext& context, const Options& options) {
  Console& console = context.console;
  std::string why;
  const std::optional<PathPattern> pattern = PathPattern::Parse(options.path, &why);
  if (!pattern) {
    console.Report(Code::kUsage, Quoted(options.path) + " is not a path: " + why);
    return kMisuse;
  }
  int code = kDone;
  const auto project = LoadProject(context, code);
  if (project == nullptr) return code;
  LabelChoice choice;
  const ChoiceResult parsed = ParseLabelChoice(*project, options.where, true, choice, console);
  if (parsed != ChoiceResult::kOk) return parsed == ChoiceResult::kMisuse ? kMisuse : kFailed;
  Selection selection;
  if (!selection.FindModules(*project, choice, {*pattern}, console) ||
      !selection.FindSettings(*project, choice, console)) {
    return kFailed;
  }
  static const std::map<std::string, TableData::Form> kForms = {
      {"json", TableData::Form::kJson}, {"csv", TableData::Form::kCsv}, {"tsv", TableData::Form::kTsv}};
  const auto form = kForms.find(options.format);
  if (form != kForms.end() && !RequireOne(selection, options.format, console)) return kFailed;

  std::vector<std::vector<std::string>> rows;
  Json values = Json::array();
  for (const SelectedSetting& selected : selection.settings()) {
    const std::string file = DisplayPath(selected.setting.path);
    std::string text;
    if (!ReadFile(selected.setting.path, text, console)) continue;
    const JsonDocument document(std::move(text));
    if (!document.ok()) {
      CheckText(document, file, console);
      continue;
    }
    std::vector<Match> matches;
    if (!selection.ModuleOf(selected).paths[0].Find(document, file, matches, console)) continue;
    if (std::string table; form != kForms.end()) {
      if (WriteMatches(matches, form->second, file, &table, console)) console.Print(table);
    }
    for (const Match& match : matches) {
      if (!match.value) {
        if (form == kForms.end()) {
          console.Report(Code::kNoMatch, "there is no " + Quoted(match.path.ToString()), "", file);
        }
        continue;
      }
      const std::string value = OneLine(match.value);
      const std::string path = match.path.ToString();
      if (form == kForms.end()) rows.push_back({file, path, value});
      values.push_back({{"file", file},
                        {"labels", LabelJson(*project, selected.setting.values)},
                        {"path", path},
                        {"value", Json::parse(value, nullptr, false)}});
    }
  }
  if (form == kForms.end()) console.Print(Table(rows));
  console.result()["values"] = std::move(values);
  return kDone;
}

}  // namespace

void AddGet(CLI::App& app, CommandContext& context) {
  auto options = std::make_shared<Options>();
  CLI::App* command = AddCommand(
      app, context, "get", "Print values of settings",
      "A path is written as messages print it: zones[2].weight. [*] stands for all elements, [4:8] for those from 4\n"
      "up to 8, and [3][17] for row and column of a table. '.value' may be left out. Without --where all settings\n"
      "and defaults of the modules that have the path are looked at.\n"
      "\n"
      "Examples:\n"
      "  zotuning get lens.macro_code\n"
      "  zotuning get 'zones[*].weight' --where module=AfCommon mode=0,1\n"
      "  zotuning get red.gain --where module=LensShading sensor=default --format csv > gain.csv",
      [&context, options] { return Run(context, *options); });
  command->add_option("PATH", options->path, "What to print")->required()->check(NotEmpty());
  AddWhere(*command, options->where);
  command->add_option("--format", options->format, "'text', or the values of one setting as 'set --from' reads them")
      ->check(CLI::IsMember({"text", "json", "csv", "tsv"}))
      ->type_name("text|json|csv|tsv");
}

}  // namespace zotuning::tool
