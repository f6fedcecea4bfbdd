// What others, by accident or intent, leave in a project: the tool names it, and loses nothing.

#include <filesystem>

#include "support/wire.h"
#include "tools/tool.h"

namespace zotest {
namespace {

namespace fs = std::filesystem;

TEST_F(PackedTest, LinksAreKeptOrNamed) {
  // The folder of bins is a link: what it leads to is replaced.
  fs::create_directory(temp_ / "deployed");
  fs::rename(At("out/zo_tuning"), temp_ / "deployed/bins");
  fs::create_directory_symlink("../../deployed/bins", At("out/zo_tuning"));
  const std::string bin = Read(At(bin_));
  Write(At(bin_), "old");
  EXPECT_EQ(Tool("pack -o out --force").code, 0);
  EXPECT_TRUE(fs::is_symlink(At("out/zo_tuning")));
  EXPECT_EQ(Read(temp_ / "deployed/bins/front.bin"), bin);

  // A level of the tree is one.
  fs::rename(At("front/mode_1"), temp_ / "elsewhere");
  fs::create_directory_symlink("../../elsewhere", At("front/mode_1"));
  Fails("pack -o other", "front/mode_1: error: this is a link to a folder");
  Fails("verify out", "front/mode_1: error: this is a link to a folder");
  EXPECT_FALSE(Exists(At("other/zo_tuning")));
}

TEST_F(ToolTest, WhatATerminalWouldObeyIsEscaped) {
  for (const auto& [level, shown] : Rows{{"mode_\xc2\x9b"
                                          "31m",
                                          "mode_\\u{9B}31m: error"},
                                         {"mode_\xe2\x80\xae"
                                          "7",
                                          "mode_\\u{202E}7: error"}}) {
    Write(At("front/" + level + "/AfCommon.json"), Read(At("default/AfCommon.json")));
    for (const char* line : {"check", "pack -o out", "tree"}) {
      const Ran run = Tool(line);
      EXPECT_THAT(run.err, HasSubstr(line == std::string("tree") ? shown.substr(0, shown.find(':')) : shown)) << line;
      EXPECT_THAT(run.out + run.err, testing::Not(HasSubstr(level))) << line;
    }
    fs::remove_all(At("front/" + level));
  }
}

TEST_F(ToolTest, SensorsThatAreNoFolderNamesAreRefused) {
  const std::pair<std::string, std::string> rows[] = {
      {std::string("a\0b", 3), "the sensor name 'a\\x00b' must not contain control characters"},
      {"a\x1b[2J", "the sensor name 'a\\x1B[2J' must not contain control characters"},
      {"a/b", "the sensor name 'a/b' must not contain a slash"},
      {"..", "the sensor name '..' is not the name of a folder"},
      {"", "the sensor name '' is not the name of a folder"},
  };
  for (const auto& [name, says] : rows) {
    Write(At("ProjConf.bin"), Item("\x0a\x01p\x12" + Varint(static_cast<int64_t>(name.size())) + name));
    for (const char* line : {"pack -o out", "check", "tree"}) Fails(line, says);
    EXPECT_FALSE(Exists(At("out/zo_tuning")));
  }
  Fails("init made --proto proto --sensor a/b", "the sensor name 'a/b' must not contain a slash", 2);
  EXPECT_FALSE(Exists(At("made")));
}

TEST_F(ToolTest, AFailedInitRemovesOnlyWhatItMade) {
  Write(At("bad/label.proto"), Read(At("proto/label.proto")));
  Write(At("bad/project.proto"), Read(At("proto/project.proto")));
  Write(At("made/front"), "a file where the sensor's folder should be");
  Write(At("made/default/AfCommon.json"), "{}");
  const Strings before = Tree(At("made"));
  EXPECT_EQ(Tool("init made --proto bad --sensor wide --sensor front").code, 1);
  EXPECT_EQ(Tree(At("made")), before);
  Write(At("bad/version/demo.json"), "{\"name\": 5");
  EXPECT_EQ(Tool("init fresh --proto bad --sensor wide").code, 1);
  EXPECT_FALSE(Exists(At("fresh")));
}

TEST_F(ToolTest, FieldsOfEveryTypeAreMadeOrNamed) {
  Edit("proto/project.proto", "message Version {",
       "message Version { repeated string names = 20; repeated Kind kinds = 21;"
       " repeated Version parts = 22; bytes raw = 23; enum Kind { ZERO = 0; } ");
  const std::string version = Read(At("proto/version/af.json"));
  EXPECT_EQ(Tool("version set AF 9.9").code, 0);
  std::string expected = version;
  const size_t at = expected.find("2.1.0");
  ASSERT_NE(at, std::string::npos);
  EXPECT_EQ(Read(At("proto/version/af.json")), expected.replace(at, 5, "9.9"));

  const Rows fields = {{"repeated string x = 90;", "a list of string"},
                       {"repeated bytes x = 90;", "a list of bytes"},
                       {"repeated sint32 x = 90;", "a list of sint32"},
                       {"repeated fixed64 x = 90;", "a list of fixed64"}};
  const std::string schema = Read(At("proto/af.proto")), setting = Read(At("default/AfCommon.json"));
  for (const auto& [field, type] : fields) {
    Write(At("proto/af.proto"), schema);
    Edit("proto/af.proto", "message AfCommon {", "message AfCommon { " + field);
    Fails("template AfCommon --force", "the field 'ZO_TUNING_AF.AfCommon.x' is " + type);
    EXPECT_EQ(Read(At("default/AfCommon.json")), setting);
  }
}

}  // namespace
}  // namespace zotest
