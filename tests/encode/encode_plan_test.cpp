#include "encode/encode_plan.h"

#include <gmock/gmock.h>

#include "encode/roads.h"

namespace {

using testing::ElementsAre;
using zotest::Roads;
using zotest::TextSchema;

TEST(EncodePlanTest, NamesInTheOrderOfTheCheck) {
  const TextSchema schema(R"(syntax = "proto3"; message Inner { int32 late = 1; int32 value = 2; int32 early = 3; }
                             message Module { Inner first = 9; int32 early = 1; Inner second = 2; Inner rule = 3; })");
  const ZO_TUNING::internal::ModulePlan plan(schema.Type("Module"));
  EXPECT_THAT(plan.checked_names(), ElementsAre("first", "late", "early", "second"));
}

/// Types M1 to Mcount, each of which holds the next one.
std::string Chain(int count, const std::string& label) {
  std::string text = "syntax = \"proto3\";";
  for (int i = 1; i <= count; ++i) {
    text += "message M" + std::to_string(i) + " {";
    if (i < count) text += label + " M" + std::to_string(i + 1) + " m = 2; ";
    text += "int32 i = 1; }";
  }
  return text;
}

TEST(EncodePlanTest, LevelsEndWellBeforeProtobufStops) {
  for (const std::string label : {"", "repeated"}) {
    int planned = 0;
    for (int count = 1; count < 60; ++count) {
      const TextSchema schema(Chain(count, label));
      ASSERT_EQ(schema.errors(), "");
      Roads roads(schema.Type("M1"));
      if (!roads.planned()) continue;
      planned = count;
      std::string text = "{\"i\":1}";
      for (int i = 1; i < count; ++i) text = label.empty() ? "{\"m\":" + text + "}" : "{\"m\":[" + text + "]}";
      bool encoded = false;
      EXPECT_EQ(roads.Difference(text, &encoded), "");
      EXPECT_TRUE(encoded) << count;
      // Submessages that pruning creates reach as deep.
      EXPECT_EQ(roads.Difference("{}"), "");
    }
    EXPECT_GT(planned, 20);
    EXPECT_LT(planned, 59);
  }
}

// A type that was planned near the root may be met again further down.
TEST(EncodePlanTest, LevelsCountWhereATypeIsUsedAgain) {
  const std::string chain = Chain(30, "");
  const TextSchema schema(
      chain +
      "message L3 { M1 m = 1; } message L2 { L3 l = 1; } message L1 { L2 l = 1; }"
      "message Near { M1 m = 1; L1 l = 2; } message A { Near n = 1; } message B { A a = 1; M1 m = 2; }");
  ASSERT_EQ(schema.errors(), "");
  Roads roads(schema.Type("B"));
  ASSERT_TRUE(roads.planned());
  EXPECT_EQ(roads.Difference("{}"), "");
  EXPECT_EQ(roads.Difference(R"({"m":{"m":{}},"a":{"n":{"l":{"l":{"l":{"m":{"i":1}}}}}}})"), "");
}

}  // namespace
