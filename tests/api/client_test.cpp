// The shared library as a client uses it: everything from an empty directory to packed bins, and the other operations.

#include <filesystem>
#include <thread>

#include "ZoTuningUtils.h"
#include "support/child.h"
#include "support/project.h"

namespace {

using namespace zotest;

const std::string kStop = E("PARSE_VERSION_FROM_STR", "Stop Parsing");

/// From an empty directory to a packed bin, which is compared with bytes made here. Leaves two lines of the header scan
/// in the log.
void FollowTheExample() {
  const TempDir temp;
  const std::string proj = temp / "demo ö%s", out = temp / "out";
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
  EXPECT_THAT(sensors, ElementsAre("main", "wide"));
  std::vector<int> one = {kAWGain, 1234, 1};
  std::vector<std::vector<int>> more = {{kAWGain, 1}, {kAWGain, 2}};
  EXPECT_TRUE(ZoTuningUtils::GenerateDefaultModuleData(proj.c_str(), "AWGain"));
  EXPECT_TRUE(ZoTuningUtils::CreateNewTuningSetting(proj.c_str(), names, map, sensors[0], one));
  EXPECT_TRUE(ZoTuningUtils::CreateMultipleNewTuningSetting(proj.c_str(), names, map, sensors[1], more));
  const std::string edited = "mode_1234/scenario_Video/AWGain.json";
  std::string json = Read(proj + "/main/" + edited);
  Write(proj + "/main/" + edited, json.replace(json.find("\"value\": 0"), 10, "\"value\": -1234.5"));

  EXPECT_TRUE(ZoTuningUtils::UpdateProtoVersionJsonFile(proj.c_str(), "AF", "1.1"));
  EXPECT_TRUE(ZoTuningUtils::GeneratedNewVersionHeader(proj + "/proto"));
  EXPECT_THAT(Read(proj + "/src/ZoTuningVersion.h"), HasSubstr("#define VERSION1_VAL \"1.1\"\n"));
  EXPECT_TRUE(ZoTuningUtils::GenerateProjTuningBins(proj.c_str(), out.c_str()));
  const std::string bins = out + "/zo_tuning";
  EXPECT_EQ(Read(bins + "/main.bin"),
            BinBytes(proj + "/main/version", proj + "/main", {{edited, "", one, GainBytes(-1234.5)}}));
  EXPECT_TRUE(ZoTuningUtils::DumpProjTuningBins(proj.c_str(), bins.c_str()));
  EXPECT_TRUE(ZoTuningUtils::DumpBinVersions(proj.c_str(), bins.c_str()));
}

using ClientTest = ProjectTest;

TEST_F(ClientTest, TheWholeLifeOnTwoThreadsOnTwoProjects) {
  std::thread other(FollowTheExample);
  FollowTheExample();
  other.join();
  EXPECT_ERRORS(kStop, kStop, kStop, kStop);
}

// One call of each; what they do is tested with their sources.
TEST_F(ClientTest, OtherOperations) {
  Schema schema(dir_ + "/proto");
  const auto* type = ZoTuningUtils::GetDescByClassName(schema.importer(), "ZO_TUNING.TuningProjConfig");
  const MessagePtr config = schema.New("ZO_TUNING.TuningProjConfig");
  const std::string path = project_ / "config.bin";
  std::string name;
  Strings sensors, roots, files, bins, paths;
  EXPECT_TRUE(ZoTuningUtils::InitProjConfigMsg(config.get(), type, "p", {"s"}));
  ZO_TUNING::MSG_TO_BIN(config.get(), path.c_str());
  EXPECT_TRUE(ZoTuningUtils::InitProjConfigMsgFromBin(config.get(), type, path.c_str(), name, sensors));
  EXPECT_EQ(name + sensors.at(0), "ps");

  const MessagePtr label = schema.New("ZO_TUNING.TuningDataLabel");
  std::vector<int> values(8, 1), parsed;
  EXPECT_TRUE(ZoTuningUtils::InitTuningLabelMsg(label.get(), label->GetDescriptor(), names_, values));
  EXPECT_TRUE(ZoTuningUtils::ParseTuningLabelMsg(label.get(), label->GetDescriptor(), names_, parsed));
  EXPECT_EQ(parsed, values);
  const MessagePtr gain = schema.New("ZO_TUNING_AWB.AWGain");
  EXPECT_TRUE(ZO_TUNING::JSON_STR_TO_MSG(GainJson("2.5"), gain.get()));
  ZO_TUNING::MSG_PRONE_FOR_BIN(gain.get(), gain->GetDescriptor());
  EXPECT_EQ(gain->SerializeAsString(), GainBytes(2.5));
  EXPECT_TRUE(ZO_TUNING::CheckFieldInString(gain->GetDescriptor()->field(0), "again"));

  EXPECT_TRUE(ZoTuningUtils::GetTuningRootFolder(dir_.c_str(), roots));
  EXPECT_TRUE(ZoTuningUtils::FindAllJsonFiles(dir_.c_str(), files));
  EXPECT_TRUE(InChild([&] {
    FeedStdin("0\n");
    testing::internal::CaptureStdout();
    EXPECT_TRUE(ZoTuningUtils::GenerateSpecificSensorBin(dir_.c_str(), project_.out.c_str()));
    testing::internal::GetCapturedStdout();
    TakeLog();
  }));
  EXPECT_TRUE(ZoTuningUtils::FindTuningBinFiles((project_.out + "/zo_tuning").c_str(), bins, paths));
  EXPECT_THAT(bins, UnorderedElementsAre("default", "tele"));
  std::vector<Message*> versions;
  EXPECT_TRUE(ZoTuningUtils::ParseVersionMsgFromBin(BinPath("tele"), schema.Prototype("ZO_TUNING.Version"), versions));
  EXPECT_TRUE(
      ZoTuningUtils::GetVersionMsgs((dir_ + "/tele/version").c_str(), schema.Prototype("ZO_TUNING.Version"), versions));
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
  // This process provides no system properties: every one is unset.
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
  EXPECT_NE(run("\"" + dir_ + "\" \"" + project_.out + "\""), 0);  // the folder of bins already exists
}

}  // namespace
