// Every operation that uses the disk or memory, with the first, second, third, ... call of one system function failing
// until it finishes without a fault: a failure shows in the log, and silent losses are listed. Also states of the disk
// that no other test creates.

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
#include <thread>

#include "ZoTuningUtils.h"
#include "faults/fail_nth.h"
#include "log/debug_file.h"
#include "support/child.h"
#include "support/project.h"

// Warnings and errors as logged. Stored without allocation; each ends in a zero byte.
static char g_lines[1 << 16];
static size_t g_used = 0;

// Replaces the log calls of the library and of this file.
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

/// Inputs and outputs of the operations. Created before a fault is armed, so that they have their memory.
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
  /// The calls whose failure silently loses something, or silently makes the operation fail.
  const char* loses = "";
};

#define WITH_RESULT(scope, name, arguments) \
#name, true, []([[maybe_unused]] Work & w) { return bool{scope name arguments}; }
#define WITHOUT_RESULT(scope, name, arguments) \
#name, false, []([[maybe_unused]] Work & w) { return scope name arguments, true; }

// clang-format off
const Operation kOperations[] = {
    {WITHOUT_RESULT(, ADD_GITKEEP_TO_DIR, (w.dir)), "fopen"},
    {WITHOUT_RESULT(, ADD_NAMESPACE_TO_CLASSNAME, (w.version_text, w.out))},
    {WITH_RESULT(, CONSIST_VERSION_TO_STR, (w.text, std::move(w.sensors)))},
    {WITH_RESULT(Z::, CreateMultipleNewTuningSetting, (w.dir.c_str(), w.names, w.map, w.sensor, w.configs)), "fopen read write mkdir"},
    {WITH_RESULT(Z::, CreateNewTuningSetting, (w.dir.c_str(), w.names, w.map, w.sensor, w.configs[0])), "fopen read write mkdir"},
    {WITHOUT_RESULT(, DatacenterLoggerFunction, ("a.cpp", 1, "F", 2, 1, "%s", "text"))},
    {WITH_RESULT(Z::, DumpBinVersions, (w.dir.c_str(), w.bins.c_str())), "readdir"},
    {WITH_RESULT(Z::, DumpProjTuningBins, (w.dir.c_str(), w.bins.c_str()))},
    {WITH_RESULT(Z::, FindAllJsonFiles, (w.dir.c_str(), w.list)), "readdir"},
    {WITH_RESULT(Z::, FindTuningBinFiles, (w.bins.c_str(), w.sensors, w.list)), "readdir"},
    {WITH_RESULT(Z::, GenerateDefaultModuleData, (w.dir.c_str(), "AfCommon")), "fopen write"},
    {WITH_RESULT(Z::, GenerateProjTuningBins, (w.dir.c_str(), kRoot.c_str())), "fread readdir"},
    {WITH_RESULT(Z::, GenerateSpecificSensorBin, (w.dir.c_str(), kRoot.c_str())), "readdir"},
    {WITH_RESULT(Z::, GeneratedNewVersionHeader, (w.proto)), "fopen write readdir"},
    {WITH_RESULT(nullptr != Z::, GetDescByClassName, (w.schema.importer(), "ZO_TUNING_AF.AfLinkKeyFar"))},
    {WITH_RESULT(Z::, GetProjectConfig, (w.dir.c_str(), w.out, w.list, w.names, w.new_map)), "fread"},
    {WITH_RESULT(Z::, GetProjectTuningLabelsMap, (w.label->GetDescriptor(), w.list, w.new_map))},
    {WITH_RESULT(Z::, GetTuningRootFolder, (w.dir.c_str(), w.list)), "readdir"},
    {WITH_RESULT(Z::, GetVersionMsgs, (w.version_dir.c_str(), w.version.get(), w.messages)), "readdir"},
    {WITH_RESULT(, HEADER_FILE_TO_STR, (std::move(w.header), w.out)), "read"},
    {WITHOUT_RESULT(w., Import, ()), "open read opendir readdir"},
    {WITH_RESULT(Z::, InitProjConfigMsg, (w.config.get(), w.config->GetDescriptor(), "proj", w.sensors))},
    {WITH_RESULT(Z::, InitProjConfigMsgFromBin, (w.config.get(), w.config->GetDescriptor(), w.config_bin.c_str(), w.out, w.list)), "fread"},
    {WITHOUT_RESULT(Z::, InitProjectConfig, (w.proto.c_str(), "fresh", w.sensors, kRoot.c_str())), "fopen fwrite mkdir"},
    {WITH_RESULT(, JSON_FILE_TO_STR, (w.json, w.out)), "read"},
    {WITHOUT_RESULT(, JSON_STR_TO_FILE, (w.json, w.text)), "fopen write"},
    {WITHOUT_RESULT(, MSG_INIT_FOR_JSON, (w.af.get(), w.af->GetDescriptor()))},
    {WITHOUT_RESULT(, MSG_PRONE_FOR_BIN, (w.af.get(), w.af->GetDescriptor()))},
    {WITHOUT_RESULT(, MSG_TO_BIN, (w.config.get(), w.fresh.c_str())), "fwrite"},
    {WITHOUT_RESULT(, MSG_TO_JSON_STR, (w.af.get(), w.af->GetDescriptor(), w.out))},
    {WITH_RESULT(, PARSE_VERSION_FROM_STR, (std::move(w.version_text), w.list))},
    {WITHOUT_RESULT(, PATH_TO_TUNING_CONFIG, (w.json, w.names, w.map, w.values))},
    {WITH_RESULT(Z::, ParseTuningLabelMsg, (w.label.get(), w.label->GetDescriptor(), w.names, w.values))},
    {WITH_RESULT(Z::, ParseVersionMsgFromBin, (w.bin, w.version.get(), w.messages)), "fread"},
    {WITH_RESULT(, STR_TO_HEADER_FILE, (std::move(w.header), w.text)), "fopen write"},
    {WITHOUT_RESULT(, TUNING_CONFIG_TO_PATH, (w.dir.c_str(), w.sensor, w.names, w.map, w.configs[1], w.out)), "mkdir"},
    {WITH_RESULT(Z::, UpdateProtoVersionJsonFile, (w.dir.c_str(), "AF", "9.9")), "fopen write"},
};
// clang-format on

