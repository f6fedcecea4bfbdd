// Checks of JSON texts beside protobuf's parser, whose verdict packing goes by.

#include "workspace/check_json.h"

#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/util/json_util.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "transcode/differential.h"
#include "transcode/example_files.h"
#include "transcode/fallback_cases.h"
#include "transcode/random_json.h"

namespace zotest {
namespace {

using google::protobuf::Descriptor;
using zotuning::CheckFit;
using zotuning::CheckText;
using zotuning::Code;
using zotuning::CollectingSink;
using zotuning::Diagnostic;
using zotuning::FitOptions;
using zotuning::JsonDocument;
using zotuning::Severity;

std::vector<Diagnostic> Check(const std::string& text, const Descriptor* type, const FitOptions& options = {}) {
  CollectingSink sink;
  const JsonDocument document(text);
  CheckText(document, "file.json", sink);
  CheckFit(document, type, options, "file.json", sink);
  return sink.Take();
}

std::string Listing(const std::vector<Diagnostic>& diagnostics) {
  std::ostringstream out;
  for (const Diagnostic& d : diagnostics) {
    out << (d.severity == Severity::kError ? "error " : "warning ") << Name(d.code) << ' ' << d.line << ':' << d.column
        << ' ' << d.path << ": " << d.message << " (" << d.hint << ")\n";
  }
  return out.str();
}

/// Errors that are about what the text says, not about whether protobuf takes it.
bool IsStricter(const Diagnostic& diagnostic) {
  static const std::set<Code> stricter = {Code::kJsonDuplicateKey, Code::kJsonSameField,    Code::kJsonNull,
                                          Code::kJsonNestedList,   Code::kJsonMissingField, Code::kJsonMissingValue,
                                          Code::kJsonEmptyList,    Code::kJsonRange};
  // In elements of a list protobuf takes a key without letters.
  const bool no_name = diagnostic.code == Code::kJsonUnknownKey && diagnostic.path.find("[\"\"]") != std::string::npos;
  // Types with a JSON form of their own it takes as plain messages too.
  const bool built_in = diagnostic.message.find(" google.protobuf.") != std::string::npos;
  return no_name || built_in || stricter.count(diagnostic.code) > 0;
}

class AgreementTest : public testing::Test {
 protected:
  void Compare(const Descriptor* type, const std::string& text, bool completeness = false) {
    if (differences_ >= 5) return;
    FitOptions options;
    options.completeness = completeness;
    const std::vector<Diagnostic> found = Check(text, type, options);
    const bool errors =
        std::any_of(found.begin(), found.end(), [](const Diagnostic& d) { return d.severity == Severity::kError; });
    google::protobuf::util::JsonParseOptions parse;
    const std::unique_ptr<google::protobuf::Message> message(factory_.GetPrototype(type)->New());
    const auto status = google::protobuf::util::JsonStringToMessage(text, message.get(), parse);
    refused_ += status.ok() ? 0 : 1;
    clean_ += errors ? 0 : 1;
    std::string difference;
    if (!errors && !status.ok()) difference = "no error, but protobuf says: " + std::string(status.message());
    for (const Diagnostic& d : found) {
      // Hexadecimal numbers with a point or exponent, and "-.5", which it takes by the locale.
      const bool odd_number =
          d.code == Code::kJsonNumber && (text.find("0x") != std::string::npos || text.find("-.") != std::string::npos);
      if (!status.ok() || d.severity != Severity::kError || IsStricter(d) || odd_number) continue;
      difference = "protobuf takes it, but:";
    }
    if (difference.empty()) return;
    ++differences_;
    ADD_FAILURE() << difference << '\n' << Listing(found) << text.substr(0, 3000) << '\n' << type->DebugString();
  }

  google::protobuf::DynamicMessageFactory factory_;
  size_t refused_ = 0;
  size_t clean_ = 0;

