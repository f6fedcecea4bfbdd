// zotuning report: settings, their values and differences as one HTML page.

#include <memory>

#include "command_context.h"
#include "workspace/files.h"
#include "workspace/report_page.h"
#include "workspace/sides.h"

namespace zotuning::tool {
namespace {

struct Options {
  std::vector<std::string> scopes;
  std::string against;
  std::string output;
};

/// The sides that the page shows; empty after an error.
std::vector<std::unique_ptr<Side>> OpenShown(SideOpener& opener, const Project& project, const Options& options,
                                             Console& console) {
  std::vector<std::unique_ptr<Side>> sides;
  if (options.scopes.empty()) sides.push_back(opener.Open(project.dir(), console));
  for (const std::string& scope : options.scopes) {
    if (scope != kDefaultScope && !project.RequireSensor(scope, console)) return {};
    sides.push_back(opener.Open(scope, console));
  }
  for (const auto& side : sides) {
    if (side == nullptr) return {};
  }
  return sides;
}

int Run(CommandContext& context, const Options& options) {
  Console& console = context.console;
  if (!HasReportPage()) {
    console.Report(
        Code::kUsage, "this program was built without the report page",
        "it needs esbuild (from Debian) and uPlot (from npm); scripts/setup installs both, then build again");
    return kMisuse;
  }
  int code = kDone;
  std::shared_ptr<Project> project = LoadProject(context, code);
  if (project == nullptr) return code;
  SideOpener opener(project);
  const std::vector<std::unique_ptr<Side>> sides = OpenShown(opener, *project, options, console);
  if (sides.empty()) return kFailed;
  std::unique_ptr<Side> against;
  CompareSidesOptions compare;
  if (!options.against.empty()) {
    against = opener.Open(options.against, console);
    ProjectSettings settings;
    if (against == nullptr) return kFailed;
    code = ExitCode(ReadProjectSettings(project->dir(), settings, console));
    if (code != kDone) return code;
    compare.compare.path_tolerances = std::move(settings.tolerances);
    // The page has the values themselves.
    compare.compare.max_elements = 20;
  }
  std::vector<Side*> shown;
  shown.reserve(sides.size());
  for (const auto& side : sides) shown.push_back(side.get());
  ReportData data;
  (void)MakeReportData(shown, against.get(), compare, data, console);
  const std::string page = ReportPage(data);
  if (!ReplaceFile(options.output, page, console)) return kFailed;
  std::string line = Printable(DisplayPath(options.output)) + ": " + Count(data.settings, "setting") + ", " +
                     Count(page.size(), "byte");
  if (against != nullptr) {
    std::string name = against->name();
    if (name.back() == ':') name.pop_back();  // a whole revision
    line += "; " + Count(data.different, "setting") + (data.different == 1 ? " differs" : " differ") + " from " +
            Printable(name);
  }
  if (data.outside > 0) line += "; " + Count(data.outside, "value") + " outside the rules";
  console.Print(line + "\n");
  console.result() = {
      {"file", DisplayPath(options.output)}, {"bytes", page.size()},
      {"settings", data.settings},           {"against", against == nullptr ? Json(nullptr) : Json(against->name())},
      {"different", data.different},         {"outside", data.outside}};
  return kDone;
}

}  // namespace

void AddReport(CLI::App& app, CommandContext& context) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      AddCommand(app, context, "report", "Write settings and differences as a page for a browser",
                 "The page is one file that needs nothing else: a tree of the settings with a search, their\n"
                 "parameters with comments and rules, lists as curves, tables as heat maps. An existing file\n"
                 "is replaced. A setting that cannot be read is reported and marked; the exit code is then 1.\n"
                 "\n"
                 "Examples:\n"
                 "  zotuning report -o report.html\n"
                 "  zotuning report main_wide --against HEAD~1: -o changes.html\n"
                 "  zotuning report main_wide --against front -o sensors.html\n"
                 "  zotuning report --against out/zo_tuning -o packed.html",
                 [&context, options] { return Run(context, *options); });
  command->add_option("SENSOR", options->scopes, "Only these sensors, or 'default'")->expected(0, -1);
  command->add_option("--against", options->against, "Show what differs from this side, as 'diff' takes it")
      ->type_name("SIDE")
      ->check(NotEmpty());
  command->add_option("-o,--output", options->output, "The page")
      ->type_name("FILE.html")
      ->required()
      ->check(NotEmpty());
}

}  // namespace zotuning::tool
