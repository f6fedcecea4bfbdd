// The hot road against the plain one: whatever it does not call odd, protobuf takes as well, and the bytes and the
// field check agree.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "encode/random_json.h"
#include "encode/roads.h"
#include "support/files.h"

namespace {

using google::protobuf::Descriptor;
using zotest::Random;
using zotest::Roads;
using zotest::TextSchema;

constexpr char kTestDir[] = ZOTUNING_SOURCE_DIR "/tests/encode";
constexpr char kExample[] = ZOTUNING_SOURCE_DIR "/examples/tuning_project";

void ExpectSame(Roads& roads, const std::string& text, bool* encoded = nullptr) {
  const std::string difference = roads.Difference(text, encoded);
  EXPECT_EQ(difference, "") << roads.type()->DebugString() << text.substr(0, 4000);
}

void ExpectEncoded(Roads& roads, const std::string& text) {
  bool encoded = false;
  ExpectSame(roads, text, &encoded);
  EXPECT_TRUE(encoded) << roads.type()->full_name() << " " << text.substr(0, 4000);
}

// ---- The example project ----

/// The types and files of the example project.
class ExampleTest : public testing::Test {
 protected:
  void SetUp() override {
    tree_.MapPath("", std::string(kExample) + "/proto");
    ZoTuningUtils::ImportDescriptors((std::string(kExample) + "/proto").c_str(), importer_);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(kExample)) {
      const std::filesystem::path& path = entry.path();
      if (path.extension() != ".json" || path.parent_path().filename() == "version") continue;
      std::string name;
      ZO_TUNING::ADD_NAMESPACE_TO_CLASSNAME(path.stem().string(), name);
      const Descriptor* type = ZoTuningUtils::GetDescByClassName(importer_, name.c_str());
      ASSERT_NE(type, nullptr) << name;
      if (roads_[type] == nullptr) roads_[type] = std::make_unique<Roads>(type);
      files_.emplace_back(roads_[type].get(), zotest::Read(path.string()));
    }
  }

  google::protobuf::compiler::DiskSourceTree tree_;
  google::protobuf::compiler::Importer importer_{&tree_, nullptr};
  std::map<const Descriptor*, std::unique_ptr<Roads>> roads_;
  std::vector<std::pair<Roads*, std::string>> files_;
};

TEST_F(ExampleTest, FilesAndTemplatesTakeTheHotRoad) {
  ASSERT_GT(files_.size(), 30U);
  for (auto& [roads, text] : files_) {
    ExpectEncoded(*roads, text);
    EXPECT_EQ(roads->Plain(text).missing, "");
  }
  google::protobuf::DynamicMessageFactory factory;
  for (auto& [type, roads] : roads_) {
    const std::unique_ptr<google::protobuf::Message> message(factory.GetPrototype(type)->New());
    std::string text;
    ZO_TUNING::MSG_TO_JSON_STR(message.get(), type, text);
    ExpectEncoded(*roads, text);
  }
}

TEST_F(ExampleTest, FaultsInFiles) {
  Random random(1);
  size_t encoded_count = 0;
  for (int round = 0; round < 6000; ++round) {
    const auto& [roads, file] = random.Pick(files_);
    std::string text = file;
    // A piece of a large file does for most faults.
    if (text.size() > 6000 && !random.OneIn(10)) continue;
    for (size_t i = random.Below(3); i < 3; ++i) text = zotest::Damage(text, random);
    bool encoded = false;
    ExpectSame(*roads, text, &encoded);
    encoded_count += encoded ? 1 : 0;
  }
  EXPECT_GT(encoded_count, 200U);
}

TEST_F(ExampleTest, EveryCutAndEveryByte) {
  const auto smallest = std::min_element(
      files_.begin(), files_.end(), [](const auto& a, const auto& b) { return a.second.size() < b.second.size(); });
  const auto& [roads, text] = *smallest;
  for (size_t i = 0; i < text.size(); ++i) {
    ExpectSame(*roads, text.substr(0, i));
    ExpectSame(*roads, text.substr(i));
    for (const char junk : {'\0', ' ', '"', '\\', ',', ':', '0', '-', '.', '}', ']', '{', '[', '\x7f', '\xff'}) {
      std::string other = text;
      other[i] = junk;
      ExpectSame(*roads, other);
      ExpectSame(*roads, text.substr(0, i) + junk + text.substr(i));
    }
  }
}

