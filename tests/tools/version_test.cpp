// version list, set and header.

#include <filesystem>

#include "support/child.h"
#include "tools/tool.h"

namespace zotest {
namespace {

TEST_F(ToolTest, VersionsAreListedAndSet) {
  EXPECT_THAT(Tool("version list").out,
              HasSubstr("AF                     2.1.0       project    proto/version/af.json\n"));
  Json expected = Json::parse(Read(At("proto/version/af.json")));
  expected["version"] = "2.2.0";
  const Ran set = Tool("version set AF 2.2.0");
  EXPECT_EQ(set.code, 0) << set.err;
  EXPECT_EQ(set.out, "AF is now 2.2.0 (proto/version/af.json)\n");
  EXPECT_EQ(Json::parse(Read(At("proto/version/af.json"))), expected);

  const std::string file = Read(At("proto/version/af.json"));
  Fails("version set AFE 1", "no version is called 'AFE'; did you mean 'AF'?");
  Write(At("proto/version/af2.json"), file);
  Fails("version set AF 1", "2 files hold a version called 'AF'");
  Write(At("proto/version/af2.json"), "{\"name\": \"AF2\", }}");
  Fails("version set AF 1", "proto/version/af2.json:1:18: error: nothing may follow the end of the object");
  EXPECT_EQ(Read(At("proto/version/af.json")), file);
}

TEST_F(ToolTest, SettingAVersionChangesNothingElse) {
  Edit("proto/project.proto", "string name = 1;",
       "string name = 1;\n  repeated Change changes = 900;\n  message Change {\n    string who = 1;\n  }");
  const struct {
    const char* before;
    const char* after;
  } rows[] = {
      {R"({"name":"T","version":"1","changes":[{"who":"me"}]})",
       R"({"name":"T","version":"2.0","changes":[{"who":"me"}]})"},
      {"{\n  name: 'T',\n  \"version\" :\tnull,\n}\n", "{\n  name: 'T',\n  \"version\" :\t\"2.0\",\n}\n"},
      {R"({"version": "0", "name": "T", "version": "1"})", R"({"version": "0", "name": "T", "version": "2.0"})"},
      {"{\n  \"name\": \"T\"\n}", "{\n  \"name\": \"T\",\n  \"version\": \"2.0\"\n}"},
      {R"({"name":"T",})", R"({"name":"T","version": "2.0",})"},
  };
  for (const auto& row : rows) {
    Write(At("proto/version/t.json"), row.before);
    EXPECT_EQ(Tool("version set T 2.0").code, 0) << row.before;
    EXPECT_EQ(Read(At("proto/version/t.json")), row.after);
  }
  // What the header cannot represent.
  for (const char* version : {"2\"", "C:\\2"}) Fails(std::string("version set T ") + version, "cannot hold this value");
  // A sensor's version, which may have the same name as one of the project.
  Write(At("front/version/t.json"), R"({"name":"T","version":"1"})");
  Fails("version set T 3", "choose one with --of, for example --of project");
  EXPECT_EQ(Tool("version set T 3 --of front").code, 0);
  EXPECT_EQ(Read(At("front/version/t.json")), R"({"name":"T","version":"3"})");
  Write(At("front/version/u.json"), R"({"name":"U","version":"1"})");
  EXPECT_EQ(Tool("version set U 2").out, "U is now 2 (front/version/u.json)\n");
}

TEST_F(ToolTest, AFullDiskLeavesEveryFileAsItWas) {
  ASSERT_EQ(Tool("template AfCommon --force").code, 0);
  const Rows rows = {
      {"version header", "src/ZoTuningVersion.h"},  // even if it would not change
      {"version set AF 9.9", "proto/version/af.json"},
      {"template AfCommon --force", "default/AfCommon.json"},
      {"new --sensor front module=AfCommon mode=1 --force", "front/mode_1/AfCommon.json"},
      {"init tuning_project --into .. --proto proto --sensor third --force", "ProjConf.bin"},
  };
  for (const auto& [line, file] : rows) {
    const std::string before = Read(At(file));
    const Ran run = Tool(line, {"", "", [] { LimitFileSize(0); }});
    EXPECT_EQ(run.code, 1) << line;
    EXPECT_EQ(Read(At(file)), before) << line;
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(At(file)).parent_path())) {
      EXPECT_EQ(entry.path().filename().string().rfind("." + std::filesystem::path(file).filename().string(), 0),
                std::string::npos);
    }
  }
}

