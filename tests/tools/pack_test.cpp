// pack: whole or absent, nothing passed over in silence, faults with their place.

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <thread>

#include "tools/tool.h"

namespace zotest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST_F(ToolTest, PacksAllBins) {
  const Ran run = Tool({"pack", "-o", "deep/out", "--json"});
  ASSERT_EQ(run.code, 0) << run.out << run.err;
  const Json bins = run.json()["result"]["bins"];
  ASSERT_EQ(bins.size(), 3u);
  const struct {
    const char* name;
    size_t versions, records;
  } rows[] = {{"default", 5, 13}, {"main_wide", 2, 13}, {"front", 2, 12}};
  for (size_t i = 0; i < 3; ++i) {
    const std::string file = std::string("deep/out/zo_tuning/") + rows[i].name + ".bin";
    EXPECT_EQ(bins[i]["name"], rows[i].name);
    EXPECT_EQ(bins[i]["file"], file);
    EXPECT_EQ(bins[i]["bytes"], Read(At(file)).size());
    EXPECT_EQ(bins[i]["versions"], rows[i].versions);
    EXPECT_EQ(bins[i]["records"], rows[i].records);
    EXPECT_GE(bins[i]["milliseconds"], 0);
  }
  EXPECT_THAT(Tree(At("deep")), ElementsAre("out/", "out/zo_tuning/", "out/zo_tuning/default.bin",
                                            "out/zo_tuning/front.bin", "out/zo_tuning/main_wide.bin"));
}

TEST_F(ToolTest, PacksOneSensorByNameOrByQuestion) {
  ASSERT_EQ(Tool({"pack", "-o", "all"}).code, 0);
  ASSERT_EQ(Tool({"pack", "-o", "one", "--sensor", "front"}).code, 0);
  const Ran asked = RunTool({"pack", "-o", "asked", "--ask"}, {dir_, "1\n"});
  ASSERT_EQ(asked.code, 0) << asked.err;
  EXPECT_THAT(asked.out, HasSubstr("1  front"));
  for (const char* out : {"one", "asked"}) {
    EXPECT_THAT(Tree(At(out)), ElementsAre("zo_tuning/", "zo_tuning/default.bin", "zo_tuning/front.bin"));
    for (const char* bin : {"/zo_tuning/default.bin", "/zo_tuning/front.bin"}) {
      EXPECT_EQ(Read(At(out) + bin), Read(At("all") + bin)) << out << bin;
    }
  }
  for (const char* answer : {"2", "-1", "front", ""}) {
    const Ran wrong = RunTool({"pack", "-o", "wrong", "--ask"}, {dir_, answer});
    EXPECT_EQ(wrong.code, 1) << answer;
    EXPECT_EQ(wrong.err, "zotuning: error: that is the index of no sensor\n") << answer;
    EXPECT_FALSE(Exists(At("wrong"))) << answer;
  }
  // The field check is that of all sensors by name, and none by question.
  Write(At("front/mode_2/ToneCurve.json"), "{}");
  const Ran checked = Tool({"pack", "-o", "checked", "--sensor", "front"});
  EXPECT_EQ(checked.code, 1);
  EXPECT_THAT(checked.err, HasSubstr("front/mode_2/ToneCurve.json: error: the field "));
  EXPECT_EQ(RunTool({"pack", "-o", "unchecked", "--ask"}, {dir_, "1"}).code, 0);
  EXPECT_THAT(Tool({"pack", "-o", "x", "--sensor", "rear"}).err, HasSubstr("no sensor 'rear'"));
}

TEST_F(ToolTest, AnExistingFolderIsReplacedOnRequestOnly) {
  ASSERT_EQ(Tool({"pack", "-o", "."}).code, 0);
  Write(At("zo_tuning/front.bin"), "old");
  const Ran kept = Tool({"pack", "-o", "."});
  EXPECT_EQ(kept.code, 1);
  EXPECT_EQ(kept.err, "zo_tuning: error: the folder exists already\n  help: --force replaces it\n");
  EXPECT_EQ(Read(At("zo_tuning/front.bin")), "old");
  EXPECT_EQ(Tool({"pack", "-o", ".", "--force"}).code, 0);
  EXPECT_NE(Read(At("zo_tuning/front.bin")), "old");

  Write(At("zo_tuning/notes.txt"), "mine");
  EXPECT_THAT(Tool({"pack", "-o", ".", "--force"}).err, HasSubstr("holds more than bins ('notes.txt'); it is kept"));
  std::filesystem::remove_all(At("zo_tuning"));
  Write(At("zo_tuning"), "a file");
  EXPECT_EQ(Tool({"pack", "-o", ".", "--force"}).code, 1);
  EXPECT_EQ(Read(At("zo_tuning")), "a file");
  Write(At("file"), "a file");
  EXPECT_THAT(Tool({"pack", "-o", "file/out"}).err, HasSubstr("cannot make the directory file: Not a directory"));
}

