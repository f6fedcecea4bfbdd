// zotuning version: the version files of the project, and the header that is generated from them.

#include <algorithm>
#include <memory>

#include "ZoTuningUtils.h"
#include "commands.h"
#include "library_log.h"
#include "project.h"
#include "suggest.h"
#include "version_files.h"

namespace zotuning_tool {
namespace {

constexpr const char* kNotWrittenHint = "is it read-only, or the disk full?";

using Lines = std::vector<std::string>;

std::unique_ptr<Project> OpenGood(Session& session, int& code) {
  auto project = Project::Open(session.project_dir, session.report);
  code = project == nullptr ? kMisuse : kFailed;
  return project != nullptr && project->ok() ? std::move(project) : nullptr;
}

int List(Session& session) {
  Report& report = session.report;
  int code = kDone;
  const auto project = OpenGood(session, code);
  if (project == nullptr) return code;
  std::vector<std::vector<std::string>> rows = {{"NAME", "VERSION", "OF", "FILE"}};
  Json versions = Json::array();
  for (const std::string& scope : project->Scopes()) {
    std::vector<VersionFile> files;
    ReadVersionFiles(*project, scope, files, report);
    for (const VersionFile& file : files) {
      if (!file.fits) continue;
      const std::string of = scope == kDefaultScope ? "project" : scope;
      rows.push_back({file.name, file.version, of, Shown(file.path)});
      versions.push_back({{"name", file.name}, {"version", file.version}, {"of", of}, {"file", Shown(file.path)}});
      const std::string fault = scope == kDefaultScope ? ScanFault(file) : "";
      if (!fault.empty()) {
        report.Warn("version-misread", "the version header would get this file wrong: " + fault, "", Shown(file.path));
      }
    }
  }
  report.Print(Table(rows));
  report.result()["versions"] = std::move(versions);
  return kDone;
}

int Set(Session& session, const std::string& name, const std::string& version) {
  Report& report = session.report;
  int code = kDone;
  const auto project = OpenGood(session, code);
  if (project == nullptr) return code;
  std::vector<VersionFile> files;
  // The operation stops without a result at the first file that it cannot read.
  if (!ReadVersionFiles(*project, kDefaultScope, files, report)) return kFailed;
  Lines names;
  size_t matches = 0;
  std::string path;
  for (const VersionFile& file : files) {
    names.push_back(file.name);
    if (file.name != name) continue;
    path = file.path;
    ++matches;
  }
  if (matches == 0) {
    report.Error("unknown-version", "no version is called " + Quoted(name) + DidYouMean(name, names),
                 "'zotuning version list' lists them");
    return kFailed;
  }
  if (matches > 1) {
    report.Error("same-names",
                 Count(matches, "file") + " hold a version called " + Quoted(name) +
                     "; which one would be set depends on the file system",
                 "keep one of them", Shown(project->VersionDir(kDefaultScope)));
    return kFailed;
  }
  const LibraryWatch watch;
  if (!ZoTuningUtils::UpdateProtoVersionJsonFile(project->dir().c_str(), name.c_str(), version.c_str()) ||
      watch.HasErrors()) {
    watch.Explain(report, "the version was not set");
    return kFailed;
  }
  // The operation does not notice a failed write.
  std::vector<VersionFile> after;
  if (!ReadVersionFiles(*project, kDefaultScope, after, report)) return kFailed;
  const auto set = std::find_if(after.begin(), after.end(), [&](const VersionFile& file) { return file.name == name; });
  if (set == after.end() || set->version != version) {
    report.Error("io", "the version file was not written as it should be", kNotWrittenHint, Shown(path));
    return kFailed;
  }
  if (const std::string fault = TextFault(version); !fault.empty()) {
    report.Warn("version-misread", "the version header would get this value wrong: " + fault, "", Shown(set->path));
  }
  report.Print(Printable(name) + " is now " + Printable(version) + " (" + Printable(Shown(set->path)) + ")\n");
  report.result() = {{"name", name}, {"version", version}, {"file", Shown(set->path)}};
  return kDone;
}

Lines SplitLines(const std::string& text) {
  Lines lines;
  size_t begin = 0;
  for (size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', begin)) {
    lines.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  if (begin < text.size()) lines.push_back(text.substr(begin));
  return lines;
}

/// The #define block without its numbers, which follow the order of the file system, in an order of its own.
Lines Unnumbered(const Lines& lines, size_t kept) {
  Lines pairs;
  std::string name;
  for (size_t i = kept; i < lines.size(); ++i) {
    const size_t digits_end = lines[i].find_first_not_of("0123456789", std::string("#define VERSION").size());
    const bool numbered = lines[i].rfind("#define VERSION", 0) == 0 && digits_end != std::string::npos &&
                          digits_end > std::string("#define VERSION").size();
    const std::string rest = numbered ? lines[i].substr(digits_end) : lines[i];
    if (numbered && rest.rfind("_NAME ", 0) == 0) {
      name = rest;
    } else {
      pairs.push_back(name + rest);
      name.clear();
    }
  }
  if (!pairs.empty()) std::sort(pairs.begin(), pairs.end() - 1);
  return pairs;
}

/// The header as it should be; `kept` becomes the number of lines that the authors own. False after an error.
bool WantedHeader(Project& project, const std::string& path, const std::vector<VersionFile>& files, std::string& wanted,
                  size_t& kept, Report& report) {
  const LibraryWatch watch;
  Lines versions;
  std::vector<std::string> listed;
  // In the library's own order.
  ZoTuningUtils::FindAllJsonFiles(project.VersionDir(kDefaultScope).c_str(), listed);
  size_t found = 0;
  for (const std::string& each : listed) {
    const auto file = std::find_if(files.begin(), files.end(), [&](const VersionFile& f) { return f.path == each; });
    if (file == files.end()) continue;
    ZO_TUNING::PARSE_VERSION_FROM_STR(file->text, versions);
    ++found;
  }
  if (found != files.size()) {
    report.Error("io", "the directory could not be listed to its end", "try again",
                 Shown(project.VersionDir(kDefaultScope)));
    return false;
  }
  bool made = ZO_TUNING::HEADER_FILE_TO_STR(path, wanted);
  kept = SplitLines(wanted).size();
  made = made && ZO_TUNING::CONSIST_VERSION_TO_STR(wanted, versions);
  if (!made || watch.HasErrors()) watch.Explain(report, "the header cannot be made");
  return made && !watch.HasErrors();
}

/// What is needed before the header can be compared or written.
bool LookAtHeader(Project& project, const std::string& path, std::vector<VersionFile>& files, std::string& text,
                  Report& report) {
  if (!ReadVersionFiles(project, kDefaultScope, files, report)) return false;
  if (files.empty()) {
    report.Error("no-versions", "there is no version file to make the header from", "",
                 Shown(project.VersionDir(kDefaultScope)));
  }
  for (const VersionFile& file : files) {
    const std::string fault = ScanFault(file);
    if (fault.empty()) continue;
    report.Error("version-misread", "the version header would get this file wrong: " + fault, "", Shown(file.path));
  }
  if (!Exists(path)) {
    report.Error("no-header", "the project has no version header", "make it with a line that holds [3AProto]",
                 Shown(path));
  } else if (RefuseSpecialFile(path, report) && ReadFile(path, text, report) &&
             text.find("[3AProto]") == std::string::npos) {
    report.Error("no-marker", "the header has no line that holds [3AProto]; the generated lines would pile up", "",
                 Shown(path));
  }
  return report.ok();
}

int Header(Session& session, bool check) {
  Report& report = session.report;
  int code = kDone;
  const auto project = OpenGood(session, code);
  if (project == nullptr) return code;
  // As the library builds it, the ".." included: beside the schema's folder, wherever that is linked to.
  const std::string schema_dir = project->dir() + "/proto";
  const std::string path = schema_dir + "/../src/ZoTuningVersion.h";
  const std::string shown = Shown(project->dir() + "/src/ZoTuningVersion.h");
  std::vector<VersionFile> files;
  std::string found, wanted;
  size_t kept = 0;
  if (!LookAtHeader(*project, path, files, found, report) ||
      !WantedHeader(*project, path, files, wanted, kept, report)) {
    return kFailed;
  }
  const Lines found_lines = SplitLines(found), wanted_lines = SplitLines(wanted);
  const bool current = Unnumbered(found_lines, kept) == Unnumbered(wanted_lines, kept);
  report.result() = {{"file", shown}, {"versions", files.size()}, {"current", current}};
  if (check) {
    if (current) {
      report.Print(Printable(shown) + " is up to date\n");
      return kDone;
    }
    Json removed = Json::array(), added = Json::array();
    for (size_t i = kept; i < std::max(found_lines.size(), wanted_lines.size()); ++i) {
      const std::string* old_line = i < found_lines.size() ? &found_lines[i] : nullptr;
      const std::string* new_line = i < wanted_lines.size() ? &wanted_lines[i] : nullptr;
      if (old_line != nullptr && new_line != nullptr && *old_line == *new_line) continue;
      if (old_line != nullptr) removed.push_back(*old_line);
      if (new_line != nullptr) added.push_back(*new_line);
      report.Print((old_line == nullptr ? "" : "-" + Printable(*old_line) + "\n") +
                   (new_line == nullptr ? "" : "+" + Printable(*new_line) + "\n"));
    }
    report.result()["removed"] = std::move(removed);
    report.result()["added"] = std::move(added);
    report.Error("header-outdated", "the header is out of date", "'zotuning version header' makes it anew", shown);
    return kFailed;
  }
  // GeneratedNewVersionHeader, step by step, but for the writing: the operation notices no failed write, and takes a
  // header that cannot be looked at for a missing one, which it removes and waits for.
  if (!WriteFile(path, wanted, report)) return kFailed;
  report.result()["current"] = true;
  report.Print(Printable(shown) + (wanted == found ? " is unchanged, " : " is written, ") +
               Count(files.size(), "version") + "\n");
  return kDone;
}

}  // namespace

void AddVersion(CLI::App& app, Session& session) {
  CLI::App* version = app.add_subcommand("version", "List or set versions, make the version header");
  version->fallthrough();
  version->require_subcommand(1);
  version->footer(
      "Examples:\n"
      "  zotuning version list\n"
      "  zotuning version set AfCommon 1.4\n"
      "  zotuning version header --check\n");

  AddCommand(*version, session, "list", "List the versions of the project and its sensors",
             "Examples:\n"
             "  zotuning version list\n"
             "  zotuning version list --json",
             [&session] { return List(session); });

  auto name = std::make_shared<std::string>();
  auto value = std::make_shared<std::string>();
  CLI::App* set = AddCommand(*version, session, "set", "Set one version of the project",
                             "Examples:\n"
                             "  zotuning version set AfCommon 1.4",
                             [&session, name, value] { return Set(session, *name, *value); });
  set->add_option("NAME", *name, "The name in the version file")->required();
  set->add_option("VALUE", *value, "Its new version")->required();

  auto check = std::make_shared<bool>(false);
  CLI::App* header = AddCommand(*version, session, "header", "Make src/ZoTuningVersion.h from the project's versions",
                                "Everything up to the line that holds [3AProto] is kept.\n"
                                "\n"
                                "Examples:\n"
                                "  zotuning version header\n"
                                "  zotuning version header --check    for continuous integration: 1 when out of date",
                                [&session, check] { return Header(session, *check); });
  header->add_flag("--check", *check, "Write nothing; exit with 1 and show the difference when it is out of date");
}

}  // namespace zotuning_tool
