#include <filesystem>

#include "ZoTuningUtils.h"
#include "support/child.h"
#include "support/project.h"

namespace {

using namespace zotest;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

const std::string kNoFit = "Failed in json str->msg, please check if json data formats are valid or not";

std::string NoType(const std::string& name) {
  return E("GetDescByClassName", "Find descriptor of " + name + " failed, please check the protos under project dir");
}

class GenerateTest : public ProjectTest {
 protected:
  bool Generate() { return ZoTuningUtils::GenerateProjTuningBins(dir_.c_str(), project_.out.c_str()); }
  void Forget() { std::filesystem::remove_all(project_.out + "/zo_tuning"); }
  void Rewrite(const std::string& path, const std::string& old_text, const std::string& new_text) {
    std::string text = Read(path);
    text.replace(text.find(old_text), old_text.size(), new_text);
    Write(path, text);
  }
  void AddAFewSettings() {
    Write(dir_ + "/proto/version/a.json", VersionJson("AF", "1.0"));
    Write(dir_ + "/proto/version/b.json", VersionJson("AE", "2.3 ö"));
    Write(dir_ + "/tele/version/t.json", VersionJson("tele", ""));
    project_.Add("default", {{"AfCommon.json", kAfJson, {kAfCommon}, AfBytes()},
                             {"AWGain.json", GainJson("1.5"), {kAWGain}, GainBytes(1.5)}});
    project_.Add("tele", {{"mode_1/scenario_Video/AWGain.json", GainJson("-0.25"), {kAWGain, 1, 1}, GainBytes(-0.25)},
                          {"mode_1/PdCalib.json",
                           R"({"slope": {"value": [1.5, -2]}})",
                           {kPdCalib, 1},
                           Len(1, Len(1, Raw(1.5F) + Raw(-2.0F)))},
                          {"AEMeter.json",
                           R"({"weight": {"value": [{"col": [true, false]}], "rule": {}}})",
                           {kAEMeter},
                           Len(1, Len(1, Len(1, std::string("\1\0", 2))))},
                          {"filter_Mono/Noise.json",
                           R"({"profile": {"value": ["-9007199254740993"]}})",
                           {kNoise, -1, -1, -1, -1, -1, -1, 1},
                           Len(1, Len(1, Varint(static_cast<uint64_t>(-9007199254740993))))},
                          {"mode_2/scenario_Photo/AfLinkKeyTable.json",
                           R"({"key": {"value": 4000000000}})",
                           {kAfLinkKeyTable, 2, 0},
                           Len(1, Int(1, 4000000000))},
                          // A label of zeros alone takes no bytes.
                          {"mode_0/scenario_Photo/feature0_None/function_Base/sub_function_Main/scene_Day/filter_Off/"
                           "AfCommon.json",
                           kAfJson,
                           {0, 0, 0, 0, 0, 0, 0, 0},
                           AfBytes()}});
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
  EXPECT_THAT(
      TakeLog(),
      ElementsAre(W("GetVersionMsgs", "Cannot find any version json file under dir: " + dir_ + "/wide ö/version"),
                  W("GenerateProjTuningBins", "Cannot found any json file under dir: " + dir_ + "/wide ö")));

  EXPECT_FALSE(Generate());
  EXPECT_THAT(TakeLog(), ElementsAre(E("GenerateProjTuningBins",
                                       "Bin folder has been existed, please remove. " + project_.out + "/zo_tuning")));
  Forget();
  Write(dir_ + "/ProjConf.bin", "");
  EXPECT_TRUE(Generate());
  EXPECT_EQ(Tree(project_.out), (Strings{"zo_tuning/", "zo_tuning/default.bin"}));
}

// ---- Failures ----

TEST_F(GenerateTest, EndsAtTheFirstFailureAndKeepsWhatWasWritten) {
  struct Row {
    std::string what;
    std::function<void()> break_it;
    Strings lines;            // after those that may come before
    std::string default_bin;  // "-" when it is complete, "" when it does not exist
    std::string tele_bin;
    std::string on_stderr = "";  // how it begins
  };
  const std::string name = "GenerateProjTuningBins";
  const std::string label = Item(LabelBytes({kAWGain}));
  const std::string none = I32(0);
  const auto put = [&](const std::string& path, const std::string& text) { return [=] { Write(dir_ + path, text); }; };
  const auto drop = [&](const std::string& path) { return [=] { std::filesystem::remove_all(dir_ + path); }; };
  const std::string schema = dir_ + "/proto/project.proto";
  const std::string no_label = "Get tuning label descriptor failed";
  const std::string unknown =
      "Unknown module name Other in EnumTuningDataLable_Module, please check the setting of EnumTuningDataLable_Module in project";
  const auto unparsed = [](const std::string& text) {
    return E("JSON_STR_TO_MSG", "Fail to parse json string " + text);
  };
  for (const Row& row : {
           Row{"no label type",
               [&] { Rewrite(schema, "TuningDataLabel", "TuningDataLabels"); },
               {NoType("ZO_TUNING.TuningDataLabel"), E("GetProjectConfig", no_label),
                NoType("ZO_TUNING.TuningDataLabel"), E(name, no_label)},
               "",
               ""},
           Row{"no version type",
               [&] { Rewrite(schema, "message Version", "message Versions"); },
               {NoType("ZO_TUNING.Version"), E(name, "Get tuning version descriptor failed")},
               "",
               ""},
           Row{"no project versions",
               drop("/proto/version"),
               {E("FindAllJsonFiles", "Open directory failed: " + dir_ + "/proto/version"),
                E("GetVersionMsgs", "Find json files failed from root: " + dir_ + "/proto/version")},
               "",
               ""},
           Row{"broken sensor version",
               put("/tele/version/a.json", "{"),
               {unparsed("{"), E("GetVersionMsgs",
                                 "Failed in json str -> msg. for verion json file " + dir_ + "/tele/version/a.json")},
               "",
               ""},
           Row{"no sensor",
               drop("/tele"),
               {E("FindAllJsonFiles", "Open directory failed: " + dir_ + "/tele/version"),
                E("GetVersionMsgs", "Find json files failed from root: " + dir_ + "/tele/version")},
               "",
               ""},
           Row{"no defaults",
               drop("/default"),
               {E(name, "Missing default tuning data dir. " + dir_ + "/default")},
               "",
               ""},
           Row{"defaults that cannot be listed",
               [&] {
                 drop("/default")();
                 put("/default", "a file")();
               },
               {E("FindAllJsonFiles", "Open directory failed: " + dir_ + "/default"),
                E(name, "Find json files failed from root: " + dir_ + "/default")},
               none,
               ""},
           Row{"no output directory",
               [&] { std::filesystem::remove_all(project_.out); },
               {E(name, "Cannot open output bin file; " + BinPath("default"))},
               "",
               ""},
           Row{"a label of another type",
               [&] {
                 Rewrite(schema, "int32 mode", "string mode");
                 put("/default/AWGain.json", "{}")();
               },
               {E("GetProjectTuningLabelsMap", "Invalid tuning data label type: 9"),
                E("GetProjectConfig", "Generate tuning label map failed"),
                E("InitTuningLabelMsg", "Unexpected field type in tuning label: 9"),
                E(name, "Failed in tuning label initialization")},
               none,
               ""},
           Row{"a default without a type",
               put("/default/Ghost.json", "{}"),
               {NoType("ZO_TUNING.Ghost"), E(name, "Get module descriptor failed: Ghost")},
               none + Item(LabelBytes({kGhost})),
               ""},
           Row{"a default without a module",
               put("/default/Other.json", "{}"),
               {E("PATH_TO_TUNING_CONFIG", unknown), NoType("ZO_TUNING."), E(name, "Get module descriptor failed: ")},
               none + Item(LabelBytes({})),
               ""},
           Row{"a default that does not parse",
               put("/default/AWGain.json", "{\"%s\"}"),
               {unparsed("{\"%s\"}"), E(name, kNoFit)},
               none + label,
               "",
               "Failed to parse JSON: "},
           Row{"a default without a field",
               put("/default/AWGain.json", "{}"),
               {E(name, kNoFit)},
               none + label,
               "",
               "Error: Field 'gain' not found in Json.\n"},
           Row{"a default without a nested field",
               put("/default/AfCommon.json", R"({"enable": {}, "curve": {}, "limits": {"table": {}}})"),
               {E(name, kNoFit)},
               none + Item(LabelBytes({kAfCommon})),
               "",
               "Error: Field 'near' not found in Json.\n"},
           Row{"a default that cannot be read",
               [&] {
                 drop("/default/AWGain.json")();
                 std::filesystem::create_symlink("nowhere", dir_ + "/default/AWGain.json");
               },
               {E("JSON_FILE_TO_STR", "Fail to read json file: " + dir_ + "/default/AWGain.json"), unparsed(""),
                E(name, kNoFit)},
               none + label,
               ""},
           Row{"a setting without a type",
               put("/tele/Ghost.json", "{}"),
               {NoType("ZO_TUNING.Ghost"), E(name, "Get module descriptor failed: Ghost")},
               "-",
               none + Item(LabelBytes({kGhost}))},
           Row{"a setting that does not parse",
               put("/tele/AWGain.json", "["),
               {unparsed("["),
                E(name, "Failed in json str -> msg, please check if json data formats are valid or not")},
               "-",
               none + label},
           Row{"a setting without a field",
               put("/tele/AWGain.json", "{}"),
               {E(name, kNoFit)},
               "-",
               none + label,
               "Error: Field 'gain' not found in Json.\n"},
       }) {
    SCOPED_TRACE(row.what);
    Forget();
    std::filesystem::remove_all(dir_);
    const Project fresh;
    std::filesystem::rename(fresh.dir, dir_);
    MakeDirs(project_.out);
    row.break_it();
    testing::internal::CaptureStderr();
    EXPECT_FALSE(Generate());
    EXPECT_THAT(testing::internal::GetCapturedStderr(), StartsWith(row.on_stderr));
    EXPECT_EQ(TakeLog(6), row.lines);
    const auto expect_bin = [&](const std::string& scope, const std::string& bytes) {
      ASSERT_EQ(Exists(BinPath(scope)), !bytes.empty()) << scope;
      if (bytes.empty()) return;
      EXPECT_EQ(Read(BinPath(scope)), bytes == "-" ? none : bytes) << scope;
    };
    expect_bin("default", row.default_bin);
    expect_bin("tele", row.tele_bin);
  }
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
        EXPECT_THAT(TakeLog(6), ElementsAre(AllOf(StartsWith("6 GenerateProjTuningBins: "), HasSubstr(BinPath(scope)),
                                                  HasSubstr("File too large"))));
      }
      const std::string bytes = Read(BinPath(scope));
      EXPECT_EQ(bytes, (scope == "default" ? small : large).substr(0, bytes.size()));
      EXPECT_EQ(bytes.size(), whole ? large.size() : limit);
      EXPECT_EQ(Exists(BinPath("tele")), scope == "tele");
    })) << "limits cannot be set";
  }
}

