// The canonical form: what it looks like, that it never changes what is packed, and that it is stable.

#include "workspace/format.h"

#include <google/protobuf/stubs/logging.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "json/default_data.h"
#include "support/files.h"
#include "transcode/differential.h"
#include "transcode/random_json.h"
#include "workspace/project.h"

namespace zotest {
namespace {

using zotuning::JsonDocument;

constexpr char kSchema[] = R"(syntax = "proto3";
  message Rule { string description = 1; string recommend = 2; }
  message FloatRule_2D { string description = 1; string row = 2; string col = 3; }
  message Row { repeated float value = 1; }
  message Flat { repeated float value = 1; FloatRule_2D rule = 2; }
  message Rows { FloatRule_2D rule = 1; repeated Row value = 2; }
  message Gain { float value = 1; Rule rule = 2; }
  message Zone { Gain weight = 1; string name = 2; }
  message Module { Gain gain = 1; Flat flat = 2; Rows rows = 3; repeated Zone zones = 4; repeated int32 codes = 5;
    repeated string names = 6; int32 two_words = 7; map<string, Zone> by_name = 8; }
)";

std::string Formatted(const std::string& text, const google::protobuf::Descriptor* type) {
  return zotuning::FormatJson(JsonDocument(text), type).value_or("refused");
}

TEST(Format, IsOneForm) {
  const TextSchema schema(kSchema);
  const auto* type = schema.Type("Module");
  const std::string numbers = "1.50,2e2,3";
  std::string long_list = "0";
  for (int i = 1; i < 34; ++i) long_list += ", " + std::to_string(i);
  const struct {
    std::string text, form;
  } rows[] = {
      {"{}", "{}\n"},
      {"\n{\"gain\":{\"rule\":{},\"value\":1}}", "{\n \"gain\": {\n  \"value\": 1,\n  \"rule\": {}\n }\n}\n"},
      // Unknown keys last, duplicates in their order, however they are spelled.
      {"{\"twoWords\":1,\"x\":2,\"gain\":null,\"two_words\":3,\"a\":4}",
       "{\n \"gain\": null,\n \"twoWords\": 1,\n \"two_words\": 3,\n \"x\": 2,\n \"a\": 4\n}\n"},
      // Lists: short ones on one line, long ones by ten, words one by one.
      {"{\"codes\":[\n" + numbers + "\n]}", "{\n \"codes\": [1.50, 2e2, 3]\n}\n"},
      {"{\"codes\":[" + long_list + "]}",
       "{\n \"codes\": [\n  0, 1, 2, 3, 4, 5, 6, 7, 8, 9,\n  10, 11, 12, 13, 14, 15, 16, 17, 18, 19,\n"
       "  20, 21, 22, 23, 24, 25, 26, 27, 28, 29,\n  30, 31, 32, 33\n ]\n}\n"},
      {"{\"names\":[\"" + std::string(50, 'a') + "\",\"" + std::string(50, 'b') + "\"]}",
       "{\n \"names\": [\n  \"" + std::string(50, 'a') + "\",\n  \"" + std::string(50, 'b') + "\"\n ]\n}\n"},
      // Tables, one row to a line, in either form of a table.
      {"{\"flat\":{\"value\":[1,2,3,4,5],\"rule\":{\"col\":\"2\"}}}",
       "{\n \"flat\": {\n  \"value\": [\n   1, 2,\n   3, 4,\n   5\n  ],\n  \"rule\": {\n   \"col\": \"2\"\n  }\n }\n}\n"},
      {"{\"rows\":{\"value\":[{\"value\":[1,2]},{\"value\":3},{}]}}",
       "{\n \"rows\": {\n  \"value\": [\n   {\"value\": [1, 2]},\n   {\"value\": 3},\n   {}\n  ]\n }\n}\n"},
      {"{\"codes\":[[1,2],[3],[[4]],5]}", "{\n \"codes\": [\n  [1, 2],\n  [3],\n  [\n   [4]\n  ],\n  5\n ]\n}\n"},
      {"{\"zones\":[{\"name\":\"x\",\"weight\":{}}],\"by_name\":{\"z\":{\"name\":\"\"},\"a\":{}}}",
       "{\n \"zones\": [\n  {\n   \"weight\": {},\n   \"name\": \"x\"\n  }\n ],\n \"by_name\": {\n  \"z\": {\n   \"name\": "
       "\"\"\n  },\n  \"a\": {}\n }\n}\n"},
      // What only protobuf's parser accepts.
      {"{'gain':{value:1.,},\"codes\":[00.5,-00.25e1,1.E5,-0.,],}\f",
       "{\n \"gain\": {\n  \"value\": 1.0\n },\n \"codes\": [0.5, -0.25e1, 1.0E5, -0.0]\n}\n"},
      {"{'names':['a\"\\'\\q\\v\\u00e9\\ud83d\\ude00\\\\\\\"\n\t\x01',\"\\/\"]}",
       "{\n \"names\": [\"a\\\"'q\\u000b\\u00e9\\ud83d\\ude00\\\\\\\"\\n\\t\\u0001\", \"\\/\"]\n}\n"},
      // Left alone.
      {"{\"codes\":[1 2]}", "refused"},
      {"\xef\xbb\xbf{}", "refused"},
      {"[]", "refused"},
      {"{\"codes\":" + std::string(100000, '[') + std::string(100000, ']') + "}", "refused"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Formatted(row.text, type), row.form) << row.text.substr(0, 200);
    EXPECT_EQ(Formatted(Formatted(row.text, type), type), row.form);
  }
}

/// One text before and after.
void ExpectSameMeaning(BothPaths& paths, const std::string& text, size_t* formatted) {
  const std::string form = Formatted(text, paths.type());
  if (form == "refused") return;
  ++*formatted;
  const JsonDocument document(form);
  ASSERT_TRUE(document.ok() && document.faults().empty()) << text << "\n" << form;
  ASSERT_EQ(Formatted(form, paths.type()), form) << text;
  const Outcome before = paths.Slow(text), after = paths.Slow(form);
  ASSERT_EQ(after.ok, before.ok) << text << "\n" << form << "\n" << before.refusal << after.refusal;
  ASSERT_TRUE(after.wire == before.wire && after.missing == before.missing) << text << "\n" << form;
}

TEST(Format, NeverChangesWhatIsPacked) {
  const google::protobuf::LogSilencer silencer;  // about schemas in which two fields share a key
  Random random(5);
  size_t formatted = 0, schemas = 0;
  for (int i = 0; i < 150; ++i) {
    const TextSchema schema(SchemaMaker(random).Text());
    if (!schema.errors().empty()) continue;
    ++schemas;
    BothPaths paths(schema.Type("Module"));
    for (int j = 0; j < 40; ++j) {
      std::string text = JsonMaker(random).Text(paths.type());
      for (size_t k = random.Below(3); k > 0; --k) text = Damage(text, random);
      ASSERT_NO_FATAL_FAILURE(ExpectSameMeaning(paths, text, &formatted));
    }
  }
  EXPECT_GT(schemas, 50u);
  EXPECT_GT(formatted, 2000u);
}

TEST(Format, TemplatesAreInItAndTheExampleKeepsItsMeaning) {
  const std::string example = ZOTUNING_SOURCE_DIR "/examples/tuning_project";
  zotuning::CollectingSink sink;
  const auto schema = zotuning::LoadSchema(example + "/proto", sink);
  ASSERT_NE(schema, nullptr);
  size_t formatted = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(example)) {
    const std::filesystem::path& path = entry.path();
    if (path.extension() != ".json" || path.parent_path().filename() == "version") continue;
    const auto* type = schema->FindType(path.stem().string());
    std::string made;
    ASSERT_TRUE(ZO_TUNING::internal::ModuleTemplate(
                    *schema, type, [](const auto&) {}, &made)
                    .ok);
    EXPECT_EQ(Formatted(made, type), made);
    BothPaths paths(type);
    ASSERT_NO_FATAL_FAILURE(ExpectSameMeaning(paths, Read(path.string()), &formatted));
  }
  EXPECT_GT(formatted, 30u);
}

}  // namespace
}  // namespace zotest
