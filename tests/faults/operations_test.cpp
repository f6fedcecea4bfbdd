// Every operation that uses the disk or memory, with the first, second, third, ... call of one function of the system
// failing until it gets through without a fault; and states of the disk that no other test makes.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iostream>
#include <set>
#include <sstream>
#include <thread>

#include "ZoTuningUtils.h"
#include "faults/fail_nth.h"
#include "log/debug_file.h"
#include "support/child.h"
#include "support/project.h"

// Warnings and errors, as they are written. Kept without memory of their own; each ends in a zero byte.
static char g_lines[1 << 16];
static size_t g_used = 0;

// In place of the log calls of the library and of this file.
extern "C" int __wrap___android_log_write(int, const char*, const char*) { return 0; }
extern "C" int __wrap___android_log_print(int priority, const char*, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(g_lines + g_used, sizeof(g_lines) - g_used, format, arguments);
  va_end(arguments);
  const size_t used = g_used + static_cast<size_t>(length) + 1;
  if (priority >= 5 && used <= sizeof(g_lines)) g_used = used;
  return length;
}

namespace {

using namespace zotest;
using namespace ZO_TUNING;
using Z = ZoTuningUtils;
namespace fs = std::filesystem;

const std::string kRoot = "work";  // a copy of the project, below the current directory

std::string Files() {
  std::string files;
  for (const std::string& path : Tree(kRoot)) {
    files += "\n" + path + (path.back() == '/' ? "" : "=" + Read(kRoot + "/" + path));
  }
  return files;
}

/// What the operations are given and deliver. Made before a fault is armed, so that memory for it can be had.
struct Work {
  std::string dir = kRoot + "/proj", proto = dir + "/proto", version_dir = proto + "/version", bins = kRoot + "/bins";
  std::string header = dir + "/src/ZoTuningVersion.h", json = dir + "/default/AWGain.json", bin = bins + "/default.bin";
  std::string config_bin = dir + "/ProjConf.bin", fresh = kRoot + "/fresh", sensor = "tele", text = "{}", out;
  std::string version_text = VersionJson("a name that needs memory", "7");
  Strings names = kLabelNames, sensors = {"tele", "a sensor that needs memory"}, list;
  LabelMap map = kLabelMap, new_map;
  std::vector<std::vector<int>> configs = {{kAWGain, 3, 1}, {kAfCommon, 3, 0, 1}};
  std::vector<int> values;
  Schema schema{proto};
  MessagePtr config = schema.New("ZO_TUNING.TuningProjConfig"), label = schema.New("ZO_TUNING.TuningDataLabel");
  MessagePtr version = schema.New("ZO_TUNING.Version"), af = schema.New("ZO_TUNING_AF.AfCommon");
  std::vector<Message*> messages;

  ~Work() {
    for (const Message* message : messages) delete message;
  }

  void Import() {
    google::protobuf::compiler::DiskSourceTree tree;
    tree.MapPath("", proto);
    google::protobuf::compiler::Importer importer(&tree, nullptr);
    Z::ImportDescriptors(proto.c_str(), importer);
    out = importer.pool()->FindMessageTypeByName("ZO_TUNING.Noise") == nullptr ? "without" : "with";
  }