TEST_F(GenerateTest, AFullDiskIsAFailure) {
  std::string curve = "{\"profile\": {\"value\": [";
  std::string bytes;
  for (int i = 1; i < 20000; ++i) {
    curve += std::to_string(i) + ",";
    bytes += Varint(static_cast<uint64_t>(i));
  }
  project_.Add("tele", {{"Noise.json", curve + "0]}}", {kNoise}, Len(1, Len(1, bytes + '\0'))}});
  const std::string whole = project_.Bin("tele");
  const bool ran = InChild([&] {
    MountSmallDisk(project_.out, 8192);
    EXPECT_FALSE(Generate());
    EXPECT_THAT(TakeLog(6), ElementsAre(AllOf(HasSubstr(BinPath("tele")), HasSubstr("No space left on device"))));
    EXPECT_EQ(Read(BinPath("default")), I32(0));
    const std::string written = Read(BinPath("tele"));
    EXPECT_GT(written.size(), 0U);
    EXPECT_EQ(written, whole.substr(0, written.size()));
  });
  if (!ran) GTEST_SKIP() << "this process may not mount a disk";
}

// ---- One sensor, chosen on standard input ----

class GenerateSpecificTest : public GenerateTest {
 protected:
  GenerateSpecificTest() {
    MakeDirs(dir_ + "/wide%s/version");
    Write(dir_ + "/ProjConf.bin", Item(ConfigBytes("proj", {"missing", "tele", "gone", "wide%s"})));
  }
  /// Runs with `input`; `printed` gets standard output.
  bool Run(const std::string& input, std::string* printed = nullptr) {
    FeedStdin(input);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const bool result = ZoTuningUtils::GenerateSpecificSensorBin(dir_.c_str(), project_.out.c_str());
    testing::internal::GetCapturedStderr();
    const std::string output = testing::internal::GetCapturedStdout();
    if (printed != nullptr) *printed = output;
    return result;
  }
  static std::string Q(const std::string& text) { return E("GenerateSpecificSensorBin", "[Quokka] " + text); }
  std::string Getcha(const std::string& path) { return Q("Getcha the json is " + dir_ + path); }
};

