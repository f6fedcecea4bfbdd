#include "ZoTuningUtils.h"
#include "support/project.h"

namespace {

using namespace zotest;

class ProjectConfigTest : public LogTest {
 protected:
  ProjectConfigTest() { WriteSchema(schema_dir_); }
  void Init(const Strings& sensors, const std::string& schema_dir) {
    ZoTuningUtils::InitProjectConfig(schema_dir.c_str(), "50%s ö", sensors, root_.c_str());
  }

  TempDir temp_;
  const std::string schema_dir_ = temp_ / "schema";
  const std::string root_ = temp_ / "root/";  // causes doubled separators
  const std::string proj_ = root_ + "/50%s ö";
};

TEST_F(ProjectConfigTest, MakesAProjectOnceAndExtendsItLater) {
  MakeDirs(root_);
  Init({"tele", "wide lens"}, schema_dir_);
  const auto line = [&](const std::string& text, const std::string& name) {
    return (text[0] == 'C' ? I : W)("InitProjectConfig", text + " " + proj_ + name);
  };
  EXPECT_LOG(line("Create a new sensor dir", "/tele"), line("Create a new sensor dir", "/wide lens"),
             line("Create the default dir", "/default"));
  EXPECT_THAT(Tree(proj_), ElementsAre("ProjConf.bin", "default/", "default/.gitkeep", "tele/", "tele/.gitkeep",
                                       "tele/version/", "tele/version/.gitkeep", "wide lens/", "wide lens/.gitkeep",
                                       "wide lens/version/", "wide lens/version/.gitkeep"));
  for (const std::string made : {"", "/default", "/tele", "/tele/version"}) {
    EXPECT_EQ(Mode(proj_ + made), 0700U) << made;
  }
  EXPECT_EQ(Read(proj_ + "/tele/version/.gitkeep"), "");
  EXPECT_EQ(Read(proj_ + "/ProjConf.bin"), Item(ConfigBytes("50%s ö", {"tele", "wide lens"})));

  // What exists is kept unchanged, even a sensor without its version directory; the configuration is rewritten.
  MakeDirs(proj_ + "/bare");
  Init({"tele", "bare", "new"}, schema_dir_);
  EXPECT_LOG(line("Existed project tuning dir", ""), line("Sensor dir has already been created", "/tele"),
             line("Sensor dir has already been created", "/bare"), line("Create a new sensor dir", "/new"),
             line("Default tuning data dir has already been created", "/default"));
  EXPECT_TRUE(Exists(proj_ + "/new/version/.gitkeep"));
  EXPECT_EQ(Tree(proj_ + "/bare"), Strings());
  EXPECT_EQ(Read(proj_ + "/ProjConf.bin"), Item(ConfigBytes("50%s ö", {"tele", "bare", "new"})));
}

TEST_F(ProjectConfigTest, MakesNothingWithoutAUsableSchema) {
  MakeDirs(root_);
  const std::string name = "string proj_name = 1; ";
  for (const auto& [fields, missing] : Rows{{"string other = 1;", "proj_name"},
                                            {"int32 proj_name = 1;", "proj_name"},
                                            {"bytes proj_name = 1;", "proj_name"},
                                            {"repeated string proj_name = 1;", "proj_name"},
                                            {name, "sensor_names"},
                                            {name + "string sensor_names = 2;", "sensor_names"},
                                            {name + "repeated int32 sensor_names = 2;", "sensor_names"}}) {
    Write(temp_ / "odd/a.proto", "syntax = \"proto3\"; package ZO_TUNING; message TuningProjConfig { " + fields + " }");
    Init({"tele"}, temp_ / "odd");
    EXPECT_LOG(E("InitProjConfigMsg", "Error in finding the field descriptor of " + missing),
               E("InitProjectConfig", "Failed in project config message initialization"))
        << fields;
  }
  Init({"tele"}, temp_ / "no schema");
  EXPECT_LOG(NoType("ZO_TUNING.TuningProjConfig"));
  EXPECT_EQ(Tree(root_), Strings());

  // A missing root shows up only when the configuration is written.
  ZoTuningUtils::InitProjectConfig(schema_dir_.c_str(), "p", {}, (temp_ / "gone").c_str());
  EXPECT_LOG(I("InitProjectConfig", "Create the default dir " + (temp_ / "gone/p/default")),
             E("MSG_TO_BIN", "Cannot open output file " + (temp_ / "gone/p/ProjConf.bin")));
}

// fuzz/project_config.cpp covers every truncation and change.
TEST_F(ProjectConfigTest, ReadsWhateverTheConfigurationHolds) {
  const Project project;
  const std::string path = project / "ProjConf.bin", good = Item(ConfigBytes("old", {"a", "b"}));
  const auto read = [&](const std::string& bytes) {
    Write(path, bytes);
    std::string name = "before";
    Strings sensors = {"before"}, names = {"kept"};
    LabelMap map;
    EXPECT_TRUE(ZoTuningUtils::GetProjectConfig(project.dir.c_str(), name, sensors, names, map));
    EXPECT_EQ(names.size(), kLabelNames.size() + 1);
    EXPECT_EQ(map, kLabelMap);
    for (const std::string& sensor : sensors) name += " " + sensor;
    return name;
  };
  for (const auto& [bytes, wanted] :
       Rows{{"", ""}, {good + std::string(3, '\xff'), "old a b"}, {good + Item(ConfigBytes("new", {"d"})), "new d"}}) {
    EXPECT_EQ(read(bytes), wanted);
    EXPECT_LOG();
  }
  for (const auto& [bad, line] : Rows{{good + I32(1), "Read project config bin failed: "},
                                      {I32(-1) + good, "Read project config bin failed: "},
                                      {good + Item("\xff"), "Parse proj_config_msg failed: "}}) {
    EXPECT_EQ(read(bad), "before before");
    EXPECT_LOG(E("InitProjConfigMsgFromBin", line + path),
               E("GetProjectConfig", "Failed in project config message initialization from bin"));
  }
}

TEST_F(ProjectConfigTest, NeedsTheProjectItsSchemaAndItsTypes) {
  const std::string dir = temp_ / "p";
  const std::string get = "GetProjectConfig";
  const auto fails = [&](const Strings& lines) {
    std::string name;
    Strings sensors, names;
    LabelMap map;
    EXPECT_FALSE(ZoTuningUtils::GetProjectConfig(dir.c_str(), name, sensors, names, map));
    EXPECT_EQ(TakeLog(), lines);
  };
  fails({E(get, "Project dir is not existed " + dir)});
  MakeDirs(dir);
  fails({E(get, "Project proto dir is not existed " + dir + "/proto")});
  MakeDirs(dir + "/proto");
  fails({NoType("ZO_TUNING.TuningProjConfig"), E(get, "Get project config descriptor failed")});
  const std::string config =
      "syntax = \"proto3\"; package ZO_TUNING; message TuningProjConfig { repeated int32 sensor_names = 2; } ";
  const std::string from_bin = E(get, "Failed in project config message initialization from bin");
  Write(dir + "/proto/a.proto", config);
  fails({E("InitProjConfigMsgFromBin", "Open project config bin file failed: " + dir + "/ProjConf.bin"), from_bin,
         NoType("ZO_TUNING.TuningDataLabel"), E(get, "Get tuning label descriptor failed")});
  Write(dir + "/ProjConf.bin", "");
  Write(dir + "/proto/a.proto", config + "message TuningDataLabel { string module = 1; }");
  fails({E("InitProjConfigMsgFromBin", "Error in finding the field descriptor of proj_name"), from_bin,
         E("GetProjectTuningLabelsMap", "Invalid tuning data label type: 9"),
         E(get, "Generate tuning label map failed")});
}

TEST_F(ProjectConfigTest, MsgToBinWritesMessagesWithoutTheirRequiredFields) {
  Write(temp_ / "odd/a.proto",
        "syntax = \"proto2\"; message Odd { required int32 needed = 1; optional int32 given = 2; }");
  Schema schema(temp_ / "odd");
  ZO_TUNING::MSG_TO_BIN(schema.New("Odd", "given: 300").get(), (temp_ / "odd.bin").c_str());
  EXPECT_EQ(Read(temp_ / "odd.bin"), Item(Int(2, 300)));
}

}  // namespace
