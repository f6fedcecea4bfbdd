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

TEST_F(MigrateToolTest, FilesOfAModuleThatIsGoneAreNamedAndLeft) {
  Edit("proto/label.proto", "Module_AfContrast", "Module_AfSharpness");
  Edit("proto/af.proto", "message AfContrast {", "message AfSharpness {");
  const Ran run = Tool("migrate");
  EXPECT_THAT(run.err, HasSubstr("--rename-module AfContrast=AfSharpness"));
  ASSERT_EQ(Tool("migrate --rename-module AfContrast=AfSharpness").code, 0);
  EXPECT_TRUE(Exists(At("default/AfSharpness.json")));
  EXPECT_EQ(Tool("pack -o out").code, 0);
  EXPECT_THAT(Tool("schema compare").out, HasSubstr("0 breaking changes, 1 compatible"));
}

}  // namespace
}  // namespace zotest
