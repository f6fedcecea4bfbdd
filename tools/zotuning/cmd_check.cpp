// zotuning check: everything that is wrong with a project, in one run.

#include <algorithm>
#include <filesystem>
#include <memory>

#include "command_context.h"
#include "finding_formats.h"
#include "workspace/check_project.h"
#include "workspace/severities.h"
#include "workspace/suggest.h"

namespace zotuning::tool {
namespace {

struct Options {
  std::vector<std::string> paths;
  bool strict = false;
  bool template_rules = false;
  std::vector<std::string> select, ignore;
  std::string stdin_path;
  std::string format = "text";
  std::string explain;
};

Json ExplanationJson(const CodeInfo& info) {
  return {{"code", info.name},       {"severity", info.severity == Severity::kError ? "error" : "warning"},
          {"summary", info.summary}, {"why", info.why},
          {"example", info.example}, {"mend", info.mend}};
}

/// All codes, as the page docs/diagnostics.md.
int ExplainAll(Console& console) {
  std::string page =
      "# Diagnostics\n\nEvery message has a code, which stays the same. `zotuning check --explain CODE` prints what is\n"
      "below, `--select` and `--ignore` choose by codes, and `zotuning.json` in a project's folder sets severities for all "
      "who\nwork on it; comments are allowed in it:\n\n```\n{\n  \"severities\": {\n    \"rule-range\": \"error\",  // "
      "agreed on in May\n    \"not-read\": \"off\"\n  }\n}\n```\n\nMade by `zotuning check --explain all`.\n\n| Code | "
      "Severity | Means |\n|---|---|---|\n";
  std::string details;
  Json codes = Json::array();
  for (const CodeInfo& info : kCodes) {
    const Json code = ExplanationJson(info);
    const std::string name = info.name, severity = code["severity"];
    page.append("| [`").append(name).append("`](#").append(name).append(") | ").append(severity);
    page.append(" | ").append(info.summary).append(" |\n");
    details.append("\n## ").append(name).append("\n\n").append(severity).append(": ").append(info.summary);
    details.append(". ").append(info.why).append("\n\n```text\n").append(info.example).append("\n```\n\n");
    details.append(info.mend).append("\n");
    codes.push_back(code);
  }
  console.Print(page + details);
  console.result() = {{"codes", std::move(codes)}};
  return kDone;
}

int Explain(const std::string& name, Console& console) {
  if (name == "all") return ExplainAll(console);
  const CodeInfo* info = FindCode(name);
  if (info == nullptr) {
    std::vector<std::string> names;
    for (const CodeInfo& each : kCodes) names.emplace_back(each.name);
    console.Report(Code::kUsage, "no code " + Quoted(name) + DidYouMean(name, names),
                   "'zotuning check --explain all' lists them");
    return kMisuse;
  }
  const std::string severity = info->severity == Severity::kError ? "error" : "warning";
  console.Print(std::string(info->name) + " (" + severity + "): " + info->summary + "\n\n" + info->why +
                "\n\nExample:\n  " + info->example + "\n\nTo fix it:\n  " + info->mend + "\n");
  console.result() = ExplanationJson(*info);
  return kDone;
}

/// The project that contains a path, "" if none: for editors, which may run anywhere.
std::string NearestTo(const std::string& path) {
  const size_t slash = path.rfind('/');
  const std::string folder = IsDirectory(path) ? path : slash == path.npos ? "." : path.substr(0, slash + 1);
  const std::string dir = Project::FindNearest(folder);
  std::error_code error;
  const std::filesystem::path canonical = std::filesystem::canonical(dir.empty() ? "." : dir, error);
  return dir.empty() || error ? "" : canonical.string();
}

/// The options of the check of what is on standard input; false after an error.
bool ReadInput(Options& options, CheckOptions& check, int& code, Console& console) {
  const bool asks = std::find(options.paths.begin(), options.paths.end(), "-") != options.paths.end();
  code = kMisuse;
  if (!asks && options.stdin_path.empty()) return true;
  if (options.paths.size() != 1 || !asks || options.stdin_path.empty() || IsDirectory(options.stdin_path)) {
    console.Report(Code::kUsage, "'-' stands alone, and --stdin-path names the file that standard input is",
                   "zotuning check - --stdin-path main_wide/mode_0/AfCommon.json");
    return false;
  }
  if (!ZO_TUNING::internal::HasSuffix(options.stdin_path, ZO_TUNING::internal::kJsonSuffix)) {
    console.Report(Code::kUsage, "standard input can be a setting, a default or a version: a '.json' file", "",
                   options.stdin_path);
    return false;
  }
  code = kFailed;
  options.paths = {options.stdin_path};
  return ReadStandardInput(check.text.emplace(), console);
}

int Run(CommandContext& context, Options options) {
  Console& console = context.console;
  if (!options.explain.empty()) return Explain(options.explain, console);
  CheckOptions check;
  if (int code = kDone; !ReadInput(options, check, code, console)) return code;
  std::string dir = context.project_dir;
  if (dir.empty()) dir = Project::FindNearest();
  if (dir.empty() && !options.paths.empty()) dir = NearestTo(options.paths[0]);
  if (dir.empty()) {
    ReportNoProject(console);
    return kMisuse;
  }
  ProjectSettings settings;
  if (const int code = ExitCode(ReadProjectSettings(dir, settings, console)); code != kDone) return code;
  CollectingSink found;
  SeverityFilter filter(found);
  filter.SetStrict(options.strict);
  if (!filter.SetSeverities(settings.severities, DisplayPath(dir + "/zotuning.json")) ||
      !filter.Select(options.select) || !filter.Ignore(options.ignore)) {
    for (const Diagnostic& diagnostic : found.diagnostics()) console.Add(diagnostic);
    return kMisuse;
  }
  check.fit.template_rules = check.fit.complete_rules = options.template_rules;
  const bool checked = CheckProject(dir, options.paths, check, filter);
  const std::vector<Diagnostic>& diagnostics = found.diagnostics();
  if (options.format == "sarif") {
    console.Print(SarifLog(diagnostics).dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
  } else if (options.format == "github") {
    console.Print(GithubLines(diagnostics));
  } else {
    for (const Diagnostic& diagnostic : diagnostics) console.Add(diagnostic);
    std::string sums = Count(filter.errors(), "error") + ", " + Count(filter.warnings(), "warning");
    if (filter.files() > 0) sums += " in " + Count(filter.files(), "file");
    if (checked) console.Print(sums + "\n");
  }
  console.result() = {{"errors", filter.errors()}, {"warnings", filter.warnings()}, {"files", filter.files()}};
  if (!checked) return kMisuse;
  return filter.errors() == 0 ? kDone : kFailed;
}

}  // namespace

void AddCheck(CLI::App& app, CommandContext& context) {
  auto options = std::make_shared<Options>();
  CLI::App* command = AddCommand(
      app, context, "check", "Find everything that is wrong with the project",
      "Reads schema, configuration, labels, versions, defaults and every setting, and writes nothing. With PATH only\n"
      "those files, and the files below those folders. Errors are what packing refuses, or would pack into something\n"
      "other than what the text says. The project's zotuning.json may set severities for all who work on it.\n"
      "\n"
      "Examples:\n"
      "  zotuning check\n"
      "  zotuning check main_wide --strict\n"
      "  zotuning check --format sarif > check.sarif\n"
      "  zotuning check - --stdin-path main_wide/mode_0/AfCommon.json < main_wide/mode_0/AfCommon.json\n"
      "  zotuning check --explain json-missing-field",
      [&context, options] {
        if (options->format == "json") {
          context.json = true;
          context.console.Begin("check", true);
        }
        return Run(context, *options);
      });
  command->add_option("PATH", options->paths, "Files and folders to check (default: all); '-' is standard input");
  command->add_option("--stdin-path", options->stdin_path, "The file that standard input stands for")
      ->type_name("FILE");
  command->add_flag("--strict", options->strict, "Take warnings for errors");
  command->add_option("--select", options->select, "Only these codes")->type_name("CODE")->delimiter(',');
  command->add_option("--ignore", options->ignore, "Not these codes")->type_name("CODE")->delimiter(',');
  command->add_flag("--template-rules", options->template_rules,
                    "Report rules that are missing or still the template's");
  command->add_option("--format", options->format, "How faults are printed")
      ->type_name("FORMAT")
      ->check(CLI::IsMember({"text", "json", "sarif", "github"}));
  command
      ->add_option("--explain", options->explain, "What a code means, with an example and the mend; 'all' for a page")
      ->type_name("CODE");
}

}  // namespace zotuning::tool