struct Ran {
  bool result = false, fired = false;
  std::string files, outputs;
  Strings lines;
};

/// What the lines of a run say beyond those of a run without a fault.
bool SaysMore(const Ran& clean, const Ran& run) {
  return std::any_of(run.lines.begin(), run.lines.end(), [&](const std::string& line) {
    const auto same = [&](const std::string& other) {  // "file.cpp:12 Function() message"
      return other.substr(other.find(' ')) == line.substr(line.find(' '));
    };
    return std::none_of(clean.lines.begin(), clean.lines.end(), same);
  });
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

  /// Runs the operation on a fresh copy of the project while a call fails.
  Ran RunWith(const Operation& operation, const std::string& call, long nth) {
    if (files_.empty() || files_ != fresh_files_) {
      StartOver();
      fresh_files_ = Files();
    }
    Work work;
    // If stat fails for a header, it counts as missing, is removed, and waited for endlessly: this creates it again.
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

class OperationTest : public FaultTest, public testing::WithParamInterface<Operation> {
 protected:
  static void TearDownTestSuite() {
    std::printf("survived %ld faults of the system and %ld of memory in %ld operations\n", faults_, memory_faults_,
                operations_);
  }

  static long operations_, faults_, memory_faults_;
};
long OperationTest::operations_ = 0, OperationTest::faults_ = 0, OperationTest::memory_faults_ = 0;

TEST_P(OperationTest, SurvivesEveryFault) {
  const Operation& operation = GetParam();
  const Ran clean = RunWith(operation, "", 0);
  EXPECT_TRUE(clean.result);
  ++operations_;
  std::string loses;
  for (const std::string call : {"open", "fopen", "read", "fread", "write", "writev", "fwrite", "fflush", "fclose",
                                 "mkdir", "opendir", "readdir", "stat", "fstat", "new"}) {
    bool lost = false;
    for (long n = 1;; ++n) {
      SCOPED_TRACE(call + " number " + std::to_string(n));
      const Ran run = RunWith(operation, call, n);
      if (!run.fired) break;
      ++(call == "new" ? memory_faults_ : faults_);
      const bool told = SaysMore(clean, run);
      const bool same = run.result && run.files == clean.files && run.outputs == clean.outputs;
      if (call != "new") {
        lost = lost || !(same || told);
      } else if (!same || told) {
        EXPECT_TRUE(told && !(operation.has_result && run.result));
      }
    }
    if (lost) loses += (loses.empty() ? "" : " ") + call;
  }
  EXPECT_EQ(loses, operation.loses);
}

INSTANTIATE_TEST_SUITE_P(Every, OperationTest, testing::ValuesIn(kOperations),
                         [](const auto& operation) { return operation.param.name; });

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
