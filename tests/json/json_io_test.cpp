#include "ZoTuningUtils.h"
#include "support/child.h"
#include "support/project.h"

namespace {

using namespace zotest;
using testing::ElementsAre;
using testing::StartsWith;

class JsonIoTest : public LogTest {
 protected:
  Schema& Load(const std::string& proto) {
    Write(dir_ / "proto/a.proto", proto);
    schema_ = std::make_unique<Schema>(dir_ / "proto");
    return *schema_;
  }

  TempDir dir_;
  std::unique_ptr<Schema> schema_;
};

TEST_F(JsonIoTest, ReadsAndWritesFilesWhole) {
  std::string text = "before";
  EXPECT_FALSE(ZO_TUNING::JSON_FILE_TO_STR(dir_ / "no%s.json", text));
  EXPECT_EQ(text, "before");
  EXPECT_THAT(TakeLog(), ElementsAre(E("JSON_FILE_TO_STR", "Fail to read json file: " + (dir_ / "no%s.json"))));

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
  Schema& schema = Load(
      "syntax = \"proto3\"; enum E { Zero = 0; One = 1; }"
      "message M { int32 my_number = 1; E e = 2; string text = 3; M sub = 4; }");
  const MessagePtr message = schema.New("M");
  for (const auto& [json, text] : std::vector<std::pair<std::string, std::string>>{
           {"{}", ""},
           {R"({"my_number": -3, "e": "One", "text": "%s ö", "sub": {"e": 1}})",
            R"(my_number: -3 e: One text: "%s \303\266" sub { e: One })"},
           {R"({"myNumber": 4})", "my_number: 4"}}) {
    message->Clear();
    EXPECT_TRUE(ZO_TUNING::JSON_STR_TO_MSG(json, message.get())) << json;
    EXPECT_EQ(Text(*message), text);
  }
  const std::string large = "{\"text\": \"" + std::string(3 << 20, '%') + "\"";
  for (const std::string& json : {std::string(), std::string("{\"other\": 1, \"x\": \"%s%n\"}"),
                                  std::string("{\"e\": \"one\"}"), std::string("{\"my_number\": 1.5}"), large}) {
    testing::internal::CaptureStderr();
    EXPECT_FALSE(ZO_TUNING::JSON_STR_TO_MSG(json, message.get())) << json.substr(0, 100);
    const std::string printed = testing::internal::GetCapturedStderr();
    EXPECT_THAT(printed, StartsWith("Failed to parse JSON: "));
    EXPECT_EQ(printed.back(), '\n');
    const Strings lines = TakeLog();
    EXPECT_TRUE(lines == Strings{E("JSON_STR_TO_MSG", "Fail to parse json string " + json)}) << json.substr(0, 100);
  }
}

TEST_F(JsonIoTest, PrintsATemplateInTheSchemasNames) {
  Schema& schema = Load(
      "syntax = \"proto3\"; enum E { Zero = 0; One = 1; }"
      "message M { int32 my_number = 1; E my_enum = 2; repeated double many_values = 3;"
      "  repeated S my_parts = 4; S only_part = 5; } message S { string s = 1; }");
  const MessagePtr message = schema.New("M", "my_enum: One my_parts { s: 'kept' }");
  std::string json;
  ZO_TUNING::MSG_TO_JSON_STR(message.get(), message->GetDescriptor(), json);
  EXPECT_EQ(json, R"({
 "my_number": 0,
 "my_enum": "One",
 "many_values": [],
 "my_parts": [
  {
   "s": "kept"
  },
  {
   "s": ""
  }
 ],
 "only_part": {
  "s": ""
 }
}
)");
}

TEST_F(JsonIoTest, AFailedPrintIsOneLineAndNoException) {
  Write(dir_ / "proto/duration.proto",
        "syntax = \"proto3\"; package google.protobuf; message Duration { int64 seconds = 1; int32 nanos = 2; }");
  Schema& schema = Load(
      "syntax = \"proto2\"; import \"duration.proto\"; message Late { optional google.protobuf.Duration d = 1; }"
      "message Odd { required int32 needed = 1; }");
  const MessagePtr late = schema.New("Late", "d { seconds: 9000000000000000 }");
  std::string json;
  ZO_TUNING::MSG_TO_JSON_STR(late.get(), late->GetDescriptor(), json);
  EXPECT_THAT(TakeLog(), ElementsAre(E("MSG_TO_JSON_STR", "json generation failed: 0")));
  const MessagePtr unset(schema.Prototype("Odd")->New());
  testing::internal::CaptureStderr();
  ZO_TUNING::MSG_TO_JSON_STR(unset.get(), unset->GetDescriptor(), json);
  testing::internal::GetCapturedStderr();
  EXPECT_THAT(TakeLog(), ElementsAre(StartsWith("6 MSG_TO_JSON_STR: ")));
}

}  // namespace
