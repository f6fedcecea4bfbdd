// Messages compared by meaning, and the text for what differs.

#include "workspace/compare.h"

#include <random>

#include "support/project.h"

namespace zotest {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using zotuning::CompareOptions;
using zotuning::Difference;
using zotuning::DifferenceKind;
using zotuning::ListChange;
using zotuning::MessageComparer;
using zotuning::MessageComparison;

const char* const kTypes = R"(syntax = "proto3"; package ZO_TUNING;
  message FloatRule { string description = 1; string recommend = 2; }
  message FloatData { FloatRule rule = 1; float value = 2; }
  message Int32ArrayRule { string recommend = 1; string len = 2; }
  message Int32ArrayData { Int32ArrayRule rule = 1; repeated int32 value = 2; }
  message FloatArrayRule_2D { string row = 1; string col = 2; }
  message FloatArrayData_2D { FloatArrayRule_2D rule = 1; repeated float value = 2; }
  message DoubleRow { repeated double col = 1; }
  message DoubleArrayRule_2D { string row = 1; string col = 2; }
  message DoubleArrayData_2D { DoubleArrayRule_2D rule = 1; repeated DoubleRow value = 2; }
  message StructArrayRule { string len = 1; }
  enum Mode { MODE_OFF = 0; MODE_ON = 1; }
  message Zone { string name = 1; FloatData weight = 2; int32 left = 3; int32 top = 4; repeated Zone zones = 5; }
  message Inner { FloatData gain = 1; }
  message Noise {
    FloatData gain = 1;
    Inner inner = 2;
    Int32ArrayData curve = 3;
    FloatArrayData_2D flat = 4;
    DoubleArrayData_2D rows = 5;
    repeated Zone zones = 6;
    StructArrayRule zones_rule = 7;
    Mode mode = 8;
    string text = 9;
    bool on = 10;
    optional uint64 maybe = 11;
    map<string, int32> names = 12;
    repeated string words = 13;
    oneof choice { Inner first = 14; Inner second = 15; }
    double wide = 16;
  })";

class CompareTest : public SchemaTest {
 protected:
  CompareTest() { Load(kTypes); }

  MessageComparison Compare(const std::string& left, const std::string& right, const CompareOptions& options = {}) {
    const MessagePtr a = schema_->New("ZO_TUNING.Noise", left), b = schema_->New("ZO_TUNING.Noise", right);
    return MessageComparer(options).Compare(*a, *b, "Noise");
  }

  static Strings Lines(const MessageComparison& comparison, bool all = false) {
    Strings lines;
    for (const Difference& difference : comparison.differences) {
      for (std::string& line : zotuning::DifferenceTexts(difference, all)) lines.push_back(std::move(line));
    }
    return lines;
  }

  Strings LinesOf(const std::string& left, const std::string& right, const CompareOptions& options = {}) {
    return Lines(Compare(left, right, options));
  }
};

