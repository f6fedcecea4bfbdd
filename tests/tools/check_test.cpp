// check: all faults of all files in one run, each with its code and position; and the output formats.

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

}  // namespace
}  // namespace zotest