// ---- Odd and usual texts ----

constexpr char kOddSchema[] = R"(syntax = "proto3";
  enum Kind { option allow_alias = true; Kind_Zero = 0; Kind_One = 1; Kind_Uno = 1; Kind_Minus = -1; }
  message Leaf { float value = 1; int32 count = 5; }
  message Odd {
    float f = 1; double d = 2; int32 i = 3; uint32 u = 4; int64 l = 5; uint64 ul = 6; bool b = 7; string s = 8; bytes y = 9;
    Kind e = 10; Leaf sub = 11; repeated float rf = 12; repeated Leaf rsub = 13; int32 two_words = 14; repeated string rs = 15;
    optional float of = 16; repeated Kind re = 19;
    repeated int64 rl = 30 [packed = false]; optional string os = 31; }
  // The same with what the hot road has no plan for.
  message Deep { float value = 1; int32 count = 5; Deep sub = 6; }
  message Full {
    float f = 1; double d = 2; int32 i = 3; uint32 u = 4; int64 l = 5; uint64 ul = 6; bool b = 7; string s = 8; bytes y = 9;
    Kind e = 10; Deep sub = 11; repeated float rf = 12; repeated Deep rsub = 13; int32 two_words = 14; repeated string rs = 15;
    optional float of = 16; oneof one { int32 o1 = 17; int32 o2 = 18; } repeated Kind re = 19;
    int32 swap_a = 21 [json_name = "swap_b"]; int32 swap_b = 22 [json_name = "other"]; map<string, int32> m = 23; }
)";

TEST(DifferentialTest, OddTexts) {
  const TextSchema schema(kOddSchema);
  ASSERT_EQ(schema.errors(), "");
  Roads odd(schema.Type("Odd"));
  Roads full(schema.Type("Full"));
  EXPECT_TRUE(odd.planned());
  EXPECT_FALSE(full.planned());
  std::ifstream file(std::string(kTestDir) + "/odd_texts.txt");
  size_t count = 0;
  for (std::string line; std::getline(file, line);) {
    if (line[0] == '#') continue;
    std::string text;
    for (size_t i = line.find(' ') + 1; i < line.size(); ++i) {
      const size_t end = line[i] == '<' ? line.find('>', i) : i;
      if (end == i + 3) text += static_cast<char>(std::stoi(line.substr(i + 1, 2), nullptr, 16));
      if (end == i) text += line[i];
      i = end;
    }
    ++count;
    // A protobuf that reads them otherwise is none that the hot road was made for.
    EXPECT_EQ(full.Plain(text).ok, line.substr(0, 8) == "accepted") << line;
    ExpectSame(odd, text);
    // In the places where the encoder is in a different state: behind other fields, and far from the text's end.
    if (text.size() > 2 && text[0] == '{') {
      ExpectSame(odd, "{\"two_words\": 3, \"rsub\": [{\"value\": 1.5}], " + text.substr(1));
      ExpectSame(odd, text + std::string(100, '\n'));
    }
  }
  EXPECT_GT(count, 250U);
  for (int depth = 90; depth < 110; ++depth) {
    std::string text = "{}";
    for (int i = 0; i < depth; ++i) text = "{\"sub\":" + text + "}";
    ExpectSame(full, text);
  }
}