TEST_F(CompareTest, ValuesCountAsTheirFieldsHoldThem) {
  const struct {
    const char *left, *right;
    Strings lines;
  } kRows[] = {
      {"gain { value: 0.1 }", "gain { value: 0.100000001 }", {}},  // the same float
      {"wide: 0.1", "wide: 0.100000001", {"wide: 0.1 → 0.100000001"}},
      {"gain { value: 1 }", "gain { value: 1.25 }", {"gain.value: 1 → 1.25 (+25.0 %)"}},
      {"gain { value: -2 }", "gain { value: -1 }", {"gain.value: -2 → -1 (+50.0 %)"}},
      {"", "gain { value: 0.5 }", {"gain.value: 0 → 0.5"}},
      {"gain { value: 0 }", "gain { value: -0 }", {"gain.value: 0 → -0"}},  // other bytes in a bin
      {"gain { value: nan }", "gain { value: nan }", {}},
      {"gain { value: nan }", "gain { value: inf }", {"gain.value: nan → inf"}},
      {"gain { rule { recommend: 'a' } }", "gain { rule { recommend: 'b' } } zones_rule { len: '2' }", {}},
      {"", "inner { gain {} }", {}},  // packing creates it
      {"mode: MODE_OFF", "mode: 7", {"mode: MODE_OFF → 7"}},
      {"text: 'a'", "text: 'b' on: true", {"text: \"a\" → \"b\"", "on: false → true"}},
      {"maybe: 0", "", {"maybe: 0 → none"}},
      {"maybe: 18446744073709551615",
       "maybe: 18446744073709551614",
       {"maybe: 18446744073709551615 → 18446744073709551614"}},
      {"names { key: 'a' value: 1 } names { key: 'b c' value: 2 }",
       "names { key: 'd' value: 4 } names { key: 'b c' value: 3 }",
       {"names.a: { key: \"a\" value: 1 } → none", "names[\"b c\"].value: 2 → 3 (+50.0 %)",
        "names.d: none → { key: \"d\" value: 4 }"}},
      {"first {}",
       "second { gain { rule { recommend: 'a' } value: 1 } }",
       {"first: {} → none", "second: none → { gain { value: 1 } }"}},
      {"zones {}", "zones { weight {} }", {"zones[0].weight: none → {}"}},  // pruning does not enter lists
      {"zones { weight { value: 1 rule { recommend: 'a' } } }",
       "zones { weight { value: 2 } }",
       {"zones[0].weight.value: 1 → 2 (+100.0 %)"}},
      {"zones { zones { left: 1 } }", "zones { zones { left: 2 } }", {"zones[0].zones[0].left: 1 → 2 (+100.0 %)"}},
  };
  for (const auto& row : kRows) EXPECT_EQ(LinesOf(row.left, row.right), row.lines) << row.left << " | " << row.right;
  CompareOptions rules;
  rules.rules = true;
  EXPECT_THAT(LinesOf("gain { rule { recommend: 'a' } }", "zones_rule { len: '2' }", rules),
              ElementsAre("gain.rule.recommend: \"a\" → \"\"", "zones_rule.len: \"\" → \"2\""));
}

TEST_F(CompareTest, ListsShowWhatWasInsertedAndRemoved) {
  const auto numbers = [](const std::string& list) { return "curve { value: [" + list + "] }"; };
  const struct {
    std::string left, right;
    Strings lines;
  } kRows[] = {
      {numbers("1, 2, 3"), numbers("1, 5, 3"), {"curve.value[1]: 2 → 5 (+150.0 %)"}},
      {numbers("1, 2, 3, 4, 5"),
       numbers("2, 3, 4, 5, 5"),
       {"curve.value: 4 of 5 changed, mean +40.0 %, largest +1 at [0]"}},
      {numbers("1, 2, 3"), numbers("1, 2, 7, 3"), {"curve.value: length 3 → 4, inserted at [2]"}},
      {numbers("1, 2, 3, 4"), numbers("3, 4"), {"curve.value: length 4 → 2, removed at [0] to [1]"}},
      {numbers(""), numbers("3, 4"), {"curve.value: length 0 → 2, inserted at [0] to [1]"}},
      // The nearest are paired, so the new one is the insertion.
      {numbers("10, 20, 30, 40"),
       numbers("11, 21, 500, 31, 41"),
       {"curve.value: length 4 → 5, inserted at [2], 4 changed, mean +4.0 %, largest +1 at [0]"}},
      {"words: 'a' words: 'b'", "words: 'b'", {"words: length 2 → 1, removed at [0]"}},
      {"zones { name: 'a' } zones { name: 'b' left: 1 top: 1 }",
       "zones { name: 'a' } zones { name: 'new' left: 9 top: 9 } zones { name: 'b' left: 2 top: 1 }",
       {"zones: length 2 → 3, inserted at [1]", "zones[2].left: 1 → 2 (+100.0 %)"}},
      {"zones { name: 'a' left: 1 top: 2 } zones { name: 'b' left: 3 top: 4 } zones { name: 'c' left: 5 top: 6 }",
       "zones { name: 'b' left: 3 top: 4 } zones { name: 'c' left: 5 top: 6 } zones { name: 'a' left: 1 top: 2 }",
       {"zones: inserted at [2], removed at [0]"}},
      {"flat { value: [0, 5] }",
       "flat { value: [-0, 5, 7] }",
       {"flat.value: length 2 → 3, inserted at [2], 1 changed, mean +0, largest +0 at [0]"}},
  };
  for (const auto& row : kRows) EXPECT_EQ(LinesOf(row.left, row.right), row.lines) << row.left << " | " << row.right;
  const MessageComparison moved = Compare(kRows[7].left, kRows[7].right);
  EXPECT_EQ(moved.differences[1].left_path, "zones[1].left");
  EXPECT_EQ(moved.count, 2u);
}

