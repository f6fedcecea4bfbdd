// check: all faults of all files in one run, each with its code and place; and the forms in which they are told.

#include <filesystem>
#include <map>

#include "tools/tool.h"

namespace zotest {
namespace {

struct Mistake {
  const char* file;  ///< written, or made by `make`
  std::string text;
  const char* code;
  const char* at;  ///< the file that is named, "" for the same
  int line = 0;
};

/// One project with one mistake each would find no more: faults are told file by file.
TEST_F(ToolTest, AllMistakesAreFoundInOneRun) {
  ASSERT_EQ(Tool("version header").code, 0);
  ASSERT_EQ(Tool("check").out, "0 errors, 0 warnings\n") << Tool("check").err;
  const std::string good = Read(At("default/AfCommon.json"));
  const auto with = [&](const std::string& from, const std::string& to) {
    std::string text = good;
    const size_t at = text.find(from);
    EXPECT_NE(at, text.npos) << from;
    return at == text.npos ? text : text.replace(at, from.size(), to);
  };
  const std::vector<Mistake> mistakes = {
      // Text.
      {"front/mode_10/AfCommon.json", "", "json-empty", "", 1},
      {"front/mode_11/AfCommon.json", "[]", "json-root", "", 1},
      {"front/mode_12/AfCommon.json", "<<<<<<< HEAD\n" + good, "json-conflict", "", 1},
      {"front/mode_13/AfCommon.json", "\xEF\xBB\xBF" + good, "json-byte-order-mark", "", 1},
      {"front/mode_14/AfCommon.json", with("{", "{ // a note\n"), "json-comment", "", 1},
      {"front/mode_15/AfCommon.json", with("\n}", ",\n}"), "json-trailing-comma", "", 0},
      // Fit and completeness.
      {"front/mode_16/AfCommon.json", with("{", "{\"gian\": 1,"), "json-unknown-key", "", 1},
      {"front/mode_17/AfCommon.json", "{}", "json-missing-field", "", 1},
      {"front/mode_18/AfCommon.json", with("AF_SEARCH_", "AF_SERCH_"), "json-enum", "", 0},
      {"front/mode_19/AfCommon.json", with("\"lens\": {", "\"lens\": {\"macro_code\": 5, "), "json-duplicate-key", "",
       0},
      // Tree.
      {"front/modde_3/AfCommon.json", good, "unknown-label", "front/modde_3"},
      {"front/mode_5/mode_6/AfCommon.json", good, "tree-nesting", ""},
      {"front/scenario_Video/AfCommon.json", good, "tree-nesting", ""},
      {"default/mode_3/AfCommon.json", good, "tree-nesting", ""},
      {"front/mode_07/AfCommon.json", good, "tree-nesting", ""},
      {"front/mode_7/AfCommon.json", good, "same-labels", ""},
      {"front/Afcommon.json", good, "unknown-module", ""},
      {"front/mode_1/PdCalib.JSON", good, "not-read", ""},
      {"front/mode_1/version/AfCommon.json", good, "not-read", ""},
      {"rear/AfCommon.json", good, "not-read", "rear"},
      // Schema and versions.
      {"proto/old/af.proto", "syntax = \"proto3\";", "not-read", ""},
      {"proto/version/bad.json", "{\"name\": \"x\", \"version\": 3}", "json-misfit", "", 1},
      {"proto/version/odd.json", "{name: \"odd\", \"version\": \"1\"}", "version-misread", ""},
  };
  for (const Mistake& mistake : mistakes) Write(At(mistake.file), mistake.text);
  const Ran run = Tool("check --json");
  EXPECT_EQ(run.code, 1);
  std::multimap<std::string, Json> found;
  std::string before;
  const Json told = run.json();
  for (const Json& each : told["diagnostics"]) {
    const std::string file = each["file"];
    EXPECT_LE(before, file);  // in the order of paths
    before = file;
    found.emplace(file + " " + each["code"].get<std::string>(), each);
  }
  for (const Mistake& mistake : mistakes) {
    const std::string file = *mistake.at == '\0' ? mistake.file : mistake.at;
    const auto place = found.find(file + " " + mistake.code);
    EXPECT_NE(place, found.end()) << file << " " << mistake.code;
    if (place == found.end() || mistake.line == 0) continue;
    EXPECT_EQ(place->second["line"], mistake.line) << file;
  }
  // One file alone, and what does not concern it left out.
  const Json one = Tool("check front/mode_17/AfCommon.json --json").json();
  for (const Json& each : one["diagnostics"]) EXPECT_EQ(each["file"], "front/mode_17/AfCommon.json");
  EXPECT_GT(one["diagnostics"].size(), 0u);
}

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