TEST(DifferentialTest, UsualTextsAreNotOdd) {
  const TextSchema schema(kOddSchema);
  Roads roads(schema.Type("Odd"));
  for (
      const std::string text : {
          R"({})",
          "\r\n\t{ \"i\" : 1 ,\n\n   \"u\"\t:\t2\r\n}\n \t\n",
          R"({"f": 1, "d": -2.5, "i": -2147483648, "u": 4294967295, "b": true, "e": "Kind_One"})",
          R"({"l": "-9223372036854775808", "ul": "9999999999999999999", "rl": [1, "2", 9223372036854775807]})",
          R"({"e": -1, "re": ["Kind_Uno", 0, "Kind_Zero", "Kind_Minus", 1]})",
          R"({"s": "\u003cnone\u003e \u00e9 \u20ac \"\\\/\b\f\n\r\t", "rs": ["", "ö €", "😀", "a"]})",
          R"({"f": -0.0, "d": -0.0, "rf": [0, 0.0, -0.0, 1e-45, 1e-46, 3.4028234663852886e+38, -3.4028234e38, 1E5, 1e+2]})",
          R"({"d": 12345678901234567.0})",
          R"({"d": 1.2345678901234567e+123, "rf": [1.17549435e-38, 1.1754942e-38, 7.00649232e-46, 0.333333343, 16777217]})",
          R"({"d": 1.7976931348623157e308})",
          R"({"d": 4.9406564584124654e-324})",
          R"({"d": 0.3333333333333333333333333333333333333333})",
          R"({"of": 0, "os": "", "i": 0, "s": "", "e": 0, "b": false})",
          R"({"sub": {}, "rsub": [{}, {"count": 1, "value": 0}], "rf": [], "rs": []})",
          R"({"twoWords": 3, "i": 1})",
          R"({"two_words": 3, "sub": {"value": 1}, "i": 1, "f": 0.5})",
      }) {
    ExpectEncoded(roads, text);
  }
}

constexpr const char* kScalarTypes[] = {"bool",     "int32",  "int64",   "uint32",  "uint64",
                                        "sint32",   "sint64", "fixed32", "fixed64", "sfixed32",
                                        "sfixed64", "float",  "double",  "string",  "Kind"};

/// A type "Module" with a field s_T, o_T, r_T and n_T of every scalar type: single, optional, repeated, and not packed.
std::string ScalarSchema(const std::string& syntax) {
  std::string text = "syntax = \"" + syntax + "\"; enum Kind { Kind_One = 0; Two = 1; Minus = -5; } message Module {";
  int number = 300;
  for (const std::string type : kScalarTypes) {
    const std::string single = syntax == "proto3" ? "" : "optional ";
    for (const std::string label : {"s_", "o_", "r_", "n_"}) {
      text += (label == "s_"   ? single
               : label == "o_" ? "optional "
                               : "repeated ") +
              type + " " + label + type + " = " + std::to_string(number -= 3) +
              (label == "n_" && type != "string" ? " [packed = false];" : ";");
    }
  }
  return text + "}";
}

TEST(DifferentialTest, NumbersOfEveryForm) {
  for (const std::string syntax : {"proto3", "proto2"}) {
    const TextSchema schema(ScalarSchema(syntax));
    ASSERT_EQ(schema.errors(), "");
    Roads roads(schema.Type("Module"));
    size_t encoded_count = 0;
    for (const std::string type : kScalarTypes) {
      std::vector<std::string> values(std::begin(zotest::kNumbers), std::end(zotest::kNumbers));
      values.insert(values.end(), std::begin(zotest::kOddities), std::end(zotest::kOddities));
      for (const std::string number : zotest::kNumbers) values.push_back('"' + number + '"');
      for (const std::string& value : values) {
        for (const std::string& text :
             {"{\"s_" + type + "\": " + value + "}", "{\"o_" + type + "\":" + value + " }",
              "{\"r_" + type + "\": [" + value + "," + value + "]}", "{\"n_" + type + "\": [" + value + "\n]}"}) {
          bool encoded = false;
          ExpectSame(roads, text, &encoded);
          encoded_count += encoded ? 1 : 0;
        }
      }
    }
    EXPECT_GT(encoded_count, 1000U);
  }
}

// ---- Schemas ----