TEST_F(GenerateSpecificTest, PacksDefaultAndTheSensorChosen) {
  project_.Add("tele", {{"mode_1/AWGain.json", "{}", {kAWGain, 1}, Len(1, "")}});  // a missing field is no fault here
  project_.Add("default", {{"AWGain.json", GainJson("2"), {kAWGain}, GainBytes(2)}});
  Write(dir_ + "/tele/version/a.json", VersionJson("T", "1"));
  for (const auto& [input, chosen] : std::vector<std::pair<std::string, std::string>>{{"0\n", "tele"},
                                                                                      {"1", "wide%s"},
                                                                                      {" \n\t+1 rest", "wide%s"},
                                                                                      {"0x1", "tele"},
                                                                                      {"2", ""},
                                                                                      {"-1", ""},
                                                                                      {"", ""},
                                                                                      {"tele\n", ""},
                                                                                      {"-2147483648", ""}}) {
    Forget();
    ASSERT_TRUE(InChild([&, input = input, chosen = chosen] {
      std::string printed;
      EXPECT_EQ(Run(input, &printed), !chosen.empty());
      const size_t first = printed.find("tele");
      EXPECT_THAT(printed, AllOf(HasSubstr("0"), HasSubstr("1"), HasSubstr("wide%s"), testing::Not(HasSubstr("gone"))));
      EXPECT_LT(first, printed.find("wide%s"));
      Strings lines = {Getcha("/default/AWGain.json")};
      Strings tree = {"default.bin"};
      if (chosen.empty()) {
        lines.push_back(Q("Error typing\n"));
      } else if (chosen == "wide%s") {
        lines.push_back(Q("Warning cannot find any json files under " + dir_ + "/wide%s"));
      }
      if (!chosen.empty()) {
        tree.push_back(chosen + ".bin");
        EXPECT_EQ(Read(BinPath(chosen)), project_.Bin(chosen));
      }
      EXPECT_EQ(TakeLog(6), lines);
      EXPECT_EQ(Tree(project_.out + "/zo_tuning"), tree);
      EXPECT_EQ(Read(BinPath("default")), project_.Bin("default"));
    })) << input;
  }
}