  std::string Outputs() const {
    std::string all = out + "|" + text + "|" + std::to_string(map.size());
    for (const auto* message : {&config, &label, &af}) all += "|" + Text(**message);
    for (const std::string& item : list) all += "|" + item;
    for (const Message* message : messages) all += "|" + (message == nullptr ? "null" : Text(*message));
    for (const auto& [name, numbers] : new_map) all += "|" + name + std::to_string(numbers.size());
    for (const int value : values) all += "|" + std::to_string(value);
    return all;
  }
};

struct Operation {
  std::string name;
  bool has_result;
  bool (*run)(Work& w);
  /// How failures of the system show, with "|" between. "lost" and the calls whose failure loses something without a
  /// word, though the result is true or there is none; otherwise the beginning of "false", "lost" (the same, but not
  /// without a word) or "noted" (all is done), and of the last line that the failure brings, after its operation where
  /// that is another one.
  const char* shown = "";
};

#define WITH_RESULT(scope, name, arguments) \
#name, true, []([[maybe_unused]] Work & w) { return bool{scope name arguments}; }
#define WITHOUT_RESULT(scope, name, arguments) \
#name, false, []([[maybe_unused]] Work & w) { return scope name arguments, true; }

// clang-format off
const Operation kOperations[] = {
    {WITHOUT_RESULT(, ADD_GITKEEP_TO_DIR, (w.dir)), "lost fopen"},
    {WITHOUT_RESULT(, ADD_NAMESPACE_TO_CLASSNAME, (w.version_text, w.out))},
    {WITH_RESULT(, CONSIST_VERSION_TO_STR, (w.text, std::move(w.sensors)))},
    {WITH_RESULT(Z::, CreateMultipleNewTuningSetting, (w.dir.c_str(), w.names, w.map, w.sensor, w.configs)),
     "lost fopen read write mkdir|lost: JSON_FILE_TO_STR: Fail to read json file: |"
     "false: [Quokka] Error to get the module desc from the module - A"},
    {WITH_RESULT(Z::, CreateNewTuningSetting, (w.dir.c_str(), w.names, w.map, w.sensor, w.configs[0])),
     "lost fopen read write mkdir|lost: JSON_FILE_TO_STR: Fail to read json file: |"
     "false: GetDescByClassName: Find descriptor of ZO_TUNING_AWB.AWGain failed"},
    {WITHOUT_RESULT(, DatacenterLoggerFunction, ("a.cpp", 1, "F", 2, 1, "%s", "text"))},
    {WITH_RESULT(Z::, DumpBinVersions, (w.dir.c_str(), w.bins.c_str())),
     "false.|false: Input proj_dir doesn't existed: |false: Cannot find project proto folder |"
     "false: Get tuning label descriptor failed|false: FindTuningBinFiles: Open directory failed: |"
     "false: ParseVersionMsgFromBin: Open default bin file failed: |"
     "false: ParseVersionMsgFromBin: Read tuning version len |false: ParseVersionMsgFromBin: Read tuning version msg "},
    {WITH_RESULT(Z::, DumpProjTuningBins, (w.dir.c_str(), w.bins.c_str())),
     "false: Input proj_dir doesn't existed: |false: Cannot find project proto folder |"
     "false: Get tuning label descriptor failed|false: FindTuningBinFiles: Open directory failed: |"
     "false: Get module descriptor failed: |false: Name of sensor bin tele doesn't existed |"
     "false: Open tuning bin file failed: |noted: Parse module msg failed: |noted: Read tuning data for module failed: |"
     "noted: Read tuning data label from bin failed: |noted: Read tuning version len from bin failed: |"
     "noted: Read tuning version msg failed: "},
    {WITH_RESULT(Z::, FindAllJsonFiles, (w.dir.c_str(), w.list)),
     "lost readdir|false: Open directory failed: |lost: Open directory failed: |noted: Open directory failed: "},
    {WITH_RESULT(Z::, FindTuningBinFiles, (w.bins.c_str(), w.sensors, w.list)),
     "lost readdir|false: Open directory failed: "},
    {WITH_RESULT(Z::, GenerateDefaultModuleData, (w.dir.c_str(), "AfCommon")),
     "lost fopen write|false: Cannot find project dir: |false: Cannot find project proto folder |"
     "false: Cannot find project default folder |false: Get descriptor of module ZO_TUNING_AF.AfCommon failed"},
    // fread: the length in ProjConf.bin.
    {WITH_RESULT(Z::, GenerateProjTuningBins, (w.dir.c_str(), kRoot.c_str())),
     "lost fread readdir|false: Cannot open output bin file; |false: Cannot write output bin file; |"
     "false: Find json files failed from root: |false: Get module descriptor failed: |"
     "false: Get tuning label descriptor failed|false: GetVersionMsgs: Failed in json str -> msg. |"
     "false: GetVersionMsgs: Find json files failed |false: Missing default tuning data dir. |"
     "false: Missing sensor tuning data dir. |lost: Cannot found any json file |"
     "lost: FindAllJsonFiles: Open directory failed: |lost: GetProjectConfig: Failed in project config message |"
     "lost: GetVersionMsgs: Cannot find any version json file "},
    {WITH_RESULT(Z::, GenerateSpecificSensorBin, (w.dir.c_str(), kRoot.c_str())),
     "lost readdir|false: Cannot write output bin file; |false: GetVersionMsgs: Failed in json str -> msg. |"
     "false: GetVersionMsgs: Find json files failed |false: [Quokka] Error typing|"
     "false: [Quokka] Error to find desc from class name: Noise|"
     "false: [Quokka] Failed to find the path |false: [Quokka] Failed to open the tuning bin file|"
     "false: [Quokka] Find the Json files failed|false: [Quokka] Open the output default bin file |"
     "false: [Quokka] The folder |false: [Quokka] The module name |false: [Quokka] Tuning Data desc pointer is NULL|"
     "false: [Quokka] find the json file from |lost: FindAllJsonFiles: Open directory failed: |"
     "lost: GetVersionMsgs: Cannot find any version json file |lost: [Quokka] Error to get all json files |"
     "lost: [Quokka] Warning cannot find any json files "},
    {WITH_RESULT(Z::, GeneratedNewVersionHeader, (w.proto)),
     "lost fopen write readdir|false: Find all json files failed|false: Path is not existed: |"
     "false: [Error] Error to fill the string|false: [Error] File is not existed: |"
     "lost: HEADER_FILE_TO_STR: Fail to read json file: |lost: PARSE_VERSION_FROM_STR: Error to find the specific string|"
     "noted: STR_TO_HEADER_FILE: [Warning] the file is existed, remove it automatically."},
    {WITH_RESULT(nullptr != Z::, GetDescByClassName, (w.schema.importer(), "ZO_TUNING_AF.AfLinkKeyFar"))},
    {WITH_RESULT(Z::, GetProjectConfig, (w.dir.c_str(), w.out, w.list, w.names, w.new_map)),
     "lost fread|false: Get project config descriptor failed|false: Project dir is not existed |"
     "false: Project proto dir is not existed |lost: Failed in project config message initialization from bin"},
    {WITH_RESULT(Z::, GetProjectTuningLabelsMap, (w.label->GetDescriptor(), w.list, w.new_map))},
    {WITH_RESULT(Z::, GetTuningRootFolder, (w.dir.c_str(), w.list)),
     "lost readdir|false: Open directory failed: |false: Path is not existed: "},
    {WITH_RESULT(Z::, GetVersionMsgs, (w.version_dir.c_str(), w.version.get(), w.messages)),
     "lost readdir|false: Failed in json str -> msg. |false: Find json files failed |lost: Cannot find any version json "},
    {WITH_RESULT(, HEADER_FILE_TO_STR, (std::move(w.header), w.out)), "lost read|false: Fail to read json file: "},
    {WITHOUT_RESULT(w., Import, ()), "lost open read opendir readdir"},
    {WITH_RESULT(Z::, InitProjConfigMsg, (w.config.get(), w.config->GetDescriptor(), "proj", w.sensors))},
    {WITH_RESULT(Z::, InitProjConfigMsgFromBin,
                 (w.config.get(), w.config->GetDescriptor(), w.config_bin.c_str(), w.out, w.list)),
     "lost fread|false: Open project config bin file failed: |false: Read project config bin failed: "},
    {WITHOUT_RESULT(Z::, InitProjectConfig, (w.proto.c_str(), "fresh", w.sensors, kRoot.c_str())),
     "lost fopen fwrite mkdir|lost: MSG_TO_BIN: Cannot open output file |lost: GetDescByClassName: Find descriptor of "},
    {WITH_RESULT(, JSON_FILE_TO_STR, (w.json, w.out)), "lost read|false: Fail to read json file: "},
    {WITHOUT_RESULT(, JSON_STR_TO_FILE, (w.json, w.text)), "lost fopen write"},
    {WITHOUT_RESULT(, MSG_INIT_FOR_JSON, (w.af.get(), w.af->GetDescriptor()))},
    {WITHOUT_RESULT(, MSG_PRONE_FOR_BIN, (w.af.get(), w.af->GetDescriptor()))},
    {WITHOUT_RESULT(, MSG_TO_BIN, (w.config.get(), w.fresh.c_str())), "lost fwrite|lost: Cannot open output file "},
    {WITHOUT_RESULT(, MSG_TO_JSON_STR, (w.af.get(), w.af->GetDescriptor(), w.out))},
    {WITH_RESULT(, PARSE_VERSION_FROM_STR, (std::move(w.version_text), w.list))},
    {WITHOUT_RESULT(, PATH_TO_TUNING_CONFIG, (w.json, w.names, w.map, w.values))},
    {WITH_RESULT(Z::, ParseTuningLabelMsg, (w.label.get(), w.label->GetDescriptor(), w.names, w.values))},
    {WITH_RESULT(Z::, ParseVersionMsgFromBin, (w.bin, w.version.get(), w.messages)),
     "lost fread|false: Open default bin file failed: |false: Read tuning version len |false: Read tuning version msg "},
    {WITH_RESULT(, STR_TO_HEADER_FILE, (std::move(w.header), w.text)),
     "lost fopen write|noted: [Warning] the file is existed, remove it automatically."},
    {WITHOUT_RESULT(, TUNING_CONFIG_TO_PATH, (w.dir.c_str(), w.sensor, w.names, w.map, w.configs[1], w.out)),
     "lost mkdir"},
    {WITH_RESULT(Z::, UpdateProtoVersionJsonFile, (w.dir.c_str(), "AF", "9.9")),
     "lost fopen write|false: Cannot find project dir: |false: Cannot find project proto folder |"
     "false: Get tuning version descriptor failed|lost: Cannot find version name AF in proto version"},
};
// clang-format on

struct Ran {
  bool result = false, fired = false;
  std::string files, outputs;
  Strings lines;
};

bool Begins(const std::string& text, const std::string& begin) { return text.compare(0, begin.size(), begin) == 0; }

/// The outcome in the words of the table; empty when the fault changed nothing.
std::string Outcome(const Operation& operation, const Ran& clean, const Ran& run) {
  std::string said = ".";
  for (const std::string& line : run.lines) {  // "file.cpp:12 Function() message"
    const size_t begin = line.find(' ') + 1, end = line.find("() ", begin);
    const std::string text = line.substr(begin, end - begin) + ": " + line.substr(end + 3);
    const auto same = [&](const std::string& other) { return other.substr(other.find(' ') + 1) == line.substr(begin); };
    if (std::any_of(clean.lines.begin(), clean.lines.end(), same)) continue;
    said = Begins(text, operation.name + ": ") ? text.substr(operation.name.size()) : ": " + text;
  }
  if (!run.result) return "false" + said;
  if (run.files != clean.files || run.outputs != clean.outputs) return "lost" + said;
  return said == "." ? "" : "noted" + said;
}

class FaultTest : public ProjectTest {
 protected:
  FaultTest() {
    project_.Add("default", {{"AWGain.json", GainJson("1.5"), {}, ""}, {"AfCommon.json", kAfJson, {}, ""}});
    project_.Add("tele", {{"AWGain.json", GainJson("2"), {}, ""},
                          {"mode_1/scenario_Video/Noise.json", "{\"profile\": {}}", {}, ""}});
    Write(dir_ + "/proto/version/a.json", VersionJson("AE", "1"));
    Write(dir_ + "/proto/version/b.json", VersionJson("AF", "2"));
    Write(dir_ + "/tele/version/c.json", VersionJson("tele", "3"));
    Write(dir_ + "/src/ZoTuningVersion.h", "// a line that needs memory\n// [3AProto]\nold\n");
    fs::remove(project_.out);
    EXPECT_TRUE(Z::GenerateProjTuningBins(dir_.c_str(), project_.temp.str().c_str()));
    fs::rename(project_.temp / "zo_tuning", project_.temp / "bins");
    FeedStdin("0\n");
    std::strcpy(internal::debug_file_path, "debug.log");
    ZoDatacenterSettingDebugLevel = 1;
    google::protobuf::SetLogHandler(nullptr);
    std::cerr.rdbuf(nullptr);
    fs::current_path(project_.temp.str() + "/..");
  }
  ~FaultTest() override {
    close(nowhere_);
    fs::current_path(before_);
    std::cerr.rdbuf(cerr_);
    ZoDatacenterSettingDebugLevel = 0;
  }

