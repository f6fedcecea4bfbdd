// Comparing on the command line, from git, and finding the setting for a situation.

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "tools/tool.h"

namespace zotest {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::Not;
using testing::StartsWith;

class DiffTest : public PackedTest {
 protected:
  void SetUp() override {
    PackedTest::SetUp();
    Write(At(".gitignore"), "out\n");
    Git("init -q");
    Commit();
    Edit("front/mode_1/AfCommon.json", "\"macro_code\": {", "\"macro_code\":\n{");  // the same with other spacing
    Edit("front/version/tuning.json", "0.7.3", "0.7.4");
    Json gains = Json::parse(Read(At("main_wide/LensShading.json")));
    gains["red"]["gain"]["value"][3]["value"][17] = 8;
    gains["cct_k"]["value"] = 5100;
    gains["cct_k"]["rule"]["recommend"] = "5000..6000";
    Write(At("main_wide/LensShading.json"), gains.dump());
    fs::remove(At("front/AWBCommon.json"));
  }

  Ran Git(const std::string& line) const {
    std::istringstream words("-c user.name=n -c user.email=e " + line);
    const Ran run = RunProgram("git", {std::istream_iterator<std::string>(words), {}}, {dir_});
    EXPECT_EQ(run.code, 0) << line << "\n" << run.err;
    return run;
  }
  void Commit() const {
    Git("add -A");
    Git("commit -q -m m");
  }