 private:
  int differences_ = 0;
};

class ExampleAgreementTest : public AgreementTest {
 protected:
  const ExampleFiles example_;
};

TEST_F(ExampleAgreementTest, FilesAreClean) {
  ASSERT_GT(example_.texts.size(), 30U);
  for (const auto& [type, text] : example_.texts) EXPECT_EQ(Listing(Check(text, type)), "") << type->full_name();
}

TEST_F(ExampleAgreementTest, FilesWithFaults) {
  Random random(11);
  for (int round = 0; round < 2000; ++round) {
    auto [type, text] = random.Pick(example_.texts);
    if (text.size() > 6000 && !random.OneIn(20)) continue;  // small files hold most faults as well
    for (size_t i = random.Below(3); i < 3; ++i) text = Damage(text, random);
    Compare(type, text, round % 2 == 0);
  }
  EXPECT_GT(refused_, 500U);
  EXPECT_GT(clean_, 50U);
}

TEST_F(AgreementTest, RandomSchemasAndTexts) {
  Random random(12);
  size_t schemas = 0;
  for (int round = 0; round < 300; ++round) {
    const TextSchema schema(SchemaMaker(random).Text());
    if (schema.file() == nullptr) continue;
    ++schemas;
    const Descriptor* type = schema.Type("Module");
    JsonMaker maker(random);
    for (int i = 0; i < 12; ++i) {
      std::string text = maker.Text(type);
      if (text.size() > 8000) continue;
      Compare(type, text);
      for (size_t faults = 1 + random.Below(3); faults > 0; --faults) text = Damage(text, random);
      Compare(type, text);
    }
    // Messages of a type must not outlive its schema.
    factory_.~DynamicMessageFactory();
    new (&factory_) google::protobuf::DynamicMessageFactory();
  }
  EXPECT_GT(schemas, 150U);
  EXPECT_GT(refused_, 500U);
  EXPECT_GT(clean_, 500U);
}

// Types with every kind of field, also those that packing has no use for.
constexpr char kEverything[] = R"(syntax = "proto3";
  import "google/protobuf/any.proto";
  import "google/protobuf/duration.proto";
  import "google/protobuf/field_mask.proto";
  import "google/protobuf/struct.proto";
  import "google/protobuf/timestamp.proto";
  import "google/protobuf/wrappers.proto";
  enum Kind { option allow_alias = true; Kind_Zero = 0; Kind_One = 1; Kind_Uno = 1; Kind_Minus = -1; }
  message Sub { float value = 1; Sub sub = 2; int32 count = 5; map<string, Sub> subs = 6; }
  message Module {
    float f = 1; double d = 2; int32 i = 3; uint32 u = 4; int64 l = 5; uint64 ul = 6; bool b = 7; string s = 8;
    bytes y = 9; Kind e = 10; Sub sub = 11; repeated float rf = 12; repeated Sub rsub = 13; int32 two_words = 14;
    repeated string rs = 15; optional float of = 16; oneof one { int32 o1 = 17; int32 o2 = 18; Sub o3 = 20; }
    repeated Kind re = 19; int32 swap_a = 21 [json_name = "swap_b"]; int32 swap_b = 22 [json_name = "other"];
    map<string, int32> m = 23; map<int32, Sub> mi = 24; map<bool, Kind> mb = 25; map<uint64, double> ml = 26;
    repeated int64 rl = 30; optional string os = 31; google.protobuf.NullValue n = 32;
    repeated google.protobuf.NullValue rn = 33; google.protobuf.Timestamp time = 40;
    google.protobuf.Duration span = 41; google.protobuf.FieldMask mask = 42; google.protobuf.Struct any_struct = 43;
    google.protobuf.Value any_value = 44; google.protobuf.ListValue any_list = 45;
    repeated google.protobuf.Value any_values = 46; google.protobuf.Int32Value boxed = 47;
    repeated google.protobuf.StringValue boxes = 48; google.protobuf.Any any = 49;
    map<string, google.protobuf.Value> mv = 50; repeated google.protobuf.ListValue lists = 51;
  })";
constexpr char kEverythingElse[] = R"(syntax = "proto2";
  enum Kind { Kind_One = 1; Kind_Minus = -1; }
  message Sub { required float value = 1; optional Sub sub = 2; optional int32 count = 5; }
  message Module {
    required int32 i = 3; optional float f = 1; required Sub sub = 11; repeated Sub rsub = 13; optional Kind e = 10;
    repeated Kind re = 19; optional group Inner = 21 { required string s = 1; } optional Sub rule = 22;
    repeated group Outer = 23 { optional int32 i = 1; } map<string, Sub> m = 24; extensions 100 to 200;
  })";

