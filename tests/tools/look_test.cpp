// modules, labels, sensors, tree; what every command refuses to open.

#include <sys/stat.h>
#include <unistd.h>

#include "tools/tool.h"

namespace zotest {
namespace {

TEST_F(ToolTest, ModulesLabelsAndSensors) {
  const Json list = Tool("modules --json").json()["result"]["modules"];
  EXPECT_EQ(list.size(), 13u);
  EXPECT_EQ(list[2], Json({{"name", "AfLinkKeyFar"},
                           {"number", 2},
                           {"type", "ZO_TUNING_AF.AfLinkKey"},
                           {"default", true},
                           {"settings", 1}}));
  EXPECT_THAT(Tool("modules").out, HasSubstr("AWBCommon        16      ZO_TUNING_AWB.AWBCommon        yes      2\n"));

  EXPECT_EQ(Tool("labels filter").out, "filter:\n  Plain  0\n  Mono   1\n  Warm   2\n");
  EXPECT_THAT(Tool("labels").out, HasSubstr("mode: any whole number other than -1\n"));
  Fails("labels senario", "no label 'senario'; did you mean 'scenario'?");

  EXPECT_EQ(Tool("sensors").out,
            "SENSOR     INDEX  SETTINGS  VERSIONS\n"
            "main_wide  0      13        2\n"
            "front      1      12        2\n");
  ASSERT_EQ(rename(At("main_wide").c_str(), At("elsewhere").c_str()), 0);
  EXPECT_THAT(Tool("sensors").out, HasSubstr("main_wide  -      0         0\nfront      0      12        2\n"));
  Fails("sensors", "main_wide: error: the folder of the sensor 'main_wide' is missing");
}

TEST_F(ToolTest, TreeShowsLabelValues) {
  EXPECT_THAT(Tool("tree front").err, IsEmpty());
  const Json settings = Tool("tree front --json").json()["result"]["scopes"][0]["settings"];
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
  Fails("tree fornt", "no sensor 'fornt'; did you mean 'front'?");
  // The sensor's folder is not a level and ends the reading, so a name above it is harmless.
  ASSERT_EQ(rename(dir_.c_str(), (temp_ / "scene_Night").c_str()), 0);
  EXPECT_EQ(Tool("-C scene_Night tree", {temp_.str()}).code, 0);
}

TEST_F(ToolTest, TreeFlagsWhatTheLabelsDoNotKnow) {
  const Rows rows = {
      {"front/Afcommon.json", "error: no module 'Afcommon'; did you mean 'AfCommon'?"},
      {"front/mode_x/AfCommon.json", "error: 'x' is not a number for 'mode'"},
      {"front/mode_-1/AfCommon.json", "error: '-1' is not a number for 'mode'"},
      {"front/mode_3/scenario_video/AfCommon.json", "error: 'scenario' has no value 'video'; did you mean 'Video'?"},
      {"front/modde_3/AfCommon.json", "error: the folder 'modde_3' is not a level; did you mean 'mode_...'?"},
      {"front/my_scene_Night/AfCommon.json", "error: the folder 'my_scene_Night' is not a level\n"},
      {"front/scenario_Video/mode_1/AfLinkKeyNear.json",
       "warning: this setting has the labels of 'mode_1/scenario_Video/AfLinkKeyNear.json'"},
  };
  for (const auto& [file, says] : rows) Write(At(file), "{}");
  const std::string twice = "front/mode_1/mode_1/scenario_Video/AfContrast.json";  // reads as the same value
  Write(At(twice), "{}");
  for (const auto& [file, says] : rows) Fails("tree front", file + ": " + says);
  EXPECT_THAT(Tool("tree front").err, Not(HasSubstr(twice + ": error")));
}

TEST_F(ToolTest, SchemaErrorsHaveAPlace) {
  Edit("proto/af.proto", "message AfCommon {", "message AfCommon {\n  no_such_type.T broken = 900;\n");
  for (const char* line : {"modules", "pack -o out", "tree"}) {
    Fails(line, ":3: error: \"no_such_type.T\" is not defined");
  }
  Write(At("proto/af.proto"), "syntax = \"proto3\";\npackage ZO_TUNING_AF;\nmessage {\n");
  Fails("modules", "proto/af.proto:3:9: error: Expected message name.");
}

TEST_F(PackedTest, SpecialFilesAreRefusedBeforeTheyBlock) {
  Write(At("proto/odd.proto"), "syntax = \"proto3\";\nimport \"odd.txt\";\n");
  Write(At("proto/odd.txt"), "syntax = \"proto3\";\n");
  const Rows rows = {
      {"proto/pipe.proto", "pack -o new"},
      {"proto/odd.txt", "pack -o new"},
      {"ProjConf.bin", "pack -o new"},
      {"ProjConf.bin", "init tuning_project --into .. --proto proto --sensor front --force"},
      {"proto/version/pipe.json", "version list"},
      {"front/version/tuning.json", "verify out"},
      {"default/AfCommon.json", "template AfCommon --force"},
      {"front/mode_1/AfCommon.json", "pack -o new"},
      {"front/mode_1/AfCommon.json", "new --sensor front module=AfCommon mode=1 --force"},
      {"src/ZoTuningVersion.h", "version header"},
      {bin_, "show " + bin_},
      {bin_, "verify out"},
  };
  for (const auto& [file, line] : rows) {
    const std::string kept = At(file + ".kept");
    rename(At(file).c_str(), kept.c_str());
    ASSERT_EQ(mkfifo(At(file).c_str(), 0600), 0);
    Fails(line, file + ": error: this is a named pipe");
    EXPECT_FALSE(Exists(At("new")));
    unlink(At(file).c_str());
    rename(kept.c_str(), At(file).c_str());
  }
}

TEST_F(ToolTest, AConfigurationWithoutContentIsNoProjectWithoutSensors) {
  const std::string config = Read(At("ProjConf.bin"));
  for (const size_t bytes : {0, 3}) {
    Write(At("ProjConf.bin"), config.substr(0, bytes));
    Fails("pack -o out", "ProjConf.bin: error: the project configuration is empty or cannot be read");
  }
  Write(At("ProjConf.bin"), config.substr(0, 9));
  Fails("pack -o out", "ProjConf.bin: error: the project configuration is truncated");
}

}  // namespace
}  // namespace zotest
