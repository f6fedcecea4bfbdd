#include "ZoTuningUtils.h"
#include "support/project.h"

namespace {

using namespace zotest;
using testing::ElementsAre;

using DefaultDataTest = ProjectTest;

TEST_F(DefaultDataTest, WritesTheWholeTemplateAndResetsEdits) {
  const std::string path = dir_ + "/default/AfCommon.json";
  for (int round = 0; round < 2; ++round) {
    EXPECT_TRUE(ZoTuningUtils::GenerateDefaultModuleData((dir_ + "/").c_str(), "AfCommon"));
    EXPECT_EQ(Read(path), R"({
 "enable": {
  "value": false,
  "rule": {
   "description": "[Bool]",
   "recommend": "None",
   "len": ""
  }
 },
 "curve": {
  "value": [],
  "rule": {
   "description": "[Int32Arr]",
   "recommend": "None",
   "order": 0,
   "len": "-1",
   "row": ""
  }
 },
 "limits": {
  "near": {
   "value": 0,
   "rule": {
    "description": "[Float]",
    "recommend": "None",
    "len": ""
   }
  },
  "table": {
   "value": [
    {
     "col": []
    }
   ],
   "rule": {
    "description": "[DoubleArr2D]",
    "recommend": "None",
    "row": "-1",
    "col": "-1",
    "len": ""
   }
  }
 },
 "steps_rule": {
  "description": "[Repeated]",
  "recommend": "",
  "len": "-1"
 },
 "steps": [
  {
   "position": {
    "value": 0,
    "rule": {
     "description": "[Int32]",
     "recommend": "None",
     "len": ""
    }
   }
  }
 ]
}
)");
    Write(path, "an edit that is longer than the template" + std::string(5000, ' '));
  }
  EXPECT_TRUE(ZoTuningUtils::GenerateDefaultModuleData(dir_.c_str(), "AfLinkKeyTable"));
  EXPECT_TRUE(Exists(dir_ + "/default/AfLinkKeyTable.json"));
}

TEST_F(DefaultDataTest, NamesWhatIsMissing) {
  const auto fails = [&](const std::string& dir, const std::string& line) {
    EXPECT_FALSE(ZoTuningUtils::GenerateDefaultModuleData(dir.c_str(), "AWGain"));
    EXPECT_THAT(TakeLog(), ElementsAre(E("GenerateDefaultModuleData", line)));
  };
  const std::string dir = project_.temp / "p";
  fails(dir, "Cannot find project dir: " + dir);
  MakeDirs(dir);
  fails(dir, "Cannot find project proto folder in input proj_dir: " + dir + "/proto");
  MakeDirs(dir + "/proto");
  fails(dir, "Cannot find project default folder under input proj_dir: " + dir + "/default");
  EXPECT_EQ(Tree(dir), Strings{"proto/"});

  EXPECT_FALSE(ZoTuningUtils::GenerateDefaultModuleData(dir_.c_str(), "AWNo%s"));
  EXPECT_THAT(
      TakeLog(),
      ElementsAre(E("GetDescByClassName",
                    "Find descriptor of ZO_TUNING_AWB.AWNo%s failed, please check the protos under project dir"),
                  E("GenerateDefaultModuleData", "Get descriptor of module ZO_TUNING_AWB.AWNo%s failed")));
}

TEST_F(DefaultDataTest, SucceedsAlthoughPrintingOrWritingFailed) {
  MakeDirs(dir_ + "/default/AWGain.json");
  EXPECT_TRUE(ZoTuningUtils::GenerateDefaultModuleData(dir_.c_str(), "AWGain"));
  Write(dir_ + "/proto/odd.proto",
        "syntax = \"proto2\"; package ZO_TUNING; message Odd { required int32 needed = 1; }");
  testing::internal::CaptureStderr();
  EXPECT_TRUE(ZoTuningUtils::GenerateDefaultModuleData(dir_.c_str(), "Odd"));
  testing::internal::GetCapturedStderr();
  EXPECT_THAT(TakeLog(), ElementsAre(testing::StartsWith("6 MSG_TO_JSON_STR: ")));
  EXPECT_EQ(Read(dir_ + "/default/Odd.json"), "");
}

}  // namespace
