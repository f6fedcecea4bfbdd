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
    // By protobuf's leniency: a comma too many.
    add("AEMeter.json", R"({"weight": {"value": [{"col": [true, false,]}], "rule": {}}})", {kAEMeter},
        Len(1, Len(1, Len(1, Varint(1) + Varint(0)))));
    add("filter_Mono/Noise.json", R"({"profile": {"value": ["-9007199254740993"]}})",
        {kNoise, -1, -1, -1, -1, -1, -1, 1}, Len(1, Len(1, Varint(-9007199254740993))));
    add("mode_2/scenario_Photo/AfLinkKeyTable.json", R"({"key": {"value": 4000000000}})", {kAfLinkKeyTable, 2, 0},
        Len(1, Int(1, 4000000000)));
    // A label of zeros alone takes no bytes.
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

  // A configuration that names no sensor.
  Forget();
  Write(dir_ + "/ProjConf.bin", "");
  EXPECT_TRUE(Generate());
  EXPECT_EQ(Tree(project_.out), (Strings{"zo_tuning/", "zo_tuning/default.bin"}));
}

TEST_F(GenerateTest, IsTrueOnlyWhenEveryByteReachedTheFile) {
  AddAFewSettings();
  project_.Add("tele", {{"mode_7/AWGain.json", GainJson("7"), {kAWGain, 7}, GainBytes(7)}});
  const std::string small = project_.Bin("default");
  const std::string large = project_.Bin("tele");
  ASSERT_LT(small.size(), large.size());
  for (const size_t limit :
       {size_t{0}, size_t{3}, size_t{4}, small.size() - 1, small.size(), large.size() - 1, large.size()}) {
    Forget();
    ASSERT_TRUE(InChild([&] {
      LimitFileSize(limit);
      const bool whole = limit >= large.size();
      EXPECT_EQ(Generate(), whole) << limit;
      const std::string scope = limit < small.size() ? "default" : "tele";
      if (!whole) {
        EXPECT_ERRORS(AllOf(StartsWith("6 GenerateProjTuningBins: "), HasSubstr(BinPath(scope)),
                            HasSubstr(std::strerror(EFBIG))));
      }
      const std::string bytes = Read(BinPath(scope));
      EXPECT_EQ(bytes, (scope == "default" ? small : large).substr(0, bytes.size()));
      EXPECT_EQ(bytes.size(), whole ? large.size() : limit);
      EXPECT_EQ(Exists(BinPath("tele")), scope == "tele");
    })) << "limits cannot be set";
  }
}

TEST_F(GenerateTest, AFullDiskIsAFailure) {
  std::string list;
  for (int i = 0; i < 20000; ++i) list += "1,";
  project_.Add("tele", {{"Noise.json",
                         "{\"profile\": {\"value\": [" + list + "1]}}",
                         {kNoise},
                         Len(1, Len(1, std::string(20001, '\1')))}});
  const std::string whole = project_.Bin("tele");
  const bool ran = InChild([&] {
    MountSmallDisk(project_.out, 8192);
    EXPECT_FALSE(Generate());
    EXPECT_ERRORS(AllOf(HasSubstr(BinPath("tele")), HasSubstr(std::strerror(ENOSPC))));
    EXPECT_EQ(Read(BinPath("default")), I32(0));
    const std::string written = Read(BinPath("tele"));
    EXPECT_GT(written.size(), 0U);
    EXPECT_EQ(written, whole.substr(0, written.size()));
  });
  if (!ran) GTEST_SKIP() << "this process may not mount a disk";
}

// ---- One sensor, chosen on standard input ----

const std::string kAll = "GenerateProjTuningBins";
const std::string kOne = "GenerateSpecificSensorBin";

class GenerateSpecificTest : public GenerateTest {
 protected:
  /// Runs with `input`, in a child; `output` gets what is printed.
  bool Run(const std::string& input, std::string* output) {
    FeedStdin(input);
    testing::internal::CaptureStdout();
    const bool result = ZoTuningUtils::GenerateSpecificSensorBin(dir_.c_str(), project_.out.c_str());
    *output = testing::internal::GetCapturedStdout();
    return result;
  }
};

