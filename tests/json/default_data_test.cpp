#include "ZoTuningUtils.h"
#include "support/project.h"

namespace {

using namespace zotest;

using DefaultDataTest = ProjectTest;

TEST_F(DefaultDataTest, WritesTheTemplateOverEdits) {
  const std::string path = dir_ + "/default/PdCalib.json";
  for (const std::string& before : {std::string(), "an edit that is longer" + std::string(5000, ' ')}) {
    Write(path, before);
    EXPECT_TRUE(ZoTuningUtils::GenerateDefaultModuleData((dir_ + "/").c_str(), "PdCalib"));
    EXPECT_THAT(Read(path),
                AllOf(StartsWith("{\n \"slope\": {\n  \"value\": [],\n"), testing::EndsWith("\n  }\n }\n}\n")));
  }
  MakeDirs(dir_ + "/default/AWGain.json");  // a file that cannot be written is not detected
  EXPECT_TRUE(ZoTuningUtils::GenerateDefaultModuleData(dir_.c_str(), "AWGain"));
  EXPECT_TRUE(ZoTuningUtils::GenerateDefaultModuleData(dir_.c_str(), "AfLinkKeyTable"));
  EXPECT_TRUE(Exists(dir_ + "/default/AfLinkKeyTable.json"));
}

TEST_F(DefaultDataTest, NamesWhatIsMissing) {
  const auto fails = [&](const std::string& dir, const std::string& line) {
    EXPECT_FALSE(ZoTuningUtils::GenerateDefaultModuleData(dir.c_str(), "AWGain"));
    EXPECT_LOG(E("GenerateDefaultModuleData", line));
  };
  const std::string dir = project_.temp / "p";
  fails(dir, "Cannot find project dir: " + dir);
  MakeDirs(dir);
  fails(dir, "Cannot find project proto folder in input proj_dir: " + dir + "/proto");
  MakeDirs(dir + "/proto");
  fails(dir, "Cannot find project default folder under input proj_dir: " + dir + "/default");
  EXPECT_EQ(Tree(dir), Strings{"proto/"});

  EXPECT_FALSE(ZoTuningUtils::GenerateDefaultModuleData(dir_.c_str(), "AWNo%s"));
  EXPECT_LOG(NoType("ZO_TUNING_AWB.AWNo%s"),
             E("GenerateDefaultModuleData", "Get descriptor of module ZO_TUNING_AWB.AWNo%s failed"));
}

}  // namespace