  const std::string changes_ =
      "changed  main_wide module=LensShading\n"
      "  red.gain 33x33: 1 changed, mean +552.0 %, largest +6.77 at [3][17]\n"
      "  cct_k.value: 5000 → 5100 (+2.0 %)\n"
      "changed  front version=front.tuning\n"
      "  version: \"0.7.3\" → \"0.7.4\"\n"
      "removed  front module=AWBCommon\n";
};

TEST_F(DiffTest, TheProjectIsComparedWithHeadOrBins) {
  const Ran run = Tool("diff");
  EXPECT_EQ(run.code, 0) << run.err;
  EXPECT_EQ(run.out, "--- HEAD:\n+++ .\n" + changes_ + "3 settings differ, 44 the same\n");
  EXPECT_EQ(Tool("diff out .").out, "--- out\n+++ .\n" + changes_ + "3 settings differ, 44 the same\n");
  EXPECT_EQ(Tool("diff tuning_project/out tuning_project", {temp_.str()}).out,
            "--- tuning_project/out\n+++ tuning_project\n" + changes_ + "3 settings differ, 44 the same\n");
  EXPECT_EQ(Tool("diff --exit-code").code, 1);
  EXPECT_EQ(Tool("diff HEAD:front/mode_1 front/mode_1 --exit-code").out, "");
  EXPECT_EQ(Tool("diff HEAD:main_wide main_wide --stat").out,
            "--- HEAD:main_wide\n+++ main_wide\nchanged  module=LensShading: 2 values\n"
            "1 setting differs, 14 the same\n");
  EXPECT_THAT(Tool("diff --rules").out, HasSubstr("cct_k.rule.recommend: "));
  EXPECT_THAT(Tool("diff --all").out, HasSubstr("  red.gain.value[3].value[17]: 1.227 → 8 (+552.0 %)\n"));
  EXPECT_THAT(Tool("diff --color always").out, HasSubstr("\033[31mremoved\033[0m  front module=AWBCommon\n"));
  const Json result = Tool("diff --json").json()["result"];
  EXPECT_EQ(result["different"], 3);
  EXPECT_EQ(result["settings"][0]["differences"][1].dump(),
            R"({"path":"cct_k.value","kind":"changed","left":5000,"right":5100})");
  EXPECT_EQ(result["settings"][2]["kind"], "removed");
}

TEST_F(DiffTest, TolerancesAreThoseOfTheProjectUnlessGiven) {
  Write(At("zotuning.json"), "{\"diff\": {\"tolerances\": [{\"path\": \"LensShading.cct_k.*\", \"abs\": 100}]}} // K");
  const std::string line = "diff HEAD:main_wide main_wide";
  EXPECT_THAT(Tool(line).out, Not(HasSubstr("cct_k")));
  EXPECT_THAT(Tool(line + " --abs 0").out, HasSubstr("cct_k"));
  EXPECT_THAT(Tool(line + " --abs 99").out, HasSubstr("cct_k"));
  EXPECT_EQ(Tool(line + " --rel 1").out, "");
  Fails(line + " --abs -1", "a number from 0 is expected", 2);
  Write(At("zotuning.json"), "{\"differ\": 1}");
  Fails(line, "zotuning.json:1:2: error: unknown key 'differ'", 2);
}

TEST_F(DiffTest, GitShowsDifferencesByMeaning) {
  Write(At(".gitattributes"), "*.json diff=zotuning\n*.bin diff=zotuning\nProjConf.bin -diff\n");
  Write(At("notes.json"), "{\"a\": 1}\n");
  fs::copy(At("out/zo_tuning/front.bin"), At("front.bin"));
  RunProgram("git", {"config", "diff.zotuning.command", "'" + fs::absolute(ZOTUNING_TOOL).string() + "' diff"}, {dir_});
  Commit();
  const std::string log = Git("log -1 -p --ext-diff --no-renames").out;
  EXPECT_THAT(log, HasSubstr("--- a/main_wide/LensShading.json\n+++ b/main_wide/LensShading.json\n"
                             "changed  module=LensShading\n  red.gain 33x33: 1 changed"));
  EXPECT_THAT(log, HasSubstr("--- a/front/AWBCommon.json\n+++ /dev/null\nremoved  module=AWBCommon\n"));
  EXPECT_THAT(log, HasSubstr("+++ b/front/mode_1/AfCommon.json\n  the same values, written differently\n"));
  EXPECT_THAT(log, HasSubstr("+++ b/front/version/tuning.json\nchanged  version=front.tuning\n"));
  EXPECT_THAT(log, HasSubstr("+{\"a\": 1}\n"));  // not a setting: line by line
  EXPECT_THAT(log, HasSubstr("+++ b/front.bin\nadded"));
  Git("mv main_wide/mode_0/AfCommon.json main_wide/mode_1/AfCommon.json");
  EXPECT_THAT(
      Git("diff --cached -M").out,
      HasSubstr("+++ b/main_wide/mode_1/AfCommon.json\n  moved: module=AfCommon mode=0 → module=AfCommon mode=1\n"));
  Git("reset -q --hard");
  // A damaged file stops nothing.
  Write(At("main_wide/LensShading.json"), "{\"red\": }\n");
  Write(At("notes.json"), "{\"a\": 2}\n");
  fs::copy_file(At("out/zo_tuning/main_wide.bin"), At("front.bin"), fs::copy_options::overwrite_existing);
  fs::permissions(At("default/AfCommon.json"), fs::perms::owner_all);
  const std::string changed = Git("diff").out;
  EXPECT_THAT(changed, HasSubstr("main_wide/LensShading.json: a value is expected\n"));
  EXPECT_THAT(changed, HasSubstr("+{\"red\": }\n"));
  EXPECT_THAT(changed, HasSubstr("+{\"a\": 2}\n"));
  EXPECT_THAT(changed, HasSubstr("+++ b/default/AfCommon.json\n  mode 100644 → 100755\n---"));
  EXPECT_THAT(changed, Not(HasSubstr("+++ b//")));  // no names of git's temporary files
  EXPECT_THAT(changed, HasSubstr("+++ b/front.bin\n"));
}

TEST_F(DiffTest, LongOutputGoesThroughAPager) {
  const auto on_terminal = [] {
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    (void)!grantpt(master);
    (void)!unlockpt(master);
    (void)dup2(open(ptsname(master), O_RDWR | O_NOCTTY), STDOUT_FILENO);
    (void)setenv("GIT_PAGER", "cat > paged", 1);
    (void)setenv("TERM", "xterm", 1);
    (void)unsetenv("NO_COLOR");
  };
  RunWith terminal;
  terminal.prepare = on_terminal;
  EXPECT_EQ(Tool("diff", terminal).code, 0);
  EXPECT_THAT(Read(At("paged")), StartsWith("\033[1m--- HEAD:\033[0m\n"));
  fs::remove(At("paged"));
  EXPECT_EQ(Tool("diff --no-pager", terminal).code, 0);
  EXPECT_FALSE(fs::exists(At("paged")));
}

TEST_F(DiffTest, VerifyTakesOneBinAndSeesEveryByte) {
  EXPECT_EQ(Tool("verify out/zo_tuning/default.bin").out, "default.bin: 18 the same, 0 differences\n");
  const Ran run = Tool("verify out");
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.out, HasSubstr("front.bin: 12 the same, 2 differences\n--- out/zo_tuning/front.bin\n+++ the tree\n"
                                 "changed  version=front.tuning\n  version: \"0.7.3\" → \"0.7.4\"\n"
                                 "removed  module=AWBCommon\n"));
  fs::copy(At("out/zo_tuning/default.bin"), At("other.bin"));
  Fails("verify other.bin", "other.bin: error: this bin belongs to no sensor");
  EXPECT_EQ(Tool("verify other.bin --sensor front").code, 1);
}

TEST_F(DiffTest, OnlyTheExactSettingIsForASituation) {
  EXPECT_EQ(Tool("which front module=AfCommon mode=1").out,
            "AfCommon: mode=1\n  exact    front/mode_1/AfCommon.json\n  default  default/AfCommon.json\n");
  EXPECT_EQ(Tool("which front module=AfCommon mode=1 scenario=Video --value scan.coarse_step.value").out,
            "AfCommon: no setting for mode=1 scenario=Video\n"
            "  near     front/mode_1/AfCommon.json  24  1 level in common; scenario is not set\n"
            "  default  default/AfCommon.json       40\n");
  const Json modules = Tool("which main_wide --json").json()["result"]["modules"];
  EXPECT_EQ(modules.size(), 13u);
  Fails("which front mode=1,2", "a situation has one value of 'mode'", 2);
  Fails("which front module=AfCommon --value no.such", "none of these settings has a value at 'no.such'");
  Fails("which fornt", "did you mean 'front'?");
}

}  // namespace
}  // namespace zotest
