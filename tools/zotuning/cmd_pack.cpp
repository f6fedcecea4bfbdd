// zotuning pack: the bins of the project, made beside the output folder, checked against the tree, and renamed.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <memory>

#include "bin/bin_folder.h"
#include "commands.h"
#include "io/directory.h"
#include "packing.h"
#include "project.h"
#include "staging_dir.h"

namespace zotuning_tool {
namespace {

using ZO_TUNING::internal::BinFolder;
using ZO_TUNING::internal::BinPath;

constexpr const char* kFolderName = "zo_tuning";

struct Options {
  std::string out_dir;
  PackOptions pack;
  bool force = false;
};

double Seconds(const timespec& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

/// The folder that is to be replaced holds bins and nothing else.
bool MayReplace(const std::string& target, Report& report) {
  if (!IsDirectory(target)) {
    report.Error("exists", "this is in the way, and no folder", "", Shown(target));
    return false;
  }
  std::vector<std::string> names;
  if (!ListNames(target, names, report)) return false;
  for (const std::string& name : names) {
    if (ZO_TUNING::internal::HasSuffix(name, ZO_TUNING::internal::kBinSuffix)) continue;
    report.Error("exists", "the folder holds more than bins (" + Quoted(name) + "); it is kept", "", Shown(target));
    return false;
  }
  return true;
}

/// One line on a terminal, rewritten while the library works.
class Progress {
 public:
  explicit Progress(bool on) : on_(on && isatty(STDERR_FILENO) == 1) {}

  void Show(const std::string& work_path, const std::vector<Scope>& scopes) {
    if (work_path.empty() && shown_) (void)std::fputs("\r\033[K", stderr);
    // Short jobs show nothing.
    if (!on_ || work_path.empty() || ++ticks_ < 3) return;
    const std::string folder = BinFolder(work_path);
    std::string current;
    size_t begun = 0;
    for (const Scope& scope : scopes) {
      if (!Exists(BinPath(folder, scope.name))) continue;
      current = scope.name;
      ++begun;
    }
    if (begun == 0) return;
    (void)std::fprintf(stderr, "\r\033[Kpacking %s.bin (%zu of %zu)", Printable(current).c_str(), begun, scopes.size());
    shown_ = true;
  }

 private:
  bool on_;
  bool shown_ = false;
  int ticks_ = 0;
};

void PrintBins(const std::vector<Scope>& scopes, const std::vector<BinContents>& contents,
               const std::vector<double>& ended, double began, const std::string& target, Report& report) {
  std::vector<std::vector<std::string>> rows = {{"BIN", "BYTES", "VERSIONS", "RECORDS", "TIME"}};
  Json bins = Json::array();
  double before = began;
  for (size_t i = 0; i < scopes.size(); ++i) {
    // Bins are written one after the other, so each takes from the end of the one before to its own.
    const long milliseconds = std::lround(std::max(0.0, (ended[i] - before) * 1000));
    before = std::max(before, ended[i]);
    const BinContents& bin = contents[i];
    rows.push_back({scopes[i].name + ".bin", std::to_string(bin.bytes), std::to_string(bin.versions),
                    std::to_string(bin.records), std::to_string(milliseconds) + " ms"});
    bins.push_back({{"name", scopes[i].name},
                    {"file", Shown(BinPath(target, scopes[i].name))},
                    {"bytes", bin.bytes},
                    {"versions", bin.versions},
                    {"records", bin.records},
                    {"milliseconds", milliseconds}});
  }
  report.Print(Table(rows) + Printable(Shown(target)) + "\n");
  report.result()["folder"] = Shown(target);
  report.result()["bins"] = std::move(bins);
}

/// Packs beside the target and puts the checked folder in its place.
bool PackAndPlace(Session& session, Project& project, const Options& options, std::vector<Scope>& scopes) {
  Report& report = session.report;
  Progress progress(!session.verbose && !options.pack.ask);
  const std::string target = BinFolder(options.out_dir);
  timespec began;
  clock_gettime(CLOCK_REALTIME_COARSE, &began);  // the clock of file times
  const auto work = StagingDir::Make(
      options.out_dir, [&](const std::string& path) { progress.Show(path, scopes); }, report);
  std::vector<BinContents> bins;
  if (work == nullptr || !PackScopes(project, options.pack, options.out_dir, *work, scopes, bins, report)) return false;
  std::vector<double> ended(scopes.size());
  for (size_t i = 0; i < scopes.size(); ++i) {
    struct stat info;
    if (stat(BinPath(BinFolder(work->path()), scopes[i].name).c_str(), &info) == 0) ended[i] = Seconds(info.st_mtim);
  }
  if (!work->Commit(kFolderName, target, options.force, report)) return false;
  PrintBins(scopes, bins, ended, Seconds(began), target, report);
  return true;
}

int Run(Session& session, const Options& options) {
  Report& report = session.report;
  if (options.pack.ask && (session.json || !options.pack.sensor.empty())) {
    report.Error("usage", std::string("--ask cannot stand together with ") +
                              (session.json && options.pack.sensor.empty() ? "--json" : "--sensor"));
    return kMisuse;
  }
  const auto project = Project::Open(session.project_dir, report);
  if (project == nullptr) return kMisuse;
  if (!project->ok()) return kFailed;
  if (!options.pack.sensor.empty() && !project->RequireSensor(options.pack.sensor, report)) return kFailed;
  const std::string target = BinFolder(options.out_dir);
  const bool exists = Exists(target);
  if (exists && !options.force) {
    report.Error("exists", "the folder exists already", "--force replaces it", Shown(target));
    return kFailed;
  }
  if (exists && !MayReplace(target, report)) return kFailed;
  std::vector<Scope> scopes;
  if (!Survey(*project, options.pack, scopes, report)) return kFailed;
  return PackAndPlace(session, *project, options, scopes) ? kDone : kFailed;
}

}  // namespace

void AddPack(CLI::App& app, Session& session) {
  auto options = std::make_shared<Options>();
  CLI::App* command = AddCommand(
      app, session, "pack", "Pack the project into tuning bins",
      "Makes DIR/zo_tuning with default.bin and one bin per sensor. The folder appears when all is done and checked,\n"
      "or not at all.\n"
      "\n"
      "Examples:\n"
      "  zotuning pack -o out\n"
      "  zotuning pack -o out --sensor main_wide --force\n"
      "  echo 0 | zotuning pack -o out --ask",
      [&session, options] { return Run(session, *options); });
  command->add_option("-o,--out", options->out_dir, "Where to make the folder zo_tuning")
      ->required()
      ->type_name("DIR")
      ->check(NotEmpty());
  command->add_option("--sensor", options->pack.sensor, "Only default.bin and the bin of this sensor")
      ->type_name("NAME");
  command->add_flag("--ask", options->pack.ask,
                    "Ask on standard input for the index of the sensor; fields may be missing then");
  command->add_flag("--force", options->force, "Replace an existing folder zo_tuning");
}

}  // namespace zotuning_tool
