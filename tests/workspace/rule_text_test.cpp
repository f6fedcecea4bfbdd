// Ranges and sizes in words, and the templates made from the comments of a schema.

#include "workspace/rule_text.h"

#include <gtest/gtest.h>

#include <string>

#include "json/default_data.h"
#include "transcode/differential.h"
#include "workspace/comment_rules.h"
#include "workspace/json_document.h"
#include "workspace/project.h"

namespace zotest {
namespace {

std::string SizeText(const std::optional<size_t>& size) { return size ? std::to_string(*size) : "-"; }

TEST(RuleText, CommentsSayRangesSizesAndUnits) {
  const struct {
    const char* comment;
    const char* said;  // range, length, rows, columns, unit
  } rows[] = {
      {"Position. Unit: code. Range: 0..511.", "0..511 - - - code"},
      {"Unit: m. Range: 0.05..100, descending, 9 elements.", "0.05..100 9 - - m"},
      {"Unit: code * m^n. Range: -64..64, 3 rows of 6.", "-64..64 - 3 6 code * m^n"},
      {"Range: 5 rows of 7.", "- - 5 7 "},
      {"Zones. Range: 1..16 zones.", "1..16 - - - "},
      {"9 elements", "- 9 - - "},
      {"A grid of 17x13. Range: 1e-3..2.5e3", "1e-3..2.5e3 - 17 13 "},
      {"Range: 0..4; a grid, 17 x 13, over the picture.", "0..4 - 17 13 "},
      // The size after the range counts.
      {"Of 8x8 pixels each. Unit: 1/255. Range: 0..255, 13 rows of 17.", "0..255 - 13 17 1/255"},
      {"Range: 0 when not calibrated. See 3..5.", "- - - - "},
      {"Range: 5..1. Elements: 9", "- - - - "},
      {"One 8 by 8 tile, 0x1f rows of 3", "- - - - "},
      {"", "- - - - "},
  };
  for (const auto& row : rows) {
    const zotuning::CommentRule rule = zotuning::ReadCommentRule(row.comment);
    EXPECT_EQ((rule.range ? rule.range->text : "-") + " " + SizeText(rule.sizes.length) + " " +
                  SizeText(rule.sizes.rows) + " " + SizeText(rule.sizes.columns) + " " + rule.unit,
              row.said)
        << row.comment;
  }
}

TEST(RuleText, RulesAreReadAlike) {
  const struct {
    const char* text;
    const char* range;  // or the fault
    const char* size;   // or "?"
  } rows[] = {{"0..511", "0..511", "?"},
              {" -1 .. 1 ", "-1..1", "?"},
              {"Range: 0..511, 9 elements", "0..511", "?"},
              {"0..1 ratio", "0..1", "?"},
              {"5..1", "order", "?"},
              {"0..lots", "form", "?"},
              {"about 0..1", "form", "?"},
              {"fast..slow", "", "?"},
              {"9", "", "9"},
              {" 9 elements ", "", "9"},
              {"13 rows", "", "13"},
              {"-1", "", ""},
              {"None", "", ""},
              {"", "", ""},
              {"9 lives", "", "?"},
              {"99999999999999999999", "", "?"}};
  for (const auto& row : rows) {
    zotuning::RangeFault fault;
    const auto range = zotuning::ReadRange(row.text, &fault);
    EXPECT_EQ(range                                   ? range->text
              : fault == zotuning::RangeFault::kOrder ? "order"
              : fault == zotuning::RangeFault::kForm  ? "form"
                                                      : "",
              row.range)
        << row.text;
    bool unclear = false;
    const auto size = zotuning::ReadSize(row.text, &unclear);
    EXPECT_EQ(size ? std::to_string(*size) : unclear ? "?" : "", row.size) << row.text;
  }
}

TEST(RuleText, TemplatesTakeRulesFromComments) {
  zotuning::CollectingSink sink;
  const auto schema = zotuning::LoadSchema(ZOTUNING_SOURCE_DIR "/examples/tuning_project/proto", sink);
  ASSERT_NE(schema, nullptr);
  const auto* type = schema->FindType("AfCommon");
  std::string made;
  ASSERT_TRUE(ZO_TUNING::internal::ModuleTemplate(
                  *schema, type, [](const auto&) {}, &made)
                  .ok);
  const std::string text = zotuning::WithCommentRules(made, type);
  const zotuning::JsonDocument document(text);
  const auto part = [&](std::initializer_list<const char*> path) {
    zotuning::JsonValue value = document.root();
    for (const char* name : path) {
      value = value.is_array() ? (*value.elements().begin()).Find(name) : value.Find(name);
    }
    return value.String();
  };
  EXPECT_EQ(part({"lens", "macro_code", "rule", "recommend"}), "512..1023");
  EXPECT_EQ(part({"lens", "macro_code", "rule", "description"}), "[Int32] code");
  EXPECT_EQ(part({"lens", "move_offset_ns", "rule", "recommend"}), "-40000000..40000000");
  EXPECT_EQ(part({"focus_distance_m", "rule", "len"}), "9");
  EXPECT_EQ(part({"posture_offset_codes", "rule", "row"}), "3");
  EXPECT_EQ(part({"posture_offset_codes", "rule", "col"}), "6");
  EXPECT_EQ(part({"zones", "weight", "rule", "recommend"}), "0..1");
  EXPECT_EQ(part({"continuous_enable", "rule", "recommend"}), "None");
  EXPECT_EQ(part({"zones_rule", "len"}), "-1");
}

}  // namespace
}  // namespace zotest
