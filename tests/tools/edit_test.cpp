// get, set, fmt, new --from: changes to many settings through the command line.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>

#include "tools/tool.h"

namespace zotest {
namespace {

class EditTest : public ToolTest {
 protected:
  /// The files of the project whose text has changed since the last call.
  Strings Changed() {
    Strings changed;
    for (const std::string& name : Tree(dir_)) {
      if (name.back() == '/') continue;
      std::string& known = texts_[name];
      const std::string text = Read(At(name));
      if (known != text) changed.push_back(name);
      known = text;
    }
    return changed;
  }

  void SetUp() override {
    ToolTest::SetUp();
    Changed();
  }

  /// Runs the tool, which must print this to standard output.
  void Does(const std::string& line, const std::string& says, const RunWith& with = {}) {
    const Ran run = Tool(line, with);
    EXPECT_EQ(run.code, 0) << line << "\n" << run.err;
    EXPECT_THAT(run.out, HasSubstr(says)) << line;
  }

  std::map<std::string, std::string> texts_;
};

TEST_F(EditTest, ValuesAreSetInTheSettingsThatAreMeant) {
  const std::string front = "front/mode_1/AfCommon.json", wide = "main_wide/mode_0/AfCommon.json";
  Does("get lens.macro_code --where sensor=front", front + "  lens.macro_code.value  690\n");
  Does("set lens.macro_code=700 zones[*].weight*=0.5 --where module=AfCommon sensor=front mode=1",
       front + "  changed\n");
  EXPECT_EQ(Changed(), Strings{front});
  Does("get zones[*].weight --where sensor=front --format csv", "0.45\n0.27\n");
  Does("set lens.macro_code+=1 --where mode=", "default/AfCommon.json  changed\n");
  EXPECT_EQ(Changed(), Strings{"default/AfCommon.json"});

  const Ran json = Tool("get lens.macro_code --where module=AfCommon sensor=default,front --json");
  EXPECT_EQ(json.json()["result"]["values"][1]["value"], 700);
  EXPECT_EQ(json.json()["result"]["values"][1]["labels"]["mode"], 1);

  // A patch does the same as the command.
  const Ran patch = Tool("set lens.macro_code=710 --dry-run");
  EXPECT_EQ(Changed(), Strings{});
  Write(temp_ / "patch", patch.out);
  EXPECT_EQ(std::system(("cd '" + dir_ + "' && git apply ../patch").c_str()), 0) << patch.out;
  EXPECT_EQ(Changed().size(), 3u);
  Does("set lens.macro_code=710", wide + "  unchanged\n");
}

TEST_F(EditTest, WhatCannotBeSetChangesNothing) {
  const Rows rows = {
      {"set lens.macro_code*=1.05", "is not a whole number, and the field is int32"},
      {"set lens.macro_code=fast", "'fast' is not JSON"},
      {"set lens.macro_code=3000000000", "int32"},
      {"set lens.macro_code=1500", "512..1023"},
      {"set lens=1", "'lens'"},
      {"set enable=true", "several modules have the path: AfLinkKeyFar,AfLinkKeyNear"},
      {"set macro_code=1", "a path begins at the module: 'lens.macro_code'"},
      {"set lens.macro=1 --where module=AfCommon", "did you mean 'macro_code'?"},
      {"set lens.macro_code=1 --where mode=9", "there is no setting of AfCommon with these labels"},
      {"set lens.macro_code=1 --where sensor=fornt", "did you mean 'front'?"},
      {"set lens.macro_code=1 --where scenario=Vido", "did you mean 'Video'?"},
      {"get red.gain --format csv", "prints the values of one setting, and these are 4"},
      {"get zones --where sensor=front --format csv", "holds structures"},
      {"set red.gain --from nowhere.csv", "cannot read nowhere.csv"},
      {"new --sensor front module=AfCommon mode=7 --from main_wide/LensShading.json", "cannot be a copy of one of"},
      {"new --sensor front module=AfCommon mode=7 --from mode=8", "there is no such setting to copy"},
  };
  for (const auto& [line, says] : rows) Fails(line, says);
  // One of three settings is broken: none is changed.
  Edit("front/mode_1/AfCommon.json", "\"lens\": {", "\"lens\" {");
  Changed();
  Fails("set lens.macro_code=700", "front/mode_1/AfCommon.json");
  const Rows misuse = {
      {"set lens.macro_code", "is not of the form PATH=VALUE"},
      {"set lens[x]=1", "'lens[x]' is not a path"},
      {"set lens.macro_code*=x", "'x' is not a number"},
      {"set a b --from x", "--from is for one PATH"},
      {"set lens.macro_code=1 --create --where module=AfCommon", "--create needs sensors"},
      {"set lens.macro_code=1 --create --where sensor=front module=AfCommon scenario=Video", "needs 'mode' as well"},
      {"fmt -", "--module or --stdin-path"},
      {"fmt - x", "'-' is for standard input alone"},
  };
  for (const auto& [line, says] : misuse) Fails(line, says, 2);
  EXPECT_EQ(Changed(), Strings{});
}

TEST_F(EditTest, RulesCanBeOverruled) {
  Fails("set lens.macro_code=1500 --where sensor=front", "outside of 512..1023");
  Does("set lens.macro_code=1500 --where sensor=front --force", "changed");
  // A fault that was there before does not prevent another change.
  Does("set lens.infinity_code=200 --where sensor=front", "changed");
}

TEST_F(EditTest, TablesGoThroughASpreadsheet) {
  const std::string where = " --where module=LensShading sensor=main_wide mode=2";
  for (const char* form : {"csv", "tsv", "json"}) {
    Write(At(std::string("table.") + form), Tool(std::string("get red.gain --format ") + form + where).out);
    Does(std::string("set red.gain --from table.") + form + where, "unchanged");
    Does("set red.gain --from -" + where, "unchanged", {"", Read(At(std::string("table.") + form))});
  }
  Edit("table.csv", "2.023,", "2.5,");
  Changed();
  Does("set red.gain --from table.csv" + where, "changed");
  EXPECT_EQ(Changed(), Strings{"main_wide/mode_2/LensShading.json"});
  Does("get red.gain[0][0]" + where, "red.gain.value[0].value[0]  2.5\n");
  const std::string table = Read(At("table.csv"));
  Write(At("table.csv"), table.substr(table.find('\n') + 1));
  Fails("set red.gain --from table.csv" + where, "32 rows, its rule says 33");
}

TEST_F(EditTest, SettingsAreMadeAndCopied) {
  Does("set lens.macro_code=701 --create --where sensor=front,main_wide module=AfCommon mode=1",
       "main_wide/mode_1/AfCommon.json  made\n");
  EXPECT_EQ(Changed(), (Strings{"front/mode_1/AfCommon.json", "main_wide/mode_1/AfCommon.json"}));
  Does("get lens.macro_code --where mode=1", "main_wide/mode_1/AfCommon.json  lens.macro_code.value  701\n");
  Does("new --sensor front module=AfCommon mode=7 --from main_wide/mode_0/AfCommon.json", "made");
  Does("new --sensor front module=AfCommon,LensShading mode=8 --from sensor=default", "made");
  EXPECT_EQ(Read(At("front/mode_7/AfCommon.json")), Read(At("main_wide/mode_0/AfCommon.json")));
  EXPECT_EQ(Read(At("front/mode_8/LensShading.json")), Read(At("default/LensShading.json")));
}

TEST_F(EditTest, OneFormPacksTheSame) {
  ASSERT_EQ(Tool("pack -o before").code, 0);
  Changed();
  Write(At("front/Odd.json"), "{}");
  Fails("fmt --check", "'zotuning fmt default/AfCommon.json' writes it");
  Fails("fmt", "no module 'Odd'");
  EXPECT_GT(Changed().size(), 30u);
  std::filesystem::remove(At("front/Odd.json"));
  Does("fmt --check", "");
  Does("fmt", "0 files of");
  ASSERT_EQ(Tool("pack -o after").code, 0);
  for (const char* bin : {"default", "front", "main_wide"}) {
    EXPECT_EQ(Read(At(std::string("before/zo_tuning/") + bin + ".bin")),
              Read(At(std::string("after/zo_tuning/") + bin + ".bin")));
  }
  const std::string file = "main_wide/mode_0/AfCommon.json", text = Read(At(file));
  const Ran piped = Tool("fmt - --stdin-path " + file, {"", "\n" + text});
  EXPECT_EQ(piped.out, text);
  Edit(file, "\"lens\": {", "\"lens\" {");
  const std::string broken = Read(At(file));
  Fails("fmt main_wide", file + ":");
  EXPECT_EQ(Read(At(file)), broken);
}

// The hook of docs/editing.md.
TEST_F(EditTest, AHookKeepsWhatIsWrongOutOfARepository) {
  const std::string page = Read(ZOTUNING_DOCS "/editing.md"), shebang = "#!/bin/sh\n";
  const size_t begin = page.find(shebang + "zotuning fmt --check");
  ASSERT_NE(begin, page.npos);
  std::string hook = page.substr(begin, page.find("END\n", begin) - begin);
  hook.insert(shebang.size(), "zotuning() { '" ZOTUNING_TOOL "' \"$@\"; }\n");
  Write(At(".git/hooks/pre-commit"), hook);
  std::filesystem::permissions(At(".git/hooks/pre-commit"), std::filesystem::perms::owner_all);
  const auto run = [&](const std::string& commands) {
    return std::system(("cd '" + dir_ + "' && { " + commands + "; } >../log 2>&1").c_str());
  };
  const std::string commit = "git add --all && git -c user.name=T -c user.email=t@example.com commit -m x";
  ASSERT_EQ(run("git init ."), 0);
  EXPECT_NE(run(commit), 0);
  EXPECT_THAT(Read(temp_ / "log"), HasSubstr("not in the canonical form"));
  ASSERT_EQ(Tool("fmt").code, 0);
  EXPECT_EQ(run(commit), 0) << Read(temp_ / "log");
  ASSERT_EQ(Tool("set lens.macro_code=701").code, 0);
  EXPECT_EQ(run(commit), 0) << Read(temp_ / "log");
  Edit("front/mode_1/AfCommon.json", "\"max_retries\": 2", "\"max_retries\": -2");
  EXPECT_NE(run(commit), 0);
  EXPECT_THAT(Read(temp_ / "log"), HasSubstr("'scan.max_retries'"));
}

// Paths in a patch are relative to the root of the repository, so 'git apply' accepts them in any of its folders.
TEST_F(EditTest, PatchesFitAProjectWithinARepository) {
  const auto git = [&](const std::string& arguments) {
    return std::system(("cd '" + temp_.str() + "' && git " + arguments + " >log 2>&1").c_str());
  };
  ASSERT_EQ(git("init . && git add --all && git -c user.name=T -c user.email=t@example.com commit -m x"), 0);
  Edit("proto/af.proto", "uint32 max_retries = 5;", "uint32 max_retries = 5;\n  uint32 pauses = 6;");
  for (const std::string command : {"fmt", "set parameter_revision=77", "migrate"}) {
    for (const char* folder : {"", "-C tuning_project "}) {
      Write(temp_ / "patch", Tool(command + " --dry-run").out);
      Changed();
      EXPECT_EQ(git(std::string(folder) + "apply '" + temp_.str() + "/patch'"), 0) << command << Read(temp_ / "log");
      const Strings patched = Changed();
      EXPECT_GT(patched.size(), 2u) << command;
      ASSERT_EQ(git("checkout tuning_project/default tuning_project/front tuning_project/main_wide"), 0);
      ASSERT_EQ(Tool(command).code, 0);
      EXPECT_EQ(Changed(), Strings{}) << command << ": the patch makes something else";
      ASSERT_EQ(git("checkout tuning_project/default tuning_project/front tuning_project/main_wide"), 0);
    }
  }
}

}  // namespace
}  // namespace zotest