TEST_F(GenerateSpecificTest, PacksDefaultAndTheSensorChosen) {
  MakeDirs(dir_ + "/wide%s/version");
  Write(dir_ + "/ProjConf.bin", Item(ConfigBytes("proj", {"missing", "tele", "gone", "wide%s"})));
  project_.Add("tele", {{"mode_1/AWGain.json", "{}", {kAWGain, 1}, Len(1, "")}});  // a missing field is no fault here
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

// ---- Failures, which either operation words in its own way ----

TEST_F(GenerateSpecificTest, EndsAtTheFirstFailureAndKeepsWhatWasWritten) {
  using Step = std::function<void()>;
  const std::string none = I32(0);
  const std::string gain = none + Item(LabelBytes({kAWGain}));
  const std::string ghost = none + Item(LabelBytes({kGhost}));
  const std::string defaults = dir_ + "/default";
  const std::string folder = project_.out + "/zo_tuning";
  // The fault is put into a project that holds no settings. `lines` come ahead of the operation's own, which is none
  // when empty; "-" where it is no fault. `scope` is the bin that was begun last, with these bytes.
  const auto check = [&](const Step& put_fault, const Strings& lines, const std::string& all, const std::string& one,
                         const std::string& scope = "", const std::string& bytes = "",
                         const std::string& printed = "") {
    for (const bool only_one : {false, true}) {
      const std::string& own = only_one ? one : all;
      if (own == "-") continue;
      SCOPED_TRACE((only_one ? "one sensor: " : "all: ") + own);
      for (const std::string& dir : {dir_, project_.out}) std::filesystem::remove_all(dir);
      const Project fresh;
      std::filesystem::rename(fresh.dir, dir_);
      MakeDirs(project_.out);
      put_fault();
      ASSERT_TRUE(InChild([&] {
        std::string output;
        const std::string errors = StderrOf([&] { EXPECT_FALSE(only_one ? Run("0\n", &output) : Generate()); });
        EXPECT_THAT(errors, StartsWith(printed));
        Strings wanted = lines, found;
        if (!own.empty()) wanted.push_back(E(only_one ? kOne : kAll, own));
        for (const std::string& line : TakeLog(6)) {
          // These stand at error priority, but are no faults.
          if (line.find("Getcha") == line.npos && line.find("from default folder") == line.npos) found.push_back(line);
        }
        EXPECT_EQ(found, wanted);
      }));
      for (const std::string bin : {"default", "tele"}) {
        ASSERT_EQ(Exists(BinPath(bin)), bin == scope || scope == "tele") << bin;
        if (Exists(BinPath(bin))) {
          EXPECT_EQ(Read(BinPath(bin)), bin == scope ? bytes : none) << bin;
        }
      }
    }
  };
  const auto drop = [](const std::string& path) { return [=] { std::filesystem::remove_all(path); }; };
  const auto put = [&](const std::string& path, const std::string& text) { return [=] { Write(dir_ + path, text); }; };
  const auto retype = [&](const std::string& from, const std::string& to, const std::string& json = "") {
    return [=] {
      Rewrite(dir_ + "/proto/project.proto", from, to);
      if (!json.empty()) Write(dir_ + json, "{}");
    };
  };
  const auto unlisted = [](const std::string& dir) { return E("FindAllJsonFiles", "Open directory failed: " + dir); };
  const auto unparsed = [](const std::string& text) {
    return E("JSON_STR_TO_MSG", "Fail to parse json string " + text);
  };
  const auto versions = [](const std::string& text) { return E("GetVersionMsgs", text); };

  const Step folder_exists = [&] { MakeDirs(folder); };
  check(folder_exists, {}, "Bin folder has been existed, please remove. " + folder,
        "[Quokka] Output folder is existed: " + folder + ", please remove them!\n");
  check(retype("TuningDataLabel", "Other"),
        {NoType("ZO_TUNING.TuningDataLabel"), E("GetProjectConfig", "Get tuning label descriptor failed"),
         NoType("ZO_TUNING.TuningDataLabel")},
        "Get tuning label descriptor failed", "[Quokka] Tuning Data desc pointer is NULL");
  check(retype("message Version", "message Other"), {NoType("ZO_TUNING.Version")},
        "Get tuning version descriptor failed", "Get tuning version descriptor failed");
  for (const std::string& scope : {dir_ + "/proto", dir_ + "/tele"}) {
    check(drop(scope + "/version"),
          {unlisted(scope + "/version"), versions("Find json files failed from root: " + scope + "/version")}, "", "");
  }
  check(put("/tele/version/a.json", "{"),
        {unparsed("{"), versions("Failed in json str -> msg. for verion json file " + dir_ + "/tele/version/a.json")},
        "", "");
  check(drop(defaults), {}, "Missing default tuning data dir. " + defaults,
        "[Quokka] The folder " + defaults + " path is not existed\n");
  const Step default_is_a_file = [&] {
    drop(defaults)();
    Write(defaults, "");
  };
  check(default_is_a_file, {unlisted(defaults)}, "Find json files failed from root: " + defaults,
        "[Quokka] find the json file from " + defaults + " failed", "default", none);
  check(drop(project_.out), {}, "Cannot open output bin file; " + BinPath("default"),
        "[Quokka] Open the output default bin file (" + BinPath("default") + ") failed\n");
  const Step sensor_is_below_another = [&] {
    Write(dir_ + "/ProjConf.bin", Item(ConfigBytes("p", {"tele/version"})));
    MakeDirs(dir_ + "/tele/version/version");
  };
  check(sensor_is_below_another, {}, "Cannot open output bin file; " + BinPath("tele/version"),
        "[Quokka] Failed to open the tuning bin file", "default", none);

  const Strings bad_label = {E("GetProjectTuningLabelsMap", "Invalid tuning data label type: 9"),
                             E("GetProjectConfig", "Generate tuning label map failed"),
                             E("InitTuningLabelMsg", "Unexpected field type in tuning label: 9")};
  check(retype("int32 mode", "string mode", "/default/AWGain.json"), bad_label, "Failed in tuning label initialization",
        "[Quokka] Using Reflection to write the config index to tuning data lable desc failed\n", "default", none);
  check(retype("int32 mode", "string mode", "/tele/AWGain.json"), bad_label, "Failed in tuning label initialization",
        "[Quokka] Error to write the config to tuning data lable msg", "tele", none);
  check(put("/default/Ghost.json", ""), {NoType("ZO_TUNING.Ghost")}, "Get module descriptor failed: Ghost",
        "[Quokka] The module name Ghost cannot be found", "default", ghost);
  check(put("/tele/Ghost.json", ""), {NoType("ZO_TUNING.Ghost")}, "Get module descriptor failed: Ghost",
        "[Quokka] Error to find desc from class name: Ghost", "tele", ghost);
  check(put("/default/Other.json", ""), {UnknownModule("Other"), NoType("ZO_TUNING.")},
        "Get module descriptor failed: ", "[Quokka] The module name  cannot be found", "default",
        none + Item(LabelBytes({})));
  const std::string no_fit = "Failed in json str->msg, please check if json data formats are valid or not";
  const std::string no_write = "[Quokka] Json write to message failed";
  check(put("/default/AWGain.json", "{\"%s\"}"), {unparsed("{\"%s\"}")}, no_fit, no_write, "default", gain);
  check(put("/tele/AWGain.json", "["), {unparsed("[")},
        "Failed in json str -> msg, please check if json data formats are valid or not",
        "[Quokka] error to translate the json file to message", "tele", gain);
  const Step unreadable = [&] { std::filesystem::create_symlink("nowhere", defaults + "/AWGain.json"); };
  check(unreadable, {E("JSON_FILE_TO_STR", "Fail to read json file: " + defaults + "/AWGain.json"), unparsed("")},
        no_fit, no_write, "default", gain);
  // A field that stands nowhere in the text, on the fast path and on the slow one.
  for (const std::string scope : {"default", "tele"}) {
    check(put("/" + scope + "/AWGain.json", "{}"), {}, no_fit, "-", scope, gain,
          "Error: Field 'gain' not found in Json.\n");
    check(put("/" + scope + "/AfCommon.json", R"({"enable": null, "curve": {}, "limits": {"table": {}}})"), {}, no_fit,
          "-", scope, none + Item(LabelBytes({kAfCommon})), "Error: Field 'near' not found in Json.\n");
  }
}

// ---- Size ----

TEST_F(GenerateTest, TwoThousandFilesInOneScope) {
  for (int mode = 1; mode <= 2000; ++mode) {
    const std::string number = std::to_string(mode);
    project_.Add("tele", {{"mode_" + number + "/AWGain.json", GainJson(number), {kAWGain, mode}, GainBytes(mode)}});
  }
  EXPECT_TRUE(Generate());
  EXPECT_EQ(Read(BinPath("tele")), project_.Bin("tele"));
}

TEST_F(GenerateTest, FiftyMegabytesOfJson) {
  std::string json = "{\"profile\": {\"value\": [1";
  std::string values = Varint(1);
  while (json.size() < 50'000'000) {
    json += ", 1234567";
    values += Varint(1234567);
  }
  json += "]}}";
  project_.Add("tele", {{"mode_1/Noise.json", json, {kNoise, 1}, Len(1, Len(1, values))}});
  EXPECT_TRUE(Generate());
  EXPECT_TRUE(Read(BinPath("tele")) == project_.Bin("tele"));  // without printing both
  // The same text with a fault is logged whole.
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