// The changes reported for a list lead from one to the other, whatever the lists are.
TEST_F(CompareTest, ChangesOfAListLeadToTheOther) {
  std::mt19937 random(7);
  const auto list = [&] {
    std::vector<int> values(random() % 9);
    for (int& value : values) value = static_cast<int>(random() % 4);
    return values;
  };
  const auto text = [](const std::vector<int>& values) {
    std::string all = "curve {";
    for (const int value : values) all += " value: " + std::to_string(value);
    return all + " }";
  };
  for (int i = 0; i < 2000; ++i) {
    const std::vector<int> left = list(), right = list();
    const MessageComparison comparison = Compare(text(left), text(right));
    EXPECT_EQ(comparison.same(), left == right);
    if (comparison.same()) continue;
    ASSERT_EQ(comparison.differences.size(), 1u);
    const ListChange& change = *comparison.differences[0].list;
    std::vector<bool> removed(left.size()), inserted(right.size());
    for (const auto& run : change.removed) std::fill_n(removed.begin() + static_cast<int>(run.index), run.count, true);
    for (const auto& run : change.inserted)
      std::fill_n(inserted.begin() + static_cast<int>(run.index), run.count, true);
    std::vector<int> kept;
    for (size_t j = 0; j < left.size(); ++j) {
      if (removed[j]) continue;
      kept.push_back(left[j]);
      for (const auto& element : change.elements) {
        if (element.left_index == j) kept.back() = static_cast<int>(std::get<int64_t>(element.right));
      }
    }
    std::vector<int> rebuilt;
    size_t next = 0;
    for (size_t j = 0; j < right.size(); ++j) {
      if (!inserted[j] && next == kept.size()) break;
      rebuilt.push_back(inserted[j] ? right[j] : kept[next++]);
    }
    EXPECT_EQ(rebuilt, right) << text(left) << " | " << text(right);
    EXPECT_EQ(next, kept.size());
  }
}

TEST_F(CompareTest, LongListsAreAlignedByTheirEndsAlone) {
  std::string left = "curve {", right = left;
  for (int i = 0; i < 5000; ++i) {
    const std::string value = " value: " + std::to_string(i);
    left += value;
    right += (i == 2000 ? " value: -1" : "") + value;
  }
  EXPECT_THAT(LinesOf(left + "}", right + "}"), ElementsAre("curve.value: length 5000 → 5001, inserted at [2000]"));
}

TEST_F(CompareTest, TablesAreOneLine) {
  const std::string flat = "flat { rule { row: '2' col: '3' } value: [1, 2, 3, 4, 5, 6] }";
  const std::string bare = "flat { value: [1, 2, 3, 4, 5, 7] }";  // as in a bin
  const std::string rows = "rows { rule { row: '-1' col: '-1' } value { col: [1, 2] } value { col: [3, 4] } }";
  const std::string more = "rows { value { col: [1, 2] } value { col: [8, 9] } value { col: [3, 5] } }";
  const struct {
    std::string left, right;
    Strings lines;
  } kRows[] = {
      {flat, bare, {"flat 2x3: 1 changed, mean +16.7 %, largest +1 at [1][2]"}},
      {bare, bare, {}},
      {"flat { value: [1, 2] }", "flat { value: [1, 3] }", {"flat.value[1]: 2 → 3 (+50.0 %)"}},  // of unknown shape
      {flat, "flat { rule { row: '3' col: '2' } value: [1, 2, 3, 4, 5, 6] }", {}},  // only the rule says so
      {flat, "flat { rule { row: '3' col: '2' } value: [1, 2, 3, 4, 5, 7] }", {"flat 2x3 → 3x2"}},
      {rows,
       "rows { value { col: [1, 2] } value { col: [3, 4.5] } }",
       {"rows 2x2: 1 changed, mean +12.5 %, largest +0.5 at [1][1]"}},
      {flat, "flat { value: [1, 2, 3] }", {"flat 2x3 → 1x3: rows removed at [1]"}},
      {flat, "", {"flat 2x3 → 0x3: rows removed at [0] to [1]"}},
      {flat, "flat { value: [1, 2, 3, 4] }", {"flat.value: length 6 → 4, removed at [4] to [5]"}},
      {rows, more, {"rows 2x2 → 3x2: rows inserted at [1], 1 changed, mean +25.0 %, largest +1 at [2][1]"}},
      {rows, "rows { value { col: [1] } value { col: [3, 4] } }", {"rows.value[0].col: length 2 → 1, removed at [1]"}},
  };
  for (const auto& row : kRows) EXPECT_EQ(LinesOf(row.left, row.right), row.lines) << row.left << " | " << row.right;
  EXPECT_THAT(Lines(Compare(rows, more), true),
              ElementsAre(kRows[9].lines[0], "rows.value[2].col[1]: 4 → 5 (+25.0 %)"));
  std::string left = "flat { rule { row: '32' col: '32' }", right = left;
  for (int i = 0; i < 1024; ++i) {
    left += " value: 2";
    right += i == 3 * 32 + 17 ? " value: 2.04" : " value: 2.02";
  }
  EXPECT_THAT(LinesOf(left + "}", right + "}"),
              ElementsAre("flat 32x32: 1,024 changed, mean +1.0 %, largest +0.04 at [3][17]"));
}