TEST_F(ToolTest, TheHeaderIsCheckedAndMade) {
  const std::string header = At("src/ZoTuningVersion.h");
  EXPECT_EQ(Tool("version header --check").out, "src/ZoTuningVersion.h is up to date\n");
  ASSERT_EQ(Tool("version set AF 2.2.0").code, 0);
  const std::string before = Read(header);
  const Json outdated = Tool("version header --check --json").json();
  EXPECT_EQ(outdated["diagnostics"][0]["code"], "header-outdated");
  EXPECT_THAT(outdated["result"]["added"].dump(), HasSubstr("_VAL \\\"2.2.0\\\""));
  EXPECT_EQ(Read(header), before);
  EXPECT_EQ(Tool("version header").code, 0);
  EXPECT_THAT(Read(header), HasSubstr("_VAL \"2.2.0\"\n"));
  const auto written = std::filesystem::last_write_time(header);
  EXPECT_THAT(Tool("version header").out, HasSubstr(" is unchanged, "));
  EXPECT_EQ(std::filesystem::last_write_time(header), written);
  EXPECT_EQ(Tool("version header --check").code, 0);

  // The order of the pairs is that of the file system, and not a fault.
  const std::string text = Read(header);
  const size_t first = text.find("#define VERSION1_NAME"), second = text.find("#define VERSION2_NAME");
  const size_t end = text.find("#define VERSION_NUM");
  Write(header, text.substr(0, first) + text.substr(second, end - second) + text.substr(first, second - first) +
                    text.substr(end));
  EXPECT_EQ(Tool("version header --check").code, 0);
  Write(header, Read(header) + "#define VERSION_NUM 5\n");
  EXPECT_EQ(Tool("version header --check").code, 1);

  Write(header, "#pragma once\n");
  Fails("version header", "the header has no line that contains [3AProto]");
  EXPECT_EQ(Read(header), "#pragma once\n");
  std::filesystem::remove(header);
  Fails("version header", "the project has no version header");
}

TEST_F(ToolTest, FilesThatTheScanMisreadsAreNamed) {
  Edit("proto/project.proto", "string name = 1;", "string name = 1;\n  Version parent = 900;");
  const Rows rows = {
      {R"({"parent": {"name": "x"}, "name": "T", "version": "1"})", "an earlier \"name\" is taken for the field"},
      {R"({"version": "name", "name": "T"})", "an earlier \"name\" is taken for the field"},
      {R"({"name": "T\"x", "version": "1"})", "the value of \"name\" holds an escape sequence"},
      {R"({"name": "T", "version": "\u0031"})", "the value of \"version\" holds an escape sequence"},
      {R"({name: "T", "version": "1"})", "it finds no key \"name\""},
      {R"({"name": "T"})", "it finds no key \"version\""},
      {R"({"name": 'T', "version": "1"})", "the value of \"name\" is not a text in double quotes"},
      {R"({"name": "T", "version": ")" + std::string(1024, '1') + "\"}", "a value of 1024 bytes is cut at 1023"},
      {"{\"name\": \"T\", \"version\": \"1\n2\"}", "a line end or zero byte breaks the line"},
  };
  const std::string header = Read(At("src/ZoTuningVersion.h"));
  for (const auto& [text, says] : rows) {
    Write(At("proto/version/t.json"), text);
    const std::string wrong = "the version header would get this file wrong: " + says;
    for (const char* line : {"version header", "version header --check"}) {
      const Ran run = Tool(line);
      EXPECT_EQ(run.code, 1) << text;
      EXPECT_THAT(run.err, testing::ContainsRegex("proto/version/t.json:1:[0-9]+: error: ")) << text;
      EXPECT_THAT(run.err, HasSubstr(wrong));
    }
    Fails("version list", "warning: " + wrong, 0);
  }
  Write(At("proto/version/t.json"), "{\"name\": \"T\", \"version\": 3}");
  Fails("version header", "t.json:1:26: error: invalid value 3 for string field 'version'");
  EXPECT_EQ(Read(At("src/ZoTuningVersion.h")), header);
}

}  // namespace
}  // namespace zotest
