#include "ZoTuningUtils.h"
#include "support/project.h"

namespace {

using namespace zotest;

using JsonIoTest = SchemaTest;

TEST_F(JsonIoTest, ReadsAndWritesFilesWhole) {
  std::string text = "before";
  EXPECT_FALSE(ZO_TUNING::JSON_FILE_TO_STR(dir_ / "no%s.json", text));
  EXPECT_EQ(text, "before");
  EXPECT_LOG(E("JSON_FILE_TO_STR", "Fail to read json file: " + (dir_ / "no%s.json")));
  for (const std::string& written : {std::string(100000, 'a') + "\r\n", std::string("{}\0\n", 4), std::string()}) {
    ZO_TUNING::JSON_STR_TO_FILE(dir_ / "a.json", written);
    EXPECT_EQ(Read(dir_ / "a.json"), written);
    EXPECT_TRUE(ZO_TUNING::JSON_FILE_TO_STR(dir_ / "a.json", text));
    EXPECT_EQ(text, written);
  }
  ZO_TUNING::JSON_STR_TO_FILE(dir_ / "missing/a.json", "text");
  EXPECT_EQ(Tree(dir_.str()), Strings{"a.json"});
}

TEST_F(JsonIoTest, ParsesOnlyWhatFitsTheType) {
  const MessagePtr message = Load(
                                 "syntax = \"proto3\"; enum E { Zero = 0; One = 1; TWO = 2; }"
                                 "message M { int32 my_number = 1; E e = 2; string text = 3; M sub = 4; }")
                                 .New("M");
  for (const auto& [json, text] : Rows{{"{}", ""},
                                       {R"({"my_number": -3, "e": "One", "text": "%s ö", "sub": {"e": 1}})",
                                        R"(my_number: -3 e: One text: "%s \303\266" sub { e: One })"},
                                       {R"({"myNumber": 4})", "my_number: 4"}}) {
    message->Clear();
    EXPECT_TRUE(ZO_TUNING::JSON_STR_TO_MSG(json, message.get())) << json;
    EXPECT_EQ(Text(*message), text);
  }
  for (const std::string json :
       {"", R"({"other": 1, "x": "%s%n"})", R"({"e": "one"})", R"({"e": "two"})", R"({"my_number": 1.5})"}) {
    const std::string printed = StderrOf([&] { EXPECT_FALSE(ZO_TUNING::JSON_STR_TO_MSG(json, message.get())); });
    EXPECT_THAT(printed, AllOf(StartsWith("Failed to parse JSON: "), testing::EndsWith("\n")));
    EXPECT_LOG(E("JSON_STR_TO_MSG", "Fail to parse json string " + json));
  }
}

TEST_F(JsonIoTest, PrintsATemplateInTheSchemasNames) {
  const MessagePtr message = Load(
                                 "syntax = \"proto3\"; enum E { Zero = 0; One = 1; }"
                                 "message M { int32 my_number = 1; E my_enum = 2; repeated double many_values = 3;"
                                 "            repeated S my_parts = 4; } message S { string s = 1; }")
                                 .New("M", "my_enum: One my_parts { s: 'kept' }");
  std::string json;
  ZO_TUNING::MSG_TO_JSON_STR(message.get(), message->GetDescriptor(), json);
  EXPECT_EQ(json,
            "{\n \"my_number\": 0,\n \"my_enum\": \"One\",\n \"many_values\": [],\n"
            " \"my_parts\": [\n  {\n   \"s\": \"kept\"\n  },\n  {\n   \"s\": \"\"\n  }\n ]\n}\n");
}

TEST_F(JsonIoTest, PrintsWithoutRequiredFieldsAndFailsWithoutAnException) {
  Write(dir_ / "proto/duration.proto",
        "syntax = \"proto3\"; package google.protobuf; message Duration { int64 seconds = 1; int32 nanos = 2; }");
  Load(
      "syntax = \"proto2\"; import \"duration.proto\"; message Late { optional google.protobuf.Duration d = 1; }"
      "message Odd { required int32 needed = 1; optional string given = 2; }");
  const auto print = [&](const std::string& type, const std::string& text) {
    const MessagePtr message = schema_->New(type, text);
    std::string json;
    EXPECT_EQ(StderrOf([&] { ZO_TUNING::MSG_TO_JSON_STR(message.get(), message->GetDescriptor(), json); }), "");
    return json;
  };
  EXPECT_EQ(print("Odd", "given: 'kept'"), "{\n \"needed\": 0,\n \"given\": \"kept\"\n}\n");
  print("Late", "d { seconds: 9000000000000000 }");
  EXPECT_LOG(E("MSG_TO_JSON_STR", "json generation failed: 0"));
}

}  // namespace
