// modules, labels, sensors, tree.

#include <sys/stat.h>
#include <unistd.h>

#include "tools/tool.h"

namespace zotest {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

TEST_F(ToolTest, ModulesLabelsAndSensors) {
  const Ran modules = Tool({"modules", "--json"});
  const Json list = modules.json()["result"]["modules"];
  EXPECT_EQ(list.size(), 13u);
  EXPECT_EQ(list[2], Json({{"name", "AfLinkKeyFar"},
                           {"number", 2},
                           {"type", "ZO_TUNING_AF.AfLinkKey"},
                           {"default", true},
                           {"settings", 1}}));
  EXPECT_THAT(Tool({"modules"}).out, HasSubstr("AWBCommon        16      ZO_TUNING_AWB.AWBCommon        yes      2\n"));

  EXPECT_EQ(Tool({"labels", "filter"}).out, "filter:\n  Plain  0\n  Mono   1\n  Warm   2\n");
  EXPECT_THAT(Tool({"labels"}).out, HasSubstr("mode: any whole number but -1\n"));
  EXPECT_THAT(Tool({"labels", "senario"}).err, HasSubstr("no label 'senario'; did you mean 'scenario'?"));

  EXPECT_EQ(Tool({"sensors"}).out,
            "SENSOR     INDEX  SETTINGS  VERSIONS\n"
            "main_wide  0      13        2\n"
            "front      1      12        2\n");
}

TEST_F(ToolTest, AMissingSensorFolderHasNoIndex) {
  ASSERT_EQ(rename(At("main_wide").c_str(), At("elsewhere").c_str()), 0);
  const Ran run = Tool({"sensors"});
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.out, HasSubstr("main_wide  -      0         0\nfront      0      12        2\n"));
  EXPECT_THAT(run.err, HasSubstr("main_wide: error: the folder of the sensor 'main_wide' is missing"));
}

TEST_F(ToolTest, TreeShowsLabelValues) {
  const Ran run = Tool({"tree", "front"});
  EXPECT_EQ(run.code, 0) << run.err;
  EXPECT_THAT(run.err, IsEmpty());
  const Json settings = Tool({"tree", "front", "--json"}).json()["result"]["scopes"][0]["settings"];
  ASSERT_EQ(settings.size(), 12u);
  for (const Json& setting : settings) {
    // The path spells its labels.
    std::string path = "front";
    for (const auto& [label, value] : setting["labels"].items()) {
      if (label != "module") path += "/" + label + "_" + (value.is_number() ? value.dump() : value.get<std::string>());
    }
    EXPECT_EQ(setting["path"], path + "/" + setting["labels"]["module"].get<std::string>() + ".json");
    EXPECT_THAT(setting["faults"], IsEmpty());
  }
  EXPECT_THAT(Tool({"tree", "fornt"}).err, HasSubstr("no sensor 'fornt'; did you mean 'front'?"));
}

TEST_F(ToolTest, TreeFlagsWhatTheLabelsDoNotKnow) {
  const struct {
    const char* file;
    const char* says;
  } rows[] = {
      {"front/Afcommon.json", "no module 'Afcommon'; did you mean 'AfCommon'?"},
      {"front/mode_x/AfCommon.json", "'x' is no number for 'mode'"},
      {"front/mode_-1/AfCommon.json", "'-1' is no number for 'mode'"},
      {"front/mode_3/scenario_video/AfCommon.json", "'scenario' has no value 'video'; did you mean 'Video'?"},
      {"front/modde_3/AfCommon.json", "the folder 'modde_3' is no level; did you mean 'mode_...'?"},
      {"front/my_scene_Night/AfCommon.json", "the folder 'my_scene_Night' is no level"},
      {"front/mode_1/mode_1/scenario_Video/AfContrast.json", nullptr},  // read twice, to the same value
  };
  for (const auto& row : rows) Write(At(row.file), "{}");
  const Ran run = Tool({"tree", "front"});
  EXPECT_EQ(run.code, 1);
  for (const auto& row : rows) {
    if (row.says != nullptr) {
      EXPECT_THAT(run.err, HasSubstr(std::string(row.file) + ": error: " + row.says));
    } else {
      EXPECT_THAT(run.err, testing::Not(HasSubstr(std::string(row.file) + ": error")));
    }
  }
}

TEST_F(ToolTest, TreeNamesSettingsWithTheSameLabels) {
  Write(At("front/scenario_Video/mode_1/AfLinkKeyNear.json"), "{}");
  const Ran run = Tool({"tree", "front"});
  EXPECT_EQ(run.code, 0);
  EXPECT_THAT(run.err, HasSubstr("front/scenario_Video/mode_1/AfLinkKeyNear.json: warning: this setting has the labels "
                                 "of 'mode_1/scenario_Video/AfLinkKeyNear.json'"));
}

TEST_F(ToolTest, AFolderAboveTheSettingsMayLookLikeALevel) {
  const std::string trap = temp_ / "scene_Night";
  ASSERT_EQ(rename(dir_.c_str(), trap.c_str()), 0);
  // The sensor's folder is no level and ends the reading, so the trap stays harmless.
  EXPECT_EQ(RunTool({"-C", trap, "tree"}, {temp_.str(), ""}).code, 0);
}

TEST_F(ToolTest, SchemaErrorsHaveAPlace) {
  Edit("proto/af.proto", "message AfCommon {", "message AfCommon {\n  no_such_type.T broken = 900;\n");
  for (const Strings& command : {Strings{"modules"}, Strings{"pack", "-o", "out"}, Strings{"tree"}}) {
    const Ran run = Tool(command);
    EXPECT_EQ(run.code, 1);
    EXPECT_THAT(run.err,
                testing::ContainsRegex("proto/af\\.proto:[0-9]+:3: error: \"no_such_type\\.T\" is not defined"));
  }
  Write(At("proto/af.proto"), "syntax = \"proto3\";\npackage ZO_TUNING_AF;\nmessage {\n");
  EXPECT_THAT(Tool({"modules"}).err, HasSubstr("proto/af.proto:3:9: error: Expected message name."));
}

TEST_F(ToolTest, ATypeInTheWrongPackageIsFound) {
  Edit("proto/project.proto", "package ZO_TUNING;", "package ZO_TUNING_AF;");
  EXPECT_THAT(Tool({"modules"}).err, HasSubstr("no message type 'ZO_TUNING.TuningProjConfig'"));
  EXPECT_THAT(Tool({"modules"}).err, HasSubstr("there is 'ZO_TUNING_AF.TuningProjConfig'"));
}

TEST_F(ToolTest, SpecialFilesAreRefusedBeforeTheyBlock) {
  for (const char* file :
       {"proto/pipe.proto", "ProjConf.bin", "front/mode_1/AfCommon.json", "proto/version/pipe.json"}) {
    const std::string kept = At(std::string(file) + ".kept");
    rename(At(file).c_str(), kept.c_str());
    ASSERT_EQ(mkfifo(At(file).c_str(), 0600), 0);
    const Ran run = Tool({"pack", "-o", "out"});
    EXPECT_EQ(run.code, 1) << file;
    EXPECT_THAT(run.err, HasSubstr(std::string(file) + ": error: this is a named pipe, not a file"));
    EXPECT_FALSE(Exists(At("out")));
    unlink(At(file).c_str());
    rename(kept.c_str(), At(file).c_str());
  }
  EXPECT_EQ(Tool({"pack", "-o", "out"}).code, 0);
}

}  // namespace
}  // namespace zotest
