#include "transcode/module_table.h"

#include <gtest/gtest.h>

#include "transcode/differential.h"

namespace {

using zotest::BothPaths;
using zotest::TextSchema;

TEST(EncodePlanTest, LeavesOutWhatProtobufReadsInItsOwnWay) {
  const auto expect_no_plan = [](const std::string& syntax, const std::string& body) {
    const TextSchema schema("syntax = \"" + syntax + "\"; import \"google/protobuf/struct.proto\";" +
                            "message Module { " + body + " } message Around { repeated Module m = 1; }");
    ASSERT_EQ(schema.errors(), "");
    for (const std::string name : {"Module", "Around"})
      EXPECT_FALSE(BothPaths(schema.Type(name)).has_fast_path()) << body;
  };
  for (const std::string body :
       {"oneof one { int32 a = 1; string b = 2; }", "map<string, int32> a = 1;", "repeated Module a = 1;",
        "message Other { Module a = 1; } Other a = 1; int32 b = 2;", "repeated google.protobuf.Struct a = 1;"}) {
    expect_no_plan("proto3", body);
  }
  expect_no_plan("proto2", "required int32 a = 1;");
  expect_no_plan("proto2", "optional group A = 1 { optional int32 b = 1; }");
  // The entry of a map is a type of its own, which a label value can name.
  const TextSchema map("syntax = \"proto3\"; message Module { map<string, bool> a = 1; }");
  EXPECT_FALSE(BothPaths(map.Type("Module.AEntry")).has_fast_path());
}

/// Types M1 to Mcount, each of which contains the next one.
std::string Chain(int count, const std::string& label) {
  std::string text = "syntax = \"proto3\";";
  for (int i = 1; i <= count; ++i) {
    const std::string next = i == count ? "" : label + " M" + std::to_string(i + 1) + " m = 2; ";
    text += "message M" + std::to_string(i) + " {" + next + "int32 i = 1; }";
  }
  return text;
}

TEST(EncodePlanTest, LevelsEndWellBeforeProtobufStops) {
  for (const std::string label : {"", "repeated"}) {
    int supported = 0;
    for (int count = 1; count < 60; ++count) {
      const TextSchema schema(Chain(count, label));
      BothPaths paths(schema.Type("M1"));
      if (!paths.has_fast_path()) continue;
      supported = count;
      std::string text = "{\"i\":1}";
      for (int i = 1; i < count; ++i) text = label.empty() ? "{\"m\":" + text + "}" : "{\"m\":[" + text + "]}";
      bool encoded = false;
      EXPECT_EQ(paths.Difference(text, &encoded), "");
      EXPECT_TRUE(encoded) << count;
    }
    EXPECT_EQ(supported, 40);  // with arrays between the objects, still below protobuf's hundred
  }
  // A type that has a table near the root is too deep elsewhere.
  EXPECT_TRUE(BothPaths(TextSchema(Chain(30, "") + "message B { M1 m = 1; }").Type("B")).has_fast_path());
  std::string deep = Chain(30, "") + "message D0 { M1 m = 1; }";
  for (int i = 1; i < 15; ++i) {
    deep += "message D" + std::to_string(i) + " { D" + std::to_string(i - 1) + " d = 1; }";
  }
  EXPECT_FALSE(BothPaths(TextSchema(deep + "message B { M1 m = 1; D14 d = 2; }").Type("B")).has_fast_path());
}

}  // namespace
