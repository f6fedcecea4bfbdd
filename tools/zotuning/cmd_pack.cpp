// zotuning pack: the bins of the project, made beside the output folder, checked against the tree, and renamed.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <mutex>

#include "bin/bin_folder.h"
#include "command_context.h"
#include "workspace/check_project.h"
#include "workspace/depfile.h"
#include "workspace/pack.h"
#include "workspace/severities.h"
#include "workspace/staging_dir.h"

namespace zotuning::tool {
namespace {

using ZO_TUNING::internal::BinFolder;
using ZO_TUNING::internal::BinPath;

struct Options {
  std::string out_dir;
  std::vector<std::string> sensors;
  std::string depfile;
  bool ask = false;
  bool force = false;
  std::vector<std::string> allow;
};

/// The folder to be replaced must contain only bins.
bool HoldsOnlyBins(const std::string& dir, const std::string& shown, DiagnosticSink& sink) {
  if (!IsDirectory(dir)) {
    sink.Report(Code::kExists, "this is in the way, and it is not a directory", "", shown);
    return false;
  }
  std::vector<std::string> names;
  if (!ListNames(dir, names, sink)) return false;
  for (const std::string& name : names) {
    if (ZO_TUNING::internal::HasSuffix(name, ZO_TUNING::internal::kBinSuffix)) continue;
    sink.Report(Code::kExists, "the folder holds more than bins (" + Quoted(name) + "); it is kept", "", shown);
    return false;
  }
  return true;
}

/// One line on a terminal, rewritten while bins are made.
class Progress {
 public:
  Progress(bool on, size_t count) : on_(on && isatty(STDERR_FILENO) == 1), count_(count) {}

  /// From the packing thread.
  void Begin(const std::string& name) {
    const std::lock_guard<std::mutex> lock(mutex_);
    current_ = name;
    ++begun_;
  }

  /// From the watching thread, ten times a second; `running` is false the last time.
  void Show(bool running) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!running && shown_) (void)std::fputs("\r\033[K", stderr);
    // Short jobs show nothing.
    if (!on_ || !running || ++ticks_ < 3 || begun_ == 0) return;
    (void)std::fprintf(stderr, "\r\033[Kpacking %s.bin (%zu of %zu)", Printable(current_).c_str(), begun_, count_);
    shown_ = true;
  }

 private:
  bool on_;
  size_t count_;
  std::mutex mutex_;
  std::string current_;
  size_t begun_ = 0;
  bool shown_ = false;
  int ticks_ = 0;
};

void PrintBins(const std::vector<PackedBin>& packed, const std::string& target, Console& console) {
  std::vector<std::vector<std::string>> rows = {{"BIN", "BYTES", "VERSIONS", "RECORDS", "TIME"}};
  Json bins = Json::array();
  for (const PackedBin& bin : packed) {
    const long milliseconds = std::lround(bin.milliseconds);
    rows.push_back({bin.name + ".bin", std::to_string(bin.bytes), std::to_string(bin.versions),
                    std::to_string(bin.records), std::to_string(milliseconds) + " ms"});
    bins.push_back({{"name", bin.name},
                    {"file", DisplayPath(BinPath(target, bin.name))},
                    {"bytes", bin.bytes},
                    {"versions", bin.versions},
                    {"records", bin.records},
                    {"milliseconds", milliseconds}});
  }
  console.Print(Table(rows) + Printable(DisplayPath(target)) + "\n");
  console.result()["folder"] = DisplayPath(target);
  console.result()["bins"] = std::move(bins);
}

/// Asks on standard output and input for the index of a sensor that has a folder. "" after an error.
std::string AskForSensor(const Project& project, Console& console) {
  std::vector<std::string> sensors;
  for (const std::string& sensor : project.sensors()) {
    if (Exists(project.layout().ScopeDir(sensor))) sensors.push_back(sensor);
  }
  std::string question = "Sensors:\n";
  for (size_t i = 0; i < sensors.size(); ++i) {
    question += "  " + std::to_string(i) + "  " + Printable(sensors[i]) + "\n";
  }
  console.Print(question + "Index of the sensor to pack: ");
  console.Print("");  // before waiting for the answer
  std::string answer;
  std::getline(std::cin, answer);
  // The question has no line ending; on a terminal the user's own is shown.
  if (isatty(STDIN_FILENO) != 1) console.Print("\n");
  size_t index = 0;
  const size_t begin = answer.find_first_not_of(" \t");
  const char* first = answer.data() + (begin == std::string::npos ? answer.size() : begin);
  const auto [end, error] = std::from_chars(first, answer.data() + answer.size(), index);
  if (error == std::errc() && index < sensors.size()) return sensors[index];
  console.Report(Code::kBadChoice, "no sensor has that index");
  return "";
}

