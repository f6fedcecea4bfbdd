// The results for all kinds of schemas are compared with the plain search in transcode/differential_test.cpp.

#include "ZoTuningUtils.h"
#include "support/log.h"
#include "transcode/differential.h"

namespace {

using namespace zotest;

/// `missing` is empty if the check succeeds.
void ExpectCheck(const google::protobuf::FieldDescriptor* field, const std::string& json, const std::string& missing) {
  bool found = false;
  const std::string printed = StderrOf([&] { found = ZO_TUNING::CheckFieldInString(field, json); });
  EXPECT_EQ(found, missing.empty()) << field->full_name() << " in " << json;
  EXPECT_EQ(printed, found ? "" : "Error: Field '" + missing + "' not found in Json.\n");
}

TEST(FieldCheckTest, SearchesNamesAsPlainText) {
  const TextSchema schema(R"(syntax = "proto3";
    message Leaf { int32 gain = 1; int32 offset = 2; }
    message Exempt { int32 never = 1; }
    message Root { Leaf leaf = 1; repeated Leaf leaves = 2; Exempt rule = 3; Exempt value = 4; Exempt description = 5;
                   map<string, Leaf> table = 6; int32 gain = 7; })");
  const auto row = [&](const char* name, const std::string& json, const std::string& missing) {
    ExpectCheck(schema.Type("Root")->FindFieldByName(name), json, missing);
  };
  row("gain", "again", "");
  row("gain", "", "gain");
  row("leaf", "{\"leaf\": {\"offset\": 1}}", "gain");
  row("leaf", "leaf gain", "offset");
  row("leaves", "offsetleavesgain", "");
  for (const char* exempt : {"rule", "value", "description"}) row(exempt, "", "");
  row("table", "table gain offset", "key");  // the entry type counts as written; its "value" is exempt
  row("table", "table key", "");
}

TEST(FieldCheckTest, CostDoesNotMultiplyAndRecursionEnds) {
  // With a naive search, forty levels of two fields each are 2^40 visits.
  std::string proto = "syntax = \"proto3\"; message T40 { int32 last = 1; T0 again = 2; }";
  for (int level = 0; level < 40; ++level) {
    const std::string next = "T" + std::to_string(level + 1);
    proto += " message T" + std::to_string(level) + " { " + next + " left = 1; " + next + " right = 2; }";
  }
  const TextSchema schema(proto);
  const auto* field = schema.Type("T0")->FindFieldByName("left");
  ExpectCheck(field, "left right last again", "");
  ExpectCheck(field, "left right last", "again");
}

}  // namespace