TEST_F(CompareTest, TolerancesAreByPath) {
  const std::string left = "gain { value: 1 } inner { gain { value: 100 } } curve { value: [10, 20] }";
  const std::string right = "gain { value: 1.1 } inner { gain { value: 101 } } curve { value: [11, 20] }";
  const auto paths = [&](const CompareOptions& options) {
    Strings found;
    for (const Difference& difference : Compare(left, right, options).differences) found.push_back(difference.path);
    return found;
  };
  CompareOptions options;
  options.tolerance = {0.1, 0};  // less than the difference between the two floats
  EXPECT_THAT(paths(options), ElementsAre("inner.gain.value", "curve.value"));
  options.tolerance = {0, 0.01};
  EXPECT_THAT(paths(options), ElementsAre("gain.value", "curve.value"));
  options.path_tolerances = {{"*", {100, 0}}, {"Noise.*gain*", {}}, {"Noise.inner.ga?n.value", {1, 0}}};
  EXPECT_THAT(paths(options), ElementsAre("gain.value"));  // the last matching pattern counts
  CompareOptions any;
  any.tolerance = {1, 0.5};
  EXPECT_THAT(
      LinesOf("gain { value: inf } maybe: 18446744073709551615", "gain { value: 1 } maybe: 18446744073709551614", any),
      ElementsAre("gain.value: inf → 1"));
}

TEST_F(CompareTest, OtherSchemasArePairedByNames) {
  const MessagePtr left =
      schema_->New("ZO_TUNING.Noise",
                   "gain { value: 0.1 } curve { value: [1, 2] } mode: MODE_ON text: 'a' zones { left: 1 } on: true");
  const TempDir dir;
  std::string changed = kTypes;
  for (const auto& [from, to] : std::initializer_list<std::pair<const char*, const char*>>{
           {"float value = 2; }", "double value = 7; }"},
           {"repeated int32 value = 2", "repeated float value = 3"},
           {"MODE_ON = 1", "MODE_ON = 5"},
           {"string text = 9", "int32 text = 9"},
           {"int32 left = 3", "int32 begin = 3"},
           {"Inner inner = 2;", "Inner outer = 2; int32 zero = 20;"}}) {
    changed.replace(changed.find(from), std::string(from).size(), to);
  }
  Write(dir / "a.proto", changed);
  Schema other(dir.str());
  const MessagePtr right =
      other.New("ZO_TUNING.Noise",
                "gain { value: 0.1 } curve { value: [1, 3] } mode: MODE_ON text: 4 zones { begin: 1 } on: true "
                "outer { gain { rule { recommend: 'a' } value: 3 } }");
  MessageComparer comparer;
  EXPECT_FALSE(comparer.SameTypes(left->GetDescriptor(), right->GetDescriptor()));
  EXPECT_THAT(
      Lines(comparer.Compare(*left, *right, "Noise")),
      ElementsAre("curve.value[1]: 2 → 3 (+50.0 %)", "zones[0].left: 1 → none (not in the other schema)",
                  "zones[0].begin: none → 1 (not in the other schema)", "text: \"a\" → none (not in the other schema)",
                  "outer.gain.value: none → 3 (not in the other schema)", "text: none → 4 (not in the other schema)"));
  Strings only_left, only_right;
  comparer.CompareTypes(left->GetDescriptor(), right->GetDescriptor(), only_left, only_right);
  EXPECT_THAT(only_left, testing::UnorderedElementsAre("Noise.text", "Zone.left", "Noise.inner"));
  EXPECT_THAT(only_right, testing::UnorderedElementsAre("Noise.text", "Zone.begin", "Noise.outer", "Noise.zero"));
}

}  // namespace
}  // namespace zotest
