// pack: all or nothing, nothing skipped silently, faults with their position.

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <iterator>

#include "support/child.h"
#include "tools/tool.h"

namespace zotest {
namespace {

using testing::ElementsAre;

TEST_F(ToolTest, PacksAllBins) {
  Json bins = Tool("pack -o deep/out --json").json()["result"]["bins"];
  for (Json& bin : bins) EXPECT_EQ(bin.erase("milliseconds"), 1u);
  const auto expected = [&](const std::string& name, int versions, int records) {
    const std::string file = "deep/out/zo_tuning/" + name + ".bin";
    const size_t bytes = Read(At(file)).size();
    return Json({{"name", name}, {"file", file}, {"bytes", bytes}, {"versions", versions}, {"records", records}});
  };
  EXPECT_EQ(bins, Json::array({expected("default", 5, 13), expected("main_wide", 2, 13), expected("front", 2, 12)}));
  EXPECT_EQ(Tree(At("deep/out")).size(), 4u);
}

TEST_F(PackedTest, PacksOneSensorByNameOrByQuestion) {
  ASSERT_EQ(Tool("pack -o one --sensor front").code, 0);
  const Ran asked = Tool("pack -o asked --ask", {"", "1\n"});
  ASSERT_EQ(asked.code, 0) << asked.err;
  EXPECT_THAT(asked.out, HasSubstr("1  front"));
  for (const char* out : {"one", "asked"}) {
    EXPECT_THAT(Tree(At(out)), ElementsAre("zo_tuning/", "zo_tuning/default.bin", "zo_tuning/front.bin"));
    for (const char* bin : {"/zo_tuning/default.bin", "/zo_tuning/front.bin"}) {
      EXPECT_EQ(Read(At(out) + bin), Read(At("out") + bin)) << out << bin;
    }
  }
  for (const char* answer : {"2", "-1", "front", ""}) {
    const Ran wrong = Tool("pack -o wrong --ask", {"", answer});
    EXPECT_EQ(wrong.code, 1) << answer;
    EXPECT_EQ(wrong.err, "zotuning: error: no sensor has that index\n") << answer;
    EXPECT_FALSE(Exists(At("wrong"))) << answer;
  }
  // The field check applies to all sensors and sensors by name, but not with --ask.
  Write(At("front/mode_2/ToneCurve.json"), "{}");
  Fails("pack -o checked --sensor front", "front/mode_2/ToneCurve.json:1:1: error: 'gamma_input' is missing");
  EXPECT_EQ(Tool("pack -o unchecked --ask", {"", "1"}).code, 0);
  Fails("pack -o x --sensor rear", "no sensor 'rear'");
}

TEST_F(PackedTest, AnExistingFolderIsReplacedOnRequestOnly) {
  Write(At(bin_), "old");
  Fails("pack -o out", "out/zo_tuning: error: the folder exists already\n  help: --force replaces it\n");
  EXPECT_EQ(Read(At(bin_)), "old");
  EXPECT_EQ(Tool("pack -o out --force").code, 0);
  EXPECT_NE(Read(At(bin_)), "old");

  Write(At("out/zo_tuning/notes.txt"), "mine");
  Fails("pack -o out --force", "holds more than bins ('notes.txt'); it is kept");
  Write(At("zo_tuning"), "a file");
  Fails("pack -o . --force", "zo_tuning: error: this is in the way, and it is not a directory");
  EXPECT_EQ(Read(At("zo_tuning")), "a file");
  Fails("pack -o zo_tuning/out", "cannot make the directory zo_tuning: Not a directory");
}

TEST_F(PackedTest, OnlyWhatChangesIsMadeAgain) {
  const Strings bins = {"out/zo_tuning/default.bin", "out/zo_tuning/main_wide.bin", bin_};
  const auto old = std::filesystem::file_time_type() + std::chrono::hours(1);
  const auto age = [&] {
    for (const std::string& bin : bins) std::filesystem::last_write_time(At(bin), old);
  };
  const auto changed = [&] {
    Strings names;
    for (const std::string& bin : bins) {
      if (std::filesystem::last_write_time(At(bin)) != old) names.push_back(bin);
    }
    return names;
  };
  age();
  Edit("front/mode_1/AfCommon.json", "\"max_retries\": ", "\"max_retries\": 1");
  const std::string others = Read(At(bins[0])) + Read(At(bins[1]));
  ASSERT_EQ(Tool("pack -o out --sensor front --force").code, 0);
  EXPECT_THAT(changed(), ElementsAre(bin_));
  EXPECT_EQ(Read(At(bins[0])) + Read(At(bins[1])), others);
  age();
  Write(At("out/zo_tuning/old.bin"), "");
  ASSERT_EQ(Tool("pack -o out --force").code, 0);
  EXPECT_THAT(changed(), IsEmpty());
  EXPECT_FALSE(Exists(At("out/zo_tuning/old.bin")));
  EXPECT_EQ(Tool("pack -o both --sensor front --sensor main_wide").code, 0);
  EXPECT_EQ(Tree(At("both")).size(), 4u);
  EXPECT_EQ(Tool("pack -o mode", {"", "", [] { umask(027); }}).code, 0);
  EXPECT_EQ(Mode(At("mode/zo_tuning")), 0750u);
}

// Builds that make the bins of each sensor separately.
TEST_F(ToolTest, BuildsMakeAgainWhatHasChanged) {
  std::string ninja =
      "rule pack\n  command = @TOOL@ pack -o out/$sensor --sensor $sensor --force --depfile out/$sensor.d\n"
      "  depfile = out/$sensor.d\n  restat = 1\n";
  std::string make = "all: out/front/zo_tuning/front.bin out/main_wide/zo_tuning/main_wide.bin\n";
  for (const std::string sensor : {"front", "main_wide"}) {
    const std::string bin = "out/" + sensor + "/zo_tuning/" + sensor + ".bin";
    ninja += "build " + bin + ": pack\n  sensor = " + sensor + "\n";
    make += bin + ":\n\t@TOOL@ pack -o out/" + sensor + " --sensor " + sensor + " --force --depfile out/" + sensor +
            ".d && touch $@\n-include out/" + sensor + ".d\n";
  }
  for (std::string* text : {&ninja, &make}) {
    for (size_t at; (at = text->find("@TOOL@")) != text->npos;) text->replace(at, 6, ZOTUNING_TOOL);
  }
  Write(At("build.ninja"), ninja);
  Write(At("Makefile"), make);
  int value = 10;
  for (const std::string program : {"ninja", "make"}) {
    std::filesystem::remove_all(At("out"));
    const auto packed = [&] { return RunProgram(program, program == "ninja" ? Strings{"-v"} : Strings{}, {dir_}); };
    const Ran first = packed();
    if (first.code == 127) continue;  // not installed
    ASSERT_EQ(first.code, 0) << first.out << first.err;
    EXPECT_THAT(packed().out, Not(HasSubstr(" pack "))) << program;
    // An edited setting, and a new one.
    for (const std::string file : {"front/mode_1/AfCommon.json", "front/mode_9/AfCommon.json"}) {
      std::string text = Read(At("default/AfCommon.json"));
      const std::string member = "\"max_retries\": 2";
      Write(At(file), text.replace(text.find(member), member.size(), member + std::to_string(++value)));
      const Ran again = packed();
      EXPECT_EQ(again.code, 0) << again.out << again.err;
      EXPECT_THAT(again.out, HasSubstr("--sensor front")) << program << file;
      EXPECT_THAT(again.out, Not(HasSubstr("--sensor main_wide"))) << program << file;
      EXPECT_THAT(packed().out, Not(HasSubstr(" pack "))) << program << file;
    }
    std::filesystem::remove_all(At("front/mode_9"));
  }
}

// A fault in a file is reported with its position; all files are reported in one run, and nothing is made.

TEST_F(ToolTest, FaultsHaveFileLineAndColumn) {
  const struct {
    const char* file;
    std::string text;
    const char* says;
  } rows[] = {
      {"default/AfCommon.json", "{\n  \"lens\": {\n    \"infinity_code\": tru\n}}",
       ":3:22: error: a value is expected"},
      {"default/PdCalib.json", "{ // note\n}", ":1:3: error: comments are not allowed in JSON"},
      {"front/mode_1/AfCommon.json", "{\n \"lens\": {\"infinity_code\": {\"value\": 1e99}}}",
       ":2:38: error: invalid value 1e99 for int32 field 'lens.infinity_code.value'"},
      {"front/AWBCommon.json", "", ":1:1: error: the text is empty"},
      {"front/PdCalib.json", "\xEF\xBB\xBF{}", ":1:1: error: the file begins with a byte order mark"},
      {"main_wide/PdCalib.json", "{\n\"caf\xC3\xA9\": 1}", ":2:1: error: unknown key '[\"caf\xC3\xA9\"]'"},
      {"main_wide/LensShading.json", "{\"red\": [\"\xFF\"]}", ":1:11: error: this is not UTF-8 text"},
      {"main_wide/mode_2/LensShading.json", "{\"red\": 5}",
       ":1:9: error: invalid value 5 for ZO_TUNING.ShadingChannel field 'red'"},
      {"main_wide/mode_0/AfCommon.json", "{\"search_algorithm\": \"AF_SEARCH_HILL_CLIM\"}",
       ":1:22: error: invalid value \"AF_SEARCH_HILL_CLIM\" for ZO_TUNING_AF.AfSearchAlgorithm field"},
      {"front/version/tuning.json", "{\"name\": \"x\", \"version\": 3}",
       ":1:26: error: invalid value 3 for string field 'version'"},
  };
  for (const auto& row : rows) Write(At(row.file), row.text);
  for (const auto& row : rows) Fails("pack -o out", std::string(row.file) + row.says);
  Fails("pack -o out", "did you mean 'AF_SEARCH_HILL_CLIMB'?");
  Fails("pack -o out", "    { // note\n      ^\n");
  EXPECT_FALSE(Exists(At("out")));
  const Json diagnostics = Tool("pack -o out --json").json()["diagnostics"];
  EXPECT_GT(diagnostics.size(), std::size(rows));  // each of these files also lacks most fields
  for (const Json& diagnostic : diagnostics) {
    EXPECT_GT(diagnostic["line"], 0) << diagnostic;
    EXPECT_GT(diagnostic["column"], 0) << diagnostic;
  }
}

TEST_F(ToolTest, WhatWouldBePackedAsSomethingElseIsRefused) {
  Write(At("front/modde_3/PdCommon.json"), Read(At("default/PdCommon.json")));
  Fails("pack -o out", "front/modde_3: error: the folder 'modde_3' is not a level; did you mean 'mode_...'?\n");
  const Ran allowed = Tool("pack -o allowed --allow unknown-label");
  EXPECT_EQ(allowed.code, 0) << allowed.err;
  EXPECT_THAT(allowed.err, HasSubstr("front/modde_3: warning: "));
  std::filesystem::remove_all(At("front/modde_3"));
  // What protobuf rejects is not packed, whatever the option.
  const std::string setting = Read(At("front/mode_1/AfCommon.json"));
  Edit("front/mode_1/AfCommon.json", "\"max_retries\"", "\"max_retry\"");
  Fails("pack -o unknown --allow json-unknown-key",
        "front/mode_1/AfCommon.json: error: this file cannot be packed at all");
  Write(At("front/mode_1/AfCommon.json"), setting);
  // What the project's settings treat as an error.
  Edit("front/mode_1/AfCommon.json", "\"len\": \"9\"", "\"len\": \"8\"");
  EXPECT_EQ(Tool("pack -o short").code, 0);
  Write(At("zotuning.json"), "{\"severities\": {\"rule-length\": \"error\"}}");
  Fails("pack -o agreed", "has 9 values, its rule says 8");
  EXPECT_FALSE(Exists(At("agreed")) || Exists(At("unknown")));
  std::filesystem::remove(At("zotuning.json"));
  Write(At("front/mode_1/AfCommon.json"), setting);
  Edit("front/mode_1/AfCommon.json", "settle_time_ns", "settleTimeNs");
  EXPECT_EQ(Tool("pack -o camel").code, 0);  // accepted instead of the name
  Write(At("front/Unknown.json"), "{}");
  Fails("pack -o out", "front/Unknown.json: error: no module 'Unknown'");
}

// A field that one element of a list lacks is found, although its name occurs in another.
TEST_F(ToolTest, EveryElementSpellsOutItsFields) {
  Json setting = Json::parse(Read(At("default/AfCommon.json")));
  ASSERT_TRUE(setting["zones"].is_array() && setting["zones"].size() > 1) << "the example has changed";
  setting["zones"][1].erase("width");
  Write(At("default/AfCommon.json"), setting.dump(1));
  Fails("pack -o out", "error: 'zones[1].width' is missing");
}

// System failures.

TEST_F(ToolTest, WhatTheLibraryPassesOverIsNoticed) {
  if (geteuid() != 0) GTEST_SKIP() << "another user can be had by root only";
  ASSERT_EQ(RunProgram("chown", {"-R", "65534:65534", temp_.str()}, {}).code, 0);
  const RunWith nobody{"", "", BecomeNobody};
  const Ran good = Tool("pack -o good", nobody);
  if (good.code == 126) GTEST_SKIP() << "the folder is out of reach for another user";
  ASSERT_EQ(good.code, 0) << good.err;
  const struct {
    const char* path;
    mode_t mode;
    const char* line;
    const char* says;
  } rows[] = {
      {"front/mode_0", 0, "pack -o out", "cannot list the directory front/mode_0: Permission denied"},
      {"ProjConf.bin", 0, "pack -o out", "ProjConf.bin: error: cannot read ProjConf.bin: Permission denied"},
      {"proto/version", 0, "pack -o out", "cannot list the directory proto/version"},
      {"proto/pd.proto", 0, "pack -o out", "proto/pd.proto: error: "},
      {"main_wide/PdCalib.json", 0, "pack -o out", "cannot read main_wide/PdCalib.json: Permission denied"},
      {".", 0500, "pack -o out", "out: error: cannot make the directory out: Permission denied"},
      {"good", 0500, "pack -o good --force", "good: error: cannot make a working folder in good: Permission denied"},
      {"proto/version/af.json", 0400, "version set AF 9",
       "proto/version/af.json: error: cannot write proto/version/af.json: Permission denied"},
  };
  for (const auto& row : rows) {
    const mode_t before = Mode(At(row.path));
    ASSERT_EQ(chmod(At(row.path).c_str(), row.mode), 0);
    const Ran run = Tool(row.line, nobody);
    EXPECT_EQ(run.code, 1) << row.path;
    EXPECT_THAT(run.err, HasSubstr(row.says));
    EXPECT_FALSE(Exists(At("out"))) << row.path;
    ASSERT_EQ(chmod(At(row.path).c_str(), before), 0);
  }
  EXPECT_EQ(Tree(At("good")).size(), 4u);
}

TEST_F(ToolTest, AFullDiskLeavesNothingBehind) {
  const rlimit limit{30000, 30000};  // default.bin fits, main_wide.bin does not
  const Ran run = Tool("pack -o out", {"", "", [&] { setrlimit(RLIMIT_FSIZE, &limit); }});
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.err, HasSubstr("cannot write out/zo_tuning/main_wide.bin: File too large"));
  EXPECT_FALSE(Exists(At("out")));
}

}  // namespace
}  // namespace zotest
