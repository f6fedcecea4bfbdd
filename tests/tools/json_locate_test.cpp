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

/// Whether protobuf's parser reads the text. A struct takes any names and values, so only broken texts are refused.
bool Reads(const std::string& text) {
  static google::protobuf::DynamicMessageFactory factory;
  const auto* type =
      google::protobuf::DescriptorPool::generated_pool()->FindMessageTypeByName("google.protobuf.Struct");
  const std::unique_ptr<google::protobuf::Message> any(factory.GetPrototype(type)->New());
  return google::protobuf::util::JsonStringToMessage(text, any.get()).ok();
}

TEST(ScanJson, AgreesWithTheParserOnEveryChangeOfOneCharacter) {
  for (const std::string text : {R"({"a": [1, -0.5e+2,], 'b': 'x"y', c_1: null, $d: {}, "key": [true, [[]]],})",
                                 R"( {"f": "\u00e9\ud83d\ude00\q\\", "g": 1e-400, "h": 00.5, truer: false} )"}) {
    ASSERT_TRUE(Reads(text));
    for (size_t i = 0; i <= text.size(); ++i) {
      for (const char c : std::string("{}[],:\"'\\ 01e.-+utn_/\n\x01\x80\xC3\0", 27)) {
        for (const size_t replaced : {0, 1}) {
          std::string changed = text;
          changed.replace(i, replaced, 1, c);
          EXPECT_EQ(!ScanJson(changed), Reads(changed)) << changed;
        }
      }
      EXPECT_EQ(!ScanJson(text.substr(0, i)), Reads(text.substr(0, i))) << i;
    }
  }
}

TEST(ScanJson, FindsWhereATextBreaks) {
  const struct {
    std::string text;
    size_t offset;  ///< of the fault
  } rows[] = {
      {" \f\v\t\r\n{ } \n", kGood},
      {"{\"a\": \"line\nfeed\x01\"}", kGood},
      {"", 0},
      {"{} x", 3},
      {R"({"a": 1)", 7},
      {R"({"a": "x)", 6},
      {R"({"a":})", 5},
      {R"({"a": 1 "b": 2})", 8},
      {R"({"a": [1,,2]})", 9},
      {R"({true: 1})", 1},
      {R"({"a": 1 /* c */})", 8},
      {R"({"a": truex})", 10},
      {R"({"a": NaN})", 6},
      {R"({"a": 0x10})", 6},
      {R"({"a": 1e400})", 6},
      {R"({"a": "\ud83d\u0041"})", 7},
      {"{\"a\": \"\xed\xa0\x80\"}", 7},
      {"{\"a\": \"\xf4\x90\x80\x80\"}", 7},
      {"{\"a\": 1, \xff", 9},
      {"\xef\xbb\xbf{}", 0},
      {std::string("{\0}", 3), 1},
  };
  for (const auto& row : rows) {
    const auto fault = ScanJson(row.text);
    EXPECT_EQ(fault ? fault->offset : kGood, row.offset) << row.text << (fault ? ": " + fault->message : "");
    EXPECT_EQ(Reads(row.text), row.offset == kGood) << row.text;
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
