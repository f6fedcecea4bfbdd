// The command line itself: help, misuse, the JSON object, output that nobody reads.

#include <unistd.h>

#include "tools/tool.h"

namespace zotest {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const Strings kCommands = {"init",    "template", "new",  "pack",   "modules", "labels",
                           "sensors", "tree",     "show", "verify", "version"};

TEST(Usage, EveryCommandHasHelpWithAnExampleOfItself) {
  const TempDir temp;
  for (const std::string& command : kCommands) {
    const Ran run = RunTool({command, "--help"}, {temp.str(), ""});
    EXPECT_EQ(run.code, 0) << command;
    EXPECT_THAT(run.out, HasSubstr("Examples:\n  zotuning " + command)) << command;
    EXPECT_THAT(run.err, IsEmpty()) << command;
  }
  const Ran all = RunTool({"--help"}, {temp.str(), ""});
  for (const std::string& command : kCommands) EXPECT_THAT(all.out, HasSubstr("\n  " + command + " "));
  EXPECT_THAT(RunTool({"--version"}, {temp.str(), ""}).out, testing::StartsWith("zotuning "));
}

TEST_F(ToolTest, MisuseExitsWithTwoAndSaysWhatWasMeant) {
  const struct {
    Strings arguments;
    const char* says;
  } rows[] = {
      {{}, "a command is missing"},
      {{"packk"}, "no command 'packk'; did you mean 'pack'?"},
      {{"version", "heder"}, "no command 'heder'; did you mean 'header'?"},
      {{"pack", "-o", "x", "--forse"}, "no option '--forse'; did you mean '--force'?"},
      {{"pack"}, "--out is required"},
      {{"modules", "extra"}, "unexpected argument 'extra'"},
      {{"template"}, "give the names of modules, or --all"},
      {{"template", "AfCommon", "--all"}, "not both"},
      {{"pack", "-o", "x", "--ask", "--sensor", "front"}, "--ask cannot stand together with --sensor"},
      {{"new", "--sensor", "front", "AfCommon"}, "'AfCommon' is not of the form label=value"},
      {{"new", "--sensor", "front", "mode=1"}, "the label 'module' is missing"},
      {{"new", "--sensor", "front", "module=AfCommon", "scenario=Video"}, "'scenario' needs 'mode' as well"},
      {{"new", "--sensor", "front", "module=AfCommon", "mode=1", "mode=2"}, "'mode' is given twice"},
      {{"show", "default", "--text"}, "a folder is listed as a whole"},
      {{"-C", "proto", "modules"}, "'proto' is no project"},
      {{"-C", "nowhere", "modules"}, "'nowhere' is no directory"},
      {{"init", "a/b", "--proto", "proto", "--sensor", "s"}, "must not contain '/'"},
      {{"init", "p", "--proto", "proto", "--sensor", "default"}, "'default' is taken"},
      {{"init", "p", "--proto", "nowhere", "--sensor", "s"}, "'nowhere' is no directory"},
  };
  const Strings before = Tree(dir_);
  for (const auto& row : rows) {
    const Ran run = Tool(row.arguments);
    EXPECT_EQ(run.code, 2) << row.says << run.err;
    EXPECT_THAT(run.err, HasSubstr(row.says));
    EXPECT_THAT(run.out, IsEmpty()) << row.says;
    Strings with_json = row.arguments;
    with_json.push_back("--json");
    const Ran machine = Tool(with_json);
    EXPECT_EQ(machine.code, 2) << row.says;
    EXPECT_THAT(machine.json()["diagnostics"][0]["message"].get<std::string>(), HasSubstr(row.says));
    EXPECT_THAT(machine.err, IsEmpty()) << row.says;
  }
  EXPECT_EQ(Tree(dir_), before);
}

TEST_F(ToolTest, TheNearestProjectIsFoundFromWithin) {
  const Ran within = RunTool({"sensors"}, {At("main_wide/mode_0"), ""});
  EXPECT_EQ(within.code, 0) << within.err;
  EXPECT_EQ(within.out, Tool({"sensors"}).out);
  EXPECT_EQ(RunTool({"-C", dir_, "sensors"}, {temp_.str(), ""}).out, within.out);
  const Ran outside = RunTool({"sensors"}, {temp_.str(), ""});
  EXPECT_EQ(outside.code, 2);
  EXPECT_THAT(outside.err, HasSubstr("no project here"));
}

TEST_F(ToolTest, LibraryLinesAreShownOnRequestOnly) {
  // An empty folder of versions is worth a warning line to the library, and none to the tool.
  for (const char* file : {"front/version/tuning.json", "front/version/calibration.json"}) unlink(At(file).c_str());
  const Ran quiet = Tool({"pack", "-o", "out"});
  EXPECT_EQ(quiet.code, 0);
  EXPECT_THAT(quiet.err, IsEmpty());
  const Ran verbose = Tool({"-v", "pack", "-o", "out", "--force"});
  EXPECT_EQ(verbose.code, 0);
  EXPECT_THAT(verbose.err, HasSubstr("GetVersionMsgs() Cannot find any version json file under dir: ./front/version"));
  EXPECT_THAT(verbose.out, Not(HasSubstr("GetVersionMsgs")));
}

TEST_F(ToolTest, NamesFromOutsideSteerNoTerminalAndBreakNoJson) {
  Write(At("front/\x1b[2J\xff.json"), "{}");
  const Ran text = Tool({"tree", "front"});
  EXPECT_EQ(text.code, 1);
  EXPECT_THAT(text.out + text.err, Not(HasSubstr("\x1b")));
  EXPECT_THAT(text.err, HasSubstr("\\x1B[2J"));
  EXPECT_THAT(Tool({"tree", "front", "--json"}).json()["diagnostics"][0]["file"].get<std::string>(),
              HasSubstr("\xEF\xBF\xBD.json"));
}

TEST_F(ToolTest, OutputThatNobodyReadsEndsNoJobButAFullDiskFailsIt) {
  int pipe_ends[2];
  ASSERT_EQ(pipe(pipe_ends), 0);
  close(pipe_ends[0]);
  const Ran closed = RunTool({"pack", "-o", "out"}, {dir_, "", [&] { dup2(pipe_ends[1], 1); }});
  close(pipe_ends[1]);
  EXPECT_EQ(closed.code, 0) << closed.err;
  EXPECT_TRUE(Exists(At("out/zo_tuning/front.bin")));
  const Ran full = RunTool({"tree"}, {dir_, "", [] { (void)!freopen("/dev/full", "w", stdout); }});
  EXPECT_EQ(full.code, 1);
  EXPECT_THAT(full.err, HasSubstr("cannot write to standard output"));
}

}  // namespace
}  // namespace zotest