TEST_F(AgreementTest, EveryKindOfField) {
  Random random(13);
  std::vector<std::string> cases = {
      R"({"time":"2024-01-01T00:00:00Z","span":"1.5s","mask":"a,b","any_struct":{"a":[1,{"b":null}]}})",
      R"({"any_value":null,"any_values":[null,1,[2,[3]],{"a":1}],"any_list":[[1],2],"boxed":3,"boxes":["a"]})",
      R"({"mi":{"1":{"value":1},"2":{}},"mb":{"true":"Kind_One","false":0},"ml":{"18446744073709551615":1}})",
      R"({"any":{"@type":"type.googleapis.com/Sub","value":1.5},"mv":{"a":null,"b":[1],"c":{"d":1}},"lists":[[1],[]]})",
      R"({"time":"yesterday"})",
      R"({"span":1})",
      R"({"any_list":{}})",
      R"({"boxed":"x"})",
      R"({"mi":{"x":{}}})",
      R"({"mb":{"maybe":0}})",
      R"({"m":{"a":1,"\u0061":2}})",
      R"({"m":[{"key":"a"}]})",
      R"({"boxes":[null,[]]})",
      R"({"sub":{"subs":{"a":{"subs":{"b":{"value":"high"}}}}}})",
      R"({"o1":1,"o3":{}})",
      R"({"o1":1,"o3":null})",
      R"({"i":1,"sub":{"value":1},"inner":{"s":"x"},"outer":[{"i":1}]})",
      R"({"i":1,"sub":{}})",
      R"({"i":1,"sub":null})",
      R"({"i":1,"sub":{"value":1},"rule":{}})",
      R"({"i":1,"sub":{"value":1},"m":{"a":{}}})",
      R"({"i":1})",
      R"({"i":1,"sub":{"value":1},"inner":{}})",
      R"({"i":1,"sub":{"value":1},"inner":[]})"};
  for (const FallbackCase& each : FallbackCases()) cases.push_back(each.text);
  for (const size_t depth : {30, 98, 99, 100, 101, 200}) {
    for (const std::string step : {"{\"sub\":", "{\"subs\":{\"a\":", "{\"rsub\":[[", "{\"any_struct\":{\"a\":["}) {
      std::string text, end;
      for (size_t i = 0; i < depth; ++i) text += i == 0 || step[2] == 's' ? step : "{\"a\":[";
      for (auto c = text.rbegin(); c != text.rend(); ++c) end += *c == '{' ? "}" : *c == '[' ? "]" : "";
      cases.push_back(text + (text.back() == ':' ? "{}" : "") + end);
    }
  }
  for (const char* source : {kEverything, kEverythingElse}) {
    const TextSchema schema(source);
    ASSERT_EQ(schema.errors(), "");
    const Descriptor* type = schema.Type("Module");
    JsonMaker maker(random);
    for (const std::string& text : cases) {
      Compare(type, text);
      for (int i = 0; i < 4; ++i) Compare(type, Damage(text, random));
    }
    for (int i = 0; i < 500; ++i) {
      std::string text = maker.Text(type);
      for (size_t faults = random.Below(4); faults > 0; --faults) text = Damage(text, random);
      if (text.size() < 20000) Compare(type, text);
    }
    factory_.~DynamicMessageFactory();
    new (&factory_) google::protobuf::DynamicMessageFactory();
  }
  EXPECT_GT(refused_, 1000U);
  EXPECT_GT(clean_, 200U);
}

