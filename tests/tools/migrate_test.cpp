// A change of the schema as its author makes it, in a git repository: suggested names, one dry run, bins that pack.

#include <iterator>
#include <sstream>

#include "tools/tool.h"

namespace zotest {
namespace {

class MigrateToolTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    Git("init -q");
    Git("add -A");
    Git("commit -q -m m");
  }

  std::string Git(const std::string& line) const {
    std::istringstream words("-c user.name=n -c user.email=e " + line);
    const Ran run = RunProgram("git", {std::istream_iterator<std::string>(words), {}}, {dir_});
    EXPECT_EQ(run.code, 0) << line << "\n" << run.err;
    return run.out;
  }
};

TEST_F(MigrateToolTest, AnAuthorChangesTheSchemaAndPacks) {
  EXPECT_EQ(Tool("migrate").out, "everything fits the schema\n");
  EXPECT_EQ(Tool("schema compare").code, 0);

  Edit("proto/af.proto", "Uint32Data backlash_codes = 3", "Uint32Data backlash = 3");
  Edit("proto/af.proto", "uint32 max_retries = 5", "ZO_TUNING.Uint32Data max_retries = 5");
  Edit("proto/af.proto", "string label = 1;", "string label = 1; ZO_TUNING.FloatData bias = 9;");
  Fails("migrate", "--rename AfLens.backlash_codes=backlash, or --drop AfLens.backlash_codes");
  EXPECT_EQ(Git("status --porcelain"), " M proto/af.proto\n");

  const std::string line = "migrate --rename AfLens.backlash_codes=backlash";
  const Ran dry = Tool(line + " --dry-run");
  ASSERT_EQ(dry.code, 0) << dry.err;
  EXPECT_EQ(Git("status --porcelain"), " M proto/af.proto\n");
  Write(At(".git/patch"), dry.out);
  Git("apply --check .git/patch");

  const Ran run = Tool(line + " --json");
  ASSERT_EQ(run.code, 0) << run.err;
  const Json file = run.json()["result"]["files"][0];
  EXPECT_EQ(file["file"], "default/AfCommon.json");
  EXPECT_EQ(file["renamed"][0], "lens.backlash_codes -> backlash");
  EXPECT_EQ(file["moved"][0], "scan.max_retries");
  EXPECT_EQ(file["added"][0], "zones[0].bias");
  const std::string after = Git("diff");
  EXPECT_EQ(Tool(line).out, "everything fits the schema\n");
  EXPECT_EQ(Git("diff"), after);
  EXPECT_FALSE(Exists(At("migrate.rej.json")));

  const Ran packed = Tool("pack -o out");
  EXPECT_EQ(packed.code, 0) << packed.err;
  const Ran compared = Tool("schema compare --json");
  EXPECT_EQ(compared.code, 1);
  const Json result = compared.json()["result"];
  EXPECT_EQ(result["breaking"], 1);
  EXPECT_EQ(result["changes"][0]["name"], "AfScan.max_retries");
  EXPECT_EQ(result["changes"][0]["rule"], "FIELD_SAME_TYPE");
}

TEST_F(MigrateToolTest, RulesFollowTheTemplateWhereTheyStillWereIts) {
  Edit("proto/af.proto", "ZO_TUNING.FloatData peak_drop_ratio", "ZO_TUNING.DoubleData peak_drop_ratio");
  ASSERT_EQ(Tool("migrate").code, 0);
  const Json scan = Json::parse(Read(At("default/AfCommon.json")))["scan"];
  EXPECT_EQ(scan["peak_drop_ratio"]["rule"]["description"], "[Double]");
  EXPECT_EQ(scan["peak_drop_ratio"]["rule"]["recommend"], "0.01..0.5");

  Git("commit -q -a -m m");
  Fails("migrate --since nothing", "cannot read the revision 'nothing'");
  EXPECT_EQ(Tool("schema compare HEAD~1").code, 1);
}

