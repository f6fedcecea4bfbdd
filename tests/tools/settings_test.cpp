// template and new.

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "tools/tool.h"

namespace zotest {
namespace {

using testing::HasSubstr;

/// Writes past `bytes` fail in the tool, which is not killed for it.
std::function<void()> LimitedTo(rlim_t bytes) {
  return [bytes] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{bytes, bytes};
    setrlimit(RLIMIT_FSIZE, &limit);
  };
}

TEST_F(ToolTest, TemplatesAreMadeOnceAndEditedOnesKept) {
  const std::string edited = Read(At("default/AfCommon.json"));
  const Ran kept = Tool({"template", "AfCommon", "--json"});
  EXPECT_EQ(kept.code, 1);
  EXPECT_EQ(kept.json()["result"]["templates"][0],
            Json({{"module", "AfCommon"}, {"file", "default/AfCommon.json"}, {"state", "kept"}}));
  EXPECT_EQ(Read(At("default/AfCommon.json")), edited);

  EXPECT_EQ(Tool({"template", "AfCommon", "--force"}).out, "default/AfCommon.json  replaced\n");
  EXPECT_NE(Read(At("default/AfCommon.json")), edited);
  EXPECT_EQ(Tool({"template", "AfCommon"}).out, "default/AfCommon.json  unchanged\n");
  unlink(At("default/AfCommon.json").c_str());
  EXPECT_EQ(Tool({"template", "AfCommon"}).out, "default/AfCommon.json  made\n");

  const Ran all = Tool({"template", "--all"});
  EXPECT_EQ(all.code, 1);  // the other defaults of the example are edited
  EXPECT_THAT(all.out, HasSubstr("default/AfCommon.json         unchanged\n"));
  EXPECT_THAT(all.out, HasSubstr("default/PdCalib.json          kept\n"));
}

TEST_F(ToolTest, AFailedTemplateIsNoticed) {
  EXPECT_THAT(Tool({"template", "Afcommon"}).err, HasSubstr("no module 'Afcommon'; did you mean 'AfCommon'?"));
  const Ran cut = RunTool({"template", "AfCommon", "--force"}, {dir_, "", LimitedTo(100)});
  EXPECT_EQ(cut.code, 1);
  EXPECT_THAT(cut.err, HasSubstr("default/AfCommon.json: error: the template was not written whole"));
  std::filesystem::remove_all(At("default"));
  const Ran missing = Tool({"template", "AfCommon"});
  EXPECT_EQ(missing.code, 1);
  EXPECT_THAT(missing.err, HasSubstr("the project has no folder 'default'"));
}

TEST_F(ToolTest, NewMakesEveryCombination) {
  const Strings command = {"new",      "--sensor", "front", "scenario=Video,Preview", "module=AfCommon,PdCalib",
                           "mode=7,-2"};
  Strings dry = command;
  dry.push_back("--dry-run");
  const Strings before = Tree(dir_);
  const Ran planned = Tool(dry);
  EXPECT_EQ(planned.code, 0) << planned.err;
  EXPECT_EQ(Tree(dir_), before);

  const Ran made = Tool(command);
  EXPECT_EQ(made.code, 0) << made.err;
  Strings expected = before;
  for (const char* mode : {"front/mode_-2/", "front/mode_7/"}) {
    expected.push_back(mode);
    for (const char* scenario : {"scenario_Preview/", "scenario_Video/"}) {
      const std::string folder = std::string(mode) + scenario;
      expected.push_back(folder);
      for (const char* module : {"AfCommon.json", "PdCalib.json"}) {
        expected.push_back(folder + module);
        EXPECT_THAT(planned.out, HasSubstr(folder + module));
        EXPECT_EQ(Read(At(folder + module)), Read(At(std::string("default/") + module)));
      }
    }
  }
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(Tree(dir_), expected);
  EXPECT_EQ(Tool({"tree"}).code, 0);
}

TEST_F(ToolTest, NewKeepsWhatExists) {
  const std::string edited = Read(At("front/mode_1/AfCommon.json"));
  const Strings command = {"new", "--sensor", "front", "module=AfCommon", "mode=1,8"};
  const Ran run = Tool(command);
  EXPECT_EQ(run.code, 1);
  EXPECT_EQ(run.out, "front/mode_1/AfCommon.json  kept\nfront/mode_8/AfCommon.json  made\n");
  EXPECT_THAT(run.err, HasSubstr("front/mode_1/AfCommon.json: error: this setting exists; it is kept"));
  EXPECT_EQ(Read(At("front/mode_1/AfCommon.json")), edited);
  Strings forced = command;
  forced.push_back("--force");
  EXPECT_EQ(Tool(forced).out, "front/mode_1/AfCommon.json  replaced\nfront/mode_8/AfCommon.json  replaced\n");
  EXPECT_EQ(Read(At("front/mode_1/AfCommon.json")), Read(At("default/AfCommon.json")));
}

TEST_F(ToolTest, NewMakesNothingAfterAWrongNameOrDefault) {
  unlink(At("default/PdCalib.json").c_str());
  Edit("default/AWBCommon.json", "\"value\"", "\"valeu\"");
  const struct {
    Strings labels;
    const char* says;
  } rows[] = {
      {{"module=Afcommon"}, "no module 'Afcommon'; did you mean 'AfCommon'?"},
      {{"module=AfCommon", "mode=9", "scenario=Vidoe"}, "'scenario' has no value 'Vidoe'; did you mean 'Video'?"},
      {{"module=AfCommon", "mode=one"}, "'one' is no value for 'mode'"},
      {{"module=AfCommon", "mode=-1"}, "'-1' is no value for 'mode'"},
      {{"module=AfCommon", "mode=99999999999"}, "'99999999999' is no value for 'mode'"},
      {{"module=AfCommon", "mod=9"}, "no label 'mod'; did you mean 'mode'?"},
      {{"module=AfCommon,PdCalib", "mode=9"}, "default/PdCalib.json: error: the module 'PdCalib' has no default yet"},
      {{"module=AWBCommon", "mode=9"}, "has no field 'valeu'; did you mean 'value'?"},
  };
  const Strings before = Tree(dir_);
  for (const auto& row : rows) {
    Strings command = {"new", "--sensor", "front"};
    command.insert(command.end(), row.labels.begin(), row.labels.end());
    const Ran run = Tool(command);
    EXPECT_EQ(run.code, 1) << row.says;
    EXPECT_THAT(run.err, HasSubstr(row.says));
    EXPECT_EQ(run.out, "") << row.says;
  }
  EXPECT_THAT(Tool({"new", "--sensor", "rear", "module=AfCommon"}).err, HasSubstr("no sensor 'rear'"));
  EXPECT_EQ(Tree(dir_), before);
}

TEST_F(ToolTest, AFailedCopyIsNoticed) {
  const Ran cut = RunTool({"new", "--sensor", "front", "module=AfCommon", "mode=9"}, {dir_, "", LimitedTo(100)});
  EXPECT_EQ(cut.code, 1);
  EXPECT_THAT(cut.err, HasSubstr("front/mode_9/AfCommon.json: error: the copy differs from the default"));
  EXPECT_EQ(cut.out, "front/mode_9/AfCommon.json  failed\n");
  Write(At("front/mode_8"), "a file in the way");
  const Ran blocked = Tool({"new", "--sensor", "front", "module=AfCommon", "mode=8"});
  EXPECT_EQ(blocked.code, 1);
  EXPECT_THAT(blocked.err, HasSubstr("cannot read front/mode_8/AfCommon.json: Not a directory"));
}

}  // namespace
}  // namespace zotest
