// The shared library as a client sees it: the whole path from an empty directory to packed bins, and the operations
// beside it.

#include <filesystem>
#include <thread>

#include "ZoTuningUtils.h"
#include "support/child.h"
#include "support/project.h"

namespace {

using namespace zotest;

const std::string kStop = E("PARSE_VERSION_FROM_STR", "Stop Parsing");

/// From an empty directory to packed bins, which are compared with bytes made here. Leaves two lines of the header's
/// scan in the log.
void FollowTheExample() {
  const TempDir temp;
  const std::string proj = temp / "demo ö%s";
  const std::string out = temp / "out";
  MakeDirs(out);
  WriteSchema(temp / "schema");
  ZoTuningUtils::InitProjectConfig((temp / "schema").c_str(), "demo ö%s", {"main", "wide"}, temp.str().c_str());
  std::filesystem::copy(temp / "schema", proj + "/proto");
  Write(proj + "/proto/version/af.json", VersionJson("AF", "1.0"));
  Write(proj + "/main/version/main.json", VersionJson("main", "1234.5"));
  Write(proj + "/src/ZoTuningVersion.h", "// [3AProto]\n");

  std::string name;
  Strings sensors, names;
  LabelMap map;
  ASSERT_TRUE(ZoTuningUtils::GetProjectConfig(proj.c_str(), name, sensors, names, map));
  EXPECT_EQ(name, "demo ö%s");
  EXPECT_EQ(sensors, (Strings{"main", "wide"}));
  EXPECT_EQ(names, kLabelNames);
  EXPECT_EQ(map, kLabelMap);

  // What the templates of these modules become in a bin.
  const std::string step_rule = Len(1, "[Int32]") + Len(2, "None");
  const std::map<int, std::string> templates = {{kAfCommon, Len(2, "") + Len(3, Len(1, "") + Len(2, Len(1, ""))) +
                                                                Len(4, "") + Len(5, Len(1, Len(2, step_rule)))},
                                                {kAWGain, Len(1, "")},
                                                {kAfLinkKeyTable, Len(1, "")}};
  std::vector<Setting> defaults;
  for (const auto& [module, bytes] : templates) {
    EXPECT_TRUE(ZoTuningUtils::GenerateDefaultModuleData(proj.c_str(), map["module"][module].c_str()));
    defaults.push_back({map["module"][module] + ".json", "", {module}, bytes});
  }
  std::vector<int> one = {kAfCommon, 1, 0};
  std::vector<std::vector<int>> more = {{kAWGain, 1234, 1}, {kAfLinkKeyTable, 2}};
  std::vector<std::vector<int>> others = {{kAfCommon, 0, 1, 1, 1, 1, 1, 1}};
  EXPECT_TRUE(ZoTuningUtils::CreateNewTuningSetting(proj.c_str(), names, map, sensors[0], one));
  EXPECT_TRUE(ZoTuningUtils::CreateMultipleNewTuningSetting(proj.c_str(), names, map, sensors[0], more));
  EXPECT_TRUE(ZoTuningUtils::CreateMultipleNewTuningSetting(proj.c_str(), names, map, sensors[1], others));
  const std::string edited = "mode_1234/scenario_Video/AWGain.json";
  std::string json = Read(proj + "/main/" + edited);
  Write(proj + "/main/" + edited, json.replace(json.find("\"value\": 0"), 10, "\"value\": -1234.5"));

  EXPECT_TRUE(ZoTuningUtils::UpdateProtoVersionJsonFile(proj.c_str(), "AF", "1.1"));
  EXPECT_TRUE(ZoTuningUtils::GeneratedNewVersionHeader(proj + "/proto"));
  EXPECT_EQ(Read(proj + "/src/ZoTuningVersion.h"),
            "// [3AProto]\n#define VERSION1_NAME \"AF\"\n#define VERSION1_VAL \"1.1\"\n#define VERSION_NUM 1\n");

  EXPECT_TRUE(ZoTuningUtils::GenerateProjTuningBins(proj.c_str(), out.c_str()));
  const auto bin = [&](const std::string& scope) { return Read(out + "/zo_tuning/" + scope + ".bin"); };
  EXPECT_EQ(bin("default"), BinBytes(proj + "/proto/version", proj + "/default", defaults));
  EXPECT_EQ(bin("main"), BinBytes(proj + "/main/version", proj + "/main",
                                  {{"mode_1/scenario_Photo/AfCommon.json", "", one, templates.at(kAfCommon)},
                                   {edited, "", more[0], GainBytes(-1234.5)},
                                   {"mode_2/AfLinkKeyTable.json", "", more[1], templates.at(kAfLinkKeyTable)}}));
  const std::string deep =
      "mode_0/scenario_Video/feature0_Zoom/function_Flash/sub_function_Pre/scene_Night/filter_Mono/";
  EXPECT_EQ(bin("wide"), BinBytes(proj + "/wide/version", proj + "/wide",
                                  {{deep + "AfCommon.json", "", others[0], templates.at(kAfCommon)}}));
  EXPECT_TRUE(ZoTuningUtils::DumpProjTuningBins(proj.c_str(), (out + "/zo_tuning").c_str()));
  EXPECT_TRUE(ZoTuningUtils::DumpBinVersions(proj.c_str(), (out + "/zo_tuning").c_str()));
}

using ClientTest = ProjectTest;

TEST_F(ClientTest, TheWholeLife) {
  FollowTheExample();
  EXPECT_ERRORS(kStop, kStop);
}

TEST_F(ClientTest, TwoThreadsOnTwoProjects) {
  std::thread other(FollowTheExample);
  FollowTheExample();
  other.join();
  EXPECT_ERRORS(kStop, kStop, kStop, kStop);
}

TEST_F(ClientTest, OtherOperations) {
  Schema schema(dir_ + "/proto");
  const auto* type = ZoTuningUtils::GetDescByClassName(schema.importer(), "ZO_TUNING.TuningProjConfig");
  const MessagePtr config = schema.New("ZO_TUNING.TuningProjConfig");
  const std::string path = project_ / "config.bin";
  std::string name;
  Strings sensors;
  EXPECT_TRUE(ZoTuningUtils::InitProjConfigMsg(config.get(), type, "p", {"s"}));
  ZO_TUNING::MSG_TO_BIN(config.get(), path.c_str());
  EXPECT_TRUE(ZoTuningUtils::InitProjConfigMsgFromBin(config.get(), type, path.c_str(), name, sensors));
  EXPECT_EQ(name + sensors.at(0), "ps");

  const MessagePtr label = schema.New("ZO_TUNING.TuningDataLabel");
  const std::vector<int> values = {1, 2, 1, 0, -1, 0, 0, 1};
  std::vector<int> parsed;
  EXPECT_TRUE(ZoTuningUtils::InitTuningLabelMsg(label.get(), label->GetDescriptor(), names_, values));
  EXPECT_EQ(label->SerializeAsString(), LabelBytes(values));
  EXPECT_TRUE(ZoTuningUtils::ParseTuningLabelMsg(label.get(), label->GetDescriptor(), names_, parsed));
  EXPECT_EQ(parsed, values);

  const MessagePtr gain = schema.New("ZO_TUNING_AWB.AWGain");
  EXPECT_TRUE(ZO_TUNING::JSON_STR_TO_MSG(GainJson("2.5"), gain.get()));
  ZO_TUNING::MSG_PRONE_FOR_BIN(gain.get(), gain->GetDescriptor());
  EXPECT_EQ(gain->SerializeAsString(), GainBytes(2.5));
  EXPECT_TRUE(ZO_TUNING::CheckFieldInString(gain->GetDescriptor()->field(0), "again"));

  Strings roots, files, bins, paths;
  EXPECT_TRUE(ZoTuningUtils::GetTuningRootFolder(dir_.c_str(), roots));
  EXPECT_THAT(roots, UnorderedElementsAre(dir_ + "/proto", dir_ + "/default", dir_ + "/tele"));
  Write(dir_ + "/tele/version/a.json", VersionJson("A", "1"));
  for (const std::string scope : {"default", "tele"})
    project_.Add(scope, {{"AWGain.json", GainJson("3"), {kAWGain}, GainBytes(3)}});
  EXPECT_TRUE(ZoTuningUtils::FindAllJsonFiles((dir_ + "/tele").c_str(), files));
  EXPECT_THAT(files, ElementsAre(dir_ + "/tele/AWGain.json"));
  ASSERT_TRUE(InChild([&] {
    FeedStdin("0\n");
    testing::internal::CaptureStdout();
    EXPECT_TRUE(ZoTuningUtils::GenerateSpecificSensorBin(dir_.c_str(), project_.out.c_str()));
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(TakeLog(6).size(), 1U);
  }));
  EXPECT_EQ(Read(BinPath("tele")), project_.Bin("tele"));
  EXPECT_TRUE(ZoTuningUtils::FindTuningBinFiles((project_.out + "/zo_tuning").c_str(), bins, paths));
  EXPECT_THAT(bins, UnorderedElementsAre("default", "tele"));
  std::vector<Message*> versions;
  EXPECT_TRUE(ZoTuningUtils::ParseVersionMsgFromBin(BinPath("tele"), schema.Prototype("ZO_TUNING.Version"), versions));
  const MessagePtr packed(versions.at(0));
  EXPECT_TRUE(ZoTuningUtils::GetVersionMsgs((dir_ + "/tele/version").c_str(), packed.get(), versions));
  EXPECT_EQ(packed->SerializeAsString(), MessagePtr(versions.at(0))->SerializeAsString());
}

TEST_F(ClientTest, LoggerAndTiming) {
  DatacenterLoggerFunction(GetFileName("dir/a.cpp"), 1, "Fn", 2, 1, "dropped");
  FileCreate();
  StartTime(3);
  EXPECT_NE(start_t[3].tv_sec, 0);
  EndTime("a.cpp", 1, "Fn", 3);
  EXPECT_EQ(end_t[3].tv_sec, 0);
  EXPECT_EQ(TakeRawLog().size(), 1U);
  ZoTuningDateTime now = {};
  GetDateTime(&now);
  EXPECT_GE(now_ms() / 1000.0, static_cast<double>(now.seconds));
  // This process brings no system properties: every one is unset.
  char value[92] = "before";
  EXPECT_EQ(__property_get("any", value, nullptr), 0);
  EXPECT_STREQ(value, "");
}

TEST_F(ClientTest, TheReadmesProgramPacksAProject) {
  const auto run = [&](const std::string& arguments) {
    return std::system(("\"" README_CLIENT "\" " + arguments + " > \"" + (project_ / "printed") + "\" 2>&1").c_str());
  };
  EXPECT_EQ(run("\"" + dir_ + "\" \"" + project_.out + "\""), 0) << Read(project_ / "printed");
  EXPECT_TRUE(Exists(BinPath("default")) && Exists(BinPath("tele")));
  EXPECT_NE(run("\"" + dir_ + "\" \"" + project_.out + "\""), 0);  // the folder of bins is there already
}

}  // namespace
