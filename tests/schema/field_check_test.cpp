#include <random>

#include "ZoTuningUtils.h"
#include "support/project.h"

namespace {

using namespace zotest;
using google::protobuf::FieldDescriptor;

// The plain recursive search; the first missing field is left in `missing`.
bool PlainSearch(const FieldDescriptor* field, const std::string& json, std::string& missing) {
  const std::string& name = field->name();
  if (name == "rule" || name == "value" || name == "description") return true;
  if (json.find(name) == std::string::npos) {
    missing = name;
    return false;
  }
  if (field->type() != FieldDescriptor::TYPE_MESSAGE) return true;
  for (int i = 0; i < field->message_type()->field_count(); ++i) {
    if (!PlainSearch(field->message_type()->field(i), json, missing)) return false;
  }
  return true;
}

void ExpectCheck(const FieldDescriptor* field, const std::string& json, bool result, const std::string& missing) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(ZO_TUNING::CheckFieldInString(field, json), result) << field->full_name() << " in " << json;
  EXPECT_EQ(testing::internal::GetCapturedStderr(), result ? "" : "Error: Field '" + missing + "' not found in Json.\n")
      << field->full_name() << " in " << json;
}

class FieldCheckTest : public LogTest {
 protected:
  Schema& Load(const std::string& proto) {
    Write(dir_ / "a.proto", "syntax = \"proto3\"; " + proto);
    schema_ = std::make_unique<Schema>(dir_.str());
    return *schema_;
  }

  TempDir dir_;
  std::unique_ptr<Schema> schema_;
};

TEST_F(FieldCheckTest, SearchesNamesAsPlainText) {
  const auto* root = Load(R"(
    message Leaf { int32 gain = 1; int32 offset = 2; }
    message Exempt { int32 never = 1; }
    message Root { Leaf leaf = 1; repeated Leaf leaves = 2; Exempt rule = 3; Exempt value = 4; Exempt description = 5;
                   map<string, Leaf> table = 6; int32 gain = 7; })")
                         .Type("Root");
  const auto row = [&](const char* name, const char* json, bool result, const char* missing) {
    ExpectCheck(root->FindFieldByName(name), json, result, missing);
  };
  row("gain", "again", true, "");
  row("gain", "", false, "gain");
  row("leaf", "{\"leaf\": {\"offset\": 1}}", false, "gain");
  row("leaf", "leaf gain", false, "offset");
  row("leaf", "offsetleafgain", true, "");
  row("leaves", "leaves gain offset", true, "");
  row("rule", "", true, "");
  row("value", "", true, "");
  row("description", "", true, "");
  row("table", "table gain offset", false, "key");  // the entry type counts as written; its "value" is exempt
  row("table", "table key", true, "");
}

TEST_F(FieldCheckTest, AnswersWhatThePlainSearchAnswers) {
  std::mt19937 random(7);
  const auto pick = [&](unsigned count) { return static_cast<unsigned>(random() % count); };
  const Strings names = {"a", "b", "ab", "c", "bc", "rule", "value", "description", "d", "dd", "e"};
  std::string proto;
  constexpr unsigned kTypes = 10;
  for (unsigned type = 0; type < kTypes; ++type) {
    proto += " message T" + std::to_string(type) + " {";
    for (unsigned number = 1; number <= names.size(); ++number) {
      if (pick(3) != 0) continue;
      const bool leaf = type + 1 == kTypes || pick(3) == 0;
      const std::string field_type = leaf ? "int32" : "T" + std::to_string(type + 1 + pick(kTypes - type - 1));
      proto += " " + field_type + " " + names[number - 1] + " = " + std::to_string(number) + ";";
    }
    proto += " }";
  }
  Schema& schema = Load(proto);
  int found = 0;
  for (int round = 0; round < 60; ++round) {
    std::string json;
    for (const std::string& name : names) {
      if (pick(12) != 0) json += name + " ";
    }
    for (unsigned type = 0; type < kTypes; ++type) {
      const auto* descriptor = schema.Type("T" + std::to_string(type));
      for (int i = 0; i < descriptor->field_count(); ++i) {
        std::string missing;
        const bool result = PlainSearch(descriptor->field(i), json, missing);
        found += result;
        ExpectCheck(descriptor->field(i), json, result, missing);
      }
    }
  }
  EXPECT_GT(found, 100);
}

TEST_F(FieldCheckTest, CostDoesNotMultiplyAndRecursionEnds) {
  // Searched plainly, forty levels of two fields each are 2^40 visits.
  std::string proto = "message T40 { int32 last = 1; T0 again = 2; }";
  for (int level = 0; level < 40; ++level) {
    const std::string next = "T" + std::to_string(level + 1);
    proto += " message T" + std::to_string(level) + " { " + next + " left = 1; " + next + " right = 2; }";
  }
  const auto* field = Load(proto).Type("T0")->FindFieldByName("left");
  ExpectCheck(field, "left right last again", true, "");
  ExpectCheck(field, "left right last", false, "again");
}

}  // namespace