TEST(DifferentialTest, TypesWithoutAPlan) {
  for (const std::string body : {
           "oneof one { int32 a = 1; string b = 2; }",
           "map<string, int32> a = 1;",
           "repeated Module a = 1;",
           "message Other { Module a = 1; } Other a = 1; int32 b = 2;",
           "google.protobuf.FloatValue a = 1;",
           "google.protobuf.Struct a = 1; ",
           "repeated google.protobuf.Timestamp a = 1;",
           "google.protobuf.Any a = 1;",
       }) {
    const TextSchema schema(
        "syntax = \"proto3\"; import \"google/protobuf/wrappers.proto\"; import \"google/protobuf/any.proto\";"
        "import \"google/protobuf/struct.proto\"; import \"google/protobuf/timestamp.proto\";"
        "message Module { " +
        body + "} message Around { repeated Module m = 1; }");
    ASSERT_EQ(schema.errors(), "");
    for (const std::string name : {"Module", "Around"}) EXPECT_FALSE(Roads(schema.Type(name)).planned()) << body;
  }
  for (const std::string body : {"required int32 a = 1;", "optional group A = 1 { optional int32 b = 1; }",
                                 "message Inner { required int32 a = 1; } optional Inner a = 1;"}) {
    const TextSchema schema("syntax = \"proto2\"; message Module { " + body + "}");
    ASSERT_EQ(schema.errors(), "");
    EXPECT_FALSE(Roads(schema.Type("Module")).planned()) << body;
  }
}

/// A schema and texts of its type "Module", each of which one of the two roads might read otherwise.
struct SchemaRow {
  const char* schema;
  std::vector<std::string> texts;
};

TEST(DifferentialTest, KeysAndTypesThatMislead) {
  const SchemaRow rows[] = {
      // A json_name that is the name of another field wins, wherever the key stands.
      {R"(syntax = "proto3"; message Module { int32 a = 1 [json_name = "b"]; int32 b = 2 [json_name = "c"]; })",
       {R"({"a": 1, "b": 5})", R"({"a": 1,"b":5})", R"({"b":5})", R"({"b":5,"c":6})", R"({"a":1,"c":6})",
        R"({"c":6,"a":1})"}},
      {R"(syntax = "proto3"; message Module { int32 a = 1 [json_name = "b"]; int32 b = 2 [json_name = "a"]; })",
       {R"({"a":1,"b":5})", R"({"b":1,"a":5})", R"({"a":1})", R"({"b":1})"}},
      // Keys that protobuf treats in ways of their own, or that are no UTF-8.
      {R"(syntax = "proto3"; message Part { int32 a = 1 [json_name = ""]; int32 value = 2 [json_name = "@type"]; }
          message Module { repeated Part parts = 1; Part part = 2; int32 b = 3 [json_name = "\377"];
                           int32 c = 4 [json_name = "\303\266"]; int32 d = 5 [json_name = "x\"y"]; })",
       {R"({"parts":[{"":3}]})", R"({"part":{"":3}})", R"({"part":{"@type":3}})", "{\"\xff\":3}", "{\"\xc3\xb6\":3}",
        R"({"x"y":3})", R"({"x\"y":3})", R"({"":3})"}},
      // The enum that stands for null.
      {R"(syntax = "proto3"; import "google/protobuf/struct.proto";
          message Module { google.protobuf.NullValue n = 1; repeated google.protobuf.NullValue r = 2;
                           optional google.protobuf.NullValue o = 3; })",
       {R"({"n":null,"r":[null]})", R"({"n":"NULL_VALUE","r":["NULL_VALUE",0],"o":0})", R"({"o":"NULL_VALUE"})",
        R"({"n":0})", R"({"n":1})", R"({"r":[1]})"}},
      // Rules of odd kinds, and what pruning creates on the way down.
      {R"(syntax = "proto3"; package P;
          message FloatData { repeated int32 rule = 9; float value = 1; }
          message BoolData { string rule = 3; message Flag { int32 rule = 1; FloatData data = 2; } Flag flag = 2; bool value = 1; }
          message Int32Data { int32 value = 1; }
          message StructArrayRule { FloatData f = 1; string len = 3; }
          message Level { BoolData b = 4; StructArrayRule r = 3; Int32Data rule = 2; repeated StructArrayRule rr = 1; }
          message Module { Level high = 1000; FloatData f = 70; Level low = 5; repeated Level levels = 6; StructArrayRule x = 2; })",
       {R"({})", R"({"f": {"rule": [1, 2], "value": 1.5}, "high": {}})",
        R"({"low": {"b": {"rule": "x", "flag": {"rule": 3, "data": {"rule": [1], "value": 2}}, "value": true}, "r": {"f": {}}}})",
        R"({"levels": [{"b": {"rule": "kept", "flag": {}}, "r": {"f": {"rule": [3]}}, "rr": [{"len": "3"}], "rule": {}}, {}]})",
        R"({"x": {"f": {"rule": [1]}}, "low": {"rr": [{}, {"f": {}}], "rule": {"value": 3}}})",
        R"({"f": {"rule": [1, true]}})", R"({"x": {"len": 3}})", R"({"f": {"rule": "\ud800"}})",
        R"({"x": {"nope": 3}})"}},
      // Closed enums and defaults of their own.
      {R"(syntax = "proto2"; enum Kind { Five = 5; Six = 6; }
          message Module { optional Kind k = 1 [default = Six]; repeated Kind r = 2; repeated Kind p = 3 [packed = true];
                           optional int32 i = 4 [default = 7]; optional string s = 5 [default = "x"]; extensions 100 to 200; })",
       {R"({"k":"Five"})", R"({"k":6,"i":7,"s":"x"})", R"({"k":0})", R"({"r":[5,7,6]})", R"({"p":[5,"Six"],"r":[6]})",
        R"({"p":[1]})", R"({"i":0,"s":""})"}},
  };
  for (const SchemaRow& row : rows) {
    const TextSchema schema{std::string(row.schema)};
    ASSERT_EQ(schema.errors(), "");
    const Descriptor* type = schema.Type("Module") != nullptr ? schema.Type("Module") : schema.Type("P.Module");
    Roads roads(type);
    for (const std::string& text : row.texts) ExpectSame(roads, text);
  }
}

