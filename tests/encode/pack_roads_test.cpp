// Bins, log lines and standard error of a generation whose one setting may be faulty, against those of the plain
// operations called one after another.

#include <filesystem>

#include "ZoTuningUtils.h"
#include "encode/random_json.h"
#include "support/project.h"

namespace {

using namespace zotest;

class PackRoadsTest : public ProjectTest {
 protected:
  struct Result {
    bool ok = false;
    std::string bin;
    Strings error_lines;
    std::string standard_error;
  };

  Result Generate(const std::string& json) {
    std::filesystem::remove_all(project_.out + "/zo_tuning");
    Write(dir_ + "/default/AfCommon.json", json);
    testing::internal::CaptureStderr();
    Result result;
    result.ok = ZoTuningUtils::GenerateProjTuningBins(dir_.c_str(), project_.out.c_str());
    result.standard_error = testing::internal::GetCapturedStderr();
    result.error_lines = TakeLog(6);
    result.bin = Read(BinPath("default"));
    return result;
  }

  Result TakePlainRoad(const std::string& json) {
    testing::internal::CaptureStderr();
    Result result;
    const MessagePtr message(schema_.Prototype("ZO_TUNING_AF.AfCommon")->New());
    const google::protobuf::Descriptor* type = message->GetDescriptor();
    result.ok = ZO_TUNING::JSON_STR_TO_MSG(json, message.get());
    for (int i = 0; i < type->field_count() && result.ok; ++i) {
      result.ok = ZO_TUNING::CheckFieldInString(type->field(i), json);
    }
    result.bin = I32(0) + Item(LabelBytes({kAfCommon}));
    if (result.ok) {
      ZO_TUNING::MSG_PRONE_FOR_BIN(message.get(), type);
      result.bin += Item(message->SerializeAsString());
    }
    result.standard_error = testing::internal::GetCapturedStderr();
    result.error_lines = TakeLog(6);
    if (!result.ok) {
      result.error_lines.push_back(
          E("GenerateProjTuningBins", "Failed in json str->msg, please check if json data formats are valid or not"));
    }
    return result;
  }

  bool ExpectSame(const std::string& json) {
    const Result generated = Generate(json);
    const Result plain = TakePlainRoad(json);
    EXPECT_EQ(generated.ok, plain.ok) << json;
    EXPECT_EQ(generated.bin, plain.bin) << json;
    EXPECT_EQ(generated.error_lines, plain.error_lines) << json;
    EXPECT_EQ(generated.standard_error, plain.standard_error) << json;
    return generated.ok;
  }

  Schema schema_{dir_ + "/proto"};
};

TEST_F(PackRoadsTest, SayTheSameOfEveryFault) {
  const std::string good = kAfJson;
  EXPECT_TRUE(ExpectSame(good));
  const auto with = [&](const std::string& old_text, const std::string& new_text) {
    std::string text = good;
    return text.replace(text.find(old_text), old_text.size(), new_text);
  };
  const std::string step = R"({"position": {"value": 7, "rule": {"recommend": "9"}}})";
  // Taken by the plain road alone.
  for (const std::string& text :
       {with("300]", "300,]"), with("\"enable\"", "enable"), with("\"near\": {\"value\": 0.5}", "\"near\": null"),
        with("true", "\"true\""), with("[{\"col\": [1.5]}, {\"col\": []}]", "{\"col\": 1e2}")}) {
    EXPECT_TRUE(ExpectSame(text));
  }
  for (const std::string& text :
       {std::string(), std::string("{}"), std::string("null"), with("300", "2147483648"), with("0.5", "1e39"),
        with("1.5", "1e400"), with("1.5", "-1e400"), with("\"len\": \"3\"", "\"len\": 3"), with("\"row\"", "\"rows\""),
        with("true", "truex"), with("[Bool]", "\xff"), with("[Bool]", "\\ud800"), good + "x",
        good + std::string(1, '\0'), "\xef\xbb\xbf" + good,
        // Names that stand nowhere in the text.
        with("\"near\": {\"value\": 0.5}, ", ""), with("\"position\"", "\"positions\""), with(step, "{}")}) {
    EXPECT_FALSE(ExpectSame(text));
  }
  // A name that stands in some string is not missing.
  std::string elsewhere = with(step, "{}");
  EXPECT_TRUE(ExpectSame(elsewhere.replace(elsewhere.find("[Bool]"), 6, "its position")));
  Random random(7);
  for (int i = 0; i < 150; ++i) ExpectSame(Damage(good, random));
}

}  // namespace