// A fault in a file is told with its place; all files are told in one run, and nothing is made.

TEST_F(ToolTest, FaultsHaveFileLineAndColumn) {
  const struct {
    const char* file;
    std::string text;
    const char* says;
  } rows[] = {
      {"default/AfCommon.json", "{\n  \"lens\": {\n    \"infinity_code\": tru\n}}",
       ":3:22: error: a value is expected"},
      {"default/PdCalib.json", "{ // note\n}", ":1:3: error: a key or '}' is expected"},
      {"front/mode_1/AfCommon.json", "{\n \"lens\": {\"infinity_code\": {\"value\": 1e99}}}",
       ":2:38: error: 1e+99 is no value for the field 'value' (int32)"},
      {"front/AWBCommon.json", "", ":1:1: error: the text is empty"},
      {"front/PdCalib.json", "\xEF\xBB\xBF{}", ":1:1: error: a value is expected"},
      {"main_wide/PdCalib.json", "{\n\"caf\xC3\xA9\": 1}",
       ":2:1: error: 'ZO_TUNING_PD.PdCalib' has no field 'caf\xC3\xA9'"},
      {"main_wide/LensShading.json", "{\"red\": [\"\xFF\"]}", ":1:11: error: this is not UTF-8 text"},
      {"main_wide/mode_2/LensShading.json", "{\"red\": 5}",
       ":1:9: error: 5 is no value for the field 'red' (an object"},
      {"main_wide/mode_0/AfCommon.json", "{\"search_algorithm\": \"AF_SEARCH_HILL_CLIM\"}",
       ":1:22: error: \"AF_SEARCH_HILL_CLIM\" is no value for the field 'search_algorithm' (enum "},
      {"front/version/tuning.json", "{\"name\": \"x\", \"version\": 3}",
       ":1:26: error: 3 is no value for the field 'version' (string)"},
  };
  for (const auto& row : rows) Write(At(row.file), row.text);
  const Ran run = Tool({"pack", "-o", "out"});
  EXPECT_EQ(run.code, 1);
  EXPECT_EQ(run.out, "");
  for (const auto& row : rows) EXPECT_THAT(run.err, HasSubstr(std::string(row.file) + row.says));
  EXPECT_THAT(run.err, HasSubstr("did you mean 'AF_SEARCH_HILL_CLIMB'?"));
  EXPECT_THAT(run.err, HasSubstr("    { // note\n      ^\n  help: comments are not allowed in JSON\n"));
  EXPECT_FALSE(Exists(At("out")));

  const Json diagnostics = Tool({"pack", "-o", "out", "--json"}).json()["diagnostics"];
  EXPECT_GE(diagnostics.size(), std::size(rows));
  for (const Json& diagnostic : diagnostics) {
    EXPECT_GT(diagnostic["line"], 0) << diagnostic;
    EXPECT_GT(diagnostic["column"], 0) << diagnostic;
  }
}

TEST_F(ToolTest, AMissingFieldIsNamedWithItsPath) {
  std::string text = Read(At("front/mode_1/AfCommon.json"));
  for (size_t at = text.find("settle_time_ns"); at != std::string::npos; at = text.find("settle_time_ns")) {
    text.replace(at, 14, "settleTimeNs");
  }
  Write(At("front/mode_1/AfCommon.json"), text);
  const Ran run = Tool({"pack", "-o", "out"});
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.err, HasSubstr("front/mode_1/AfCommon.json: error: the field 'settle_time_ns' is missing"));
  EXPECT_THAT(run.err, HasSubstr("help: it belongs at lens.settle_time_ns"));
}

TEST_F(ToolTest, UnknownFoldersArePackedWithAWarning) {
  Write(At("front/modde_3/PdCommon.json"), Read(At("default/PdCommon.json")));
  const Ran run = Tool({"pack", "-o", "out"});
  EXPECT_EQ(run.code, 0);
  EXPECT_THAT(run.err, HasSubstr("front/modde_3/PdCommon.json: warning: the folder 'modde_3' is no level"));
  EXPECT_THAT(run.err, HasSubstr("help: it is packed as module=PdCommon\n"));
  Write(At("front/Unknown.json"), "{}");
  EXPECT_EQ(Tool({"pack", "-o", "out", "--force"}).code, 1);
}

// Failures of the system.

