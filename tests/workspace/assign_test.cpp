// New values in a text: from assignments, from tables, and back into tables.

#include "workspace/assign.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "transcode/differential.h"

namespace zotest {
namespace {

using testing::HasSubstr;
using zotuning::Assignment;
using zotuning::CollectingSink;
using zotuning::JsonDocument;
using zotuning::Match;
using zotuning::PathPattern;
using zotuning::TableData;
using zotuning::TypedPath;

class AssignTest : public testing::Test {
 protected:
  TypedPath Resolve(const PathPattern& pattern) {
    std::string why;
    const auto path = TypedPath::Resolve(pattern, tables_.Get(schema_.Type("Module")), &why);
    EXPECT_TRUE(path) << why;
    return path.value_or(TypedPath());
  }
  TypedPath Resolve(const std::string& path) {
    std::string why;
    return Resolve(*PathPattern::Parse(path, &why));
  }

  /// The text after an assignment, or the first message.
  std::string Assigned(std::string text, const std::string& order) {
    std::string why;
    const auto assignment = zotuning::ParseAssignment(order, &why);
    if (!assignment) return why;
    CollectingSink sink;
    const bool good = Assign(Resolve(assignment->path), *assignment, "file", &text, sink);
    return good ? text : sink.diagnostics()[0].message;
  }

  std::string Table(const std::string& text, const std::string& path, TableData::Form form) {
    const JsonDocument document(text);
    std::vector<Match> matches;
    CollectingSink sink;
    std::string table;
    EXPECT_TRUE(Resolve(path).Find(document, "file", matches, sink));
    return WriteMatches(matches, form, "file", &table, sink) ? table : sink.diagnostics()[0].message;
  }

  std::string FromTable(std::string text, const std::string& path, const std::string& table, TableData::Form form) {
    TableData data;
    CollectingSink sink;
    const bool good = data.Read(table, form, "table", sink) && data.Assign(Resolve(path), "file", &text, sink);
    if (good) return text;
    const auto& fault = sink.diagnostics()[0];
    return (fault.line > 0 ? std::to_string(fault.line) + ":" + std::to_string(fault.column) + ": " : "") +
           fault.message;
  }