/// Where the bins go: the target of a link called zo_tuning. "" after an error.
std::string ResolveTarget(const std::string& out_dir, Console& console) {
  std::string target = BinFolder(out_dir);
  std::error_code error;
  if (!std::filesystem::is_symlink(target, error)) return target;
  const std::string resolved = std::filesystem::canonical(target, error).string();
  if (error) console.Report(Code::kExists, "this is a link that leads nowhere", "remove it", DisplayPath(target));
  return error ? "" : resolved;
}

/// What is kept of the folder about to be replaced: bins with unchanged contents keep their time stamps, and with
/// `partly` the other bins are kept.
bool KeepOldBins(const std::string& target, const std::string& folder, bool partly, Console& console) {
  std::vector<std::string> names;
  if (!Exists(target)) return true;
  if (!ListNames(target, names, console)) return false;
  for (const std::string& name : names) {
    const std::string old_path = JoinPath(target, name), path = JoinPath(folder, name);
    std::string old_text, text;
    struct stat info;
    if (Exists(path)) {
      if (!ReadFile(old_path, old_text, console) || !ReadFile(path, text, console)) return false;
      if (old_text != text || stat(old_path.c_str(), &info) != 0) continue;
      const timespec times[] = {info.st_atim, info.st_mtim};
      (void)utimensat(AT_FDCWD, path.c_str(), times, 0);
    } else if (partly && link(old_path.c_str(), path.c_str()) != 0) {
      std::error_code error;
      std::filesystem::copy_file(old_path, path, error);
      if (error) return ReportSystemError("copy", old_path, error.value(), console);
    }
  }
  return true;
}

/// Packs beside the target and moves the finished folder into its place.
bool PackAndCommit(CommandContext& context, Project& project, const Options& options, const std::string& target,
                   const std::vector<ScopeInputs>& inputs, SeverityFilter& filter) {
  Console& console = context.console;
  Progress progress(!options.ask, inputs.size());
  const auto staging = StagingDir::Make(
      std::filesystem::path(target).parent_path().string(),
      [&](const std::string& path) { progress.Show(!path.empty()); }, console);
  if (staging == nullptr) return false;
  const std::string folder = BinFolder(staging->path());
  if (mkdir(folder.c_str(), 0777) != 0) return ReportSystemError("make the directory", folder, errno, console);
  const bool partly = options.ask || !options.sensors.empty();
  PackOptions pack;
  pack.check_fields = !options.ask && !filter.allows(Code::kJsonMissingField);
  pack.on_bin = [&](const std::string& name) { progress.Begin(name); };
  std::vector<std::string> refused;
  pack.on_refused = [&](const std::string& path) { refused.push_back(path); };
  std::vector<PackedBin> bins;
  const bool packed = PackBins(project, inputs, pack, folder, BinFolder(options.out_dir), bins, filter);
  staging->StopWatcher();
  // Half a record can never be allowed.
  for (const std::string& path : refused) {
    if (!console.ok()) break;  // told why
    console.Report(Code::kBinIncomplete, "this file cannot be packed at all, whatever is allowed", "fix or remove it",
                   DisplayPath(path));
  }
  if (!console.ok() || (!packed && !filter.changes_severities())) return false;
  if (options.force && !KeepOldBins(target, folder, partly, console)) return false;
  StagingDir::MayReplace may_replace;
  if (options.force) {
    may_replace = [&](const std::string& dir, DiagnosticSink& sink) {
      return HoldsOnlyBins(dir, DisplayPath(target), sink);
    };
  }
  if (!staging->Commit(std::filesystem::path(folder).filename().string(), target, may_replace, console)) return false;
  PrintBins(bins, BinFolder(options.out_dir), console);
  if (options.depfile.empty()) return true;
  std::vector<std::string> made;
  for (const PackedBin& bin : bins) {
    // In a rule for one sensor, default.bin is not an output: every such rule makes it.
    if (partly && bin.name == kDefaultScope) continue;
    made.push_back(BinPath(BinFolder(options.out_dir), bin.name));
  }
  return ReplaceFile(options.depfile, DepfileText(made, project, inputs), console);
}

