#include "ZoTuningUtils.h"
#include "support/project.h"
#include "tree/tuning_path-inl.h"

namespace {

using namespace zotest;

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
  LabelMap map_ = kLabelMap;
};

TEST_F(TuningPathTest, BothDirectionsAreInverse) {
  MakeDirs(sensor_);
  const auto expect = [&](std::vector<int> config, const std::string& folder, const std::string& file) {
    config.resize(8, -1);
    EXPECT_EQ(ToPath(config), sensor_ + folder + file);
    EXPECT_EQ(Mode(sensor_ + folder), folder.empty() ? Mode(sensor_) : 0700U) << folder;
    EXPECT_FALSE(Exists(sensor_ + folder + file));
    EXPECT_EQ(ToConfig(sensor_ + folder + file), config);
    const ZO_TUNING::internal::Labels labels(names_, map_);
    EXPECT_EQ("/" + SettingPath(labels, config), folder + file);
  };
  expect({1}, "", "/AWGain.json");
  expect({3, -2, 1}, "/mode_-2/scenario_Video", "/PdCalib.json");
  expect({2, 3, 1, 0, 1, 0, 1, 1},
         "/mode_3/scenario_Video/feature0_None/function_Flash/sub_function_Main/scene_Night/filter_Mono",
         "/AEMeter.json");
  EXPECT_EQ(map_, kLabelMap);
}

TEST_F(TuningPathTest, PathsOfOddConfigurations) {
  // Without the sensor's directory nothing can be created, and nothing is reported.
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

  // Label names are used as given; only "mode" is a number.
  names_ = {"module", "zone", "mode"};
  map_["zone"] = {{4, "50%s ö"}};
  EXPECT_EQ(ToPath({1, 4, 5, 6}), sensor_ + "/zone_50%s ö/mode_5/AWGain.json");  // names end before the values do
  EXPECT_EQ(Mode(sensor_ + "/zone_50%s ö/mode_5"), 0700U);
  names_.clear();
  EXPECT_EQ(ToPath({1, 2}), sensor_ + "/.json");
  EXPECT_EQ(ToPath({}), sensor_ + "/.json");
}

TEST_F(TuningPathTest, ReadsLevelsByPrefixFromTheFileUpwards) {
  // The module and the values of the levels above it; -1 for the rest.
  const auto expect = [&](const std::string& path, std::vector<int> config) {
    config.resize(8, -1);
    EXPECT_EQ(ToConfig(path), config) << path;
  };
  expect(R"(C:\proj\tele\mode_3\scenario_Video\AWGain.json)", {1, 3, 1});
  // Any order, gaps, and the level nearer to the root wins.
  expect("p/tele/filter_Mono/mode_4/mode_5/AWGain", {1, 4, -1, -1, -1, -1, -1, 1});
  expect("p/mode_4/tele/mode_5/AWGain.json", {1, 5});
  expect("mode_4/mode_5/AWGain.json", {1, 5});  // no separator before the first folder
  // The value is cut at the prefix's length, wherever the prefix was found.
  expect("p/my_scene_Day/AWGain.json", {1});
  expect("p/xmode_7/AWGain.json", {1, 0});
  expect("p/mode_ 12x/AWGain.json", {1, 12});
  expect("p/sub_function_Pre/AWGain.json", {1, -1, -1, -1, -1, 1});
  expect("p/filter_function_Flash/AWGain.json", {1});
  expect("p/scenario_Video/scenario_none/AWGain.json", {1, -1, 1});
  expect("/AWGain.json", {1});
  // Without a separator, no module is looked for.
  expect("AWGain.json", {});
  expect("", {});
  map_["module"][12] = "AWGain";
  expect("p/AWGain.json", {12});

  map_["module"][-1] = "Minus";
  for (const auto& [path, module] : Rows{{"AWGain.tuning.json", "AWGain.tuning"},
                                         {"awgain.json", "awgain"},
                                         {".json", ""},
                                         {"", ""},
                                         {"50%s%n.json", "50%s%n"},
                                         {"Minus.json", "Minus"}}) {
    expect("p/mode_3/" + path, {});
    EXPECT_LOG(UnknownModule(module));
  }
}

TEST_F(TuningPathTest, ShortLabelListsIgnoreDeeperLevels) {
  names_ = {"module", "mode"};
  EXPECT_THAT(ToConfig("p/mode_3/scenario_Video/filter_Mono/AWGain.json"), ElementsAre(1, 3));
  names_ = {"module"};
  EXPECT_THAT(ToConfig("p/mode_3/AWGain.json"), ElementsAre(1));
  names_.clear();
  EXPECT_THAT(ToConfig("p/mode_3/AWGain.json"), IsEmpty());
  EXPECT_THAT(ToConfig("AWGain.json"), IsEmpty());
  EXPECT_LOG(UnknownModule("AWGain"));
}

}  // namespace