TEST_F(GenerateSpecificTest, FailuresAreReportedInTheirOwnWords) {
  struct Row {
    std::string what;
    std::function<void()> break_it;
    Strings lines;
  };
  const auto put = [&](const std::string& path, const std::string& text) { return [=] { Write(dir_ + path, text); }; };
  const auto drop = [&](const std::string& path) { return [=] { std::filesystem::remove_all(dir_ + path); }; };
  const std::string schema = dir_ + "/proto/project.proto";
  const std::string no_defaults = Q("Error to get all json files from default folder\n");
  const Strings bad_label = {E("GetProjectTuningLabelsMap", "Invalid tuning data label type: 9"),
                             E("GetProjectConfig", "Generate tuning label map failed")};
  const std::string type_9 = E("InitTuningLabelMsg", "Unexpected field type in tuning label: 9");
  for (const Row& row : {
           Row{"the folder",
               [&] { MakeDirs(project_.out + "/zo_tuning"); },
               {Q("Output folder is existed: " + project_.out + "/zo_tuning, please remove them!\n")}},
           Row{"no label type",
               [&] { Rewrite(schema, "TuningDataLabel", "TuningDataLabels"); },
               {NoType("ZO_TUNING.TuningDataLabel"), E("GetProjectConfig", "Get tuning label descriptor failed"),
                NoType("ZO_TUNING.TuningDataLabel"), Q("Tuning Data desc pointer is NULL")}},
           Row{"no version type",
               [&] { Rewrite(schema, "message Version", "message Versions"); },
               {NoType("ZO_TUNING.Version"), E("GenerateSpecificSensorBin", "Get tuning version descriptor failed")}},
           Row{"no defaults", drop("/default"), {Q("The folder " + dir_ + "/default path is not existed\n")}},
           Row{"no output",
               [&] { std::filesystem::remove_all(project_.out); },
               {Q("Open the output default bin file (" + BinPath("default") + ") failed\n")}},
           Row{"defaults unlisted",
               [&] {
                 drop("/default")();
                 put("/default", "")();
               },
               {E("FindAllJsonFiles", "Open directory failed: " + dir_ + "/default"),
                Q("find the json file from " + dir_ + "/default failed")}},
           Row{"default label",
               [&] {
                 Rewrite(schema, "int32 mode", "string mode");
                 put("/default/AWGain.json", "{}")();
               },
               {bad_label[0], bad_label[1], Getcha("/default/AWGain.json"), type_9,
                Q("Using Reflection to write the config index to tuning data lable desc failed\n")}},
           Row{"default type",
               put("/default/Ghost.json", "{}"),
               {Getcha("/default/Ghost.json"), NoType("ZO_TUNING.Ghost"), Q("The module name Ghost cannot be found")}},
           Row{"default text",
               put("/default/AWGain.json", "["),
               {Getcha("/default/AWGain.json"), E("JSON_STR_TO_MSG", "Fail to parse json string ["),
                Q("Json write to message failed")}},
           Row{"sensor label",
               [&] {
                 Rewrite(schema, "int32 mode", "string mode");
                 put("/tele/AWGain.json", "{}")();
               },
               {bad_label[0], bad_label[1], no_defaults, type_9,
                Q("Error to write the config to tuning data lable msg")}},
           Row{"sensor type",
               put("/tele/Ghost.json", "{}"),
               {no_defaults, NoType("ZO_TUNING.Ghost"), Q("Error to find desc from class name: Ghost")}},
           Row{"sensor text",
               put("/tele/AWGain.json", "["),
               {no_defaults, E("JSON_STR_TO_MSG", "Fail to parse json string ["),
                Q("error to translate the json file to message")}},
           Row{"sensor bin",
               [&] {
                 put("/ProjConf.bin", Item(ConfigBytes("p", {"tele/version"})))();
                 MakeDirs(dir_ + "/tele/version/version");
               },
               {no_defaults, Q("Failed to open the tuning bin file")}},
           Row{"sensor is a file",
               [&] {
                 put("/ProjConf.bin", Item(ConfigBytes("p", {"file"})))();
                 put("/file", "")();
               },
               {E("FindAllJsonFiles", "Open directory failed: " + dir_ + "/file/version"),
                E("GetVersionMsgs", "Find json files failed from root: " + dir_ + "/file/version")}},
       }) {
    SCOPED_TRACE(row.what);
    Forget();
    std::filesystem::remove_all(dir_);
    const Project fresh;
    std::filesystem::rename(fresh.dir, dir_);
    MakeDirs(project_.out);
    row.break_it();
    ASSERT_TRUE(InChild([&] {
      EXPECT_FALSE(Run("0\n"));
      EXPECT_EQ(TakeLog(6), row.lines);
    }));
  }
}

