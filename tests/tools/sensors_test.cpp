// sensors add, remove and rename: the list and the folders change together, or not at all.

#include <unistd.h>

#include "tools/tool.h"

namespace zotest {
namespace {

using testing::ElementsAre;

class SensorsTest : public ToolTest {
 protected:
  Strings Listed() const {
    Strings names;
    const Json listed = Tool("sensors --json").json();
    for (const Json& sensor : listed["result"]["sensors"]) names.push_back(sensor["name"]);
    return names;
  }
};

TEST_F(SensorsTest, AreAddedRenamedAndRemovedWithTheirFolders) {
  EXPECT_EQ(Tool("sensors add rear").out, "added the sensor rear\n");
  EXPECT_THAT(Tree(At("rear")), ElementsAre(".gitkeep", "version/", "version/.gitkeep"));
  EXPECT_EQ(Tool("sensors add macro --from front").code, 0);
  EXPECT_EQ(Tree(At("macro")), Tree(At("front")));
  EXPECT_THAT(Listed(), ElementsAre("main_wide", "front", "rear", "macro"));
  EXPECT_EQ(Tool("sensors rename front selfie").code, 0);
  EXPECT_FALSE(Exists(At("front")));
  EXPECT_EQ(Tree(At("selfie")), Tree(At("macro")));
  EXPECT_EQ(Tool("sensors remove macro --yes").code, 0);
  EXPECT_FALSE(Exists(At("macro")));
  EXPECT_THAT(Listed(), ElementsAre("main_wide", "selfie", "rear"));
  EXPECT_EQ(Tool("pack -o out").code, 0);
  // A folder that existed but was not listed.
  Write(At("tele/mode_0/AfCommon.json"), Read(At("default/AfCommon.json")));
  EXPECT_EQ(Tool("sensors add tele --json").json()["result"]["sensors"].size(), 4u);
  EXPECT_EQ(Tool("pack -o out --force --sensor tele").code, 0);
}

TEST_F(SensorsTest, NothingChangesAfterAnError) {
  const Strings before = Tree(dir_);
  const std::string config = Read(At("ProjConf.bin"));
  Fails("sensors add front", "the project has a sensor 'front' already");
  Fails("sensors add a,b", "the sensor name 'a,b' contains a comma");
  Fails("sensors add my_scene_cam", "contains 'scene_' and would be read as a level of the tree");
  Fails("sensors add proto", "is taken by a folder or file of the project");
  Fails("sensors add rear --from fornt", "no sensor 'fornt'; did you mean 'front'?");
  Fails("sensors remove fornt --yes", "no sensor 'fornt'");
  Fails("sensors remove front", "--yes is missing: the folder of 'front' goes with 12 settings", 2);
  Fails("sensors rename front main_wide", "the project has a sensor 'main_wide' already");
  Fails("sensors rename front default", "is taken");
  Fails("init p --proto proto --sensor a,b", "give one sensor at a time", 2);
  EXPECT_EQ(Tree(dir_), before);
  EXPECT_EQ(Read(At("ProjConf.bin")), config);
}

}  // namespace
}  // namespace zotest
