// report on the command line; scripts/checks/report tests the page.

#include "tools/tool.h"

namespace zotest {
namespace {

using testing::Not;
using testing::StartsWith;

class ReportTest : public PackedTest {
 protected:
  void SetUp() override {
    PackedTest::SetUp();
    if (Tool("report -o page.html").code == 2) GTEST_SKIP() << "built without esbuild or uPlot";
  }
};

TEST_F(ReportTest, WritesOnePageAndReplacesOneThatIsThere) {
  Write(At("page.html"), "old");
  const Ran run = Tool("report -o page.html");
  EXPECT_EQ(run.code, 0) << run.err;
  EXPECT_THAT(run.out, StartsWith("page.html: 38 settings, "));
  const std::string page = Read(At("page.html"));
  EXPECT_THAT(page, StartsWith("<!DOCTYPE html>"));
  // It contains nothing of this machine, and no time.
  Tool("report -o again.html");
  EXPECT_EQ(Read(At("again.html")), page);
  EXPECT_EQ(Tool("-C " + std::string("tuning_project") + " report -o page.html", {temp_.str()}).code, 0);
  EXPECT_EQ(Read(temp_ / "page.html"), page);
}

TEST_F(ReportTest, TellsHowManySettingsDiffer) {
  Edit("main_wide/mode_0/AfCommon.json", "\"value\": 836", "\"value\": 1100");
  const struct {
    const char* line;
    int settings;
    int different;
    int outside;
  } rows[] = {
      {"report main_wide -o p.html", 13, 0, 1},
      {"report --against out -o p.html", 38, 1, 1},
      {"report main_wide front --against out/zo_tuning -o p.html", 25, 1, 1},
      {"report main_wide --against out/zo_tuning/main_wide.bin -o p.html", 13, 1, 1},
      {"report front --against front -o p.html", 12, 0, 0},
  };
  for (const auto& row : rows) {
    const Json result = Tool(std::string(row.line) + " --json").json()["result"];
    EXPECT_EQ(result["settings"], row.settings) << row.line;
    EXPECT_EQ(result["different"], row.different) << row.line;
    EXPECT_EQ(result["outside"], row.outside) << row.line;
    EXPECT_EQ(result["bytes"], Read(At("p.html")).size()) << row.line;
  }
}

TEST_F(ReportTest, RefusesWhatItCannotDoAndLeavesOutWhatItCannotRead) {
  Fails("report", "-o", 2);
  Fails("report fornt -o p.html", "did you mean 'front'?");
  Fails("report --against nowhere -o p.html", "'nowhere'");
  Fails("report -o no/such/p.html", "no/such/p.html");
  EXPECT_FALSE(Exists(At("p.html")));
  Write(At("front/mode_1/AfCommon.json"), "{\"lens\": 3");
  Fails("report front -o p.html", "front/mode_1/AfCommon.json");
  EXPECT_THAT(Read(At("p.html")), Not(testing::IsEmpty()));
}

}  // namespace
}  // namespace zotest