// ---- What is found, and where ----

constexpr char kSchema[] = R"(syntax = "proto3";
  enum Mode { MODE_OFF = 0; MODE_AUTO = 1; MODE_MANUAL = 2; }
  message FloatRule { string description = 1; string recommend = 2; }
  message FloatData { float value = 1; FloatRule rule = 2; }
  message Int32Rule { string description = 1; string recommend = 2; }
  message Int32Data { int32 value = 1; Int32Rule rule = 2; }
  message FloatArrayRule { string description = 1; string recommend = 2; int32 order = 3; string len = 4; }
  message FloatArrayData { repeated float value = 1; FloatArrayRule rule = 2; }
  message FloatArrayRule_2D { string description = 1; string recommend = 2; string row = 3; string col = 4; }
  message FloatRow { repeated float value = 1; }
  message Table { repeated FloatRow value = 1; FloatArrayRule_2D rule = 2; }
  message FlatTable { repeated float value = 1; FloatArrayRule_2D rule = 2; }
  message StructArrayRule { string description = 1; string recommend = 2; string len = 3; }
  message Zone { FloatData weight = 1; FloatArrayData radius = 2; Mode mode = 3; }
  message Node { Node child = 1; int32 depth = 2; }
  message Module {
    reserved "old_gain";
    FloatData gain = 1; Mode mode = 2; repeated Zone zones = 3; StructArrayRule zones_rule = 4; Table table = 5;
    FlatTable flat = 6; Int32Data macro_code = 7; uint64 line_time_ns = 8; Node tree = 9; string description = 10;
    repeated int32 steps = 11; bool enabled = 12;
  })";

constexpr char kText[] = R"({
 "gain": {"value": 1.5, "rule": {"description": "[Float]", "recommend": "0..2"}},
 "mode": "MODE_OFF",
 "zones": [
  {"weight": {"value": 1}, "radius": {"value": [1, 2], "rule": {"len": "2", "recommend": "0..5"}}, "mode": "MODE_AUTO"}
 ],
 "zones_rule": {"description": "[Repeated]", "recommend": "1..4", "len": "1"},
 "table": {"value": [{"value": [1, 2]}, {"value": [3, 4]}], "rule": {"row": "2", "col": "2", "recommend": "-1..10"}},
 "flat": {"value": [1, 2, 3, 4], "rule": {"row": "2", "col": "2"}},
 "macro_code": {"value": 7, "rule": {}},
 "line_time_ns": "12",
 "tree": {"child": {"depth": 2}, "depth": 1},
 "steps": [1, 2],
 "enabled": true
}
)";

/// "code line:column path" of each, errors with a "!".
std::string Brief(const std::vector<Diagnostic>& diagnostics) {
  std::string brief;
  for (const Diagnostic& d : diagnostics) {
    brief += (brief.empty() ? "" : "; ") + std::string(Name(d.code)) + (d.severity == Severity::kError ? "! " : " ") +
             std::to_string(d.line) + ':' + std::to_string(d.column) + (d.path.empty() ? "" : " " + d.path);
  }
  return brief;
}

struct Change {
  const char* from;  ///< in kText, once
  const char* to;
  const char* found;
};

std::string Changed(const Change& change) {
  std::string text = kText;
  const size_t at = text.find(change.from);
  EXPECT_NE(at, std::string::npos) << change.from;
  return text.replace(at, std::string(change.from).size(), change.to);
}

