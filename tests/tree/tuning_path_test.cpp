#include "ZoTuningUtils.h"
#include "support/project.h"

namespace {

using namespace zotest;
using testing::ElementsAre;
using testing::IsEmpty;

class TuningPathTest : public LogTest {
 protected:
  std::string ToPath(const std::vector<int>& config) {
    std::string path = "replaced";
    ZO_TUNING::TUNING_CONFIG_TO_PATH(dir_.str().c_str(), "tele", names_, map_, config, path);
    return path;
  }
  std::vector<int> ToConfig(const std::string& path) {
    std::vector<int> config = {9, 9};
    ZO_TUNING::PATH_TO_TUNING_CONFIG(path, names_, map_, config);
    return config;
  }

  TempDir dir_;
  const std::string sensor_ = dir_ / "tele";
  Strings names_ = kLabelNames;
  LabelMap map_ = FullLabelMap();
};

TEST_F(TuningPathTest, BothDirectionsAreInverse) {
  MakeDirs(sensor_);
  struct Row {
    std::vector<int> config;
    std::string path;
  };
  for (const Row& row :
       {Row{{1, -1, -1, -1, -1, -1, -1, -1}, "/AWGain.json"},
        Row{{0, 0, -1, -1, -1, -1, -1, -1}, "/mode_0/AfCommon.json"},
        Row{{3, -2, 1, -1, -1, -1, -1, -1}, "/mode_-2/scenario_Video/PdCalib.json"},
        Row{{5, 123456, 0, 1, 0, 1, -1, -1},
            "/mode_123456/scenario_Photo/feature0_Zoom/function_Base/sub_function_Pre/AfLinkKeyTable.json"},
        Row{{2, 3, 1, 0, 1, 0, 1, 1},
            "/mode_3/scenario_Video/feature0_None/function_Flash/sub_function_Main/scene_Night/"
            "filter_Mono/AEMeter.json"}}) {
    EXPECT_EQ(ToPath(row.config), sensor_ + row.path);
    const std::string folder = sensor_ + row.path.substr(0, row.path.rfind('/'));
    EXPECT_EQ(Mode(folder), folder == sensor_ ? Mode(sensor_) : 0700U) << folder;
    EXPECT_FALSE(Exists(sensor_ + row.path));
    EXPECT_EQ(ToConfig(sensor_ + row.path), row.config);
  }
  EXPECT_EQ(map_, FullLabelMap());
}

TEST_F(TuningPathTest, PathsOfOddConfigurations) {
  // Without the sensor's directory nothing can be made, and nothing is said.
  EXPECT_EQ(ToPath({2, 3, 1, -1, 5}), sensor_ + "/mode_3/scenario_Video/AEMeter.json");
  EXPECT_FALSE(Exists(sensor_));
  MakeDirs(sensor_);
  EXPECT_EQ(ToPath({1}), sensor_ + "/AWGain.json");
  EXPECT_EQ(ToPath({-1, -1}), sensor_ + "/.json");
  EXPECT_EQ(Tree(sensor_), Strings());
  EXPECT_EQ(ToPath({99, 1, 77}), sensor_ + "/mode_1/scenario_/.json");
  EXPECT_TRUE(map_.at("module").count(99) == 1 && map_.at("scenario").count(77) == 1);  // entered, with empty names
  Write(sensor_ + "/mode_2", "a file in the way");
  EXPECT_EQ(ToPath({1, 2, 1}), sensor_ + "/mode_2/scenario_Video/AWGain.json");

  // Label names count as they are given; only "mode" is a number.
  names_ = {"module", "zone", "mode"};
  map_["zone"] = {{4, "50%s ö"}};
  EXPECT_EQ(ToPath({1, 4, 5, 6}), sensor_ + "/zone_50%s ö/mode_5/AWGain.json");  // names end before the values do
  EXPECT_EQ(Mode(sensor_ + "/zone_50%s ö/mode_5"), 0700U);
  names_.clear();
  EXPECT_EQ(ToPath({1, 2}), sensor_ + "/.json");
  EXPECT_EQ(ToPath({}), sensor_ + "/.json");
}

TEST_F(TuningPathTest, ReadsLevelsByPrefixFromTheFileUpwards) {
  struct Row {
    std::string path;
    std::vector<int> config;
  };
  for (const Row& row :
       {Row{R"(C:\proj\tele\mode_3\scenario_Video\AWGain.json)", {1, 3, 1, -1, -1, -1, -1, -1}},
        Row{"p/tele/mode_3\\scenario_Video/AWGain.json", {1, 3, 1, -1, -1, -1, -1, -1}},
        // Any order, gaps, and the level nearer to the root wins.
        Row{"p/tele/filter_Mono/mode_4/mode_5/AWGain", {1, 4, -1, -1, -1, -1, -1, 1}},
        Row{"p/mode_4/tele/mode_5/AWGain.json", {1, 5, -1, -1, -1, -1, -1, -1}},
        Row{"mode_4/mode_5/AWGain.json", {1, 5, -1, -1, -1, -1, -1, -1}},  // no separator before the first folder
        // The value is cut at the prefix's length, wherever the prefix was found.
        Row{"p/my_scene_Day/AWGain.json", {1, -1, -1, -1, -1, -1, -1, -1}},
        Row{"p/xmode_7/AWGain.json", {1, 0, -1, -1, -1, -1, -1, -1}},
        Row{"p/mode_ 12x/AWGain.json", {1, 12, -1, -1, -1, -1, -1, -1}},
        Row{"p/mode_/AWGain.json", {1, 0, -1, -1, -1, -1, -1, -1}},
        Row{"p/sub_function_Pre/AWGain.json", {1, -1, -1, -1, -1, 1, -1, -1}},
        Row{"p/function_Flash/AWGain.json", {1, -1, -1, -1, 1, -1, -1, -1}},
        Row{"p/filter_function_Flash/AWGain.json", {1, -1, -1, -1, -1, -1, -1, -1}},
        Row{"p/scenario_Video/scenario_none/AWGain.json", {1, -1, 1, -1, -1, -1, -1, -1}},
        Row{"/AWGain.json", {1, -1, -1, -1, -1, -1, -1, -1}}, Row{"AWGain.json", {-1, -1, -1, -1, -1, -1, -1, -1}},
        Row{"", {-1, -1, -1, -1, -1, -1, -1, -1}}}) {
    EXPECT_EQ(ToConfig(row.path), row.config) << row.path;
  }
  map_["module"][12] = "AWGain";
  map_["module"][-1] = "Minus";
  EXPECT_EQ(ToConfig("p/AWGain.json")[0], 12);

  for (const auto& [path, module] :
       std::vector<std::pair<std::string, std::string>>{{"p/mode_3/AWGain.tuning.json", "AWGain.tuning"},
                                                        {"p/mode_3/awgain.json", "awgain"},
                                                        {"p/mode_3/.json", ""},
                                                        {"p/mode_3/", ""},
                                                        {"p/mode_3/50%s%n.json", "50%s%n"},
                                                        {"p/mode_3/Minus.json", "Minus"}}) {
    EXPECT_EQ(ToConfig(path), std::vector<int>(8, -1)) << path;
    EXPECT_THAT(TakeLog(),
                ElementsAre(E("PATH_TO_TUNING_CONFIG", "Unknown module name " + module +
                                                           " in EnumTuningDataLable_Module, please check "
                                                           "the setting of EnumTuningDataLable_Module in project")));
  }
}

TEST_F(TuningPathTest, ShortLabelListsIgnoreDeeperLevels) {
  names_ = {"module", "mode"};
  EXPECT_EQ(ToConfig("p/mode_3/scenario_Video/filter_Mono/AWGain.json"), (std::vector<int>{1, 3}));
  names_ = {"module"};
  EXPECT_EQ(ToConfig("p/mode_3/AWGain.json"), std::vector<int>{1});
  names_.clear();
  EXPECT_THAT(ToConfig("p/mode_3/AWGain.json"), IsEmpty());
  EXPECT_THAT(ToConfig("AWGain.json"), IsEmpty());
  EXPECT_EQ(TakeLog().size(), 1U);
}

}  // namespace
