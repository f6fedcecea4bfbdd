// init: from a folder of .proto files to a project in which every later command works.

#include <filesystem>

#include "tools/tool.h"

namespace zotest {
namespace {

TEST_F(ToolTest, ABareSchemaBecomesAProjectThatPacks) {
  std::filesystem::remove_all(At("proto/version"));
  const Ran made =
      Tool("init demo --proto tuning_project/proto --sensor tele --sensor uw --into new/home", {temp_.str()});
  ASSERT_EQ(made.code, 0) << made.err;
  const std::string demo = temp_ / "new/home/demo";
  EXPECT_THAT(Tree(demo), testing::IsSupersetOf({"ProjConf.bin", "default/.gitkeep", "proto/af.proto",
                                                 "proto/version/demo.json", "src/ZoTuningVersion.h", "tele/.gitkeep",
                                                 "tele/version/.gitkeep", "uw/version/"}));
  EXPECT_THAT(Read(demo + "/src/ZoTuningVersion.h"), HasSubstr("[3AProto]"));
  const struct {
    const char* line;
    const char* says;
  } life[] = {
      {"template --all", "default/AfCommon.json         made\n"},
      {"new --sensor tele module=AfCommon mode=1", "tele/mode_1/AfCommon.json  made\n"},
      {"tree", "tele (1 setting)"},
      {"version set demo 0.2", "demo is now 0.2"},
      {"version header", "src/ZoTuningVersion.h is written, 1 version\n"},
      {"pack -o out", "tele.bin"},
      {"show out", "default.bin"},
      {"verify out/zo_tuning", "default.bin: 13 records the same, 0 differences\n"},
  };
  for (const auto& step : life) {
    const Ran run = Tool(step.line, {demo});
    EXPECT_EQ(run.code, 0) << step.line << run.err;
    EXPECT_THAT(run.out, HasSubstr(step.says));
    EXPECT_EQ(run.err, "") << step.line;
  }
}

TEST_F(ToolTest, WhatIsThereIsKept) {
  const Strings before = Tree(dir_);
  const std::string header = Read(At("src/ZoTuningVersion.h"));
  const std::string again = "init tuning_project --proto tuning_project/proto --sensor third";
  const Ran refused = Tool(again, {temp_.str()});
  EXPECT_EQ(refused.code, 1);
  EXPECT_THAT(refused.err, HasSubstr("'tuning_project' is a project already"));
  EXPECT_EQ(Tree(dir_), before);

  EXPECT_EQ(Tool(again + " --sensor front --force", {temp_.str()}).code, 0);
  EXPECT_EQ(Read(At("src/ZoTuningVersion.h")), header);
  EXPECT_THAT(Tool("sensors").out, HasSubstr("third   0      0         0\nfront   1      12        2\n"));

  Write(temp_ / "other/project.proto", Read(At("proto/project.proto")) + "// newer\n");
  Write(temp_ / "other/label.proto", Read(At("proto/label.proto")));
  const Ran clash = Tool("init tuning_project --proto other --sensor front --force", {temp_.str()});
  EXPECT_EQ(clash.code, 1);
  EXPECT_THAT(clash.err, HasSubstr("tuning_project/proto/project.proto: error: the project holds another version"));
}

TEST_F(ToolTest, AnUnusableSchemaMakesNothing) {
  const struct {
    const char* file;
    const char* from;
    const char* to;
    const char* says;
  } rows[] = {
      {"project", "message TuningProjConfig", "message Other", "no message type 'ZO_TUNING.TuningProjConfig'"},
      {"project", "message Version", "message Edition", "no message type 'ZO_TUNING.Version'"},
      {"project", "package ZO_TUNING;", "package ZO_TUNING_AF;", "there is 'ZO_TUNING_AF.TuningProjConfig'"},
      {"label", "message TuningDataLabel", "message Label", "no message type 'ZO_TUNING.TuningDataLabel'"},
      {"label", "int32 mode = 1;", "string mode = 1;", "neither int32 nor enum"},
      {"label", "int32 mode = 1;", "int32 mode = 1", "label.proto:"},
      {"label", "", "", "'my_scene_cam' contains 'scene_' and would be read as a level"},
  };
  for (const auto& row : rows) {
    const std::string file = std::string("proto/") + row.file + ".proto", before = Read(At(file));
    Edit(file, row.from, row.to);
    const Ran run = Tool("init demo --proto tuning_project/proto --sensor my_scene_cam", {temp_.str()});
    EXPECT_EQ(run.code, 1) << row.says;
    EXPECT_THAT(run.err, HasSubstr(row.says));
    EXPECT_FALSE(Exists(temp_ / "demo")) << row.says;
    Write(At(file), before);
  }
}

}  // namespace
}  // namespace zotest
