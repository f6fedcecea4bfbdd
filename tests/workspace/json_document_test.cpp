// Documents against the parser whose grammar they follow: both must agree on which texts are invalid.

#include "workspace/json_document.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/util/json_util.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "transcode/random_json.h"
#include "workspace/json_path.h"

namespace zotest {
namespace {

using zotuning::Code;
using zotuning::JsonDocument;
using zotuning::JsonFault;
using zotuning::JsonKind;
using zotuning::JsonMember;
using zotuning::JsonPath;
using zotuning::JsonValue;

/// Whether protobuf's parser accepts the text. A struct accepts any names and values, so it rejects only invalid texts
/// and duplicate keys.
bool Reads(const std::string& text) {
  static google::protobuf::DynamicMessageFactory factory;
  const auto* type =
      google::protobuf::DescriptorPool::generated_pool()->FindMessageTypeByName("google.protobuf.Struct");
  const std::unique_ptr<google::protobuf::Message> any(factory.GetPrototype(type)->New());
  const auto status = google::protobuf::util::JsonStringToMessage(text, any.get());
  return status.ok() || std::string(status.message()).find("Repeated map key") != std::string::npos;
}

bool IsObjectText(const JsonDocument& document) { return document.ok() && document.root().is_object(); }

/// All values of a document as text: "{key:value,...}"; invalid values as "!", incomplete ones as "...".
std::string Shape(const JsonValue& value) {
  std::string shape;
  switch (value.kind()) {
    case JsonKind::kNone:
      return "none";
    case JsonKind::kInvalid:
      return "!";
    case JsonKind::kObject:
      for (const JsonMember member : value.members()) {
        shape += (shape.empty() ? "" : ",") + member.key() + ":" + Shape(member.value());
      }
      return "{" + shape + (value.complete() ? "}" : "...");
    case JsonKind::kArray:
      for (const JsonValue element : value.elements()) shape += (shape.empty() ? "" : ",") + Shape(element);
      return "[" + shape + (value.complete() ? "]" : "...");
    default:
      return std::string(value.raw());
  }
}

/// Every value is inside the one around it and after the one before it; existing ones count.
void ExpectSoundSpans(const JsonValue& value, const std::string& text) {
  ASSERT_LE(value.begin(), value.end()) << text;
  ASSERT_LE(value.end(), text.size()) << text;
  size_t last = value.begin(), count = 0;
  const auto inside = [&](size_t begin, const JsonValue& inner) {
    ASSERT_LE(last, begin) << text;
    ASSERT_LE(inner.end(), value.end()) << text;
    ExpectSoundSpans(inner, text);
    last = inner.end();
    ++count;
  };
  for (const JsonMember member : value.members()) {
    ASSERT_LE(member.key_end(), member.value().begin()) << text;
    inside(member.key_begin(), member.value());
  }
  for (const JsonValue element : value.elements()) inside(element.begin(), element);
  ASSERT_EQ(count, value.size()) << text;
  ASSERT_EQ(value.empty(), count == 0) << text;
}

TEST(JsonDocument, AgreesWithTheParserOnEveryChangeOfOneCharacter) {
  for (const std::string text : {R"({"a": [1, -0.5e+2,], 'b': 'x"y', c_1: null, $d: {}, "key": [true, [[]]],})",
                                 R"( {"f": "\u00e9\ud83d\ude00\q\\", "g": 1e-400, "h": 00.5, truer: false} )"}) {
    ASSERT_TRUE(Reads(text));
    for (size_t i = 0; i <= text.size(); ++i) {
      for (const char c : std::string("{}[],:\"'\\ 01e.-+utn_/\n\x01\x80\xC3\0#=", 29)) {
        for (const size_t replaced : {0, 1}) {
          std::string changed = text;
          changed.replace(i, replaced, 1, c);
          const JsonDocument document(changed);
          ASSERT_EQ(IsObjectText(document), Reads(changed)) << changed;
          if (document.root()) ExpectSoundSpans(document.root(), changed);
        }
      }
      ASSERT_EQ(IsObjectText(JsonDocument(text.substr(0, i))), Reads(text.substr(0, i))) << i;
    }
  }
}

TEST(JsonDocument, AgreesWithTheParserOnTextsWithManyFaults) {
  Random random(7);
  const std::string text =
      "{\"a\": [1, 2.5, {\"b\": \"x\\ny\"}],\n \"c\": {\"d\": [[], {}, [true, null]],\n  'e': -1e5},\n"
      " f: \"two\n lines\", \"g\": 0,5, // c\n<<<<<<< x\n \"h\": 1\n=======\n>>>>>>> y\n}";
  size_t good = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string damaged = text;
    if (round % 3 != 0) damaged = "{\"a\": [1, -2.5, {\"b\": \"x\\u0041y\", 'c': [[], {}, true]}], d: {\"e\": null}}";
    for (size_t i = random.Below(4); i > 0; --i) damaged = Damage(damaged, random);
    const JsonDocument document(damaged);
    // The parser accepts hexadecimal numbers with a decimal point or exponent by accident, and "-.5" by the locale.
    if (damaged.find("0x") != std::string::npos || damaged.find("-.") != std::string::npos) continue;
    ASSERT_EQ(IsObjectText(document), Reads(damaged)) << damaged;
    if (document.root()) ExpectSoundSpans(document.root(), damaged);
    good += document.ok() ? 1 : 0;
    ASSERT_TRUE(std::is_sorted(document.faults().begin(), document.faults().end(),
                               [](const JsonFault& a, const JsonFault& b) { return a.offset < b.offset; }));
  }
  EXPECT_GT(good, 300U);
}

std::string FaultList(const JsonDocument& document) {
  std::string list;
  for (const JsonFault& fault : document.faults()) {
    list += (list.empty() ? "" : " ") + std::string(Name(fault.code)) + (fault.lenient ? "?" : "") + "@" +
            std::to_string(fault.offset);
  }
  return list;
}

struct FaultRow {
  std::string text;
  const char* faults;  ///< "?" after those that protobuf's parser accepts
  const char* shape;   ///< of what could be read
};

TEST(JsonDocument, FindsEveryFaultAndReadsTheRest) {
  const std::string nul(1, '\0');
  const FaultRow rows[] = {
      {" \t\r\n{ } \n", "", "{}"},
      {"\f{\v}", "json-control-character?@0 json-control-character?@2", "{}"},
      {"", "json-empty@0", "none"},
      {" \n", "json-empty@2", "none"},
      {"{} x", "json-syntax@3", "{}"},
      {"{\"a\": 1)", "json-syntax@7 json-syntax@8", "{a:1..."},
      {"{\"a\": [1", "json-syntax@8", "{a:[1......"},
      {"{\"a\":", "json-syntax@5", "{a:!..."},
      {"{\"a\":}", "json-syntax@5", "{a:!}"},
      {"{\"a\": 1 \"b\": 2}", "json-syntax@8", "{a:1,b:2}"},
      {"{\"a\": [1,,2]}", "json-syntax@9", "{a:[1,!,2]}"},
      {"{\"a\": [1 2]}", "json-syntax@9", "{a:[1,2]}"},
      {"{,\"a\": 1}", "json-syntax@1", "{a:1}"},
      {"{\"a\": 1,}", "json-trailing-comma?@7", "{a:1}"},
      {"{'a': b}", "json-single-quotes?@1 json-syntax@6", "{a:!}"},
      {"{a: 'x'}", "json-unquoted-key?@1 json-single-quotes?@4", "{a:'x'}"},
      {"{true: 1}", "json-syntax@1", "{true:1}"},
      {"{\"a\" = 1, \"b\" 2}", "json-syntax@5 json-syntax@14", "{a:1,b:2}"},
      {"{\"a\": 0,5, \"b\": -1,25}", "json-decimal-comma@6 json-decimal-comma@16", "{a:0,b:-1}"},
      {"{\"a\": NaN, \"b\": -Infinity}", "json-number@6 json-number@16", "{a:!,b:!}"},
      {"{\"a\": 0x10, \"b\": 01, \"c\": 1e400}", "json-number@6 json-number@17 json-number@26", "{a:!,b:!,c:!}"},
      {"{\"a\": +1, \"b\": .5, \"c\": 1.5f}", "json-number@6 json-number@15 json-number@24", "{a:!,b:!,c:!}"},
      {"{\"a\": 1., \"b\": 00.5}", "json-number-form?@6 json-number-form?@15", "{a:1.,b:00.5}"},
      {"{\"a\": True, \"b\": truex}", "json-syntax@6 json-syntax@17", "{a:!,b:!}"},
      {"{/* c */\"a\": 1 // d\n# e\n}", "json-comment@1 json-comment@15 json-comment@20", "{a:1}"},
      {"{\"a\": \"\\q\", \"b\": \"x\ny\"}", "json-escape?@7 json-control-character?@19", "{a:\"\\q\",b:\"x\ny\"}"},
      {"{\"a\": \"\\ud83d\\u0041\", \"b\": \"\\u12\"}", "json-syntax@7 json-syntax@28", "{a:!,b:!}"},
      {"{\"a\": \"\xed\xa0\x80\", \"b\": 1, \xff}", "json-encoding@7 json-encoding@21 json-syntax@21",
       "{a:\"\xed\xa0\x80\",b:1..."},
      {"\xef\xbb\xbf{}", "json-byte-order-mark@0", "{}"},
      {std::string("{\0\"\0a\0", 6), "json-utf16@0", "none"},
      {"{" + nul + "\"a\": 1}" + nul, "json-zero-byte@1 json-zero-byte@9", "{a:1}"},
      {"{\"a\": 1,\n<<<<<<< HEAD\n\"b\": 2\n=======\n\"b\": 3\n>>>>>>> topic\n, \"c\": 4}", "json-conflict@9",
       "{a:1,b:2,c:4}"},
      // Missing quotes, and what they would swallow.
      {"{\"a\": \"x,\n\"b\": 1,\n\"c\": 2}", "json-syntax@6", "{a:!,b:1,c:2..."},
      {"{\"a: 1,\n\"b\": 1,\n\"c\": 2}", "json-syntax@1", "{b:1,c:2..."},
      {"{\"a\": 1,\n\"b: \"x\",\n\"c\": 2}", "json-syntax@9", "{a:1,c:2..."},
      {"{\"a\": x\",\n\"c\": 2}", "json-syntax@6", "{a:!,c:2..."},
      {"{\"a\": \"x)", "json-syntax@6", "{a:!..."},
      // Brackets that are missing, extra, or of the wrong kind.
      {"{\"a\": [1, 2, \"b\": 3}", "json-syntax@13", "{a:[1,2...,b:3}"},
      {"{\"a\": {\"b\": [1}}", "json-syntax@14", "{a:{b:[1...}}"},
      {"{\"a\": 1], \"b\": 2}", "json-syntax@7", "{a:1,b:2}"},
      {"{\"a\": 1}, \"b\": 2}", "json-syntax@7", "{a:1,b:2}"},
      {"{\"a\": [{\"b\": 1], \"c\": 2}", "json-syntax@14", "{a:[{b:1...],c:2}"},
      {"{5: 1,\n\"a\": 2; \"b\": 3,\n\"c\": 4}", "json-syntax@1 json-syntax@13", "{a:2,c:4..."},
  };
  for (const FaultRow& row : rows) {
    const JsonDocument document(row.text);
    EXPECT_EQ(FaultList(document), row.faults) << row.text;
    EXPECT_EQ(Shape(document.root()), row.shape) << row.text;
  }
}

TEST(JsonDocument, KeepsSomeFaultsOfEachKind) {
  std::string text = "{\"v\": [";
  for (int i = 0; i < 100000; ++i) text += "nul,'',\n";
  const JsonDocument document(text + "1]}");
  EXPECT_FALSE(document.ok());
  EXPECT_LE(document.faults().size(), 2 * JsonDocument::kMaxFaultsPerCode + 1);
  // What follows is not read, what came before is.
  EXPECT_FALSE(document.root().complete());
  EXPECT_GT(document.root().Find("v").size(), 1000U);
}

TEST(JsonDocument, DepthIsBoundedByMemoryAlone) {
  const size_t levels = 200000;
  std::string text;
  for (size_t i = 0; i < levels; ++i) text += i % 2 == 0 ? "{\"a\":" : "[";
  const JsonDocument document(text);
  EXPECT_EQ(document.faults().back().offset, text.size());
  JsonValue value = document.root();
  size_t depth = 0;
  for (; value && !value.empty(); ++depth) {
    value = value.is_object() ? (*value.members().begin()).value() : *value.elements().begin();
  }
  EXPECT_EQ(depth, levels - 1);
}

TEST(JsonDocument, TakesUpToFourTimesTheSizeOfTables) {
  for (const std::string piece : {"1,", "-0.5,", "\n   12,", "{\"value\":[1.5,2.5,3.5]},"}) {
    std::string text = "{\"v\":[";
    while (text.size() < 4000000) text += piece;
    const size_t size = text.size();
    const JsonDocument document(text + "1]}");
    ASSERT_TRUE(document.ok()) << piece;
    EXPECT_LE(document.memory_bytes(), 4 * size) << piece;
  }
}

TEST(JsonDocument, StringsStandForTheirText) {
  const JsonDocument document(R"({"\u0061\n": "\ud83d\ude00\u00e9\/\q\v", 'b': 'say "hi"', c: ""})");
  const JsonValue root = document.root();
  EXPECT_EQ((*root.members().begin()).key(), "a\n");
  EXPECT_EQ(root.Find("a\n").String(), "\xf0\x9f\x98\x80\xc3\xa9/q\v");
  EXPECT_EQ(root.Find("b").String(), "say \"hi\"");
  EXPECT_EQ(root.Find("c").String(), "");
  for (const std::string text : {"plain", "\"\\\b\f\n\r\t\x01\x1f", "\xc3\xa4"}) {
    std::string scratch;
    const std::string json = zotuning::EncodeJsonString(text);
    EXPECT_EQ(zotuning::DecodeJsonString(json, &scratch), text);
    EXPECT_TRUE(JsonDocument("{\"a\":" + json + "}").faults().empty()) << json;
  }
}

TEST(JsonDocument, PositionsCountLinesAndCharacters) {
  const std::string text = "one\r\n\tz\xC3\xA4hl x\n" + std::string(500, 'a') + "!" + std::string(500, 'b');
  const JsonDocument document(text);
  const auto second = document.PositionOf(text.find('x'));
  EXPECT_EQ(second.line, 2);
  EXPECT_EQ(second.column, 7);
  EXPECT_EQ(second.excerpt, " z\xC3\xA4hl x");
  EXPECT_EQ(second.excerpt_column, 7);
  const auto third = document.PositionOf(text.find('!'));
  EXPECT_EQ(third.line, 3);
  EXPECT_EQ(third.column, 501);
  EXPECT_LE(third.excerpt.size(), 80u);
  EXPECT_EQ(third.excerpt[static_cast<size_t>(third.excerpt_column) - 1], '!');
  EXPECT_EQ(document.PositionOf(text.size() + 9).line, 3);
  EXPECT_EQ(JsonDocument().PositionOf(0).column, 1);

  // Across the boundaries of the line index.
  std::string large;
  while (large.size() < 300000) large += large.size() % 7 == 0 ? "\n" : "\xC3\xA4";
  const JsonDocument larger(large);
  int line = 1, column = 1;
  for (size_t i = 0; i < large.size(); ++i) {
    const bool begins = (large[i] & 0xC0) != 0x80;
    if (begins && i % 4096 < 2) {
      EXPECT_EQ(larger.PositionOf(i).line, line) << i;
      EXPECT_EQ(larger.PositionOf(i).column, column) << i;
    }
    column = large[i] == '\n' ? 1 : column + (begins ? 1 : 0);
    line += large[i] == '\n' ? 1 : 0;
  }
}

TEST(JsonPath, PrintsParsesAndFinds) {
  const JsonDocument document(
      R"({"zones": [{"weight": {"value": 1}}, {"weight": {"value": 2}}], "odd name": {"": [[3]]},
      "dup": 4, "d\"q": 5, "dup": 6})");
  const struct {
    const char* path;
    const char* value;  ///< null if there is none
  } rows[] = {
      {"zones[1].weight.value", "2"},
      {"zones[1]", "{\"weight\": {\"value\": 2}}"},
      {"[\"odd name\"][\"\"][0][0]", "3"},
      {"[\"d\\\"q\"]", "5"},
      {"dup", "6"},
      {"zones[2]", nullptr},
      {"zones.weight", nullptr},
      {"dup[0]", nullptr},
  };
  for (const auto& row : rows) {
    const auto path = JsonPath::Parse(row.path);
    ASSERT_TRUE(path.has_value()) << row.path;
    EXPECT_EQ(path->ToString(), row.path);
    const JsonValue value = path->Find(document.root());
    ASSERT_EQ(static_cast<bool>(value), row.value != nullptr) << row.path;
    if (!value) continue;
    EXPECT_EQ(value.raw(), row.value);
    EXPECT_EQ(JsonPath::Of(value).ToString(), row.path);
    EXPECT_EQ(document.ValueAt(value.end() - 1), value) << row.path;
  }
  EXPECT_EQ(document.ValueAt(document.text().find("weight")),
            JsonPath::Parse("zones[0].weight")->Find(document.root()));
  EXPECT_EQ(JsonPath::Of(document.root()).ToString(), "");
  for (const char* wrong : {".a", "a.", "a[", "a[x]", "a[1", "a[-1]", "[\"a", "a b", "a[1]b", "a..b"}) {
    std::string why;
    EXPECT_FALSE(JsonPath::Parse(wrong, &why).has_value()) << wrong;
    EXPECT_NE(why, "") << wrong;
  }
}

}  // namespace
}  // namespace zotest
