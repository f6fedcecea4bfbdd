#include "schema/tuning_label.h"
#include "ZoTuningUtils.h"
#include "support/project.h"

namespace {

using namespace zotest;

class TuningLabelTest : public SchemaTest {
 protected:
  /// A label type with these fields, besides a few enums.
  void LoadLabel(const std::string& fields) {
    message_.reset();  // before the schema that it was made from
    Load(R"(syntax = "proto3"; package ZO_TUNING;
      enum Scene { option allow_alias = true; Scene_DAY = 0; SceneXNIGHT = 3; Scene_DUSK = 3; Scene_ = 4; }
      enum Short { Shor = 0; } enum Late { Late_A = 0; Lat = 1; Late_B = 2; }
      message TuningDataLabel { )" +
         fields + " }");
    type_ = schema_->Type("ZO_TUNING.TuningDataLabel");
    message_ = schema_->New("ZO_TUNING.TuningDataLabel");
  }
  bool MakeMap() { return ZoTuningUtils::GetProjectTuningLabelsMap(type_, names_, map_); }

  const Descriptor* type_ = nullptr;
  MessagePtr message_;
  Strings names_;
  LabelMap map_;
};

const std::map<int, std::string> kScene = {{0, "DAY"}, {3, "DUSK"}, {4, ""}};

TEST_F(TuningLabelTest, MapNamesFieldsInDeclarationOrder) {
  names_ = {"kept"};
  map_ = {{"zoom", {{9, "old"}}}, {"alpha", {{5, "kept"}, {0, "old"}}}};
  LoadLabel("Scene alpha = 9; int32 zoom = 2;");
  EXPECT_TRUE(MakeMap());
  EXPECT_THAT(names_, ElementsAre("kept", "alpha", "zoom"));
  EXPECT_EQ(map_, (LabelMap{{"zoom", {}}, {"alpha", {{0, "DAY"}, {3, "DUSK"}, {4, ""}, {5, "kept"}}}}));
}

TEST_F(TuningLabelTest, MapStopsAtAFieldOfAnotherType) {
  LoadLabel("Scene alpha = 3; int32 beta = 2; string gamma = 1; int32 delta = 4;");
  EXPECT_FALSE(MakeMap());
  EXPECT_THAT(names_, ElementsAre("alpha", "beta", "gamma"));
  EXPECT_EQ(map_, (LabelMap{{"alpha", kScene}, {"beta", {}}}));
  LoadLabel("TuningDataLabel self = 1;");
  EXPECT_FALSE(MakeMap());
  LoadLabel("sint32 number = 1;");
  EXPECT_FALSE(MakeMap());
  const std::string invalid = "Invalid tuning data label type: ";
  EXPECT_LOG(E("GetProjectTuningLabelsMap", invalid + "9"), E("GetProjectTuningLabelsMap", invalid + "11"),
             E("GetProjectTuningLabelsMap", invalid + "17"));
  // A value name that is too short for its enum produces one line of our own wording and no short name.
  for (const std::string type : {"Short", "Late"}) {
    LoadLabel(type + " field = 1; int32 next = 2;");
    EXPECT_FALSE(MakeMap());
    EXPECT_EQ(names_.back(), "field");
    EXPECT_LOG(AllOf(StartsWith("6 GetProjectTuningLabelsMap: "), HasSubstr(type)));
    EXPECT_EQ(map_["field"].count(1), 0U);
  }
}

TEST_F(TuningLabelTest, FillsAndReadsMessages) {
  LoadLabel("int32 alpha = 3; Scene beta = 1; string gamma = 2; repeated int32 many = 4; repeated Scene scenes = 5;");
  struct Row {
    Strings names;
    std::vector<int> values;
    std::string filled;
    std::string line;  // empty if both directions succeed
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
    EXPECT_EQ(ZO_TUNING::internal::LabelBytes(*message_), message_->SerializePartialAsString()) << row.filled;
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
  EXPECT_LOG(StartsWith("6 InitTuningLabelMsg: "));
}

}  // namespace
