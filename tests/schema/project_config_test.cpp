#include "ZoTuningUtils.h"
#include "support/child.h"
#include "support/project.h"

namespace {

using namespace zotest;
using testing::ElementsAre;

class ProjectConfigTest : public LogTest {
 protected:
  ProjectConfigTest() { WriteSchema(schema_dir_); }
  void Init(const Strings& sensors, const std::string& schema_dir) {
    ZoTuningUtils::InitProjectConfig(schema_dir.c_str(), "50%s ö", sensors, root_.c_str());
  }

  TempDir temp_;
  const std::string schema_dir_ = temp_ / "schema";
  const std::string root_ = temp_ / "root/";  // gives doubled separators
  const std::string proj_ = root_ + "/50%s ö";
};

TEST_F(ProjectConfigTest, MakesAProjectOnceAndExtendsItLater) {
  MakeDirs(root_);
  Init({"tele", "wide lens"}, schema_dir_);
  const auto line = [&](const std::string& text, const std::string& name) {
    return (text[0] == 'C' ? I : W)("InitProjectConfig", text + " " + proj_ + name);
  };
  EXPECT_THAT(TakeLog(),
              ElementsAre(line("Create a new sensor dir", "/tele"), line("Create a new sensor dir", "/wide lens"),
                          line("Create the default dir", "/default")));
  const Strings tree = {"ProjConf.bin",       "default/",           "default/.gitkeep",          "tele/",
                        "tele/.gitkeep",      "tele/version/",      "tele/version/.gitkeep",     "wide lens/",
                        "wide lens/.gitkeep", "wide lens/version/", "wide lens/version/.gitkeep"};
  EXPECT_EQ(Tree(proj_), tree);
  for (const std::string& path : tree) {
    if (path.back() == '/') {
      EXPECT_EQ(Mode(proj_ + "/" + path), 0700U) << path;
    } else if (path != "ProjConf.bin") {
      EXPECT_EQ(Read(proj_ + "/" + path), "") << path;
    }
  }
  EXPECT_EQ(Read(proj_ + "/ProjConf.bin"), Item(ConfigBytes("50%s ö", {"tele", "wide lens"})));

  // What exists is kept as it is, even a sensor without its version directory; the configuration is rewritten.
  MakeDirs(proj_ + "/bare");
  Init({"tele", "bare", "new"}, schema_dir_);
  EXPECT_THAT(TakeLog(),
              ElementsAre(line("Existed project tuning dir", ""), line("Sensor dir has already been created", "/tele"),
                          line("Sensor dir has already been created", "/bare"), line("Create a new sensor dir", "/new"),
                          line("Default tuning data dir has already been created", "/default")));
  EXPECT_TRUE(Exists(proj_ + "/new/version/.gitkeep"));
  EXPECT_EQ(Tree(proj_ + "/bare"), Strings());
  EXPECT_EQ(Read(proj_ + "/ProjConf.bin"), Item(ConfigBytes("50%s ö", {"tele", "bare", "new"})));
}

TEST_F(ProjectConfigTest, MakesNothingWithoutAUsableSchema) {
  MakeDirs(root_);
  const std::string field = "Error in finding the field descriptor of ";
  for (const auto& [fields, missing] : std::vector<std::pair<std::string, std::string>>{
           {"string other = 1; repeated string sensor_names = 2;", "proj_name"},
           {"int32 proj_name = 1; repeated string sensor_names = 2;", "proj_name"},
           {"bytes proj_name = 1; repeated string sensor_names = 2;", "proj_name"},
           {"repeated string proj_name = 1; repeated string sensor_names = 2;", "proj_name"},
           {"string proj_name = 1;", "sensor_names"},
           {"string proj_name = 1; string sensor_names = 2;", "sensor_names"},
           {"string proj_name = 1; repeated int32 sensor_names = 2;", "sensor_names"}}) {
    Write(temp_ / "odd/a.proto", "syntax = \"proto3\"; package ZO_TUNING; message TuningProjConfig { " + fields + " }");
    Init({"tele"}, temp_ / "odd");
    EXPECT_THAT(TakeLog(), ElementsAre(E("InitProjConfigMsg", field + missing),
                                       E("InitProjectConfig", "Failed in project config message initialization")))
        << fields;
  }
  Init({"tele"}, temp_ / "no schema");
  EXPECT_THAT(TakeLog(), ElementsAre(E("GetDescByClassName",
                                       "Find descriptor of ZO_TUNING.TuningProjConfig failed, please check the protos "
                                       "under project dir")));
  EXPECT_EQ(Tree(root_), Strings());

  // A root that is missing shows up only when the configuration is written.
  ZoTuningUtils::InitProjectConfig(schema_dir_.c_str(), "p", {}, (temp_ / "gone").c_str());
  EXPECT_EQ(TakeLog(), (Strings{I("InitProjectConfig", "Create the default dir " + (temp_ / "gone/p/default")),
                                E("MSG_TO_BIN", "Cannot open output file " + (temp_ / "gone/p/ProjConf.bin"))}));
}

TEST_F(ProjectConfigTest, ReadsWhateverTheConfigurationHolds) {
  const Project project({"tele", "wide"});
  const std::string path = project / "ProjConf.bin";
  const std::string good = Item(ConfigBytes("old", {"a", "b", "c"}));
  struct Row {
    std::string bytes;
    std::string line;  // empty when it is read
    std::string name;
    Strings sensors;
  };
  const std::string cut = "Read project config bin failed: ";
  const std::string bad = "Parse proj_config_msg failed: ";
  for (const Row& row :
       {Row{"", "", "", {}}, Row{Item(""), "", "", {}}, Row{good, "", "old", {"a", "b", "c"}},
        Row{good + Item(ConfigBytes("new", {"d"})), "", "new", {"d"}},
        Row{good + std::string(3, '\xff'), "", "old", {"a", "b", "c"}}, Row{good + I32(1), cut, "", {}},
        Row{good.substr(0, good.size() - 1), cut, "", {}}, Row{I32(-1) + good, cut, "", {}},
        Row{I32(0x7fffffff) + good, cut, "", {}}, Row{good + Item("\xff"), bad, "", {}}}) {
    Write(path, row.bytes);
    const bool read = row.line.empty();
    std::string name = "before";
    Strings sensors = {"before"}, names = {"kept"};
    LabelMap map;
    EXPECT_TRUE(ZoTuningUtils::GetProjectConfig(project.dir.c_str(), name, sensors, names, map));
    EXPECT_EQ(name, read ? row.name : "before");
    EXPECT_EQ(sensors, read ? row.sensors : Strings{"before"});
    EXPECT_EQ(names.size(), kLabelNames.size() + 1);
    EXPECT_EQ(map, FullLabelMap());
    const Strings lines = {E("InitProjConfigMsgFromBin", row.line + path),
                           E("GetProjectConfig", "Failed in project config message initialization from bin")};
    EXPECT_EQ(TakeLog(), read ? Strings() : lines);
  }
}

TEST_F(ProjectConfigTest, NeedsTheProjectItsSchemaAndItsTypes) {
  std::string name;
  Strings sensors, names;
  LabelMap map;
  const auto config = [&](const std::string& dir) {
    return ZoTuningUtils::GetProjectConfig(dir.c_str(), name, sensors, names, map);
  };
  const std::string dir = temp_ / "p";
  EXPECT_FALSE(config(dir));
  EXPECT_THAT(TakeLog(), ElementsAre(E("GetProjectConfig", "Project dir is not existed " + dir)));
  MakeDirs(dir);
  EXPECT_FALSE(config(dir));
  EXPECT_THAT(TakeLog(), ElementsAre(E("GetProjectConfig", "Project proto dir is not existed " + dir + "/proto")));
  MakeDirs(dir + "/proto");
  const auto lacks = [](const std::string& type) {
    return E("GetDescByClassName",
             "Find descriptor of ZO_TUNING." + type + " failed, please check the protos under project dir");
  };
  EXPECT_FALSE(config(dir));
  EXPECT_THAT(TakeLog(),
              ElementsAre(lacks("TuningProjConfig"), E("GetProjectConfig", "Get project config descriptor failed")));
  const std::string head =
      "syntax = \"proto3\"; package ZO_TUNING; message TuningProjConfig "
      "{ string proj_name = 1; repeated int32 sensor_names = 2; } ";
  const std::string bin = dir + "/ProjConf.bin";
  const std::string from_bin = "Failed in project config message initialization from bin";
  Write(dir + "/proto/a.proto", head);
  EXPECT_FALSE(config(dir));
  EXPECT_THAT(TakeLog(), ElementsAre(E("InitProjConfigMsgFromBin", "Open project config bin file failed: " + bin),
                                     E("GetProjectConfig", from_bin), lacks("TuningDataLabel"),
                                     E("GetProjectConfig", "Get tuning label descriptor failed")));
  Write(bin, "");
  Write(dir + "/proto/a.proto", head + "message TuningDataLabel { string module = 1; }");
  EXPECT_FALSE(config(dir));
  EXPECT_THAT(
      TakeLog(),
      ElementsAre(E("InitProjConfigMsgFromBin", "Error in finding the field descriptor of sensor_names"),
                  E("GetProjectConfig", from_bin), E("GetProjectTuningLabelsMap", "Invalid tuning data label type: 9"),
                  E("GetProjectConfig", "Generate tuning label map failed")));
}

TEST_F(ProjectConfigTest, MsgToBinWritesMessagesWithoutTheirRequiredFields) {
  Write(temp_ / "odd/a.proto",
        "syntax = \"proto2\"; message Odd { required int32 needed = 1; optional int32 given = 2; }");
  Schema schema(temp_ / "odd");
  const MessagePtr odd(schema.Prototype("Odd")->New());
  odd->GetReflection()->SetInt32(odd.get(), odd->GetDescriptor()->FindFieldByName("given"), 300);
  ZO_TUNING::MSG_TO_BIN(odd.get(), (temp_ / "odd.bin").c_str());
  EXPECT_EQ(Read(temp_ / "odd.bin"), Item(Int(2, 300)));
}

}  // namespace