TEST(DifferentialTest, LengthsOfOneAndMoreBytes) {
  const TextSchema schema(R"(syntax = "proto3"; message Inner { string s = 1; repeated uint32 p = 2; }
                             message Module { repeated Inner m = 1; repeated string r = 2; })");
  Roads roads(schema.Type("Module"));
  // The room that is left for a length is that of the last one; each of these needs another.
  std::string text;
  for (const size_t size : {1, 127, 128, 3, 16383, 16384, 200, 2, 2097152, 5, 0, 300}) {
    const std::string content(size, 'x');
    std::string list;
    for (size_t i = 0; i < size && i < 40000; ++i) list += i == 0 ? "1" : ",200";
    text +=
        (text.empty() ? "" : ",") + ("{\"p\":[" + list + "],\"s\":\"" + content + "\"},{\"s\":\"" + content + "\"}");
  }
  ExpectEncoded(roads, "{\"m\":[" + text + "]}");
}

TEST(DifferentialTest, RandomSchemasAndTexts) {
  size_t schema_count = 0;
  size_t planned_count = 0;
  size_t encoded_count = 0;
  for (uint64_t seed = 0; seed < 400; ++seed) {
    Random random(seed);
    const TextSchema schema(zotest::SchemaMaker(random).Text());
    if (!schema.errors().empty()) continue;
    ++schema_count;
    Roads roads(schema.Type("Module"));
    if (!roads.planned()) continue;
    ++planned_count;
    zotest::JsonMaker maker(random);
    for (int i = 0; i < 40; ++i) {
      std::string text = maker.Text(roads.type());
      if (random.OneIn(4)) text = zotest::Damage(text, random);
      SCOPED_TRACE(seed);
      bool encoded = false;
      ExpectSame(roads, text, &encoded);
      encoded_count += encoded ? 1 : 0;
    }
  }
  EXPECT_GT(schema_count, 200U);
  EXPECT_GT(planned_count, 120U);
  EXPECT_GT(encoded_count, 2500U);
}

}  // namespace
