// zotuning diff: what differs between two sides, by meaning. Also as git's external diff command.

#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>

#include "command_context.h"
#include "comparison_text.h"
#include "pager.h"
#include "workspace/git.h"
#include "workspace/sides.h"

namespace zotuning::tool {
namespace {

struct Options {
  std::vector<std::string> sides;
  double absolute = 0;
  double relative = 0;
  bool has_tolerance = false;
  bool rules = false;
  bool stat = false;
  bool all = false;
  bool exit_code = false;
  bool no_pager = false;
  std::string color = "auto";
};

/// The arguments that git passes to an external diff: path, old file, its object, its mode, and the same for the new
/// one; after a rename also the new path and git's description of it.
constexpr size_t kGitArguments = 7;
constexpr size_t kGitRenameArguments = 9;

bool MayColourOutput(const Options& options) {
  if (options.color != "auto") return options.color == "always";
  const char* no_color = std::getenv("NO_COLOR");
  const bool in_gits_pager = std::getenv("GIT_PAGER_IN_USE") != nullptr;
  return MayColour(STDOUT_FILENO) || (in_gits_pager && (no_color == nullptr || *no_color == '\0'));
}

/// Returns an exit code.
int ComparisonOptions(const Options& options, const Project* project, CompareSidesOptions& compare,
                      DiagnosticSink& sink) {
  compare.compare.rules = options.rules;
  compare.compare.tolerance = {options.absolute, options.relative};
  if (!options.all) compare.compare.max_elements = kShownDifferences;
  if (options.has_tolerance || project == nullptr) return kDone;
  ProjectSettings settings;
  const int code = ExitCode(ReadProjectSettings(project->dir(), settings, sink));
  compare.compare.path_tolerances = std::move(settings.tolerances);
  return code;
}

/// The project given with -C, or the nearest; null if there is none, which is not a fault. False after errors.
bool LoadAnyProject(CommandContext& context, std::shared_ptr<Project>& project, int& code) {
  if (context.project_dir.empty() && Project::FindNearest().empty()) return true;
  project = LoadProject(context, code);
  return project != nullptr;
}

/// Opens what the command line names; the older one is on the left.
bool OpenSides(SideOpener& opener, const Options& options, const Project* project, std::unique_ptr<Side>& left,
               std::unique_ptr<Side>& right, Console& console) {
  if (options.sides.empty()) {
    right = opener.Open(project->dir(), console);
    left = right == nullptr ? nullptr : opener.Open("HEAD:", console);
  } else if (options.sides.size() == 1) {
    right = opener.Open(options.sides[0], console);
    if (right == nullptr) return false;
    if (right->scopes() == std::vector<std::string>{kDefaultScope} || right->settings().empty()) {
      console.Report(Code::kUsage, Quoted(options.sides[0]) + " has no default to compare with", "name another side");
      return false;
    }
    left = opener.OpenDefaultOf(*right, console);
  } else {
    // Without a current project, bins need that of the other side.
    CollectingSink faults;
    left = opener.Open(options.sides[0], faults);
    right = opener.Open(options.sides[1], console);
    if (left == nullptr && right != nullptr) {
      left = opener.Open(options.sides[0], console);
    } else {
      for (Diagnostic& fault : faults.Take()) console.Add(std::move(fault));
    }
  }
  return left != nullptr && right != nullptr;
}

std::string SummaryText(const SidesComparison& comparison) {
  return Count(comparison.different, "setting") + (comparison.different == 1 ? " differs, " : " differ, ") +
         std::to_string(comparison.same) + " the same\n";
}

int RunSides(CommandContext& context, const Options& options) {
  Console& console = context.console;
  std::shared_ptr<Project> project;
  int code = kFailed;
  if (!LoadAnyProject(context, project, code)) return code;
  if (options.sides.empty() && project == nullptr) return LoadProject(context, code) == nullptr ? code : kFailed;

  SideOpener opener(project);
  std::unique_ptr<Side> left, right;
  if (!OpenSides(opener, options, project.get(), left, right, console)) return kFailed;
  CompareSidesOptions compare;
  code = ComparisonOptions(options, &right->project(), compare, console);
  if (code != kDone) return code;
  if (options.rules && (left->is_bin() || right->is_bin())) {
    console.Report(Code::kUsage, "bins hold no rules, so --rules has nothing to compare");
    return kMisuse;
  }
  ComparisonForm form;
  form.colour = MayColourOutput(options);  // before the pager takes the place of the terminal
  std::unique_ptr<Pager> pager;
  if (!console.json() && !options.no_pager) pager = std::make_unique<Pager>();
  form.scopes = left->form() == SideForm::kProject || right->form() == SideForm::kProject;
  form.all = options.all;
  form.stat = options.stat;

  SidesComparison comparison;
  std::vector<std::string> settings;  // as JSON
  bool begun = false;
  const auto begin = [&] {
    if (!begun) console.Print(HeadText(left->name(), right->name(), form.colour));
    begun = true;
  };
  const auto add = [&](const EntryComparison& pair) {
    begin();
    if (console.json()) {
      settings.push_back(Console::ElementText(ComparisonJson(pair)));
    } else {
      console.Print(ComparisonText(pair, form));
    }
  };
  (void)CompareSides(*left, *right, compare, add, comparison, console);
  const std::string schema = SchemaText(comparison, form);
  if (!schema.empty()) begin();
  console.Print(schema);
  if (comparison.different > 0 || options.stat) console.Print(SummaryText(comparison));
  console.result() = {{"left", left->name()},
                      {"right", right->name()},
                      {"same", comparison.same},
                      {"different", comparison.different},
                      {"only_left_schema", comparison.only_left_schema},
                      {"only_right_schema", comparison.only_right_schema},
                      {"settings", Json::array()}};
  const bool same =
      comparison.different == 0 && comparison.only_left_schema.empty() && comparison.only_right_schema.empty();
  const int result = options.exit_code && !same ? kFailed : kDone;
  const auto add_settings = [&](const Console::AddElement& add_text) {
    for (const std::string& setting : settings) add_text(setting);
  };
  console.StreamResult({{"settings", add_settings}}, result == kDone);
  return result;
}

// ---- For git ----

/// What git passes about a file; nothing for one that does not exist.
bool ReadGitFile(const std::string& path, std::optional<std::string>& text, DiagnosticSink& sink) {
  if (path == "/dev/null") return true;
  text.emplace();
  return ReadFile(path, *text, sink);
}

/// Compares line by line, for what is not tuning data, or is damaged.
std::string LinesText(const std::string& old_file, const std::string& new_file, bool colour) {
  std::string text, err;
  (void)RunProgram({"git", "--no-pager", "diff", "--no-index", "--no-ext-diff", "--no-textconv",
                    colour ? "--color=always" : "--color=never", "--", old_file, new_file},
                   text, err);
  // The header names temporary files.
  const size_t first = text.find(colour ? "\n\033[36m@@" : "\n@@");
  if (first != text.npos) return text.substr(first + 1);
  return (text.empty() ? "" : "  the files differ\n") + err;
}

/// What a file that git calls renamed is for now.
std::string MovedText(const Side& left, const Side& right) {
  if (left.settings().size() != 1 || right.settings().size() != 1) return "";
  const std::string from = LabelText(left.settings()[0].labels), to = LabelText(right.settings()[0].labels);
  return from == to ? "" : "  moved: " + Printable(from) + " → " + Printable(to) + "\n";
}

/// Git stops at a failure, so that what cannot be compared by meaning is compared by lines.
int RunForGit(CommandContext& context, const Options& options) {
  Console& console = context.console;
  const std::string &path = options.sides[0], &old_file = options.sides[1], &new_file = options.sides[4];
  const std::string& new_path = options.sides.size() == kGitRenameArguments ? options.sides[7] : path;
  ComparisonForm form;
  form.all = options.all;
  form.stat = options.stat;
  form.colour = MayColourOutput(options);

  CollectingSink faults;
  std::optional<std::string> old_text, new_text;
  std::string lines;
  Json settings = Json::array();
  bool compared = ReadGitFile(old_file, old_text, faults) && ReadGitFile(new_file, new_text, faults);
  const bool same_bytes = compared && old_text == new_text;
  std::unique_ptr<SideOpener> opener;
  if (compared) {
    // Null is fine: the project is the one that contains the path.
    std::shared_ptr<Project> project;
    if (!context.project_dir.empty()) project = Project::Load(context.project_dir, faults);
    opener = std::make_unique<SideOpener>(project);
    std::unique_ptr<Side> left, right;
    if (old_text) left = opener->OpenBytes(path, std::move(*old_text), faults);
    if (new_text) right = opener->OpenBytes(new_path, std::move(*new_text), faults);
    compared = faults.ok();
    const Side* any = right != nullptr ? right.get() : left.get();
    CompareSidesOptions compare;
    compared = compared && any != nullptr && ComparisonOptions(options, &any->project(), compare, faults) == kDone;
    const auto add = [&](const EntryComparison& pair) {
      lines += ComparisonText(pair, form);
      settings.push_back(ComparisonJson(pair));
    };
    SidesComparison comparison;
    if (compared && left != nullptr && right != nullptr) {
      compared = CompareSides(*left, *right, compare, add, comparison, faults);
      if (compared && comparison.different == 0) lines = same_bytes ? "" : "  the same values, written differently\n";
      if (compared && path != new_path) lines = MovedText(*left, *right) + lines;
    } else if (compared) {
      for (const auto* entries : {&any->versions(), &any->settings()}) {
        for (const SideEntry& entry : *entries) {
          const bool added = left == nullptr;
          add({added ? nullptr : &entry, added ? &entry : nullptr, {}});
        }
      }
    }
  }
  if (!compared) {
    lines.clear();
    for (const Diagnostic& fault : faults.diagnostics()) {
      const std::string line = "  " + Printable((fault.file.empty() ? "" : fault.file + ": ") + fault.message) + "\n";
      if (lines.find(line) == lines.npos) lines += line;  // from both versions of the file
    }
    lines += LinesText(old_file, new_file, form.colour);
  }
  const std::string &old_mode = options.sides[3], &new_mode = options.sides[6];
  if (old_text && new_text && old_mode != new_mode) {
    lines = "  mode " + Printable(old_mode) + " → " + Printable(new_mode) + "\n" + lines;
  }
  console.Print(HeadText(old_text ? "a/" + path : "/dev/null", new_text ? "b/" + new_path : "/dev/null", form.colour) +
                lines);
  console.result() = {{"left", path}, {"right", new_path}, {"compared", compared}, {"settings", std::move(settings)}};
  return kDone;
}

int Run(CommandContext& context, const Options& options) {
  const size_t count = options.sides.size();
  if (count == kGitArguments || count == kGitRenameArguments) return RunForGit(context, options);
  if (count == 1 && std::getenv("GIT_DIFF_PATH_COUNTER") != nullptr) {
    context.console.Print("* unmerged path " + Printable(options.sides[0]) + "\n");
    return kDone;
  }
  if (count > 2) {
    context.console.Report(Code::kUsage, "two sides are compared, and " + std::to_string(count) + " are named",
                           "see 'zotuning diff --help'");
    return kMisuse;
  }
  return RunSides(context, options);
}

}  // namespace

void AddDiff(CLI::App& app, CommandContext& context) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      AddCommand(app, context, "diff", "Show what differs between two sides, by meaning",
                 "A side is a setting, a folder of a sensor, a sensor, 'default', a bin, a folder of bins, the\n"
                 "project's folder, or REVISION: and one of the tree's forms. One side alone is compared with the\n"
                 "defaults of its modules; without any side, the project is compared with HEAD. The exit code\n"
                 "is 1 if something cannot be compared, or, with --exit-code, if there are differences.\n"
                 "\n"
                 "Examples:\n"
                 "  zotuning diff                              since the last commit\n"
                 "  zotuning diff main_wide                    with the defaults\n"
                 "  zotuning diff main_wide front --stat\n"
                 "  zotuning diff HEAD~1:main_wide main_wide --rel 0.001\n"
                 "  zotuning diff out/zo_tuning .              bins with the tree",
                 [&context, options] { return Run(context, *options); });
  command->add_option("SIDE", options->sides, "The old side, then the new one")->expected(0, -1);
  const auto tolerance = [command, options](const char* name, double& value, const char* help) {
    command
        ->add_option_function<double>(
            name,
            [options, &value](const double& given) {
              value = given;
              options->has_tolerance = true;
            },
            help)
        ->type_name("X")
        ->check(CLI::Validator(
            [](std::string& text) {
              char* end = nullptr;
              const double number = std::strtod(text.c_str(), &end);
              const bool good = !text.empty() && *end == '\0' && std::isfinite(number) && number >= 0;
              return std::string(good ? "" : "a number from 0 is expected");
            },
            ""));
  };
  tolerance("--abs", options->absolute, "Numbers that differ by at most X are equal; zotuning.json is then ignored");
  tolerance("--rel", options->relative, "The same, relative to the larger number: 0.01 is 1 %");
  command->add_flag("--rules", options->rules, "Compare rules as well");
  command->add_flag("--stat", options->stat, "One line per setting");
  command->add_flag("--all", options->all, "Show every difference, and every element of lists and tables");
  command->add_flag("--exit-code", options->exit_code, "Exit with 1 if there are differences");
  command->add_option("--color", options->color, "Colours: auto, always or never")
      ->type_name("WHEN")
      ->check(CLI::IsMember({"auto", "always", "never"}));
  command->add_flag("--no-pager", options->no_pager, "Do not show the output in a pager");
}

}  // namespace zotuning::tool
