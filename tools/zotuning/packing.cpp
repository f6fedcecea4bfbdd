#include "packing.h"

#include <unistd.h>

#include <algorithm>
#include <map>
#include <utility>

#include "ZoTuningUtils.h"
#include "api/operations.h"
#include "bin/bin_folder.h"
#include "json_check.h"
#include "library_log.h"

namespace zotuning_tool {
namespace {

using ZO_TUNING::internal::BinFolder;
using ZO_TUNING::internal::BinPath;

/// After the library gave up: every fault of every file, found by converting them one by one.
void FindFaults(Project& project, const std::vector<Scope>& scopes, const PackOptions& options, Report& report) {
  for (const Scope& scope : scopes) {
    size_t count = 0;
    CheckVersionFiles(project, scope.name, count, report);
    for (const Setting& setting : scope.settings) {
      CheckSetting(project, setting, options.ask ? Fields::kAny : Fields::kAll, report);
    }
  }
}

/// Compares a bin with its scope record by record: the library passes over folders that it cannot list.
bool CheckBin(Project& project, const Scope& scope, const std::string& path, const std::string& shown_path,
              BinContents& contents, Report& report) {
  const int errors_before = report.errors();
  std::map<std::vector<int>, int> packed;
  const BinVisitor visitor{nullptr, [&](BinRecord& record) { ++packed[record.values]; }, false};
  if (!WalkBin(project, path, visitor, contents, report)) return false;
  if (contents.fault) {
    report.Error("bin-damaged", "the bin is damaged " + FaultText(*contents.fault), "", shown_path);
    return false;
  }
  if (contents.versions != scope.versions.size()) {
    report.Error("bin-incomplete",
                 "the bin holds " + Count(contents.versions, "version") + " of " +
                     std::to_string(scope.versions.size()) + "; a version file was passed over",
                 "", Shown(project.VersionDir(scope.name)));
  }
  for (const Setting& setting : scope.settings) {
    if (--packed[setting.values] < 0) {
      report.Error("bin-incomplete", "this setting is missing in the bin of " + Quoted(scope.name), "",
                   Shown(setting.path));
    }
  }
  for (const auto& [values, left] : packed) {
    if (left > 0) {
      report.Error("bin-incomplete",
                   "the bin of " + Quoted(scope.name) + " holds a record of no setting listed before (" +
                       project.LabelText(values) + ")",
                   "the tree changed meanwhile; pack again");
    }
  }
  return report.errors() == errors_before;
}

/// The files that are to be packed, as they are now.
std::vector<std::pair<std::string, FileState>> StatesOf(const std::vector<Scope>& scopes) {
  std::vector<std::pair<std::string, FileState>> states;
  for (const Scope& scope : scopes) {
    for (const Setting& setting : scope.settings) states.emplace_back(setting.path, StateOf(setting.path));
    for (const FoundFile& version : scope.versions) states.emplace_back(version.path, StateOf(version.path));
  }
  return states;
}

bool Generate(const Project& project, const PackOptions& options, const std::string& out_dir) {
  const char* dir = project.dir().c_str();
  if (options.ask) return ZoTuningUtils::GenerateSpecificSensorBin(dir, out_dir.c_str());
  return ZO_TUNING::internal::api::GenerateProjTuningBins(dir, out_dir.c_str(),
                                                          options.sensor.empty() ? nullptr : &options.sensor);
}

}  // namespace

bool Survey(Project& project, const PackOptions& options, std::vector<Scope>& scopes, Report& report) {
  const int errors_before = report.errors();
  for (const std::string& name : project.Scopes()) {
    if (name != kDefaultScope && !options.sensor.empty() && name != options.sensor) continue;
    if (options.ask && name != kDefaultScope && !Exists(project.ScopeDir(name))) continue;
    Scope scope{name, {}, {}};
    if (!IsDirectory(project.ScopeDir(name))) {
      report.Error("missing-folder", "the folder of " + Quoted(name) + " is missing", "",
                   Shown(project.ScopeDir(name)));
      continue;
    }
    project.ListSettings(name, scope.settings, report);
    ListFiles(project.VersionDir(name), ".json", scope.versions, report);
    for (const Setting& setting : scope.settings) {
      if (project.ModuleName(setting.values).empty()) {
        CheckSetting(project, setting, Fields::kAny, report);
        continue;
      }
      for (const std::string& fault : setting.faults) {
        report.Warn("unknown-label", fault, "it is packed as " + project.LabelText(setting.values),
                    Shown(setting.path));
      }
    }
    scopes.push_back(std::move(scope));
  }
  return report.errors() == errors_before;
}

bool PackScopes(Project& project, const PackOptions& options, const std::string& shown_out_dir, StagingDir& work,
                std::vector<Scope>& scopes, std::vector<BinContents>& bins, Report& report) {
  const std::string folder = BinFolder(work.path());
  const std::string target = BinFolder(shown_out_dir);
  const int errors_before = report.errors();
  const auto states = StatesOf(scopes);
  const LibraryWatch watch;
  const bool packed = Generate(project, options, work.path());
  work.StopWatcher();
  for (const auto& [path, state] : states) {
    if (StateOf(path) != state) {
      report.Error("changed-meanwhile", "this file changed while it was packed", "pack again", Shown(path));
    }
  }
  // The question was asked without an end of line; a terminal shows the one that was typed.
  if (options.ask && isatty(STDIN_FILENO) != 1) report.Print("\n");
  if (!packed || watch.HasErrors()) {
    const bool bad_choice = std::any_of(watch.lines().begin(), watch.lines().end(), [](const LogLine& line) {
      return line.message.find("Error typing") != std::string::npos;
    });
    if (!bad_choice) FindFaults(project, scopes, options, report);
    if (report.errors() == errors_before) watch.Explain(report, "the bins could not be made", folder, target);
    return false;
  }
  if (options.ask) {
    scopes.erase(std::remove_if(scopes.begin(), scopes.end(),
                                [&](const Scope& scope) { return !Exists(BinPath(folder, scope.name)); }),
                 scopes.end());
  }
  bins.assign(scopes.size(), {});
  for (size_t i = 0; i < scopes.size(); ++i) {
    const std::string path = BinPath(folder, scopes[i].name);
    const std::string shown = Shown(BinPath(target, scopes[i].name));
    if (Exists(path)) {
      CheckBin(project, scopes[i], path, shown, bins[i], report);
    } else {
      report.Error("bin-incomplete", "no bin was made for " + Quoted(scopes[i].name), "", shown);
    }
  }
  return report.errors() == errors_before;
}

}  // namespace zotuning_tool
