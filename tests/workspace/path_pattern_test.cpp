// Paths that select many values: what they are in a type, and what they find in a text.

#include "workspace/path_pattern.h"

#include <gtest/gtest.h>

#include <string>

#include "transcode/differential.h"

namespace zotest {
namespace {

using zotuning::JsonDocument;
using zotuning::Match;
using zotuning::PathPattern;
using zotuning::TypedPath;

constexpr char kSchema[] = R"(syntax = "proto3";
  message Rule { string col = 1; }
  message Row { repeated float value = 1; }
  message Flat { repeated float value = 1; Rule rule = 2; }
  message Rows { Rule rule = 1; repeated Row value = 2; }
  message Gain { float value = 1; Rule rule = 2; }
  message Zone { Gain weight = 1; repeated int32 knots = 2; }
  message Module { Gain gain = 1; Flat flat = 2; Rows rows = 3; repeated Zone zones = 4; map<string, Zone> map = 5;
    int32 two_words = 6; Zone zone = 7; Zone twice = 8; }
)";

constexpr char kText[] = R"({"gain": {"value": 1}, "flat": {"value": [0, 1, 2, 3, 4], "rule": {"col": "2"}},
  "rows": {"value": [{"value": [10, 11]}, {"value": [12, 13]}], "rule": {}},
  "zones": [{"weight": {"value": 20}, "knots": [21, 22]}, {"weight": {"value": 23}, "knots": []}],
  "map": {"a b": {"knots": [30]}}, "twoWords": 40, "two_words": 41, "gian": 0,
  "twice": {"knots": [50]}, "twice": {"weight": {}}})";

/// What a path selects: "path=value" of each match, "|" between lines; or why it selects nothing.
std::string Found(const std::string& path) {
  static const TextSchema schema(kSchema);
  static zotuning::TypeTables tables;
  static const JsonDocument document(kText);
  std::string why;
  const auto pattern = PathPattern::Parse(path, &why);
  if (!pattern) return why;
  const auto typed = TypedPath::Resolve(*pattern, tables.Get(schema.Type("Module")), &why);
  if (!typed) return why;
  std::vector<Match> matches;
  zotuning::CollectingSink sink;
  if (!typed->Find(document, "file", matches, sink)) return sink.diagnostics()[0].message;
  std::string found;
  for (size_t i = 0; i < matches.size(); ++i) {
    if (i > 0) found += matches[i].line == matches[i - 1].line ? ' ' : '|';
    found += matches[i].path.ToString() + "=";
    found += matches[i].value ? std::string(matches[i].value.raw()) : "none";
    if (matches[i].columns > 0) found += " of " + std::to_string(matches[i].columns);
  }
  return found;
}

TEST(PathPattern, NamesValues) {
  const struct {
    const char* path;
    const char* found;
  } rows[] = {
      {"gain", "gain.value=1"},
      {"gain.value", "gain.value=1"},
      {"gain.rule", "gain.rule=none"},
      {"[\"gain\"]", "gain.value=1"},
      {"zones[1].weight", "zones[1].weight.value=23"},
      {"zones[*].weight", "zones[0].weight.value=20|zones[1].weight.value=23"},
      {"zones[*].knots", "zones[0].knots=[21, 22]|zones[1].knots=[]"},
      {"zones[*].knots[*]", "zones[0].knots[0]=21 zones[0].knots[1]=22"},
      {"zones[0].knots[1:]", "zones[0].knots[1]=22"},
      {"map[\"a b\"].knots", "map[\"a b\"].knots=[30]"},
      {"two_words", "two_words=41"},
      {"zone.weight", "zone.weight.value=none"},
      // Tables in one list, by row and column; and as rows.
      {"flat", "flat.value=[0, 1, 2, 3, 4] of 2"},
      {"flat[3]", "flat.value[3]=3"},
      {"flat.value[1:3]", "flat.value[1]=1 flat.value[2]=2"},
      {"flat[1][0]", "flat.value[2]=2"},
      {"flat[*][1]", "flat.value[1]=1|flat.value[3]=3"},
      {"flat[1:][:2]", "flat.value[2]=2 flat.value[3]=3|flat.value[4]=4"},
      {"rows", "rows.value=[{\"value\": [10, 11]}, {\"value\": [12, 13]}]"},
      {"rows[1]", "rows.value[1].value=[12, 13]"},
      {"rows[*][0]", "rows.value[0].value[0]=10|rows.value[1].value[0]=12"},
      {"rows.value[1].value[1]", "rows.value[1].value[1]=13"},
      // What is not a path, or not in this type or text.
      {"", "a path is expected, such as gain or zones[0].weight"},
      {"gain[x]", "[...] holds a number from 0, '*', or a range such as 4:8, not 'x'"},
      {"zones[4:4]", "[...] holds a number from 0, '*', or a range such as 4:8, not '4:4'"},
      {"zones[-1]", "[...] holds a number from 0, '*', or a range such as 4:8, not '-1'"},
      {"gain..value", "a name is expected at character 6"},
      {"gian", "'Module' has no field 'gian'; did you mean 'gain'?"},
      {"zones[0].wieght", "'zones[0]' has no field 'wieght'; did you mean 'weight'?"},
      {"zones.weight", "'zones' is a list; name an element first, as in zones[0] or zones[*]"},
      {"gain[0]", "'gain' is not a list"},
      {"gain.value.x", "'gain.value' has no fields"},
      {"zones[2].weight", "'zones' has 2 elements"},
      {"zones[1:3]", "'zones' has 2 elements"},
      {"flat[3][0]", "'flat.value' has 3 rows"},
      {"flat[0][2]", "'flat.value' has 2 columns"},
      {"twice.knots", "'twice' is there more than once"},
      {"zone.knots[0]", "there is no 'zone' in this setting"},
      {"zones[0].knots[0][0]",
       "'zones[0].knots' is one list, and its rule does not say with \"col\" how long a row is"},
  };
  for (const auto& row : rows) EXPECT_EQ(Found(row.path), row.found) << row.path;
}

}  // namespace
}  // namespace zotest
