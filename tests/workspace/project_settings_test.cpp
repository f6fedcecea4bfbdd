#include "workspace/project_settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace zotest {
namespace {

using testing::HasSubstr;
using zotuning::CollectingSink;
using zotuning::ProjectSettings;

TEST(ProjectSettingsTest, CommentsAndBothKeysAreRead) {
  CollectingSink sink;
  ProjectSettings settings;
  EXPECT_TRUE(ParseProjectSettings(R"(// What we agreed on.
    { "diff": { "tolerances": [ /* noise
        of the station */ {"path": "Af//Common.*", "abs": 0.5}, {"path": "*", "rel": 1e-3} ] },
      "severities": {"json-missing-field": "off"} } // end)",
                                   "zotuning.json", settings, sink));
  ASSERT_EQ(settings.tolerances.size(), 2u);
  EXPECT_EQ(settings.tolerances[0].pattern, "Af//Common.*");
  EXPECT_EQ(settings.tolerances[0].tolerance.absolute, 0.5);
  EXPECT_EQ(settings.tolerances[1].tolerance.relative, 1e-3);
  EXPECT_EQ(settings.severities["json-missing-field"], "off");
}

TEST(ProjectSettingsTest, FaultsHaveTheirPlace) {
  const struct {
    const char *text, *message;
    int line, column;
  } kRows[] = {
      {"{\n \"dif\": {}}", "unknown key 'dif'; did you mean 'diff'?", 2, 2},
      {"{\"diff\": {\"tolerance\": []}}", "did you mean 'tolerances'", 1, 11},
      {"{\"diff\": {\"tolerances\": [{\"abs\": 1}]}}", "'path' is missing", 1, 26},
      {"{\"diff\": {\"tolerances\": [{\"path\": \"*\", \"abs\": -1}]}}", "a number from 0", 1, 47},
      {"{\"diff\": {\"tolerances\": [{\"path\": \"*\", \"rel\": \"1\"}]}}", "a number from 0", 1, 47},
      {"{\"severities\": {\"json-sintax\": \"off\"}}", "did you mean 'json-syntax'", 1, 17},
      {"{\"severities\": {\"io\": \"none\"}}", "a severity is", 1, 23},
      {"/* c */ {\"diff\": }", "value", 1, 18},
      {"/* no end {}", "", 1, 1},
      {"[]", "one object", 1, 1},
      {"", "", 1, 1},
  };
  for (const auto& row : kRows) {
    CollectingSink sink;
    ProjectSettings settings;
    EXPECT_FALSE(ParseProjectSettings(row.text, "zotuning.json", settings, sink)) << row.text;
    ASSERT_FALSE(sink.diagnostics().empty()) << row.text;
    EXPECT_THAT(sink.diagnostics()[0].message, HasSubstr(row.message)) << row.text;
    EXPECT_EQ(sink.diagnostics()[0].line, row.line) << row.text;
    EXPECT_EQ(sink.diagnostics()[0].column, row.column) << row.text;
  }
}

}  // namespace
}  // namespace zotest