// clang-format off
constexpr Change kChanges[] = {
    {"{", "{", ""},
    // Keys.
    {"\"mode\": \"MODE_OFF\"", "\"mdoe\": \"MODE_OFF\"", "json-unknown-key! 3:2 mdoe"},
    {"\"recommend\": \"0..2\"", "\"recomend\": \"0..2\"", "json-unknown-key! 2:60 gain.rule.recomend"},
    {"\"enabled\": true", "\"enabled\": true, \"old_gain\": 1", "json-unknown-key! 14:19 old_gain"},
    {"\"line_time_ns\"", "\"lineTimeNs\"", "json-camel-case 11:2 lineTimeNs"},
    {"\"line_time_ns\": \"12\"", "\"line_time_ns\": \"12\", \"lineTimeNs\": 3", "json-same-field! 11:24 lineTimeNs"},
    {"\"line_time_ns\": \"12\"", "\"line_time_ns\": \"12\", \"mode\": 1", "json-duplicate-key! 11:24 mode"},
    {"\"value\": [3, 4]", "\"value\": [3, 4], \"v\\u0061lue\": []", "json-duplicate-key! 8:59 table.value[1].value"},
    // Types and ranges.
    {"1.5", "\"high\"", "json-misfit! 2:20 gain.value"},
    {"1.5", "true", "json-misfit! 2:20 gain.value"},
    {"1.5", "[1.5]", "json-misfit! 2:20 gain.value"},
    {"1.5", "{}", "json-misfit! 2:20 gain.value"},
    {"1.5", "\"1.5\"", "json-string-for-number 2:20 gain.value"},
    {"1.5", "\"nan\"", "json-misfit! 2:20 gain.value"},
    {"1.5", "NaN", "json-number! 2:20 gain.value"},
    {"1.5", "\"NaN\"", "rule-not-finite 2:20 gain.value"},
    {"1.5", "null", "json-null! 2:20 gain.value"},
    {"\"gain\": {", "\"gain\": 5, \"x\": {", "json-misfit! 2:10 gain; json-unknown-key! 2:13 x"},
    {": 7,", ": 1e99,", "json-range! 10:26 macro_code.value"},
    {": 7,", ": 2147483648,", "json-range! 10:26 macro_code.value"},
    {": 7,", ": 1.5,", "json-misfit! 10:26 macro_code.value"},
    {": 7,", ": 7.0,", ""},
    {": 7,", ": \"7\",", "json-string-for-number 10:26 macro_code.value"},
    {"\"12\"", "-1", "json-range! 11:18 line_time_ns"},
    {"\"12\"", "\"18446744073709551616\"", "json-range! 11:18 line_time_ns"},
    {"\"12\"", "9007199254740993.0", "json-range! 11:18 line_time_ns"},
    {"\"steps\": [1, 2]", "\"steps\": 1", "json-not-a-list 13:11 steps"},
    {"\"steps\": [1, 2]", "\"steps\": [1, null]", "json-null! 13:15 steps[1]"},
    {"\"steps\": [1, 2]", "\"steps\": [[1], 2]", "json-nested-list! 13:12 steps[0]"},
    {"\"steps\": [1, 2]", "\"steps\": null", "json-null! 13:11 steps"},
    {"\"steps\": [1, 2]", "\"steps\": []", ""},
    {"true", "1", "json-misfit! 14:13 enabled"},
    {"true", "\"yes\"", "json-string-for-number 14:13 enabled"},
    {"MODE_OFF", "MODE_OF", "json-enum! 3:10 mode"},
    {"MODE_OFF", "mode_off", "json-enum! 3:10 mode"},
    {"\"MODE_OFF\"", "1", ""},
    {"\"MODE_OFF\"", "\"1\"", "json-string-for-number 3:10 mode"},
    {"\"MODE_OFF\"", "77", "json-enum-number 3:10 mode"},
    // Completeness: the object that lacks something, wherever another one has it.
    {" \"mode\": \"MODE_OFF\",\n", "", "json-missing-field! 1:1 mode"},
    {", \"mode\": \"MODE_AUTO\"}", "}, {}", "rule-length 4:11 zones; json-missing-field! 5:3 zones[0].mode; "
        "json-missing-field! 5:101 zones[1].weight; json-missing-field! 5:101 zones[1].radius; json-missing-field! 5:101 zones[1].mode"},
    {"\"value\": 1.5, ", "", "json-missing-value! 2:10 gain.value"},
    {"\"description\": \"[Float]\", ", "", ""},
    {", \"rule\": {}", "", ""},
    {"{\"value\": [3, 4]}", "{}", "json-missing-field! 8:41 table.value[1].value"},
    {"{\"depth\": 2}", "{}", "json-missing-field! 12:20 tree.child.depth"},
    // Rules.
    {"1.5", "2.5", "rule-range 2:20 gain.value"},
    {"[1, 2], \"rule\"", "[1, 9], \"rule\"", "rule-range 5:52 zones[0].radius.value[1]"},
    {"[1, 2], \"rule\"", "[1, 2, 3], \"rule\"", "rule-length 5:48 zones[0].radius.value"},
    {"\"len\": \"2\"", "\"len\": \"-1\"", ""},
    {"\"len\": \"2\"", "\"len\": \"two\"", "rule-text 5:72 zones[0].radius.rule.len"},
    {"\"0..2\"", "\"2..0\"", "rule-text 2:73 gain.rule.recommend"},
    {"\"0..2\"", "\"0.. 1\"", "rule-range 2:20 gain.value"},
    {"\"0..2\"", "\"about 1..\"", ""},
    {"\"len\": \"1\"", "\"len\": \"2\"", "rule-length 4:11 zones"},
    {"\"1..4\"", "\"2..4\"", "rule-range 4:11 zones"},
    {"[3, 4]", "[3, 4, 5]", "rule-table 8:51 table.value[1]"},
    {"{\"value\": [3, 4]}", "{\"value\": [3, 4]}, {\"value\": [5, 60]}", "rule-table 8:21 table.value; rule-range 8:74 table.value[2].value[1]"},
    {"\"col\": \"2\", \"rec", "\"col\": \"-1\", \"rec", ""},
    {"[1, 2, 3, 4]", "[1, 2, 3]", "rule-table 9:20 flat.value"},
    {"\"row\": \"2\", \"col\": \"2\"}}", "\"row\": \"-1\", \"col\": \"3\"}}", "rule-table 9:20 flat.value"},
};
// clang-format on

