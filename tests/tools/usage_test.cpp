// The command line itself: help, misuse, the JSON object, output that nobody reads.

#include <fcntl.h>
#include <unistd.h>

#include "tools/tool.h"

namespace zotest {
namespace {

TEST_F(ToolTest, EveryCommandHasHelpWithAnExampleOfItself) {
  const std::string all = Tool("--help", {temp_.str()}).out;
  for (const std::string command : {"init", "template", "new", "pack", "modules", "labels", "sensors", "tree", "show",
                                    "diff", "which", "verify", "version"}) {
    const Ran run = Tool(command + " --help", {temp_.str()});
    EXPECT_EQ(run.code, 0) << command;
    EXPECT_THAT(run.out, HasSubstr("Examples:\n  zotuning " + command)) << command;
    EXPECT_THAT(run.err, IsEmpty()) << command;
    EXPECT_THAT(all, HasSubstr("\n  " + command + " "));
  }
  EXPECT_EQ(Tool("", {temp_.str()}).out, all);
  EXPECT_EQ(Tool("help", {temp_.str()}).out, all);
  EXPECT_EQ(Tool("help version set").out, Tool("version set --help").out);
  Fails("help packk", "no command 'packk'; did you mean 'pack'?", 2);
  EXPECT_THAT(Tool("--version", {temp_.str()}).out, testing::StartsWith("zotuning "));
}

TEST_F(ToolTest, MisuseExitsWithTwoAndSaysWhatWasMeant) {
  const Rows rows = {
      {"-v", "a command is missing"},
      {"-C", "-C needs a value"},
      {"packk", "no command 'packk'; did you mean 'pack'?"},
      {"version heder", "no command 'heder'; did you mean 'header'?"},
      {"pack -o x --forse", "no option '--forse'; did you mean '--force'?"},
      {"pack", "--out is required"},
      {"modules extra", "unexpected argument 'extra'"},
      {"template", "name modules, or use --all"},
      {"template AfCommon --all", "not both"},
      {"pack -o x --ask --sensor front", "--ask cannot be combined with --sensor"},
      {"new --sensor front AfCommon", "'AfCommon' is not of the form label=value"},
      {"new --sensor front mode=1", "the label 'module' is missing"},
      {"new --sensor front module=AfCommon scenario=Video", "'scenario' needs 'mode' as well"},
      {"new --sensor front module=AfCommon mode=1 mode=2", "'mode' is given twice"},
      {"show default --text", "a folder is listed as a whole"},
      {"show x.bin --record -1", "--record: '-1' is not the number of a record; they count from 0"},
      {"-C proto modules", "'proto' is not a project"},
      {"-C nowhere modules", "'nowhere' is not a directory"},
      {"init a/b --proto proto --sensor s", "must not contain a slash"},
      {"init p --proto proto --sensor default", "'default' is taken"},
      {"init p --proto nowhere --sensor s", "'nowhere' is not a directory"},
  };
  const Strings before = Tree(dir_);
  for (const auto& [line, says] : rows) {
    Fails(line, says, 2);
    const Ran machine = Tool("--json " + line);
    EXPECT_EQ(machine.code, 2) << line;
    EXPECT_THAT(machine.json()["diagnostics"][0]["message"].get<std::string>(), HasSubstr(says));
    EXPECT_EQ(machine.err, "") << line;
  }
  const Ran unset = RunProgram(ZOTUNING_TOOL, {"-C", "", "modules"}, {dir_});  // as from an unset variable
  EXPECT_EQ(unset.code, 2) << unset.out;
  EXPECT_EQ(Tree(dir_), before);
}

TEST_F(ToolTest, TheNearestProjectIsFoundFromWithin) {
  const std::string sensors = Tool("sensors").out;
  EXPECT_EQ(Tool("sensors", {At("main_wide/mode_0")}).out, sensors);
  EXPECT_EQ(Tool("-C tuning_project sensors", {temp_.str()}).out, sensors);
  Fails("-C .. sensors", "'..' is not a project", 2);
  EXPECT_THAT(Tool("sensors", {temp_.str()}).err, HasSubstr("no project here"));
}

TEST_F(ToolTest, FilesOfAProjectSteerNeitherTerminalNorJsonNorLoader) {
  Write(At("front/\x1b[2J\xff.json"), "{}");
  // A file named like a library must not be loaded from the current directory.
  Write(At("libprotobuf.so.32"), "no library");
  const Ran text = Tool("tree front");
  EXPECT_EQ(text.code, 1) << text.err;
  EXPECT_THAT(text.out + text.err, Not(HasSubstr("\x1b")));
  EXPECT_THAT(text.err, HasSubstr("\\x1B[2J"));
  EXPECT_THAT(Tool("tree front --json").json()["diagnostics"][0]["file"].get<std::string>(),
              HasSubstr("\xEF\xBF\xBD.json"));
}

TEST_F(ToolTest, OutputThatNobodyReadsEndsNoJob) {
  int pipe_ends[2];
  ASSERT_EQ(pipe(pipe_ends), 0);
  close(pipe_ends[0]);
  const Ran closed = Tool("pack -o out", {"", "", [&] { dup2(pipe_ends[1], 1); }});
  close(pipe_ends[1]);
  EXPECT_EQ(closed.code, 0) << closed.err;
  const std::string bin = Read(At("out/zo_tuning/front.bin"));
  // With the standard descriptors closed, no output ends up in a file that took their numbers.
  const Ran none = Tool("pack -o bare", {"", "", [] {
                                           for (const int number : {0, 1, 2}) close(number);
                                         }});
  EXPECT_EQ(none.code, 1);
  EXPECT_EQ(Read(At("bare/zo_tuning/front.bin")), bin);
}

TEST_F(ToolTest, OutputThatCannotBeWrittenIsAnError) {
  if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "there is no /dev/full";
  for (const char* line : {"--version", "--help", "pack --help", "labels", "labels --json"}) {
    const Ran full = Tool(line, {"", "", [] { dup2(open("/dev/full", O_WRONLY), 1); }});
    EXPECT_EQ(full.code, 1) << line;
    EXPECT_EQ(full.err, "zotuning: error: cannot write to standard output: No space left on device\n") << line;
    EXPECT_EQ(Tool(line, {"", "", [] { close(1); }}).code, 1) << line;
  }
}

}  // namespace
}  // namespace zotest
