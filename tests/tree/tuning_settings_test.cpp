#include <unistd.h>

#include "ZoTuningUtils.h"
#include "support/project.h"

namespace {

using namespace zotest;

class TuningSettingsTest : public ProjectTest {
 protected:
  TuningSettingsTest() {
    Write(dir_ + "/default/AWGain.json", "any text, %s");
    Write(dir_ + "/default/PdCalib.json", "pd");
  }
  bool Create(std::vector<int> config) {
    return ZoTuningUtils::CreateNewTuningSetting(dir_.c_str(), names_, map_, sensor_, config);
  }
  bool CreateAll(std::vector<std::vector<int>> configs) {
    return ZoTuningUtils::CreateMultipleNewTuningSetting(dir_.c_str(), names_, map_, sensor_, configs);
  }

  std::string sensor_ = "tele";
};

TEST_F(TuningSettingsTest, OneSettingReplacesWhatIsThere) {
  EXPECT_TRUE(Create({kAWGain, 3, 1}));
  const std::string path = dir_ + "/tele/mode_3/scenario_Video/AWGain.json";
  EXPECT_EQ(Read(path), "any text, %s");
  Write(dir_ + "/default/AWGain.json", "new");
  EXPECT_TRUE(Create({kAWGain, 3, 1, -1, 1}));
  EXPECT_EQ(Read(path), "new");

  // A default that cannot be read is copied as an empty text; a failed write of the copy is not detected.
  EXPECT_TRUE(Create({kAEMeter, 3}));
  EXPECT_LOG(E("JSON_FILE_TO_STR", "Fail to read json file: " + dir_ + "/default/AEMeter.json"));
  EXPECT_EQ(Read(dir_ + "/tele/mode_3/AEMeter.json"), "");
  sensor_ = "no such sensor";
  EXPECT_TRUE(Create({kAWGain, 3}));
  EXPECT_FALSE(Exists(dir_ + "/no such sensor"));

  sensor_ = "tele";
  const Strings tree = Tree(dir_);
  EXPECT_FALSE(Create({kGhost, 9}));
  EXPECT_LOG(NoType("ZO_TUNING.Ghost"));
  EXPECT_FALSE(Create({99, 9}));
  EXPECT_LOG(NoType("ZO_TUNING."));
  EXPECT_EQ(map_["module"].count(99), 1U);
  EXPECT_EQ(Tree(dir_), tree);
}

TEST_F(TuningSettingsTest, TheModuleIsFoundByItsLabelsName) {
  names_ = {"scenario", "module", "module"};
  EXPECT_TRUE(
      Create({1, kAEMeter, kPdCalib}));  // the last label of that name counts; the file is named by the first label
  EXPECT_EQ(Read(dir_ + "/tele/module_AEMeter/module_PdCalib/Video.json"), "pd");
  names_ = {"scenario"};
  EXPECT_FALSE(Create({1}));
  EXPECT_LOG(NoType("ZO_TUNING."));
  names_ = {"scenario", "module"};
  EXPECT_FALSE(Create({1}));  // no value for the label
  EXPECT_FALSE(TakeLog().empty());
}

TEST_F(TuningSettingsTest, ManySettingsKeepWhatIsThereAndStopAtAnUnknownModule) {
  EXPECT_TRUE(CreateAll({}));
  EXPECT_EQ(Tree(dir_ + "/tele"), Strings{"version/"});

  const std::string kept = dir_ + "/tele/mode_2/AEMeter.json";
  Write(kept, "kept");
  EXPECT_TRUE(CreateAll({{kAWGain, 1}, {kAEMeter, 2}, {kPdCalib, 3}}));
  EXPECT_LOG(E("JSON_FILE_TO_STR", "Fail to read json file: " + dir_ + "/default/AEMeter.json"),
             E("CreateMultipleNewTuningSetting", "[Quokka] (" + kept + ") File is existed, Skip this replacing"));
  EXPECT_EQ(Read(dir_ + "/tele/mode_1/AWGain.json"), "any text, %s");
  EXPECT_EQ(Read(kept), "kept");
  EXPECT_EQ(Read(dir_ + "/tele/mode_3/PdCalib.json"), "pd");

  EXPECT_FALSE(CreateAll({{kAWGain, 4}, {kGhost, 5}, {kPdCalib, 6}}));
  EXPECT_LOG(NoType("ZO_TUNING.Ghost"),
             E("CreateMultipleNewTuningSetting", "[Quokka] Error to get the module desc from the module - Ghost"));
  EXPECT_TRUE(Exists(dir_ + "/tele/mode_4/AWGain.json"));
  EXPECT_FALSE(Exists(dir_ + "/tele/mode_5") || Exists(dir_ + "/tele/mode_6"));
  EXPECT_FALSE(CreateAll({{}}));  // no module at all: nothing is created, nothing crashes
  EXPECT_FALSE(TakeLog().empty());
}

TEST_F(TuningSettingsTest, ListsSubdirectories) {
  const std::string dir = dir_ + "/roots";
  for (const std::string name : {"a", "b%s ö", "version"}) MakeDirs(dir + "/" + name + "/below");
  Write(dir + "/c.json", "");
  ASSERT_EQ(symlink("a", (dir + "/link").c_str()), 0);
  Strings found = {"kept"};
  EXPECT_TRUE(ZoTuningUtils::GetTuningRootFolder(dir.c_str(), found));
  EXPECT_THAT(found, UnorderedElementsAre("kept", dir + "/a", dir + "/b%s ö", dir + "/version"));

  std::string deep = dir_;
  while (deep.size() < 900) deep += "/" + std::string(100, 'd');
  MakeDirs(deep + "/" + std::string(200, 'e'));
  found.clear();
  EXPECT_TRUE(ZoTuningUtils::GetTuningRootFolder(deep.c_str(), found));
  EXPECT_THAT(found, ElementsAre((deep + "/" + std::string(200, 'e')).substr(0, 1023)));

  EXPECT_FALSE(ZoTuningUtils::GetTuningRootFolder((dir + "/%s").c_str(), found));
  EXPECT_FALSE(ZoTuningUtils::GetTuningRootFolder(nullptr, found));
  EXPECT_FALSE(ZoTuningUtils::GetTuningRootFolder((dir + "/c.json").c_str(), found));
  const std::string name = "GetTuningRootFolder";
  EXPECT_LOG(E(name, "Path is not existed: " + dir + "/%s or NULL"), E(name, "Path is not existed: (null) or NULL"),
             E(name, "Open directory failed: " + dir + "/c.json"));
  EXPECT_EQ(found.size(), 1U);
}

}  // namespace
