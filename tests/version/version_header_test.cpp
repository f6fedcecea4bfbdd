#include <sys/wait.h>
#include <unistd.h>

#include "ZoTuningUtils.h"
#include "support/child.h"
#include "support/project.h"

namespace {

using namespace zotest;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kStop = E("PARSE_VERSION_FROM_STR", "Stop Parsing");
const std::string kNoKey = E("PARSE_VERSION_FROM_STR", "Error to find the specific string");
const std::string kEmpty = E("CONSIST_VERSION_TO_STR", "[Error] The string input OR version string is empty");
const std::string kNoBlock = E("GeneratedNewVersionHeader", "[Error] Error to fill the string");

class VersionHeaderTest : public LogTest {
 protected:
  bool Generate() { return ZoTuningUtils::GeneratedNewVersionHeader(schema_dir_); }

  TempDir dir_;
  const std::string schema_dir_ = dir_ / "proto";
  const std::string versions_ = schema_dir_ + "/version";
  const std::string header_ = schema_dir_ + "/../src/ZoTuningVersion.h";
};

TEST_F(VersionHeaderTest, RewritesEverythingBehindTheMarker) {
  Write(versions_ + "/a.json", VersionJson("AF", "1.0"));
  Write(versions_ + "/b.json", "{\"name\": \"no version\"}");
  Write(versions_ + "/c.json", VersionJson("50%s ö", "2.3"));
  Strings pairs;
  for (const std::string& path : JsonInOrder(versions_)) {
    if (path.find("/a.json") != std::string::npos) pairs.insert(pairs.end(), {"AF", "1.0"});
    if (path.find("/c.json") != std::string::npos) pairs.insert(pairs.end(), {"50%s ö", "2.3"});
  }
  const std::string block = "#define VERSION1_NAME \"" + pairs[0] + "\"\n#define VERSION1_VAL \"" + pairs[1] +
                            "\"\n#define VERSION2_NAME \"" + pairs[2] + "\"\n#define VERSION2_VAL \"" + pairs[3] +
                            "\"\n#define VERSION_NUM 2\n";
  struct Row {
    std::string before, kept;
  };
  for (const Row& row :
       {Row{"// one\r\n// x [3AProto] y\r\n#define OLD 1\n// [3AProto]\n", "// one\r\n// x [3AProto] y\r\n"},
        Row{"[3AProto]", "[3AProto]\n"}, Row{"\n", "\n"}, Row{"\t// no marker\n\nend", "\t// no marker\n\nend\n"},
        Row{std::string("nul \0 byte\n// [3AProto]", 23), std::string("nul \0 byte\n// [3AProto]\n", 24)},
        Row{"// [3aproto]\n", "// [3aproto]\n"}}) {
    Write(header_, row.before);
    EXPECT_TRUE(Generate());
    EXPECT_EQ(Read(header_), row.kept + block);
    Strings lines = TakeLog();
    std::sort(lines.begin(), lines.end());
    EXPECT_THAT(lines, ElementsAre(kNoKey, kStop, kStop, kStop, kStop));
    // With a marker the header settles; without one the next run adds a block below the first.
    EXPECT_TRUE(Generate());
    EXPECT_EQ(Read(header_), row.kept + (row.kept.find("[3AProto]") == std::string::npos ? block : "") + block);
    TakeLog();
  }
}

TEST_F(VersionHeaderTest, LeavesTheHeaderAloneWithoutWhatItNeeds) {
  const auto fails = [&](const Strings& lines) {
    EXPECT_FALSE(Generate());
    EXPECT_EQ(TakeLog(), lines);
  };
  const std::string name = "GeneratedNewVersionHeader";
  fails({E(name, "Path is not existed: " + schema_dir_)});
  MakeDirs(schema_dir_);
  fails({E(name, "Path is not existed: " + versions_)});
  Write(versions_, "a file");
  fails({E("FindAllJsonFiles", "Open directory failed: " + versions_), E(name, "Find all json files failed")});
  unlink(versions_.c_str());
  MakeDirs(versions_);
  fails({E(name, "[Error] File is not existed: " + header_)});
  Write(header_, "// [3AProto]\n");
  fails({kEmpty, kNoBlock});
  EXPECT_EQ(Read(header_), "// [3AProto]\n");
  Write(versions_ + "/a.json", VersionJson("AF", "1.0"));
  Write(header_, "");
  fails({kStop, kStop, kEmpty, kNoBlock});
}

TEST_F(VersionHeaderTest, EmptiesAHeaderThatCannotBeRead) {
  Write(versions_ + "/a.json", VersionJson("AF", "1.0"));
  Write(header_, "old");
  chmod(header_.c_str(), 0222);
  const bool ran = InChild([&] {
    BecomeNobody();
    EXPECT_TRUE(Generate());
    EXPECT_THAT(TakeLog(), ElementsAre(kStop, kStop, E("HEADER_FILE_TO_STR", "Fail to read json file: " + header_)));
  });
  if (!ran) GTEST_SKIP() << "this process may not become another user";
  EXPECT_EQ(Read(header_), "");
}

TEST_F(VersionHeaderTest, ScansVersionFilesAsPlainText) {
  const std::string longest(1023, 'v');
  struct Row {
    std::string json;
    Strings versions;
    int stops;
  };
  for (const Row& row :
       {Row{VersionJson("AF", "1.0"), {"AF", "1.0"}, 2}, Row{R"({"version": "1", "name": "AF"})", {"AF", "1"}, 2},
        Row{R"({"a": {"name": "inner"}, "name": "outer", "version": "1"})", {"inner", "1"}, 2},
        Row{R"({"version": 3, "name": "AF"})", {"AF", "name"}, 2},
        Row{R"({"name": "A\"F", "version": ""})", {"A\\", ""}, 2},
        Row{R"({"name": "AF", "version": "cut)", {"AF", "cut"}, 1},
        Row{R"({"name": "AF", "version": 3})", {"AF", ""}, 1}, Row{R"("version""name")", {"", "name"}, 1},
        Row{VersionJson(longest, longest + "w"), {longest, longest}, 2},
        Row{VersionJson(std::string(5 << 20, 'x'), "1"), {std::string(1023, 'x'), "1"}, 2}}) {
    Strings versions = {"kept"};
    EXPECT_TRUE(ZO_TUNING::PARSE_VERSION_FROM_STR(row.json, versions));
    versions.erase(versions.begin());
    EXPECT_EQ(versions, row.versions) << row.json.substr(0, 200);
    EXPECT_EQ(TakeLog(), Strings(static_cast<size_t>(row.stops), kStop)) << row.json.substr(0, 200);
  }
  for (const std::string json : {"", R"({"name": "AF"})", R"({"version": "1"})", "{name: 'a', version: '1'}"}) {
    Strings versions;
    EXPECT_FALSE(ZO_TUNING::PARSE_VERSION_FROM_STR(json, versions));
    EXPECT_THAT(versions, IsEmpty());
    EXPECT_THAT(TakeLog(), ElementsAre(kNoKey));
  }
}

