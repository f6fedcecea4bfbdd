// check: all faults of all files in one run, each with its code and position; and the output formats.

#include <filesystem>

#include "tools/tool.h"

namespace zotest {
namespace {

TEST_F(ToolTest, AFaultOfTheSchemaHidesItsOwnModulesAlone) {
  Edit("proto/pd.proto", "message PdCommon {", "message PdCommon {\n  no_such_type.T broken = 900;\n");
  Write(At("front/mode_1/AfCommon.json"), "{}");
  const std::string said = Tool("check").err;
  EXPECT_THAT(said, HasSubstr("proto/pd.proto:"));
  EXPECT_THAT(said, HasSubstr("front/mode_1/AfCommon.json:1:1: error: 'lens' is missing"));
  EXPECT_THAT(said, Not(HasSubstr("PdCalib.json")));
}

TEST_F(ToolTest, SeveritiesAndFormsAreChosen) {
  Write(At("front/PdCalib.JSON"), "{}");
  const std::string said = "front/PdCalib.JSON: warning: this file is not read";
  Fails("check front", said, 0);
  Fails("check front --strict", "front/PdCalib.JSON: error: ", 1);
  EXPECT_EQ(Tool("check front --ignore not-read").err, "");
  EXPECT_EQ(Tool("check front --select same-labels").err, "");
  Fails("check --select not-raed", "no code 'not-raed'; did you mean 'not-read'?", 2);
  Write(At("zotuning.json"), "{\"severities\": {\"not-read\": \"error\"}} // agreed on\n");
  Fails("check front", "front/PdCalib.JSON: error: ", 1);
  EXPECT_THAT(Tool("check --explain not-read").out, HasSubstr("Example:\n"));
  EXPECT_THAT(Tool("check front --format github").out,
              testing::StartsWith("::error file=front/PdCalib.JSON,title=not-read::this file is not read"));
  const Json log = Json::parse(Tool("check front --format sarif").out);
  EXPECT_EQ(log["version"], "2.1.0");
  const Json& sarif_run = log["runs"][0];
  EXPECT_EQ(sarif_run["tool"]["driver"]["name"], "zotuning");
  EXPECT_EQ(sarif_run["tool"]["driver"]["rules"][0]["id"], "not-read");
  EXPECT_EQ(sarif_run["results"][0]["ruleId"], "not-read");
  EXPECT_EQ(sarif_run["results"][0]["locations"][0]["physicalLocation"]["artifactLocation"]["uri"],
            "front/PdCalib.JSON");
  EXPECT_FALSE(sarif_run["results"][0]["message"]["text"].get<std::string>().empty());
  Fails("check nowhere.json", "there is no nowhere.json", 2);
}

TEST_F(ToolTest, KeysOfRenamedFieldsAreNamed) {
  const auto git = [&](const Strings& words) {
    Strings all = {"-c", "user.name=me", "-c", "user.email=me@example.org"};
    all.insert(all.end(), words.begin(), words.end());
    ASSERT_EQ(RunProgram("git", all, {dir_}).code, 0) << words[0];
  };
  if (RunProgram("git", {"--version"}, {dir_}).code != 0) GTEST_SKIP() << "there is no git";
  git({"init", "-q"});
  git({"add", "-A"});
  git({"commit", "-qm", "one"});
  Edit("proto/af.proto", "backlash_codes", "play");
  Edit("proto/af.proto", "uint32 max_retries = ", "reserved \"max_retries\"; uint32 attempts = 77; reserved ");
  std::string said = Tool("check default").err;
  EXPECT_THAT(said, HasSubstr("help: the field was removed from the schema; remove the key\n"));
  EXPECT_THAT(said, HasSubstr("'scan.attempts' is missing"));
  EXPECT_THAT(said, Not(HasSubstr("'lens.play' is missing")));
  EXPECT_THAT(said, HasSubstr("AfLens.backlash_codes=play' renames it in all files\n"));
  // Committed, and so no longer at HEAD.
  git({"commit", "-qam", "two"});
  said = Tool("check default").err;
  EXPECT_THAT(said, testing::ContainsRegex("AfLens.backlash_codes=play --since [0-9a-f]+~' renames it in all files"));
  EXPECT_THAT(Tool("pack -o out").err, HasSubstr("the field is called 'play' now"));
  // Without a history the schema itself tells of removed fields.
  std::filesystem::remove_all(At(".git"));
  EXPECT_THAT(Tool("check default").err, HasSubstr("help: the schema reserves this name"));
}

TEST_F(ToolTest, StandardInputStandsForAFile) {
  const std::string text = Read(At("default/AfCommon.json"));
  Write(At("default/AfCommon.json"), "{");
  EXPECT_EQ(Tool("check - --stdin-path default/AfCommon.json", {"", text}).out, "0 errors, 0 warnings\n");
  const Ran run = Tool("check - --stdin-path front/mode_1/scenario_Video/AfCommon.json", {"", "{}"});
  EXPECT_THAT(run.err, HasSubstr("front/mode_1/scenario_Video/AfCommon.json:1:1: error: 'lens' is missing"));
  EXPECT_THAT(run.err, Not(HasSubstr("default/AfCommon.json")));
  for (const char* line : {"check -", "check - front --stdin-path x.json", "check --stdin-path x.json",
                           "check - --stdin-path proto/af.proto", "check - --stdin-path front"}) {
    EXPECT_EQ(Tool(line).code, 2) << line;
  }
}

TEST_F(ToolTest, SettingsThatCannotBeReadAreNoWrongUsage) {
  Write(At("zotuning.json"), "{\"severites\": {}}");
  for (const char* line : {"check", "pack -o out"}) Fails(line, "zotuning.json:1:2: error: unknown key 'severites'", 2);
  std::filesystem::remove(At("zotuning.json"));
  std::filesystem::create_directory(At("zotuning.json"));
  for (const char* line : {"check", "pack -o out"}) {
    Fails(line, "zotuning.json: error: cannot read zotuning.json: Is a directory", 1);
  }
}

TEST_F(ToolTest, DefaultsAreAsNeededAsSensors) {
  std::filesystem::rename(At("default"), At("defaults"));
  for (const char* line : {"check", "pack -o out"}) Fails(line, "default: error: the folder of ");
  std::filesystem::rename(At("defaults"), At("default"));
  const std::string long_name(300, 'x');
  for (const std::string& line :
       {"check " + long_name, "pack -o " + long_name, "show " + long_name, "verify " + long_name,
        "new --sensor front module=AfCommon --from " + long_name + "/AfCommon.json", "sensors add " + long_name,
        "init p --proto proto --sensor a --into " + long_name}) {
    EXPECT_THAT(Tool(line).err, HasSubstr("File name too long")) << line;
  }
}

}  // namespace
}  // namespace zotest