  void StartOver() {
    fs::remove_all(kRoot);
    fs::copy(project_.temp.str(), kRoot, fs::copy_options::recursive);
  }

  /// Runs the operation on the project as it was while a call fails.
  Ran RunWith(const Operation& operation, const std::string& call, long nth) {
    if (files_.empty() || files_ != fresh_files_) {
      StartOver();
      fresh_files_ = Files();
    }
    Work work;
    // A header that stat fails for counts as missing, is removed, and waited for without end: this makes it again.
    std::atomic<bool> done{call != "stat"};
    std::thread maker([&done, header = work.header] {
      for (; !done; usleep(1000)) {
        if (access(header.c_str(), F_OK) != 0) Write(header, "made");
      }
    });
    const auto open_files = [] { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); };
    const int out = dup(STDOUT_FILENO);
    dup2(nowhere_, STDOUT_FILENO);
    std::rewind(stdin);
    g_used = 0;
    Ran run;
    std::string thrown;
    const auto open_before = open_files();
    alarm(120);
    try {
      fail_nth::Arm(call, nth);
      run.result = operation.run(work);
    } catch (const std::exception& error) {
      thrown = error.what();
    }
    run.fired = fail_nth::Fired();
    fail_nth::Arm("", 0);
    alarm(0);
    const auto open_after = open_files();
    done = true;
    maker.join();
    std::fflush(stdout);
    dup2(out, STDOUT_FILENO);
    close(out);
    EXPECT_EQ(thrown, "");
    EXPECT_EQ(open_after, open_before);
    files_ = run.files = Files();
    run.outputs = work.Outputs();
    for (size_t at = 0; at < g_used; at += run.lines.back().size() + 1) run.lines.emplace_back(g_lines + at);
    return run;
  }