class FaultTest : public testing::Test {
 protected:
  FaultTest() : schema_(kSchema) { EXPECT_EQ(schema_.errors(), ""); }
  const Descriptor* type() const { return schema_.Type("Module"); }
  TextSchema schema_;
};

TEST_F(FaultTest, OneChange) {
  for (const Change& change : kChanges) {
    const std::vector<Diagnostic> found = Check(Changed(change), type());
    EXPECT_EQ(Brief(found), change.found) << change.from << " -> " << change.to << '\n' << Listing(found);
    for (const Diagnostic& d : found) {
      EXPECT_TRUE(d.path.empty() || d.code == Code::kJsonNumber || d.code == Code::kJsonMissingValue ||
                  d.message.find('\'' + d.path + '\'') != std::string::npos)
          << d.message;
      EXPECT_FALSE(d.excerpt.empty());
      EXPECT_TRUE(d.end_line > d.line || (d.end_line == d.line && d.end_column > d.column)) << d.message;
    }
  }
}

TEST_F(FaultTest, WordsAndHints) {
  const struct {
    Change change;
    const char* words;
  } rows[] = {
      {{": 7,", ": 1e99,", ""},
       "invalid value 1e99 for int32 field 'macro_code.value' (int32 goes from -2147483648 to"},
      {{"MODE_OFF", "MODE_OF", ""}, "invalid value \"MODE_OF\" for Mode field 'mode' (did you mean 'MODE_OFF'?)"},
      {{"MODE_OFF", "fast", ""}, "(the values are MODE_OFF, MODE_AUTO, MODE_MANUAL)"},
      {{"1.5", "Infinity", ""}, "(\"Infinity\" is accepted, with the quotes)"},
      {{"1.5", "1,5", ""}, "(write a point: 1.5)"},
      {{"\"enabled\": true", "\"enabeld\": true", ""}, "(did you mean 'enabled'?)"},
      {{"\"enabled\": true", "\"enabled\": true, \"old_gain\": 1", ""}, "the schema reserves this name"},
      {{"\"steps\": [1, 2]", "\"steps\": [1, 2], \"steps\": [3]", ""}, "the first one is in line 13"},
      {{"\"1..4\"", "\"2..4\"", ""}, "'zones' has 1 element, outside of 2..4"},
      {{"1.5, \"rule\"", "1.5, \"rul\"", ""}, "unknown key 'gain.rul'; 'FloatData' has no such field (did you mean"},
  };
  for (const auto& row : rows) {
    const std::string listing = Listing(Check(Changed(row.change), type()));
    EXPECT_NE(listing.find(row.words), std::string::npos) << listing;
  }
}

