// version list, set and header.

#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "tools/tool.h"

namespace zotest {
namespace {

using testing::HasSubstr;

TEST_F(ToolTest, VersionsAreListedAndSet) {
  EXPECT_THAT(Tool({"version", "list"}).out,
              HasSubstr("AF                     2.1.0       project    proto/version/af.json\n"));
  const Json before = Json::parse(Read(At("proto/version/af.json")));
  const Ran set = Tool({"version", "set", "AF", "2.2.0"});
  EXPECT_EQ(set.code, 0) << set.err;
  EXPECT_EQ(set.out, "AF is now 2.2.0 (proto/version/af.json)\n");
  Json expected = before;
  expected["version"] = "2.2.0";
  EXPECT_EQ(Json::parse(Read(At("proto/version/af.json"))), expected);
}

TEST_F(ToolTest, AVersionThatIsNotSetIsAFailure) {
  const std::string file = Read(At("proto/version/af.json"));
  const Ran unknown = Tool({"version", "set", "AFE", "1"});
  EXPECT_EQ(unknown.code, 1);
  EXPECT_THAT(unknown.err, HasSubstr("no version is called 'AFE'; did you mean 'AF'?"));

  const Ran cut = RunTool({"version", "set", "AF", std::string(600, '9')}, {dir_, "", [] {
                                                                              std::signal(SIGXFSZ, SIG_IGN);
                                                                              const rlimit limit{100, 100};
                                                                              setrlimit(RLIMIT_FSIZE, &limit);
                                                                            }});
  EXPECT_EQ(cut.code, 1);
  Write(At("proto/version/af.json"), file);

  Write(At("proto/version/af2.json"), file);
  EXPECT_THAT(Tool({"version", "set", "AF", "1"}).err, HasSubstr("2 files hold a version called 'AF'"));
  Write(At("proto/version/af2.json"), "{\"name\": \"AF2\", }}");
  const Ran broken = Tool({"version", "set", "AF", "1"});
  EXPECT_EQ(broken.code, 1);
  EXPECT_THAT(broken.err, HasSubstr("proto/version/af2.json:1:18: error: nothing may follow the end of the object"));
  EXPECT_EQ(Read(At("proto/version/af.json")), file);
}

TEST_F(ToolTest, TheHeaderIsCheckedAndMade) {
  const std::string header = At("src/ZoTuningVersion.h");
  EXPECT_EQ(Tool({"version", "header", "--check"}).out, "src/ZoTuningVersion.h is up to date\n");
  ASSERT_EQ(Tool({"version", "set", "AF", "2.2.0"}).code, 0);
  const std::string before = Read(header);
  const Ran outdated = Tool({"version", "header", "--check", "--json"});
  EXPECT_EQ(outdated.code, 1);
  EXPECT_EQ(outdated.json()["diagnostics"][0]["code"], "header-outdated");
  EXPECT_THAT(outdated.json()["result"]["added"].dump(), HasSubstr("_VAL \\\"2.2.0\\\""));
  EXPECT_EQ(Read(header), before);
  EXPECT_THAT(Tool({"version", "header", "--check"}).out, HasSubstr("_VAL \"2.2.0\"\n"));

  EXPECT_EQ(Tool({"version", "header"}).code, 0);
  EXPECT_THAT(Read(header), HasSubstr("_VAL \"2.2.0\"\n"));
  EXPECT_EQ(Tool({"version", "header", "--check"}).code, 0);

  // The order of the pairs is that of the file system, and no fault.
  std::string text = Read(header);
  const size_t block = text.find("#define VERSION1_NAME");
  Write(header, text.substr(0, block) +
                    "#define VERSION1_NAME \"SCHEMA\"\n#define VERSION1_VAL \"3.0.1\"\n#define VERSION2_NAME \"PD\"\n"
                    "#define VERSION2_VAL \"1.1.4\"\n#define VERSION3_NAME \"AWB\"\n#define VERSION3_VAL \"1.3.0\"\n"
                    "#define VERSION4_NAME \"AF\"\n#define VERSION4_VAL \"2.2.0\"\n#define VERSION5_NAME \"AEC\"\n"
                    "#define VERSION5_VAL \"1.6.2\"\n#define VERSION_NUM 5\n");
  EXPECT_EQ(Tool({"version", "header", "--check"}).code, 0);
  Write(header, Read(header) + "#define VERSION_NUM 5\n");
  EXPECT_EQ(Tool({"version", "header", "--check"}).code, 1);
}

TEST_F(ToolTest, FilesThatTheScanMisreadsAreNamed) {
  Edit("proto/project.proto", "string name = 1;", "string name = 1;\n  Version parent = 900;");
  const struct {
    std::string text;
    const char* says;
  } rows[] = {
      {R"({"parent": {"name": "x"}, "name": "T", "version": "1"})", "an earlier \"name\" is taken for the field"},
      {R"({"version": "name", "name": "T"})", "an earlier \"name\" is taken for the field"},
      {R"({"name": "T\"x", "version": "1"})", "the value of \"name\" holds an escape sequence"},
      {R"({"name": "T", "version": "\u0031"})", "the value of \"version\" holds an escape sequence"},
      {R"({name: "T", "version": "1"})", "it finds no key \"name\""},
      {R"({"name": "T"})", "it finds no key \"version\""},
      {R"({"name": 'T', "version": "1"})", "the value of \"name\" is no text in double quotes"},
      {R"({"name": "T", "version": ")" + std::string(1024, '1') + "\"}", "a value of 1024 bytes is cut at 1023"},
      {"{\"name\": \"T\", \"version\": \"1\n2\"}", "a line end or zero byte breaks the line"},
  };
  const std::string header = Read(At("src/ZoTuningVersion.h"));
  for (const auto& row : rows) {
    Write(At("proto/version/t.json"), row.text);
    for (const Strings& command : {Strings{"version", "header"}, Strings{"version", "header", "--check"}}) {
      const Ran run = Tool(command);
      EXPECT_EQ(run.code, 1) << row.text;
      EXPECT_THAT(run.err, HasSubstr("proto/version/t.json: error: the version header would get this file wrong: " +
                                     std::string(row.says)));
    }
    EXPECT_THAT(Tool({"version", "list"}).err, HasSubstr(row.says));
  }
  EXPECT_EQ(Read(At("src/ZoTuningVersion.h")), header);

  Write(At("proto/version/t.json"), "{\"name\": \"T\", \"version\": 3}");
  EXPECT_THAT(Tool({"version", "header"}).err, HasSubstr("t.json:1:26: error: 3 is no value for the field 'version'"));
}

TEST_F(ToolTest, AHeaderWithoutMarkerIsLeftAlone) {
  const std::string header = At("src/ZoTuningVersion.h");
  Write(header, "#pragma once\n");
  const Ran run = Tool({"version", "header"});
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.err, HasSubstr("the header has no line that holds [3AProto]"));
  EXPECT_EQ(Read(header), "#pragma once\n");
  std::filesystem::remove(header);
  EXPECT_THAT(Tool({"version", "header"}).err, HasSubstr("the project has no version header"));
}

}  // namespace
}  // namespace zotest