int Run(CommandContext& context, const Options& options) {
  Console& console = context.console;
  if (options.ask && (context.json || !options.sensors.empty())) {
    console.Report(Code::kUsage,
                   std::string("--ask cannot be combined with ") + (options.sensors.empty() ? "--json" : "--sensor"));
    return kMisuse;
  }
  SeverityFilter filter(console);
  if (!filter.Allow(options.allow)) return kMisuse;
  int code = kDone;
  const auto project = LoadProject(context, code);
  if (project == nullptr) return code;
  for (const std::string& sensor : options.sensors) project->RequireSensor(sensor, console);
  ProjectSettings settings;
  if (!console.ok()) return kFailed;
  code = ExitCode(ReadProjectSettings(project->dir(), settings, console));
  if (code != kDone) return code;
  filter.SetSeverities(settings.severities, DisplayPath(project->dir() + "/zotuning.json"));
  const std::string target = ResolveTarget(options.out_dir, console);
  if (target.empty()) return kFailed;
  if (KindOf(target) == FileKind::kUnknown) {
    ReportSystemError("look at", target, errno, console);
    return kFailed;
  }
  if (Exists(target)) {
    if (!options.force) {
      console.Report(Code::kExists, "the folder exists already", "--force replaces it", DisplayPath(target));
      return kFailed;
    }
    if (!HoldsOnlyBins(target, DisplayPath(target), console)) return kFailed;
  }
  std::vector<std::string> scopes = project->Scopes();
  if (options.ask || !options.sensors.empty()) {
    std::vector<std::string> chosen = options.sensors;
    if (options.ask) chosen = {AskForSensor(*project, console)};
    if (!console.ok()) return kFailed;
    scopes.erase(std::remove_if(scopes.begin() + 1, scopes.end(),
                                [&](const std::string& scope) {
                                  return std::find(chosen.begin(), chosen.end(), scope) == chosen.end();
                                }),
                 scopes.end());
  }
  CheckModuleTypes(*project, filter);
  // Packing finds errors on its way, but not what the project's settings turn into errors.
  if (filter.makes_errors() && !CheckProject(project->dir(), {}, CheckOptions(), filter)) return kFailed;
  std::vector<ScopeInputs> inputs;
  ListInputs(*project, scopes, inputs, filter);
  return PackAndCommit(context, *project, options, target, inputs, filter) ? kDone : kFailed;
}

}  // namespace

void AddPack(CLI::App& app, CommandContext& context) {
  auto options = std::make_shared<Options>();
  CLI::App* command = AddCommand(
      app, context, "pack", "Pack the project into tuning bins",
      "Makes DIR/zo_tuning with default.bin and one bin per sensor. The folder appears when all is done and checked,\n"
      "or not at all. Files are packed in the order of their paths, so that the same tree gives the same bins anywhere.\n"
      "With --sensor and --force the bins of other sensors stay, and bins that would not change keep their time stamps.\n"
      "\n"
      "Examples:\n"
      "  zotuning pack -o out\n"
      "  zotuning pack -o out --sensor main_wide --force\n"
      "  zotuning pack -o out --sensor front --sensor main_wide --force --depfile out/bins.d\n"
      "  echo 0 | zotuning pack -o out --ask",
      [&context, options] { return Run(context, *options); });
  command->add_option("-o,--out", options->out_dir, "Where to make the folder zo_tuning")
      ->required()
      ->type_name("DIR")
      ->check(NotEmpty());
  command->add_option("--sensor", options->sensors, "Only default.bin and the bin of this sensor; may be given again")
      ->allow_extra_args(false)
      ->type_name("NAME");
  command->add_flag("--ask", options->ask,
                    "Ask on standard input for the index of the sensor; fields may be missing then");
  command->add_flag("--force", options->force, "Replace an existing folder zo_tuning");
  command->add_option("--depfile", options->depfile, "Write what the bins were made from, for Make and Ninja")
      ->type_name("FILE")
      ->check(NotEmpty());
  command->add_option("--allow", options->allow, "Pack although 'zotuning check' finds errors of this code")
      ->type_name("CODE")
      ->delimiter(',');
}

}  // namespace zotuning::tool
