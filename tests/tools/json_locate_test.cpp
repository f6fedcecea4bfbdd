// The tool's reading of JSON text beside the parser that it explains: both have to agree on which texts are broken.

#include "json_locate.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/util/json_util.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace zotest {
namespace {

using zotuning_tool::FindJsonValue;
using zotuning_tool::ParseJsonPath;
using zotuning_tool::PositionAt;
using zotuning_tool::ScanJson;

constexpr size_t kGood = std::string::npos;

TEST(ScanJson, FindsWhereATextBreaks) {
  const struct {
    std::string text;
    size_t offset;  ///< of the fault
  } rows[] = {
      {"{}", kGood},
      {" \f\v\t\r\n{ } \n", kGood},
      {R"({"a": [1, 2,], 'b': 'x"y', c_1: null, $d: {},})", kGood},
      {R"({"a": [true, false, [[-0.0], "\u00e9\ud83d\ude00\q"]]})", kGood},
      {"{\"a\": \"line\nfeed\x01\"}", kGood},
      {R"({"a": 1., "b": 00.5, "c": 1e-400, "d": -12E+3})", kGood},
      {"", 0},
      {"  ", 2},
      {"{} x", 3},
      {R"({"a": 1}{)", 8},
      {R"({"a": 1)", 7},
      {R"({"a": [1)", 8},
      {R"({"a": "x)", 6},
      {R"({"a" 1})", 5},
      {R"({"a":})", 5},
      {R"({"a": 1 "b": 2})", 8},
      {R"({"a": [1 2]})", 9},
      {R"({"a": [1,,2]})", 9},
      {R"({"a": [,]})", 7},
      {R"({,"a": 1})", 1},
      {R"({"a": [1}})", 8},
      {R"({"a": 1])", 7},
      {R"({true: 1})", 1},
      {R"({nullable: 1, trueish: 2})", kGood},
      {R"({1: 1})", 1},
      {R"({a-b: 1})", 2},
      {R"({"a": 1 /* c */})", 8},
      {R"({"a": truex})", 10},
      {R"({"a": NaN})", 6},
      {R"({"a": +1})", 6},
      {R"({"a": .5})", 6},
      {R"({"a": 01})", 6},
      {R"({"a": -01})", 6},
      {R"({"a": 0x10})", 6},
      {R"({"a": 1.2.3})", 6},
      {R"({"a": 1e})", 6},
      {R"({"a": -})", 6},
      {R"({"a": 1e400})", 6},
      {R"({"a": 1_000})", 7},
      {R"({"a": "\u41"})", 7},
      {R"({"a": "\ud83dx"})", 7},
      {R"({"a": "\ude00"})", 7},
      {R"({"a": "\ud83d\u0041"})", 7},
      {"{\"a\": \"\xff\"}", 7},
      {"{\"a\": \"\xc0\xaf\"}", 7},
      {"{\"a\": \"\xed\xa0\x80\"}", 7},
      {"{\"a\": \"\xf4\x90\x80\x80\"}", 7},
      {"{\"a\": 1}\xff", 8},
      {"{\"a\": 1, \xff", 9},
      {"\xef\xbb\xbf{}", 0},
      {std::string("{\0}", 3), 1},
  };
  // A struct takes any names and values, so only broken texts are refused.
  google::protobuf::DynamicMessageFactory factory;
  const auto* any_type =
      google::protobuf::DescriptorPool::generated_pool()->FindMessageTypeByName("google.protobuf.Struct");
  ASSERT_NE(any_type, nullptr);
  for (const auto& row : rows) {
    const auto fault = ScanJson(row.text);
    EXPECT_EQ(fault ? fault->offset : kGood, row.offset) << row.text << (fault ? ": " + fault->message : "");
    const std::unique_ptr<google::protobuf::Message> any(factory.GetPrototype(any_type)->New());
    EXPECT_EQ(google::protobuf::util::JsonStringToMessage(row.text, any.get()).ok(), row.offset == kGood) << row.text;
  }
}

TEST(ScanJson, DepthIsBoundedByMemoryAlone) {
  const size_t levels = 200000;
  std::string text;
  for (size_t i = 0; i < levels; ++i) text += i % 2 == 0 ? "{\"a\":" : "[";
  const auto fault = ScanJson(text);
  ASSERT_TRUE(fault.has_value());
  EXPECT_EQ(fault->offset, text.size());
}

TEST(FindJsonValue, FollowsThePathsOfTheParsersMessages) {
  const std::string text = R"({"two_words": {"list": [{"v": 1}, {"v": 2}, {"v": 3}]}, "n": [1, [2, 3], 4],
      "dup": "good", "dup": "bad", 'q': 1.50, "twoWords": {"x": 0}})";
  const struct {
    const char* path;
    const char* value;
    const char* found;  ///< the text from the value on
  } rows[] = {
      {"two_words.list[1].v", "", "2}, {"},
      {"twoWords.list[2].v", "3", "3}]}"},
      {"two_words.x", "", "0}}"},
      {"n[3]", "", "4],"},
      {"n[1]", "", "2, 3]"},
      {"n[0]", "4", "4],"},  // an index that counts otherwise gives way to the value
      {"dup", "\"bad\"", "\"bad\", 'q'"},
      {"q", "1.5", "1.50, "},
      {"[\"q\"]", "", "1.50, "},
      {"two_words.none", "", nullptr},
  };
  for (const auto& row : rows) {
    const auto found = FindJsonValue(text, ParseJsonPath(row.path), row.value);
    ASSERT_EQ(found.has_value(), row.found != nullptr) << row.path;
    if (!found) continue;
    EXPECT_EQ(text.substr(found->offset, std::string(row.found).size()), row.found) << row.path;
  }
}

TEST(PositionAt, CountsLinesAndCharacters) {
  const std::string text = "one\r\n\tz\xC3\xA4hl x\n" + std::string(500, 'a') + "!" + std::string(500, 'b');
  const auto second = PositionAt(text, text.find('x'));
  EXPECT_EQ(second.line, 2);
  EXPECT_EQ(second.column, 7);
  EXPECT_EQ(second.excerpt, " z\xC3\xA4hl x");
  EXPECT_EQ(second.excerpt_column, 7);
  const auto third = PositionAt(text, text.find('!'));
  EXPECT_EQ(third.line, 3);
  EXPECT_EQ(third.column, 501);
  EXPECT_LE(third.excerpt.size(), 80u);
  EXPECT_EQ(third.excerpt[static_cast<size_t>(third.excerpt_column) - 1], '!');
  EXPECT_EQ(PositionAt(text, text.size() + 9).line, 3);
  EXPECT_EQ(PositionAt("", 0).column, 1);
}

}  // namespace
}  // namespace zotest