  const std::string before_ = fs::current_path();
  std::streambuf* const cerr_ = std::cerr.rdbuf();
  const int nowhere_ = open("/dev/null", O_WRONLY | O_CLOEXEC);
  std::string fresh_files_, files_;
};

TEST_F(FaultTest, EveryOperationSurvivesEveryFault) {
  long faults = 0, memory_faults = 0;
  for (const Operation& operation : kOperations) {
    const Ran clean = RunWith(operation, "", 0);
    EXPECT_TRUE(clean.result) << operation.name;
    std::set<std::string> shown;
    std::istringstream all_shown(operation.shown);
    for (std::string one; std::getline(all_shown, one, '|');) shown.insert(one);
    std::set<std::string> unseen = shown;
    std::string lost = "lost";
    for (const std::string call : {"open", "fopen", "read", "fread", "write", "writev", "fwrite", "fflush", "fclose",
                                   "mkdir", "opendir", "readdir", "stat", "fstat", "new"}) {
      bool loses = false;
      for (long n = 1;; ++n) {
        SCOPED_TRACE(operation.name + ", " + call + " number " + std::to_string(n));
        const Ran run = RunWith(operation, call, n);
        if (!run.fired) break;
        ++(call == "new" ? memory_faults : faults);
        const std::string outcome = Outcome(operation, clean, run);
        const auto begins = [&](const std::string& begin) { return Begins(outcome, begin); };
        const auto known = std::find_if(shown.begin(), shown.end(), begins);
        if (outcome.empty()) continue;
        if (call == "new") {
          EXPECT_TRUE(outcome.find(": ") != std::string::npos && !(operation.has_result && run.result)) << outcome;
        } else if (outcome == "lost.") {
          loses = true;
        } else if (known == shown.end()) {
          ADD_FAILURE() << outcome;
        } else {
          unseen.erase(*known);
        }
      }
      if (loses) lost += " " + call;
    }
    EXPECT_EQ(unseen.erase(lost), lost == "lost" ? 0U : 1U) << operation.name << ": " << lost;
    EXPECT_THAT(unseen, IsEmpty()) << operation.name;
  }
  std::printf("survived %ld faults of the system and %ld of memory in %zu operations\n", faults, memory_faults,
              std::size(kOperations));
}