// What else an author changes; each row with what the default of AfCommon has then, and nothing is left to mend.
TEST_F(MigrateToolTest, ValuesFollowTheirTypes) {
  const struct {
    const char* from;
    const char* to;
    const char* path;
    const char* value;
  } rows[] = {
      {"ZO_TUNING.Int32Data macro_code", "repeated ZO_TUNING.Int32Data macro_code", "/lens/macro_code/0/value", "780"},
      {"repeated ZO_TUNING.Int32Data macro_code", "ZO_TUNING.Int32Data macro_code", "/lens/macro_code/value", "780"},
      {"AfScan scan = 5", "repeated AfScan scan = 5", "/scan/0/max_retries", "2"},
      {"uint32 max_retries", "ZO_TUNING.Uint32Data max_retries", "/scan/0/max_retries/value", "2"},
      {"Int32ArrayData focus_codes", "Int32ArrayData_2D focus_codes", "/focus_codes/value/0/value/8", "780"},
      {"Int32ArrayData_2D focus_codes", "Int32ArrayData focus_codes", "/focus_codes/value/8", "780"},
      {"AF_SEARCH_HYBRID ", "AF_SEARCH_MIXED ", "/search_algorithm", "\"AF_SEARCH_MIXED\""},
      {"  string label = 1;\n", "  string label = 1;\n  repeated AfLens within = 9;\n",
       "/zones/0/within/0/macro_code/value", "0"},
      {"repeated AfLens within", "AfLens within", "/zones/3/within/macro_code/value", "0"},
  };
  Tool("set search_algorithm=AF_SEARCH_HYBRID --where module=AfCommon sensor=default");
  for (const auto& row : rows) {
    SCOPED_TRACE(row.to);
    Git("commit -q -a -m m --allow-empty");
    Edit("proto/af.proto", row.from, row.to);
    const Ran run = Tool("migrate");
    ASSERT_EQ(run.code, 0) << run.err;
    const Json text = Json::parse(Read(At("default/AfCommon.json")));
    EXPECT_EQ(text.value(Json::json_pointer(row.path), Json()).dump(), row.value);
    EXPECT_EQ(Tool("migrate").out, "everything fits the schema\n");
    const Ran check = Tool("check");
    EXPECT_THAT(check.out + check.err, HasSubstr("0 errors, 0 warnings"));
  }
}

TEST_F(MigrateToolTest, ACommitOfTheSchemaAloneHidesNoRename) {
  Edit("proto/af.proto", "Uint32Data backlash_codes = 3", "Uint32Data backlash = 3");
  Git("commit -q -a -m m");
  Fails("migrate", "--rename AfLens.backlash_codes=backlash, or --drop AfLens.backlash_codes");
  ASSERT_EQ(Tool("migrate --rename AfLens.backlash_codes=backlash").code, 0);
  EXPECT_EQ(Tool("migrate").out, "everything fits the schema\n");
}

TEST_F(MigrateToolTest, WhatIsGoneIsNamedAndLeft) {
  Edit("proto/label.proto", "Module_AfContrast", "Module_AfSharpness");
  Edit("proto/af.proto", "message AfContrast {", "message AfSharpness {");
  Edit("proto/label.proto", "Scenario_Video", "Scenario_Movie");
  Edit("proto/label.proto", "Scene_Night = 2", "Scene_Dark = 12");
  const Ran run = Tool("migrate");
  EXPECT_EQ(run.out, "nothing to migrate except files without a module or label\n");
  EXPECT_THAT(run.err, HasSubstr("--rename-module AfContrast=AfSharpness"));
  EXPECT_THAT(run.err, HasSubstr("'scenario' has no value 'Video'"));
  EXPECT_THAT(run.err, HasSubstr("--rename-label scenario.Video=Movie"));
  EXPECT_THAT(run.err, HasSubstr("'scene' has no value 'Night'"));
  Fails("migrate --rename-module AfContrast=AfSharpnes", "did you mean 'AfSharpness'?");
  ASSERT_EQ(Tool("migrate --rename-module AfContrast=AfSharpness --rename-label scenario.Video=Movie "
                 "--rename-label scene.Night=Dark")
                .code,
            0);
  EXPECT_TRUE(Exists(At("default/AfSharpness.json")));
  EXPECT_EQ(Tool("pack -o out").code, 0);
}

}  // namespace
}  // namespace zotest
