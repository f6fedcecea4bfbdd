#include <unistd.h>

#include <atomic>
#include <fstream>
#include <thread>

#include "ZoTuningUtils.h"
#include "support/child.h"
#include "support/project.h"

namespace {

using namespace zotest;

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

TEST_F(VersionHeaderTest, RewritesEverythingAfterTheMarker) {
  Write(versions_ + "/a.json", VersionJson("50%s ö", "1.0"));
  Write(versions_ + "/b.json", "{\"name\": \"no version\"}");
  const std::string block = "#define VERSION1_NAME \"50%s ö\"\n#define VERSION1_VAL \"1.0\"\n#define VERSION_NUM 1\n";
  for (const auto& [before, kept] :
       Rows{{"// one\r\n// x [3AProto] y\r\n#define OLD 1\n// [3AProto]\n", "// one\r\n// x [3AProto] y\r\n"},
            {"[3AProto]", "[3AProto]\n"},
            {"\t// [3aproto]\n\nend", "\t// [3aproto]\n\nend\n"},
            {std::string("nul \0 byte\n// [3AProto]", 23), std::string("nul \0 byte\n// [3AProto]\n", 24)}}) {
    Write(header_, before);
    EXPECT_TRUE(Generate());
    EXPECT_EQ(Read(header_), kept + block);
    EXPECT_THAT(TakeLog(), UnorderedElementsAre(kNoKey, kStop, kStop));
  }
}

TEST_F(VersionHeaderTest, KeepsHeadersOfSizesAroundEveryBuffer) {
  Write(versions_ + "/a.json", VersionJson("A", "1"));
  const std::string block = "#define VERSION1_NAME \"A\"\n#define VERSION1_VAL \"1\"\n#define VERSION_NUM 1\n";
  const std::string marker = "\n// [3AProto]\n";
  for (const size_t around : {4096, 8192, 65536}) {
    for (const size_t size : {around - 1, around, around + 1}) {
      const std::string kept = std::string(size - marker.size(), '/') + marker;
      Write(header_, kept + "#define OLD 1\n");
      EXPECT_TRUE(Generate());
      EXPECT_TRUE(Read(header_) == kept + block) << size;
    }
  }
  (void)TakeLog();
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
    EXPECT_LOG(kStop, kStop, E("HEADER_FILE_TO_STR", "Fail to read json file: " + header_));
  });
  if (!ran) GTEST_SKIP() << "this process may not become another user";
  EXPECT_EQ(Read(header_), "");
}

TEST_F(VersionHeaderTest, ScansVersionFilesAsPlainText) {
  const auto expect = [&](const std::string& json, const std::string& name, const std::string& version, size_t stops) {
    Strings versions = {"kept"};
    EXPECT_TRUE(ZO_TUNING::PARSE_VERSION_FROM_STR(json, versions));
    EXPECT_THAT(versions, ElementsAre("kept", name, version)) << json.substr(0, 200);
    EXPECT_EQ(TakeLog(), Strings(stops, kStop)) << json.substr(0, 200);
  };
  const std::string longest(1023, 'v');
  expect(R"({"version": "1", "name": "AF"})", "AF", "1", 2);
  expect(R"({"a": {"name": "inner"}, "name": "outer", "version": "1"})", "inner", "1", 2);
  expect(R"({"name": "A\"F", "version": ""})", "A\\", "", 2);
  expect(R"({"name": "AF", "version": "cut)", "AF", "cut", 1);
  expect(R"({"name": "AF", "version": 3})", "AF", "", 1);
  expect(R"("version""name")", "", "name", 1);
  expect(VersionJson(longest, longest + "w"), longest, longest, 2);
  expect(VersionJson(std::string(5 << 20, 'v'), "1"), longest, "1", 2);
  for (const std::string json : {"", R"({"name": "AF"})", R"({"version": "1"})", "{name: 'a', version: '1'}"}) {
    Strings versions;
    EXPECT_FALSE(ZO_TUNING::PARSE_VERSION_FROM_STR(json, versions));
    EXPECT_THAT(versions, IsEmpty());
    EXPECT_LOG(kNoKey);
  }
}

TEST_F(VersionHeaderTest, BuildsTheBlockFromPairs) {
  std::string text = "head";
  EXPECT_TRUE(ZO_TUNING::CONSIST_VERSION_TO_STR(text, {"A\"\\", "1", "B"}));
  EXPECT_EQ(text,
            "head#define VERSION1_NAME \"A\"\\\"\n#define VERSION1_VAL \"1\"\n#define VERSION2_NAME \"B\"\n"
            "#define VERSION2_VAL \"\"\n#define VERSION_NUM 2\n");
}

TEST_F(VersionHeaderTest, WritingWaitsForTheFileToAppear) {
  std::string text = "text";
  const std::string path = dir_ / "late.h";
  Write(path, "an older and longer text");
  EXPECT_TRUE(ZO_TUNING::STR_TO_HEADER_FILE(path, text));
  EXPECT_EQ(Read(path), "text");
  // While the file is absent, the call loops, and removes the file that it has just not seen: creating it once may not
  // be enough.
  unlink(path.c_str());
  std::atomic<bool> written{false};
  std::thread maker([&] {
    for (usleep(50000); !written; usleep(100)) std::ofstream(path, std::ios::app);
  });
  EXPECT_TRUE(ZO_TUNING::STR_TO_HEADER_FILE(path, text));
  written = true;
  maker.join();
  EXPECT_EQ(Read(path), "text");
  const std::string warning = E("STR_TO_HEADER_FILE", "[Warning] the file is existed, remove it automatically.");
  EXPECT_THAT(TakeLog(), AllOf(testing::Not(IsEmpty()), testing::Each(warning)));
}

}  // namespace
