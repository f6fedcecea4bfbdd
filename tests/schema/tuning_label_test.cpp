#include "ZoTuningUtils.h"
#include "support/project.h"

namespace {

using namespace zotest;
using testing::ElementsAre;
using testing::IsEmpty;

class TuningLabelTest : public LogTest {
 protected:
  /// A label type with these fields, beside a few enums.
  Schema& Load(const std::string& fields) {
    Write(dir_ / "a.proto", R"(syntax = "proto3"; package ZO_TUNING;
      enum Scene { option allow_alias = true; Scene_DAY = 0; SceneXNIGHT = 3; Scene_DUSK = 3; Scene_ = 4; }
      enum Short { Shor = 0; } enum Late { Late_A = 0; Lat = 1; Late_B = 2; }
      message TuningDataLabel { )" +
                                fields + " }");
    schema_ = std::make_unique<Schema>(dir_.str());
    type_ = schema_->Type("ZO_TUNING.TuningDataLabel");
    message_ = schema_->New("ZO_TUNING.TuningDataLabel");
    return *schema_;
  }

  TempDir dir_;
  std::unique_ptr<Schema> schema_;
  const google::protobuf::Descriptor* type_ = nullptr;
  MessagePtr message_;
};

TEST_F(TuningLabelTest, MapNamesFieldsInDeclarationOrder) {
  Strings names = {"kept"};
  LabelMap map = {{"zoom", {{9, "old"}}}, {"alpha", {{9, "kept"}, {0, "old"}}}};
  Load("Scene alpha = 9; int32 zoom = 2;");
  EXPECT_TRUE(ZoTuningUtils::GetProjectTuningLabelsMap(type_, names, map));
  EXPECT_THAT(names, ElementsAre("kept", "alpha", "zoom"));
  const LabelMap wanted = {{"zoom", {}}, {"alpha", {{0, "DAY"}, {3, "DUSK"}, {4, ""}, {9, "kept"}}}};
  EXPECT_EQ(map, wanted);
}

TEST_F(TuningLabelTest, MapStopsAtAFieldOfAnotherType) {
  struct Row {
    std::string fields;
    Strings names;
    LabelMap map;
    std::string line;  // empty when the map is made
  };
  const std::map<int, std::string> scene = {{0, "DAY"}, {3, "DUSK"}, {4, ""}};
  for (const Row& row : {Row{"", {}, {}, ""},
                         Row{"Scene alpha = 3; int32 beta = 2; string gamma = 1; int32 delta = 4;",
                             {"alpha", "beta", "gamma"},
                             {{"alpha", scene}, {"beta", {}}},
                             "Invalid tuning data label type: 9"},
                         Row{"TuningDataLabel self = 1;", {"self"}, {}, "Invalid tuning data label type: 11"},
                         Row{"sint32 number = 1;", {"number"}, {}, "Invalid tuning data label type: 17"}}) {
    Strings names;
    LabelMap map;
    Load(row.fields);
    EXPECT_EQ(ZoTuningUtils::GetProjectTuningLabelsMap(type_, names, map), row.line.empty()) << row.fields;
    EXPECT_EQ(names, row.names);
    EXPECT_EQ(map, row.map);
    EXPECT_EQ(TakeLog(), row.line.empty() ? Strings() : Strings{E("GetProjectTuningLabelsMap", row.line)});
  }

  // A value name that is too short for its enum gives one line of our own wording and no short name.
  for (const std::string name : {"Short", "Late"}) {
    Strings names;
    LabelMap map;
    Load(name + " field = 1; int32 next = 2;");
    EXPECT_FALSE(ZoTuningUtils::GetProjectTuningLabelsMap(type_, names, map));
    EXPECT_THAT(names, ElementsAre("field"));
    EXPECT_THAT(TakeLog(), ElementsAre(testing::AllOf(testing::StartsWith("6 GetProjectTuningLabelsMap: "),
                                                      testing::HasSubstr(name))));
    EXPECT_EQ(map["field"].count(1), 0U);
  }
}

TEST_F(TuningLabelTest, FillsAndReadsMessages) {
  Load("int32 alpha = 3; Scene beta = 1; string gamma = 2; repeated int32 many = 4; repeated Scene scenes = 5;");
  struct Row {
    Strings names;
    std::vector<int> values;
    std::string filled;
    std::string line;  // empty when both ways succeed
    std::vector<int> read;
  };
  const std::string missing = "Error in finding the field descriptor of ";
  const std::string wrong = "Unexpected field type in tuning label: 9";
  for (const Row& row : {Row{{"alpha", "beta"}, {-5, 3}, "beta: SceneXNIGHT alpha: -5", "", {-5, 3}},
                         Row{{"beta", "alpha"}, {77, -1}, "beta: 77 alpha: -1", "", {77, -1}},
                         Row{{"alpha", "no%s", "beta"}, {7, 8, 3}, "alpha: 7", missing + "no%s", {7, -1, -1}},
                         Row{{"alpha", "gamma", "beta"}, {7, 8, 3}, "alpha: 7", wrong, {7, -1, -1}},
                         Row{{"alpha", "many"}, {7, 8}, "alpha: 7", missing + "many", {7, -1}},
                         Row{{"alpha", "scenes"}, {7, 0}, "alpha: 7", missing + "scenes", {7, -1}}}) {
    message_->Clear();
    Strings names = row.names;
    EXPECT_EQ(ZoTuningUtils::InitTuningLabelMsg(message_.get(), type_, names, row.values), row.line.empty());
    EXPECT_EQ(TakeLog(), row.line.empty() ? Strings() : Strings{E("InitTuningLabelMsg", row.line)});
    EXPECT_EQ(Text(*message_), row.filled);
    std::vector<int> read = {1, 2, 3, 4, 5};
    EXPECT_EQ(ZoTuningUtils::ParseTuningLabelMsg(message_.get(), type_, names, read), row.line.empty());
    EXPECT_EQ(TakeLog(), row.line.empty() ? Strings() : Strings{E("ParseTuningLabelMsg", row.line)});
    EXPECT_EQ(read, row.read);
  }

  message_->Clear();
  Strings names = {"no such label"};
  EXPECT_TRUE(ZoTuningUtils::InitTuningLabelMsg(message_.get(), type_, names, {}));
  names = {"alpha"};
  EXPECT_FALSE(ZoTuningUtils::InitTuningLabelMsg(message_.get(), type_, names, {1, 2}));
  EXPECT_THAT(TakeLog(), ElementsAre(testing::StartsWith("6 InitTuningLabelMsg: ")));
}

}  // namespace
