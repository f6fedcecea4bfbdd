// init, template, new: from a folder of .proto files to a project in which every later command works.

#include <unistd.h>

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
  const Rows life = {
      {"template --all", "default/AfCommon.json         made\n"},
      {"new --sensor tele module=AfCommon mode=1", "tele/mode_1/AfCommon.json  made\n"},
      {"version set demo 0.2", "demo is now 0.2"},
      {"version header", "src/ZoTuningVersion.h is written, 1 version\n"},
      {"pack -o out", "tele.bin"},
      {"verify out/zo_tuning", "default.bin: 14 the same, 0 differences\n"},
  };
  for (const auto& [line, says] : life) {
    const Ran run = Tool(line, {demo});
    EXPECT_EQ(run.code, 0) << line << run.err;
    EXPECT_THAT(run.out, HasSubstr(says));
    EXPECT_EQ(run.err, "") << line;
  }
}

TEST_F(ToolTest, WhatIsThereIsKept) {
  const Strings before = Tree(dir_);
  const std::string again = "init tuning_project --proto tuning_project/proto --sensor third";
  const Ran refused = Tool(again, {temp_.str()});
  EXPECT_EQ(refused.code, 1);
  EXPECT_THAT(refused.err, HasSubstr("'tuning_project' is a project already"));
  EXPECT_EQ(Tree(dir_), before);

  // A schema without version files does not touch those of the project.
  const std::string header = Read(At("src/ZoTuningVersion.h")), version = "{\"name\": \"x\", \"version\": \"7\"}";
  Write(At("proto/version/tuning_project.json"), version);
  std::filesystem::copy(At("proto"), temp_ / "bare");
  EXPECT_EQ(Tool("init tuning_project --proto bare --sensor third --sensor front --force", {temp_.str()}).code, 0);
  EXPECT_EQ(Read(At("src/ZoTuningVersion.h")), header);
  EXPECT_EQ(Read(At("proto/version/tuning_project.json")), version);
  EXPECT_THAT(
      Tool("sensors").out,
      HasSubstr("main_wide  0      13        2\nfront      1      12        2\nthird      2      0         0\n"));

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

TEST_F(ToolTest, TemplatesAreMadeOnceAndEditedOnesKept) {
  const std::string edited = Read(At("default/AfCommon.json"));
  const Ran kept = Tool("template AfCommon --json");
  EXPECT_EQ(kept.code, 1);
  EXPECT_EQ(kept.json()["result"]["templates"][0],
            Json({{"module", "AfCommon"}, {"file", "default/AfCommon.json"}, {"state", "kept"}}));
  EXPECT_EQ(Read(At("default/AfCommon.json")), edited);
  EXPECT_EQ(Tool("template AfCommon --force").out, "default/AfCommon.json  replaced\n");
  EXPECT_NE(Read(At("default/AfCommon.json")), edited);
  unlink(At("default/AfCommon.json").c_str());
  EXPECT_EQ(Tool("template AfCommon").out, "default/AfCommon.json  made\n");
  const Ran all = Tool("template --all");
  EXPECT_EQ(all.code, 0);  // although the other defaults of the example have been edited
  EXPECT_THAT(all.out, HasSubstr("default/AfCommon.json         unchanged\n"));
  EXPECT_THAT(all.out, HasSubstr("default/PdCalib.json          kept\n"));

  Fails("template Afcommon", "no module 'Afcommon'; did you mean 'AfCommon'?");
  std::filesystem::remove_all(At("default"));
  Fails("template AfCommon", "the project has no folder 'default'");
}

TEST_F(ToolTest, NewMakesEveryCombination) {
  const std::string line = "new --sensor front scenario=Video,Preview module=AfCommon,PdCalib mode=7,-2";
  const Strings before = Tree(dir_);
  const Ran planned = Tool(line + " --dry-run");
  EXPECT_EQ(planned.code, 0) << planned.err;
  EXPECT_EQ(Tree(dir_), before);

  const Json settings = Tool(line + " --json").json()["result"]["settings"];
  EXPECT_EQ(settings.size(), 8u);
  EXPECT_EQ(Tree(dir_).size(), before.size() + 8 + 2 + 4);  // and the folders of modes and scenarios
  for (const Json& setting : settings) {
    const std::string file = setting["file"], module = setting["labels"]["module"];
    EXPECT_THAT(planned.out, HasSubstr(file));
    EXPECT_EQ(Read(At(file)), Read(At("default/" + module + ".json")));
  }
  EXPECT_TRUE(Exists(At("front/mode_-2/scenario_Preview/PdCalib.json")));
  EXPECT_EQ(Tool("tree").code, 0);
}

TEST_F(ToolTest, NewKeepsWhatExists) {
  const std::string edited = Read(At("front/mode_1/AfCommon.json"));
  const std::string line = "new --sensor front module=AfCommon mode=1,8";
  const Ran run = Tool(line);
  EXPECT_EQ(run.code, 0);
  EXPECT_EQ(run.out, "front/mode_1/AfCommon.json  kept\nfront/mode_8/AfCommon.json  made\n");
  EXPECT_THAT(run.err, HasSubstr("front/mode_1/AfCommon.json: warning: this setting exists; it is kept"));
  EXPECT_EQ(Read(At("front/mode_1/AfCommon.json")), edited);
  EXPECT_EQ(Tool(line + " --force").out,
            "front/mode_1/AfCommon.json  replaced\nfront/mode_8/AfCommon.json  replaced\n");
  EXPECT_EQ(Read(At("front/mode_1/AfCommon.json")), Read(At("default/AfCommon.json")));

  Write(At("front/mode_4"), "a file in the way");
  Fails("new --sensor front module=AfCommon mode=4", "cannot make the directory front/mode_4: Not a directory");
}

TEST_F(ToolTest, NewMakesNothingAfterAWrongNameOrDefault) {
  unlink(At("default/PdCalib.json").c_str());
  Edit("default/AWBCommon.json", "\"value\"", "\"valeu\"");
  const Rows rows = {
      {"front module=Afcommon", "no module 'Afcommon'; did you mean 'AfCommon'?"},
      {"front module=AfCommon mode=9 scenario=Vid", "'scenario' has no value 'Vid'; did you mean 'Video'?"},
      {"front module=AfCommon mode=one", "'one' is not a value of 'mode'"},
      {"front module=AfCommon mode=-1", "'-1' is not a value of 'mode'"},
      {"front module=AfCommon mode=99999999999", "'99999999999' is not a value of 'mode'"},
      {"front module=AfCommon mod=9", "no label 'mod'; did you mean 'mode'?"},
      {"front module=AfCommon,PdCalib mode=9", "default/PdCalib.json: error: the module 'PdCalib' has no default yet"},
      {"front module=AWBCommon mode=9", "unknown key 'face_assist.valeu'"},
      {"rear module=AfCommon", "no sensor 'rear'"},
  };
  const Strings before = Tree(dir_);
  for (const auto& [labels, says] : rows) Fails("new --sensor " + labels, says);
  EXPECT_EQ(Tree(dir_), before);
}

}  // namespace
}  // namespace zotest