// ---- Size ----

TEST_F(GenerateTest, TwoThousandFilesInOneScope) {
  std::vector<Setting> settings;
  for (int mode = 0; mode < 2000; ++mode) {
    settings.push_back({"mode_" + std::to_string(mode) + "/AWGain.json",
                        GainJson(std::to_string(mode)),
                        {kAWGain, mode},
                        mode == 0 ? Len(1, "") : GainBytes(mode)});
  }
  project_.Add("tele", settings);
  EXPECT_TRUE(Generate());
  EXPECT_EQ(Read(BinPath("tele")), project_.Bin("tele"));
}

TEST_F(GenerateTest, FiftyMegabytesOfJson) {
  std::string json = "{\"curve\": {\"value\": [1";
  std::string values = Varint(1);
  while (json.size() < 50'000'000) {
    json += ", 1234567";
    values += Varint(1234567);
  }
  Rewrite(dir_ + "/proto/noise.proto", "Int64ArrayData profile", "Int32ArrayData curve");
  json += "]}}";
  project_.Add("tele", {{"mode_1/Noise.json", json, {kNoise, 1}, Len(1, Len(1, values))}});
  EXPECT_TRUE(Generate());
  EXPECT_TRUE(Read(BinPath("tele")) == project_.Bin("tele"));  // without printing both
  // The same text with a fault is logged whole.
  Forget();
  json.pop_back();
  Write(dir_ + "/tele/mode_1/Noise.json", json);
  testing::internal::CaptureStderr();
  EXPECT_FALSE(Generate());
  testing::internal::GetCapturedStderr();
  const Strings lines = TakeLog(6);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_TRUE(lines[0] == E("JSON_STR_TO_MSG", "Fail to parse json string " + json));
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
  EXPECT_THAT(TakeLog(6), ElementsAre(E("FindAllJsonFiles", "Open directory failed: " + cut)));
  EXPECT_EQ(Read(BinPath("default")), I32(0) + Item(LabelBytes({kAWGain})) + Item(GainBytes(2)));
}

}  // namespace