TEST_F(ToolTest, WhatTheLibraryPassesOverIsNoticed) {
  if (geteuid() != 0) GTEST_SKIP() << "another user can be had by root only";
  for (const auto& entry : std::filesystem::recursive_directory_iterator(temp_.str())) {
    if (lchown(entry.path().c_str(), 65534, 65534) != 0) FAIL();
  }
  ASSERT_EQ(chown(temp_.str().c_str(), 65534, 65534), 0);
  const auto as_nobody = [] {
    if (setgid(65534) != 0 || setuid(65534) != 0) _exit(125);
  };
  const Ran good = RunTool({"pack", "-o", "good"}, {dir_, "", as_nobody});
  if (good.code == 126) GTEST_SKIP() << "the folder is out of reach for another user";
  ASSERT_EQ(good.code, 0) << good.err;
  const struct {
    const char* path;
    const char* says;
  } rows[] = {
      {"front/mode_0", "cannot list the directory front/mode_0: Permission denied"},
      {"front/mode_0/scenario_Snapshot", "cannot list the directory front/mode_0/scenario_Snapshot"},
      {"ProjConf.bin", "cannot read the project configuration"},
      {"proto/version", "cannot list the directory proto/version"},
      {"proto/pd.proto", "proto/pd.proto: error: "},
      {"main_wide/PdCalib.json", "cannot read main_wide/PdCalib.json: Permission denied"},
  };
  for (const auto& row : rows) {
    struct stat info;
    ASSERT_EQ(stat(At(row.path).c_str(), &info), 0);
    ASSERT_EQ(chmod(At(row.path).c_str(), 0), 0);
    const Ran run = RunTool({"pack", "-o", "out"}, {dir_, "", as_nobody});
    EXPECT_EQ(run.code, 1) << row.path;
    EXPECT_THAT(run.err, HasSubstr(row.says));
    EXPECT_FALSE(Exists(At("out"))) << row.path;
    ASSERT_EQ(chmod(At(row.path).c_str(), info.st_mode), 0);
  }
  ASSERT_EQ(chmod(At("good").c_str(), 0500), 0);
  EXPECT_THAT(RunTool({"pack", "-o", "good", "--force"}, {dir_, "", as_nobody}).err,
              HasSubstr("good: error: cannot make a working folder in it: Permission denied"));
  EXPECT_EQ(Tree(At("good")).size(), 4u);
}

TEST_F(ToolTest, AFullDiskLeavesNothingBehind) {
  const Ran run =
      RunTool({"pack", "-o", "out"}, {dir_, "", [] {
                                        std::signal(SIGXFSZ, SIG_IGN);
                                        const rlimit limit{30000, 30000};  // default.bin fits, main_wide.bin does not
                                        setrlimit(RLIMIT_FSIZE, &limit);
                                      }});
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.err, HasSubstr("out/zo_tuning/main_wide.bin (File too large)"));
  EXPECT_FALSE(Exists(At("out")));
}

TEST_F(ToolTest, WhatAKilledRunLeftIsRemovedLater) {
  Write(At("out/.zo_tuning-abcdef/zo_tuning/default.bin"), "half");
  Write(At("out/.zo_tuning-young1/zo_tuning/default.bin"), "half");
  const auto hour_ago = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
  std::filesystem::last_write_time(At("out/.zo_tuning-abcdef"), hour_ago);
  EXPECT_EQ(Tool({"pack", "-o", "out"}).code, 0);
  EXPECT_FALSE(Exists(At("out/.zo_tuning-abcdef")));
  EXPECT_TRUE(Exists(At("out/.zo_tuning-young1")));  // its run may be at work
}

TEST_F(ToolTest, ASignalLeavesNothingBehind) {
  // The question is where packing can be made to wait: on a pipe that stays open.
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const RunWith with{dir_, "", [&] { dup2(ends[0], 0); },
                       [&](int child) {
                         // Until the default bin is written the question is not asked.
                         const auto packing = [&] {
                           for (const std::string& path : Exists(At("out")) ? Tree(At("out")) : Strings()) {
                             if (path.find("default.bin") != std::string::npos) return true;
                           }
                           return false;
                         };
                         for (int i = 0; i < 1000 && !packing(); ++i) {
                           std::this_thread::sleep_for(std::chrono::milliseconds(10));
                         }
                         kill(child, number);
                       }};
    const Ran run = RunTool({"pack", "-o", "out", "--ask"}, with);
    close(ends[0]);
    close(ends[1]);
    EXPECT_EQ(run.code, 128 + number);
    EXPECT_EQ(Tree(At("out")), Strings()) << number;
  }
}

}  // namespace
}  // namespace zotest