TEST_F(FaultTest, OddDisks) {
  const std::string gain = kRoot + "/proj/default/AWGain.json", out = kRoot + "/out";
  const auto link_to = [&](const char* target, const std::string& path) {
    fs::remove(path);
    ASSERT_EQ(symlink(target, path.c_str()), 0);
  };
  const std::string not_opened =
      "GenerateProjTuningBins() Cannot open output bin file; " + out + "/zo_tuning/default.bin";
  const std::string not_read = "GenerateProjTuningBins() Failed in json str->msg, please check if json data formats";
  const std::pair<std::function<void()>, std::string> rows[] = {
      {[&] { Write(out, ""); }, not_opened},
      {[&] { MakeDirs(out), link_to("nowhere", out + "/zo_tuning"); }, not_opened},
      {[&] { MakeDirs(out), link_to("AWGain.json", gain); }, not_read},
      {[&] { MakeDirs(out), link_to("..", gain); }, not_read},
      {[&] { MakeDirs(out), link_to(".", kRoot + "/proj/tele/round"); }, ""},
      {[&] { MakeDirs(out), MakeDirs(gain + ".json"); }, ""},
      {[&] { MakeDirs(out), fs::permissions(kRoot, fs::perms(0755)), BecomeNobody(); }, not_opened},
  };
  for (const auto& [make, line] : rows) {
    StartOver();
    const bool ran = InChild([&, make = make, line = line] {
      make();
      g_used = 0;
      EXPECT_EQ(Z::GenerateProjTuningBins((kRoot + "/proj").c_str(), out.c_str()), line.empty()) << g_lines;
      EXPECT_THAT(std::string(g_lines, g_used), HasSubstr(line));
    });
    if (!ran) GTEST_SKIP() << "this process may not become another user";
  }
}

TEST_F(FaultTest, AFileReplacedWhilePackingIsPackedOldOrNew) {
  StartOver();
  const std::string dir = kRoot + "/proj", gain = dir + "/default/AWGain.json";
  const auto replace = [&](bool long_text) {
    Write(kRoot + "/next", GainJson(long_text ? "1.5" : "-123456.75") + std::string(long_text ? 100000 : 0, ' '));
    fs::rename(kRoot + "/next", gain);
  };
  const auto packed = [&] {
    EXPECT_TRUE(Z::GenerateProjTuningBins(dir.c_str(), kRoot.c_str()));
    const std::string bin = Read(kRoot + "/zo_tuning/default.bin");
    fs::remove_all(kRoot + "/zo_tuning");
    return bin;
  };
  std::set<std::string> either;
  for (const bool long_text : {false, true}) replace(long_text), either.insert(packed());
  ASSERT_EQ(either.size(), 2U);
  std::atomic<bool> done{false};
  std::thread replacer([&] {
    for (int i = 0; !done; ++i) replace(i % 2 == 0);
  });
  for (int i = 0; i < 50; ++i) EXPECT_EQ(either.count(packed()), 1U);
  done = true;
  replacer.join();
}

}  // namespace
