#include <malloc.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>

#include "ZoTuningUtils.h"
#include "support/child.h"
#include "support/project.h"

namespace {

using namespace zotest;

class GenerateTest : public ProjectTest {
 protected:
  bool Generate() { return ZoTuningUtils::GenerateProjTuningBins(dir_.c_str(), project_.out.c_str()); }
  void Forget() { std::filesystem::remove_all(project_.out + "/zo_tuning"); }
  void Rewrite(const std::string& path, const std::string& old_text, const std::string& new_text) {
    std::string text = Read(path);
    Write(path, text.replace(text.find(old_text), old_text.size(), new_text));
  }
  void AddAFewSettings() {
    Write(dir_ + "/proto/version/a.json", VersionJson("AF", "1.0"));
    Write(dir_ + "/proto/version/b.json", VersionJson("AE", "2.3 ö"));
    Write(dir_ + "/tele/version/t.json", VersionJson("tele", ""));
    project_.Add("default", {{"AfCommon.json", kAfJson, {kAfCommon}, AfBytes()},
                             {"AWGain.json", GainJson("1.5"), {kAWGain}, GainBytes(1.5)}});
    const auto add = [&](const std::string& path, const std::string& json, const std::vector<int>& label,
                         const std::string& bytes) {
      project_.Add("tele", {{path, json, label, bytes}});
    };
    add("mode_1/scenario_Video/AWGain.json", GainJson("-0.25"), {kAWGain, 1, 1}, GainBytes(-0.25));
    add("mode_1/PdCalib.json", R"({"slope": {"value": [1.5, -2]}})", {kPdCalib, 1},
        Len(1, Len(1, Raw(1.5F) + Raw(-2.0F))));
    // Accepted by protobuf: an extra comma.
    add("AEMeter.json", R"({"weight": {"value": [{"col": [true, false,]}], "rule": {}}})", {kAEMeter},
        Len(1, Len(1, Len(1, Varint(1) + Varint(0)))));
    add("filter_Mono/Noise.json", R"({"profile": {"value": ["-9007199254740993"]}})",
        {kNoise, -1, -1, -1, -1, -1, -1, 1}, Len(1, Len(1, Varint(-9007199254740993))));
    add("mode_2/scenario_Photo/AfLinkKeyTable.json", R"({"key": {"value": 4000000000}})", {kAfLinkKeyTable, 2, 0},
        Len(1, Int(1, 4000000000)));
    // A label of only zeros takes no bytes.
    add("mode_0/scenario_Photo/feature0_None/function_Base/sub_function_Main/scene_Day/filter_Off/AfCommon.json",
        kAfJson, {0, 0, 0, 0, 0, 0, 0, 0}, AfBytes());
  }
};

TEST_F(GenerateTest, PacksEveryScopeByteForByte) {
  MakeDirs(dir_ + "/wide ö/version");
  Write(dir_ + "/ProjConf.bin", Item(ConfigBytes("proj", {"tele", "wide ö"})));
  AddAFewSettings();
  EXPECT_TRUE(Generate());
  EXPECT_EQ(Tree(project_.out),
            (Strings{"zo_tuning/", "zo_tuning/default.bin", "zo_tuning/tele.bin", "zo_tuning/wide ö.bin"}));
  EXPECT_EQ(Mode(project_.out + "/zo_tuning"), 0700U);
  for (const std::string scope : {"default", "tele"}) EXPECT_EQ(Read(BinPath(scope)), project_.Bin(scope)) << scope;
  EXPECT_EQ(Read(BinPath("wide ö")), I32(0));
  EXPECT_LOG(W("GetVersionMsgs", "Cannot find any version json file under dir: " + dir_ + "/wide ö/version"),
             W("GenerateProjTuningBins", "Cannot found any json file under dir: " + dir_ + "/wide ö"));

  // A configuration without sensors.
  Forget();
  Write(dir_ + "/ProjConf.bin", "");
  EXPECT_TRUE(Generate());
  EXPECT_EQ(Tree(project_.out), (Strings{"zo_tuning/", "zo_tuning/default.bin"}));
}

// ---- One sensor, chosen on standard input ----

const std::string kAll = "GenerateProjTuningBins";
const std::string kOne = "GenerateSpecificSensorBin";

class GenerateSpecificTest : public GenerateTest {
 protected:
  /// Runs with `input`, in a child; `output` receives what is printed.
  bool Run(const std::string& input, std::string* output) {
    FeedStdin(input);
    testing::internal::CaptureStdout();
    const bool result = ZoTuningUtils::GenerateSpecificSensorBin(dir_.c_str(), project_.out.c_str());
    *output = testing::internal::GetCapturedStdout();
    return result;
  }
};

TEST_F(GenerateSpecificTest, EitherIsTrueOnlyWhenEveryByteReachedTheFile) {
  // Larger than a stream's buffer, so that writing can fail before the file is closed.
  const auto noise = [](size_t count) {
    std::string list = "1";
    for (size_t i = 1; i < count; ++i) list += ",1";
    return Setting{
        "Noise.json", "{\"profile\": {\"value\": [" + list + "]}}", {kNoise}, Len(1, Len(1, std::string(count, '\1')))};
  };
  project_.Add("default", {noise(300'000)});
  project_.Add("tele", {noise(600'000)});
  const std::string small = project_.Bin("default"), large = project_.Bin("tele");
  for (const size_t limit : {size_t{0}, size_t{4}, small.size() - 1, small.size(), large.size() - 1, large.size()}) {
    for (const bool only_one : {false, true}) {
      Forget();
      ASSERT_TRUE(InChild([&] {
        LimitFileSize(limit);
        const bool whole = limit >= large.size();
        const std::string scope = limit < small.size() ? "default" : "tele";
        std::string output;
        EXPECT_EQ(only_one ? Run("0\n", &output) : Generate(), whole) << limit;
        const Strings lines = TakeLog(6);
        if (!whole) {
          ASSERT_FALSE(lines.empty());
          EXPECT_THAT(lines.back(), AllOf(StartsWith("6 " + (only_one ? kOne : kAll) + ": "), HasSubstr(BinPath(scope)),
                                          HasSubstr(std::strerror(EFBIG))));
        }
        const std::string bytes = Read(BinPath(scope));
        EXPECT_TRUE(bytes == (scope == "default" ? small : large).substr(0, bytes.size()));
        EXPECT_EQ(bytes.size(), whole ? large.size() : limit);
        EXPECT_EQ(Exists(BinPath("tele")), scope == "tele");
      })) << "limits cannot be set";
    }
  }
}

// A label with -1 in a field of an enum must not make libprotobuf keep anything for it.
TEST_F(GenerateTest, PackingAgainTakesNoMoreMemory) {
  AddAFewSettings();
  const auto pack = [&](int times) {
    for (int i = 0; i < times; ++i) {
      EXPECT_TRUE(Generate());
      (void)TakeLog();
      Forget();
    }
    return static_cast<int64_t>(mallinfo2().uordblks);
  };
  const int64_t before = pack(30);
  EXPECT_LT(pack(100), before + 100 * 200);
}

TEST_F(GenerateTest, PacksTextsOfSizesAroundEveryBuffer) {
  for (const size_t around : {size_t{4096}, size_t{8192}, size_t{65536} - 64, size_t{65536}}) {
    for (const size_t size : {around - 1, around, around + 1}) {
      std::string json = GainJson("1.5");
      json.insert(1, size - json.size(), ' ');
      Project project;
      project.Add("default", {{"AWGain.json", json, {kAWGain}, GainBytes(1.5)}});
      MakeDirs(project.dir + "/tele/version");
      EXPECT_TRUE(ZoTuningUtils::GenerateProjTuningBins(project.dir.c_str(), project.out.c_str())) << size;
      EXPECT_EQ(Read(project.out + "/zo_tuning/default.bin"), project.Bin("default")) << size;
    }
  }
  (void)TakeLog();
}

TEST_F(GenerateSpecificTest, PacksDefaultAndTheSensorChosen) {
  MakeDirs(dir_ + "/wide%s/version");
  Write(dir_ + "/ProjConf.bin", Item(ConfigBytes("proj", {"missing", "tele", "gone", "wide%s"})));
  project_.Add("tele", {{"mode_1/AWGain.json", "{}", {kAWGain, 1}, Len(1, "")}});  // a missing field is allowed here
  project_.Add("default", {{"AWGain.json", GainJson("2"), {kAWGain}, GainBytes(2)}});
  Write(dir_ + "/tele/version/a.json", VersionJson("T", "1"));
  const std::string getcha = E(kOne, "[Quokka] Getcha the json is " + dir_ + "/default/AWGain.json");
  const std::string nothing_in = E(kOne, "[Quokka] Warning cannot find any json files under " + dir_ + "/wide%s");
  const std::string wrong = E(kOne, "[Quokka] Error typing\n");
  struct Row {
    std::string input, chosen;
    Strings lines;
  };
  for (const Row& row :
       {Row{"0\n", "tele", {getcha}}, Row{"0x1", "tele", {getcha}}, Row{" \n\t+1 rest", "wide%s", {getcha, nothing_in}},
        Row{"2", "", {getcha, wrong}}, Row{"-1", "", {getcha, wrong}}, Row{"", "", {getcha, wrong}},
        Row{"tele\n", "", {getcha, wrong}}}) {
    Forget();
    ASSERT_TRUE(InChild([&] {
      std::string printed;
      EXPECT_EQ(Run(row.input, &printed), !row.chosen.empty());
      EXPECT_THAT(printed, testing::ContainsRegex("0[^0-9]*tele(.|\n)*1[^0-9]*wide%s"));
      EXPECT_THAT(printed, testing::Not(HasSubstr("gone")));
      EXPECT_EQ(TakeLog(6), row.lines);
    })) << row.input;
    EXPECT_EQ(Read(BinPath("default")), project_.Bin("default"));
    for (const std::string sensor : {"tele", "wide%s"}) ASSERT_EQ(Exists(BinPath(sensor)), sensor == row.chosen);
    if (!row.chosen.empty()) {
      EXPECT_EQ(Read(BinPath(row.chosen)), project_.Bin(row.chosen));
    }
  }
}

// ---- Failures, for which the operations have different log lines ----

/// A fault in a project without settings, and its consequences.
struct Fault {
  std::function<void()> put;
  std::string told;                    // the functions that report it before the operation does
  std::string all, one;                // the line of either operation; empty for none, "-" if it is not a fault
  std::string scope = "", bytes = "";  // the bin that was started last, and its contents
  std::string printed = "";
};

class GenerateFaultTest : public GenerateSpecificTest {
 protected:
  void Expect(const Fault& fault) {
    for (const bool only_one : {false, true}) {
      const std::string& own = only_one ? fault.one : fault.all;
      if (own == "-") continue;
      SCOPED_TRACE((only_one ? "one sensor: " : "all: ") + own + fault.told);
      for (const std::string& dir : {dir_, project_.out}) std::filesystem::remove_all(dir);
      const Project fresh;
      std::filesystem::rename(fresh.dir, dir_);
      MakeDirs(project_.out);
      fault.put();
      ASSERT_TRUE(InChild([&] {
        std::string output, told, line;
        const std::string errors = StderrOf([&] { EXPECT_FALSE(only_one ? Run("0\n", &output) : Generate()); });
        EXPECT_THAT(errors, StartsWith(fault.printed));
        for (const std::string& error : TakeLog(6)) {
          const std::string function = error.substr(2, error.find(':') - 2);
          // These have error priority, but are not faults.
          if (error.find("Getcha") != error.npos || error.find("from default folder") != error.npos) continue;
          if (function != (only_one ? kOne : kAll))
            told += (told.empty() ? "" : " ") + function;
          else
            line += error;
        }
        EXPECT_EQ(told, fault.told);
        EXPECT_EQ(line, own.empty() ? "" : E(only_one ? kOne : kAll, own));
      }));
      for (const std::string bin : {"default", "tele"}) {
        ASSERT_EQ(Exists(BinPath(bin)), bin == fault.scope || fault.scope == "tele") << bin;
        if (Exists(BinPath(bin))) {
          EXPECT_EQ(Read(BinPath(bin)), bin == fault.scope ? fault.bytes : none_) << bin;
        }
      }
    }
  }

  std::function<void()> Drop(const std::string& path) const {
    return [=] { std::filesystem::remove_all(path); };
  }
  std::function<void()> Put(const std::string& path, const std::string& text) const {
    return [=] { Write(dir_ + path, text); };
  }
  /// Changes the schema, and adds an unrelated setting.
  std::function<void()> Retype(const std::string& from, const std::string& to, const std::string& json = "/a") {
    return [=] {
      Rewrite(dir_ + "/proto/project.proto", from, to);
      Write(dir_ + json, "{}");
    };
  }

  const std::string none_ = I32(0), default_ = dir_ + "/default", folder_ = project_.out + "/zo_tuning";
};

TEST_F(GenerateFaultTest, InWhatTheProjectHolds) {
  Expect({[&] { MakeDirs(folder_); }, "", "Bin folder has been existed, please remove. " + folder_,
          "[Quokka] Output folder is existed: " + folder_ + ", please remove them!\n"});
  Expect({Retype("TuningDataLabel", "Other"), "GetDescByClassName GetProjectConfig GetDescByClassName",
          "Get tuning label descriptor failed", "[Quokka] Tuning Data desc pointer is NULL"});
  Expect({Retype("message Version", "message Other"), "GetDescByClassName", "Get tuning version descriptor failed",
          "Get tuning version descriptor failed"});
  for (const std::string scope : {"/proto", "/tele"})
    Expect({Drop(dir_ + scope + "/version"), "FindAllJsonFiles GetVersionMsgs", "", ""});
  Expect({Put("/tele/version/a.json", "{"), "JSON_STR_TO_MSG GetVersionMsgs", "", ""});
  Expect({Drop(default_), "", "Missing default tuning data dir. " + default_,
          "[Quokka] The folder " + default_ + " path is not existed\n"});
  Expect({[&] { Drop(default_)(), Write(default_, ""); }, "FindAllJsonFiles",
          "Find json files failed from root: " + default_, "[Quokka] find the json file from " + default_ + " failed",
          "default", none_});
  Expect({Drop(project_.out), "", "Cannot open output bin file; " + BinPath("default"),
          "[Quokka] Open the output default bin file (" + BinPath("default") + ") failed\n"});
  const auto sensor_is_below_another = [&] {
    Write(dir_ + "/ProjConf.bin", Item(ConfigBytes("p", {"tele/version"})));
    MakeDirs(dir_ + "/tele/version/version");
  };
  Expect({sensor_is_below_another, "", "Cannot open output bin file; " + BinPath("tele/version"),
          "[Quokka] Failed to open the tuning bin file", "default", none_});
}

TEST_F(GenerateFaultTest, InASetting) {
  const std::string gain = none_ + Item(LabelBytes({kAWGain})), ghost = none_ + Item(LabelBytes({kGhost}));
  const std::string bad_label = "GetProjectTuningLabelsMap GetProjectConfig InitTuningLabelMsg";
  Expect({Retype("int32 mode", "string mode", "/default/AWGain.json"), bad_label,
          "Failed in tuning label initialization",
          "[Quokka] Using Reflection to write the config index to tuning data lable desc failed\n", "default", none_});
  Expect({Retype("int32 mode", "string mode", "/tele/AWGain.json"), bad_label, "Failed in tuning label initialization",
          "[Quokka] Error to write the config to tuning data lable msg", "tele", none_});
  Expect({Put("/default/Ghost.json", ""), "GetDescByClassName", "Get module descriptor failed: Ghost",
          "[Quokka] The module name Ghost cannot be found", "default", ghost});
  Expect({Put("/tele/Ghost.json", ""), "GetDescByClassName", "Get module descriptor failed: Ghost",
          "[Quokka] Error to find desc from class name: Ghost", "tele", ghost});
  Expect({Put("/default/Other.json", ""), "PATH_TO_TUNING_CONFIG GetDescByClassName", "Get module descriptor failed: ",
          "[Quokka] The module name  cannot be found", "default", none_ + Item(LabelBytes({}))});
  const std::string no_fit = "Failed in json str->msg, please check if json data formats are valid or not";
  const std::string no_write = "[Quokka] Json write to message failed";
  Expect({Put("/default/AWGain.json", "{\"%s\"}"), "JSON_STR_TO_MSG", no_fit, no_write, "default", gain});
  Expect({Put("/tele/AWGain.json", "["), "JSON_STR_TO_MSG",
          "Failed in json str -> msg, please check if json data formats are valid or not",
          "[Quokka] error to translate the json file to message", "tele", gain});
  const auto unreadable = [&] { std::filesystem::create_symlink("nowhere", default_ + "/AWGain.json"); };
  Expect({unreadable, "JSON_FILE_TO_STR JSON_STR_TO_MSG", no_fit, no_write, "default", gain});
  // A field that the text does not mention, on the fast path and on the slow path.
  for (const std::string scope : {"default", "tele"}) {
    Expect({Put("/" + scope + "/AWGain.json", "{}"), "", no_fit, "-", scope, gain,
            "Error: Field 'gain' not found in Json.\n"});
    Expect({Put("/" + scope + "/AfCommon.json", R"({"enable": null, "curve": {}, "limits": {"table": {}}})"), "",
            no_fit, "-", scope, none_ + Item(LabelBytes({kAfCommon})), "Error: Field 'near' not found in Json.\n"});
  }
}

// ---- Size ----

TEST_F(GenerateTest, TwentyMegabytesOfJson) {
  std::string json = "{\"profile\": {\"value\": [1";
  std::string values = Varint(1);
  while (json.size() < 20'000'000) {
    json += ", 1234567";
    values += Varint(1234567);
  }
  json += "]}}";
  project_.Add("tele", {{"mode_1/Noise.json", json, {kNoise, 1}, Len(1, Len(1, values))}});
  EXPECT_TRUE(Generate());
  EXPECT_TRUE(Read(BinPath("tele")) == project_.Bin("tele"));  // without printing both
  // The same text with a fault is logged completely.
  Forget();
  json.pop_back();
  Write(dir_ + "/tele/mode_1/Noise.json", json);
  StderrOf([&] { EXPECT_FALSE(Generate()); });
  EXPECT_TRUE(TakeLog(6).at(0) == E("JSON_STR_TO_MSG", "Fail to parse json string " + json));
}

TEST_F(GenerateTest, ProjectsBeyondThePathBuffers) {
  std::string deep = project_.temp.str();
  while (deep.size() < 1100) deep += "/" + std::string(100, 'd');
  MakeDirs(deep);
  std::filesystem::rename(dir_, deep + "/proj");
  project_.dir = deep + "/proj";
  project_.out = deep;
  project_.Add("default", {{"AWGain.json", GainJson("2"), {kAWGain}, GainBytes(2)}});
  Write(dir_ + "/default/mode_1/AWGain.json", "below a path that is cut");
  EXPECT_TRUE(Generate());
  const std::string cut = (dir_ + "/default/mode_1").substr(0, 1023);
  EXPECT_ERRORS(E("FindAllJsonFiles", "Open directory failed: " + cut));
  EXPECT_EQ(Read(BinPath("default")), I32(0) + Item(LabelBytes({kAWGain})) + Item(GainBytes(2)));
}

}  // namespace