TEST_F(FaultTest, EmptyListsOfStructures) {
  // Packing searches the text for the names that only an element has.
  std::string text = kText;
  const size_t begin = text.find("[\n"), end = text.find("]", text.find("MODE_AUTO"));
  text.replace(begin, end + 1 - begin, "[]");
  EXPECT_EQ(Brief(Check(text, type())), "json-empty-list! 4:11 zones; rule-length 4:11 zones; rule-range 4:11 zones");
  text.insert(text.find("[Repeated]"), "weight radius ");
  EXPECT_EQ(Brief(Check(text, type())), "json-empty-list 4:11 zones; rule-length 4:11 zones; rule-range 4:11 zones");
  // A row has no name that packing asks for.
  EXPECT_EQ(Brief(Check(Changed({"[{\"value\": [1, 2]}, {\"value\": [3, 4]}]", "[]", ""}), type())),
            "rule-table 8:21 table.value");
}

TEST_F(FaultTest, Options) {
  FitOptions options;
  options.template_rules = true;
  options.rules = false;
  EXPECT_EQ(Brief(Check(Changed({"\"0..2\"", "\"None\"", ""}), type(), options)), "rule-template 2:33 gain.rule");
  options = {};
  options.complete_rules = true;
  EXPECT_EQ(Brief(Check(Changed({"\"description\": \"[Float]\", ", "", ""}), type(), options)).substr(0, 69),
            "rule-missing 1:1 description; rule-missing 2:33 gain.rule.description");
  options = {};
  options.completeness = false;
  EXPECT_EQ(Brief(Check("{}", type(), options)), "");
  options.max_diagnostics = 3;
  EXPECT_EQ(Brief(Check("{\"steps\": [\"a\", \"b\", \"c\", \"d\", \"e\"]}", type(), options)),
            "json-misfit! 1:12 steps[0]; json-misfit! 1:17 steps[1]; json-misfit! 1:22 steps[2]; more-faults 0:0");
}

TEST_F(FaultTest, WhatCouldNotBeReadIsNotMissing) {
  EXPECT_EQ(Brief(Check(Changed({"\"mode\": \"MODE_OFF\",", "\"mode: \"MODE_OFF\",", ""}), type())),
            "json-syntax! 3:2");
  EXPECT_EQ(Brief(Check(Changed({"[1, 2],\n \"enabled\": true\n}", "[1, \"x\"", ""}), type())),
            "json-syntax! 14:1; json-misfit! 13:15 steps[1]");
}

TEST_F(FaultTest, TextsWithoutAType) {
  CollectingSink sink;
  const JsonDocument document("[{\"a\": {\"b\": 1, \"\\u0062\": 2}}, {\"a\": 1}]");
  CheckText(document, "file.json", sink);
  CheckDuplicateKeys(document, "file.json", sink);
  EXPECT_EQ(Brief(sink.diagnostics()), "json-root! 1:1; json-duplicate-key! 1:17 [0].a.b");
  EXPECT_EQ(sink.errors(), 2U);
  EXPECT_EQ(sink.diagnostics()[0].file, "file.json");
}

}  // namespace
}  // namespace zotest