TEST_F(VersionHeaderTest, BuildsTheBlockFromPairs) {
  std::string text = "head";
  EXPECT_TRUE(ZO_TUNING::CONSIST_VERSION_TO_STR(text, {"A\"\\", "1", "B"}));
  EXPECT_EQ(text,
            "head#define VERSION1_NAME \"A\"\\\"\n#define VERSION1_VAL \"1\"\n#define VERSION2_NAME \"B\"\n"
            "#define VERSION2_VAL \"\"\n#define VERSION_NUM 2\n");
  EXPECT_FALSE(ZO_TUNING::CONSIST_VERSION_TO_STR(text, {}));
  text.clear();
  EXPECT_FALSE(ZO_TUNING::CONSIST_VERSION_TO_STR(text, {"A", "1"}));
  EXPECT_EQ(text, "");
  EXPECT_THAT(TakeLog(), ElementsAre(kEmpty, kEmpty));
  EXPECT_FALSE(ZO_TUNING::HEADER_FILE_TO_STR(header_, text));
  EXPECT_THAT(TakeLog(), ElementsAre(E("HEADER_FILE_TO_STR", "Fail to read json file: " + header_)));
}

TEST_F(VersionHeaderTest, WritingWaitsForTheFileToAppear) {
  std::string text = "text";
  const std::string path = dir_ / "late.h";
  Write(path, "an older and longer text");
  EXPECT_TRUE(ZO_TUNING::STR_TO_HEADER_FILE(path, text));
  EXPECT_EQ(Read(path), "text");
  // As long as the file is absent the call goes round; a child makes it after the first lines.
  unlink(path.c_str());
  const pid_t child = fork();
  if (child == 0) {
    usleep(20000);
    // The caller removes what it has just not seen, so one file may not be enough.
    for (int i = 0; i < 100000 && access((path + ".done").c_str(), F_OK) != 0; ++i) {
      if (FILE* file = std::fopen(path.c_str(), "a")) std::fclose(file);
      usleep(100);
    }
    _exit(0);
  }
  EXPECT_TRUE(ZO_TUNING::STR_TO_HEADER_FILE(path, text));
  Write(path + ".done", "");
  waitpid(child, nullptr, 0);
  EXPECT_EQ(Read(path), "text");
  const Strings lines = TakeLog();
  EXPECT_GT(lines.size(), 0U);
  for (const std::string& line : lines) {
    ASSERT_EQ(line, E("STR_TO_HEADER_FILE", "[Warning] the file is existed, remove it automatically."));
  }
}

}  // namespace
