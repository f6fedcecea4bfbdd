// What the tool writes for git, editors and the people who use them: init's own files, schema json, rules from
// comments.

#include <cstdlib>
#include <filesystem>

#include "tools/tool.h"

namespace zotest {
namespace {

TEST_F(ToolTest, InitWritesFilesForGitAndSaysWhatComesNext) {
  Write(temp_ / "demo/.gitignore", "mine\n");
  const Ran run = Tool("init demo --proto tuning_project/proto --sensor tele", {temp_.str()});
  ASSERT_EQ(run.code, 0) << run.err;
  EXPECT_THAT(run.out, HasSubstr("made demo/.gitattributes\nkept demo/.gitignore, which was there\nnext:\n"));
  EXPECT_EQ(Read(temp_ / "demo/.gitignore"), "mine\n");
  // The suggested next steps work as printed, and git does not see their output.
  std::filesystem::remove(temp_ / "demo/.gitignore");
  const Ran again = Tool("init demo --proto tuning_project/proto --sensor tele --force --json", {temp_.str()});
  const Json next = again.json()["result"]["next"];
  ASSERT_EQ(next.size(), 3u);
  std::string commands = "cd '" + temp_.str() + "' && zotuning() { '" ZOTUNING_TOOL "' \"$@\"; } && git init -q demo";
  for (const auto& command : next) commands += " && " + command.get<std::string>();
  commands += " && git -C demo status --porcelain --untracked-files=all >status";
  ASSERT_EQ(std::system(("{ " + commands + "; } >'" + temp_.str() + "/log'").c_str()), 0) << Read(temp_ / "log");
  EXPECT_TRUE(Exists(temp_ / "demo/out/zo_tuning/tele.bin"));
  EXPECT_THAT(Read(temp_ / "status"), testing::AllOf(HasSubstr("?? ProjConf.bin"), testing::Not(HasSubstr("out/"))));
}

TEST_F(ToolTest, RulesComeFromCommentsWhenAsked) {
  const Ran made = Tool("template AfCommon --rules-from-comments --force");
  ASSERT_EQ(made.code, 0) << made.err;
  const std::string text = Read(At("default/AfCommon.json"));
  EXPECT_THAT(text, HasSubstr("\"description\": \"[Int32] code\",\n    \"recommend\": \"512..1023\""));
  const Ran check = Tool("check default");
  EXPECT_THAT(check.out + check.err, testing::Not(HasSubstr("cannot be understood")));
  EXPECT_THAT(check.err, HasSubstr("'focus_codes.value' has 0 values, its rule says 9"));
  // Rules written in the wording of the comments are understood.
  Edit("default/AfCommon.json", "\"len\": \"9\"", "\"len\": \"9 elements\"");
  Edit("default/AfCommon.json", "512..1023", "Range: 512..1023 code");
  const Ran words = Tool("check default");
  EXPECT_THAT(words.err, HasSubstr("its rule says 9"));
  EXPECT_THAT(words.err, HasSubstr("'lens.macro_code.value' is 0, outside of 512..1023"));
  EXPECT_THAT(words.err, testing::Not(HasSubstr("cannot be understood")));
}

TEST_F(ToolTest, SchemasForEditorsLeaveOtherEntriesAlone) {
  const Json schema = Json::parse(Tool("schema json AfCommon").out);
  EXPECT_EQ(schema["title"], "AfCommon");
  const Json& lens = schema["definitions"]["ZO_TUNING_AF.AfLens"];
  EXPECT_EQ(lens["required"].size(), 5u);
  EXPECT_EQ(lens["properties"]["infinity_code"]["description"],
            "Position at infinity, level posture, 25 degrees. Unit: code. Range: 0..511.");
  Fails("schema json AfComon", "did you mean 'AfCommon'?");
  Fails("schema json --vscode --out x", "cannot be combined", 2);

  const std::string url = "./.vscode/zotuning/AfCommon.schema.json";
  const struct {
    std::string before, after;  // with ENTRY for the new entry
  } rows[] = {
      {"{}\n", "{\n  \"json.schemas\": [\n    ENTRY\n  ]\n}\n"},
      {"", "{\n  \"json.schemas\": [\n    ENTRY\n  ]\n}\n"},
      {"// mine\r\n{\r\n\t\"a\": \"// b\", /* \"json.schemas\": 1, */ // c\r\n}\r\n",
       "// mine\r\n{\r\n\t\"a\": \"// b\", /* \"json.schemas\": 1, */ // c\r\n\t\"json.schemas\": [\r\n\t  "
       "ENTRY\r\n\t]\r\n}\r\n"},
      {"{\n    \"json.schemas\": [\n        { \"url\": \"other\" } // keep\n    ],\n    \"b\": 1\n}",
       "{\n    \"json.schemas\": [\n        { \"url\": \"other\" }, // keep\n        ENTRY\n    ],\n    \"b\": 1\n}"},
      {"{\"json.schemas\": [{\"url\": \"" + url + "\", \"fileMatch\": []}, 5], \"b\": 1}",
       "{\"json.schemas\": [ENTRY, 5], \"b\": 1}"},
  };
  for (const auto& row : rows) {
    Write(At(".vscode/settings.json"), row.before);
    ASSERT_EQ(Tool("schema json AfCommon --vscode").code, 0);
    const std::string text = Read(At(".vscode/settings.json"));
    const size_t entry = row.after.find("ENTRY");
    const std::string tail = row.after.substr(entry + 5);
    EXPECT_EQ(text.substr(0, entry), row.after.substr(0, entry));
    ASSERT_GT(text.size(), entry + tail.size());
    EXPECT_EQ(text.substr(text.size() - tail.size()), tail);
    const Json made = Json::parse(text.substr(entry, text.size() - tail.size() - entry), nullptr, false);
    EXPECT_EQ(made["url"], url) << text;
    EXPECT_EQ(made["fileMatch"][0], "**/AfCommon.json");
    EXPECT_EQ(Tool("schema json AfCommon --vscode").out, "everything is up to date\n");
    EXPECT_EQ(Read(At(".vscode/settings.json")), text);
  }
  for (const char* broken : {"[]", "{\"json.schemas\": {}}", "{\"a\" 1}"}) {
    Write(At(".vscode/tasks.json"), "{\"tasks\": []}");
    Write(At(".vscode/settings.json"), broken);
    Fails("schema json --vscode", ".vscode/settings.json: error: this file cannot be added to: ");
    EXPECT_EQ(Read(At(".vscode/settings.json")), broken);
    EXPECT_EQ(Read(At(".vscode/tasks.json")), "{\"tasks\": []}");
  }
}

}  // namespace
}  // namespace zotest
