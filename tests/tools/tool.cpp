#include "tools/tool.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <iterator>
#include <sstream>

namespace zotest {

Json Ran::json() const {
  const Json object = Json::parse(out, nullptr, false);
  EXPECT_TRUE(object.is_object()) << out << err;
  if (!object.is_object()) return {};
  for (const char* key : {"tool", "version", "command", "ok", "diagnostics", "result"}) {
    EXPECT_TRUE(object.contains(key)) << key << " is missing in " << out;
  }
  for (const Json& diagnostic : object["diagnostics"]) {
    for (const char* key : {"code", "severity", "file", "line", "column", "path", "message", "hint"}) {
      EXPECT_TRUE(diagnostic.contains(key)) << key << " is missing in " << diagnostic;
    }
  }
  EXPECT_EQ(object["ok"], code == 0) << out;
  return object;
}

Ran RunProgram(const std::string& program, const Strings& arguments, const RunWith& with) {
  const TempDir files;
  Write(files / "in", with.input);
  std::vector<char*> argv = {const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    (void)!freopen((files / "in").c_str(), "r", stdin);
    (void)!freopen((files / "out").c_str(), "w", stdout);
    (void)!freopen((files / "err").c_str(), "w", stderr);
    if (!with.dir.empty() && chdir(with.dir.c_str()) != 0) _exit(126);
    if (with.prepare) with.prepare();
    execvp(argv[0], argv.data());
    _exit(127);
  }
  if (with.meanwhile) with.meanwhile(child);
  int status = 0;
  waitpid(child, &status, 0);
  Ran run;
  run.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  run.out = Read(files / "out");
  run.err = Read(files / "err");
  return run;
}

void ToolTest::SetUp() {
  std::filesystem::copy(ZOTUNING_EXAMPLE, dir_, std::filesystem::copy_options::recursive);
  const Ran made =
      Tool("init tuning_project --proto tuning_project/proto --sensor main_wide --sensor front", {temp_.str()});
  ASSERT_EQ(made.code, 0) << made.out << made.err;
}

Ran ToolTest::Tool(const std::string& line, RunWith with) const {
  std::istringstream words(line);
  if (with.dir.empty()) with.dir = dir_;
  return RunProgram(ZOTUNING_TOOL, {std::istream_iterator<std::string>(words), {}}, with);
}

void ToolTest::Fails(const std::string& line, const std::string& says, int code) const {
  const Ran run = Tool(line);
  EXPECT_EQ(run.code, code) << line << "\n" << run.err;
  EXPECT_THAT(run.err, HasSubstr(says)) << line;
  EXPECT_TRUE(code != 2 || run.out.empty()) << line << "\n" << run.out;
}

void ToolTest::Edit(const std::string& file, const std::string& from, const std::string& to) const {
  std::string text = Read(At(file));
  const size_t at = text.find(from);
  ASSERT_NE(at, std::string::npos) << from << " is not in " << file;
  Write(At(file), text.replace(at, from.size(), to));
}

void PackedTest::SetUp() {
  ToolTest::SetUp();
  ASSERT_EQ(Tool("pack -o out").code, 0);
}

}  // namespace zotest