  TextSchema schema_{R"(syntax = "proto3";
    enum Kind { Kind_A = 0; Kind_B = 1; }
    message Rule { string col = 1; }
    message Row { repeated float value = 1; }
    message Flat { repeated float value = 1; Rule rule = 2; }
    message Rows { repeated Row value = 1; Rule rule = 2; }
    message Gain { float value = 1; Rule rule = 2; }
    message Zone { Gain weight = 1; string name = 2; repeated int32 knots = 3; }
    message Module { Gain gain = 1; Flat flat = 2; Rows rows = 3; repeated Zone zones = 4; int64 wide = 5; Kind kind = 6;
      repeated bool flags = 7; repeated string names = 8; repeated int64 wides = 9; repeated Flat tables = 10; }
  )"};
  zotuning::TypeTables tables_;
};

TEST_F(AssignTest, ChangesTheValuesThatAPathNames) {
  const std::string flat = "{\"flat\":{\"value\":[1.0,2,\n3,4],\"rule\":{\"col\":\"2\"}}}";
  const std::string rows = "{\"rows\":{\"value\":[{\"value\":[1,2]},\n{\"value\":[3,4]}],\"rule\":{\"col\":\"2\"}}}";
  const std::string zones =
      "{\"zones\":[{\"weight\":{\"value\":1},\"name\":\"a\"},{\"weight\":{\"value\":2},\"name\":\"b\"}]}";
  const struct {
    std::string text, order, result;
  } cases[] = {
      {"{ \"gain\":{\"value\" :1.5 } }", "gain=2e0", "{ \"gain\":{\"value\" :2e0 } }"},
      {"{\"gain\":{\"value\":1.50}}", "gain=1.5", "{\"gain\":{\"value\":1.50}}"},
      {"{\"gain\":{\"value\":1.50}}", "gain+=.5", "'.5' is not a number"},
      {"{\"gain\":{\"value\":1.50}}", "gain*=2", "{\"gain\":{\"value\":3}}"},
      {"{\"wide\":\"5\"}", "wide=6", "{\"wide\":\"6\"}"},
      {"{\"kind\":\"Kind_A\"}", "kind=Kind_B", "{\"kind\":\"Kind_B\"}"},
      {zones, "zones[*].name=c d",
       "{\"zones\":[{\"weight\":{\"value\":1},\"name\":\"c d\"},{\"weight\":{\"value\":2},\"name\":\"c d\"}]}"},
      {zones, "zones[1].weight+=0.5",
       "{\"zones\":[{\"weight\":{\"value\":1},\"name\":\"a\"},{\"weight\":{\"value\":2.5},\"name\":\"b\"}]}"},
      // Structures: only what differs.
      {zones, "zones[1]={\"weight\":{\"value\":2.0},\"name\":\"c\"}",
       "{\"zones\":[{\"weight\":{\"value\":1},\"name\":\"a\"},{\"weight\":{\"value\":2},\"name\":\"c\"}]}"},
      // Tables: by cell, computed, complete, and of another size.
      {flat, "flat[1][0]=5", "{\"flat\":{\"value\":[1.0,2,\n5,4],\"rule\":{\"col\":\"2\"}}}"},
      {flat, "flat*=1.05", "{\"flat\":{\"value\":[1.05,2.1,\n3.15,4.2],\"rule\":{\"col\":\"2\"}}}"},
      {flat, "flat=[[1,2],[3,5]]", "{\"flat\":{\"value\":[1.0,2,\n3,5],\"rule\":{\"col\":\"2\"}}}"},
      {flat, "flat=[1,2,3,4,5,6]", "{\"flat\":{\"value\":[1, 2,3, 4,5, 6],\"rule\":{\"col\":\"2\"}}}"},
      {flat, "flat=[[1,2,3,4]]", "'flat.value' has 2 columns, not 4"},
      {rows, "rows[*][1]=0", "{\"rows\":{\"value\":[{\"value\":[1,0]},\n{\"value\":[3,0]}],\"rule\":{\"col\":\"2\"}}}"},
      {rows, "rows+=1", "{\"rows\":{\"value\":[{\"value\":[2,3]},\n{\"value\":[4,5]}],\"rule\":{\"col\":\"2\"}}}"},
      {rows, "rows=[1,2,3,5]",
       "{\"rows\":{\"value\":[{\"value\":[1,2]},\n{\"value\":[3,5]}],\"rule\":{\"col\":\"2\"}}}"},
      {rows, "rows=[1,2,3]", "'rows.value' is a table: a list of its rows is expected"},
      // Missing fields are inserted where the schema has them.
      {"{\"wide\":1}", "gain=2", "{\"gain\":{\"value\": 2},\"wide\":1}"},
      {"{\"wide\":1}", "gain*=2", "there is no 'gain.value' to calculate with"},
      // What is not an assignment or a value.
      {"{}", "gain", "'gain' is not of the form PATH=VALUE"},
      {"{}", "ga in=1", "'ga in' is not a path: '.' or '[' is expected at character 3"},
      {"{\"gain\":{\"value\":1}}", "gain=fast", "'fast' is not JSON: 'fast' is no value"},
      {"{\"gain\":{\"value\":1}}", "gain=1,2", "'1,2' is not JSON: one value is expected"},
      {"{\"gain\":{\"value\":1}}", "gain=[1]", "'gain.value' takes one value, not a list"},
      {flat, "flat=1", "'flat.value' takes a list: [...]"},
      {flat, "flat=" + std::string(9999, '['), "the value is nested too deeply"},
      {"{\"flat\":{\"value\":" + std::string(9999, '[') + std::string(9999, ']') + "}}", "flat*=2",
       "the value is nested too deeply"},
      {"{\"gain\":{\"value\":true}}", "gain*=2", "'gain.value' is true: only numbers can be used in a calculation"},
  };
  for (const auto& row : cases) {
    const std::string result = Assigned(row.text, row.order);
    if (row.order == "gain=fast") {
      EXPECT_THAT(result, HasSubstr("'fast' is not JSON: "));
    } else {
      EXPECT_EQ(result, row.result) << row.text.substr(0, 200) << " " << row.order.substr(0, 200);
    }
  }
}

TEST_F(AssignTest, TablesGoOutAndBack) {
  const std::string text =
      "{\"flat\":{\"value\":[1.50,2,3,\"NaN\",5],\"rule\":{\"col\":\"2\"}},\n"
      " \"rows\":{\"value\":[{\"value\":[1,2]},{\"value\":[3]}],\"rule\":{}},\n"
      " \"zones\":[{\"weight\":{\"value\":1e2},\"name\":\"a,\\\"b\\\"\\n\",\"knots\":[1,2]},\n"
      "  {\"weight\":{\"value\":2},\"name\":\"\",\"knots\":[3,4,5]}],\n"
      " \"kind\":\"Kind_B\",\"flags\":[true,false],\"names\":[\"x\\ty\",\"\xc3\xb6\"],\"wides\":[\"1\",2]}";
  const struct {
    const char* path;
    const char* csv;
  } cases[] = {
      {"flat", "1.50,2\n3,NaN\n5\n"},
      {"flat[0:2][1]", "2\nNaN\n"},
      {"flat[1:4]", "2,3,NaN\n"},
      {"rows", "1,2\n3\n"},
      {"zones[*].weight", "1e2\n2\n"},
      {"zones[*].knots", "1,2\n3,4,5\n"},
      {"zones[*].name", "\"a,\"\"b\"\"\n\"\n\"\"\n"},
      {"kind", "Kind_B\n"},
      {"flags", "true,false\n"},
      {"names", "x\ty,\xc3\xb6\n"},
      {"wides", "1,2\n"},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(Table(text, row.path, TableData::Form::kCsv), row.csv) << row.path;
    // Other values in their place, so that all of them have to be restored.
    std::string other = text;
    for (char& c : other) {
      if (c >= '1' && c <= '5') c = '7';
    }
    other.replace(other.find("\"col\":\"7\""), 9, "\"col\":\"2\"");
    for (const auto form : {TableData::Form::kJson, TableData::Form::kCsv, TableData::Form::kTsv}) {
      const std::string table = Table(text, row.path, form);
      EXPECT_EQ(FromTable(text, row.path, table, form), text) << row.path << "\n" << table;
      EXPECT_EQ(Table(FromTable(other, row.path, table, form), row.path, form), table) << row.path;
    }
  }
  EXPECT_EQ(Table(text, "zones", TableData::Form::kCsv), "'zones' holds structures, which do not form a table");
}

TEST_F(AssignTest, ReadsWhatSpreadsheetsWriteAndSaysWhatItCannot) {
  const std::string text = "{\"flat\":{\"value\":[1,2,3,4],\"rule\":{\"col\":\"2\"}},\"flags\":[true]}";
  const struct {
    const char* path;
    std::string table;
    std::string result;  ///< the value, or the message
  } cases[] = {
      {"flat", "\xef\xbb\xbf\"5\",6\r\n\r\n7,8\r\n", "[5,6,7,8]"},
      {"flat", "5,6\n7,8", "[5,6,7,8]"},
      {"flat[*][0]", "5\n7\n", "[5,2,7,4]"},
      {"flat[0][*]", "5,7\n", "[5,7,3,4]"},
      {"flat", "5,6\n7,8\n9,0\n", "[5, 6,7, 8,9, 0]"},
      {"flat", "", "[]"},
      {"flat", "1,2,3,4\n", "'flat.value' has 2 columns, not 4"},
      {"flat", "1,2\n3,1;5\n", "2:2: '1;5' is not a value for float"},
      {"flat", "1,\"1,5\"\n", "1:2: '1,5' is not a value for float"},
      {"flat", "1,+2\n", "1:2: '+2' is not a value for float"},
      {"flat", "1,,2\n", "1:2: this cell is empty"},
      {"flat", "1,2\n3,\"4\n", "2:2: a quote is not closed"},
      {"flat[*][0]", "5,6\n7,8\n", "the path names 1 value here, and line 1 of table has 2"},
      {"flat[*][0]", "5\n7\n8\n", "the path names values in 2 lines, and table has 3 lines"},
  };
  for (const auto& row : cases) {
    const std::string result = FromTable(text, row.path, row.table, TableData::Form::kCsv);
    const bool value = row.result[0] == '[';
    EXPECT_THAT(result, HasSubstr(value ? "\"value\":" + row.result + ",\"rule\"" : row.result)) << row.table;
  }
  const std::string two =
      "{\"tables\":[{\"value\":[1,2,3,4],\"rule\":{\"col\":\"2\"}},{\"value\":[5,6],\"rule\":{\"col\":2}}]}";
  EXPECT_EQ(Table(two, "tables[*]", TableData::Form::kCsv), "1,2\n3,4\n5,6\n");
  EXPECT_THAT(FromTable(two, "tables[*]", "1,2\n3,4\n5, 7\n", TableData::Form::kCsv), HasSubstr("\"value\":[5,7]"));
  EXPECT_EQ(FromTable(two, "tables[*]", "1,2\n3,4\n5,6\n7,8\n", TableData::Form::kCsv),
            "1:21: the path names values in 2 lines, and table has 4 lines");
  EXPECT_THAT(FromTable(text, "flags", "FALSE\n", TableData::Form::kCsv), HasSubstr("\"flags\":[false]"));
  EXPECT_THAT(FromTable(text, "flat", "[[5, 6], [7, 8]]", TableData::Form::kJson), HasSubstr("[5,6,7,8]"));
  EXPECT_EQ(zotuning::FormOf("-", " [1]"), TableData::Form::kJson);
  EXPECT_EQ(zotuning::FormOf("-", "1\t2"), TableData::Form::kTsv);
  EXPECT_EQ(zotuning::FormOf("x.csv", "1\t2"), TableData::Form::kCsv);
}

}  // namespace
}  // namespace zotest
