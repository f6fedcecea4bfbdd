// The worked examples of docs/, written and read by the library exactly as printed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "ZoTuningUtils.h"
#include "support/files.h"
#include "support/log.h"
#include "support/project.h"

namespace {

using testing::ElementsAre;
using zotest::E;
using zotest::Message;
using zotest::Strings;

/// The contents of a page's blocks that are fenced as `language`.
Strings Blocks(const std::string& page, const std::string& language) {
  std::istringstream lines(zotest::Read(std::string(ZOTUNING_SOURCE_DIR) + "/docs/" + page));
  Strings blocks;
  bool inside = false;
  for (std::string line; std::getline(lines, line);) {
    if (inside && line == "```") {
      inside = false;
    } else if (inside) {
      blocks.back() += line + "\n";
    } else if (line == "```" + language) {
      inside = true;
      blocks.emplace_back();
    }
  }
  return blocks;
}

/// The only such block.
std::string Block(const std::string& page, const std::string& language) {
  const Strings blocks = Blocks(page, language);
  EXPECT_EQ(blocks.size(), 1U) << page << ": blocks of " << language;
  return blocks.empty() ? "" : blocks[0];
}

/// `text` without what follows "#" on each line.
std::string WithoutNotes(const std::string& text) {
  std::istringstream lines(text);
  std::string kept;
  for (std::string line; std::getline(lines, line);) kept += line.substr(0, line.find('#')) + "\n";
  return kept;
}

std::string HexBlock(const std::string& page) {
  std::istringstream words(WithoutNotes(Block(page, "hex")));
  std::string bytes;
  for (std::string word; words >> word;) bytes += static_cast<char>(std::stoi(word, nullptr, 16));
  EXPECT_FALSE(bytes.empty()) << page;
  return bytes;
}

/// The project used in the pages: the schema of docs/tuning-bin.md, the sensors "main" and "wide".
class DocsTest : public zotest::LogTest {
 protected:
  void SetUp() override {
    LogTest::SetUp();
    zotest::Write(dir_ + "/proto/schema.proto", Block("tuning-bin.md", "proto"));
    zotest::MakeDirs(dir_ + "/proto/version");
    ZoTuningUtils::InitProjectConfig((dir_ + "/proto").c_str(), "demo", {"main", "wide"}, temp_.str().c_str());
    std::string name;
    ASSERT_TRUE(ZoTuningUtils::GetProjectConfig(dir_.c_str(), name, sensors_, labels_, values_));
  }

  std::string DefaultOf(const std::string& module) {
    EXPECT_TRUE(ZoTuningUtils::GenerateDefaultModuleData(dir_.c_str(), module.c_str()));
    return zotest::Read(dir_ + "/default/" + module + ".json");
  }

  zotest::TempDir temp_;
  const std::string dir_ = temp_ / "demo";
  Strings sensors_, labels_;
  zotest::LabelMap values_;
};

TEST_F(DocsTest, TuningBinIsPackedAndDecodedAsPrinted) {
  zotest::Write(dir_ + "/main/mode_3/scenario_Video/Flash.json", Block("tuning-bin.md", "json"));
  zotest::Write(dir_ + "/main/version/flash.json", R"({"name": "Flash", "version": "1.0"})");
  zotest::MakeDirs(temp_ / "out");
  ASSERT_TRUE(ZoTuningUtils::GenerateProjTuningBins(dir_.c_str(), (temp_ / "out").c_str()));
  const std::string bins = temp_ / "out/zo_tuning";
  const std::string printed = HexBlock("tuning-bin.md");
  EXPECT_EQ(zotest::Read(bins + "/main.bin"), printed);
  EXPECT_EQ(zotest::Read(bins + "/wide.bin"), std::string(4, '\0')) << "the shortest bin";

  // The bytes of the page by themselves, read by the library.
  zotest::Write(bins + "/main.bin", printed);
  EXPECT_TRUE(ZoTuningUtils::DumpProjTuningBins(dir_.c_str(), bins.c_str()));
  zotest::Schema schema(dir_ + "/proto");
  std::vector<Message*> versions;
  EXPECT_TRUE(
      ZoTuningUtils::ParseVersionMsgFromBin(bins + "/main.bin", schema.Prototype("ZO_TUNING.Version"), versions));
  ASSERT_EQ(versions.size(), 1U);
  const zotest::MessagePtr version(versions[0]);
  EXPECT_EQ(zotest::Text(*version), zotest::Text(*schema.New("ZO_TUNING.Version", "name: 'Flash' version: '1.0'")));

  // One byte less damages the last item that the page names.
  zotest::Write(bins + "/main.bin", printed.substr(0, printed.size() - 1));
  EXPECT_TRUE(ZoTuningUtils::DumpProjTuningBins(dir_.c_str(), bins.c_str()));
  EXPECT_THAT(zotest::TakeLog(6), ElementsAre(E("DumpProjTuningBins", "Parse module msg failed: Flash")));
}

TEST_F(DocsTest, ProjConfBinIsWrittenAsPrinted) {
  EXPECT_EQ(zotest::Read(dir_ + "/ProjConf.bin"), HexBlock("project-directory.md"));
  EXPECT_THAT(sensors_, ElementsAre("main", "wide"));
}

TEST_F(DocsTest, PathsReadAsPrinted) {
  std::istringstream rows(WithoutNotes(Block("json-trees.md", "paths")));
  int count = 0;
  for (std::string row; std::getline(rows, row); ++count) {
    std::istringstream words(row);
    std::string path, arrow;
    words >> path >> arrow;
    std::vector<int> expected;
    for (int value; words >> value;) expected.push_back(value);
    ASSERT_EQ(expected.size(), 8U) << row;
    std::vector<int> config;
    ZO_TUNING::PATH_TO_TUNING_CONFIG(dir_ + "/" + path, labels_, values_, config);
    EXPECT_EQ(config, expected) << row;
    const bool is_module = expected[0] != -1;
    EXPECT_EQ(zotest::TakeLog(6).size(), is_module ? 0U : 1U) << row;
  }
  EXPECT_GT(count, 8);
}

TEST_F(DocsTest, DefaultsArePrintedAsPrinted) {
  EXPECT_EQ(DefaultOf("Flash"), Block("json-trees.md", "json"));
  zotest::Write(dir_ + "/proto/shading.proto", Block("rule-annotations.md", "proto"));
  EXPECT_EQ(DefaultOf("Shading"), Block("rule-annotations.md", "json"));
}

TEST_F(DocsTest, RulesReachABinAsPrinted) {
  zotest::Write(dir_ + "/proto/shading.proto", Block("rule-annotations.md", "proto"));
  zotest::Schema schema(dir_ + "/proto");
  const zotest::MessagePtr message = schema.New("ZO_TUNING.Shading");
  ASSERT_TRUE(ZO_TUNING::JSON_STR_TO_MSG(Block("rule-annotations.md", "json"), message.get()));
  ZO_TUNING::MSG_PRONE_FOR_BIN(message.get(), message->GetDescriptor());
  EXPECT_EQ(message->DebugString(), Block("rule-annotations.md", "text"));
}

TEST_F(DocsTest, VersionHeaderIsGeneratedAsPrinted) {
  const Strings files = Blocks("versions.md", "json");
  const Strings headers = Blocks("versions.md", "c");
  ASSERT_EQ(files.size(), 2U);
  ASSERT_EQ(headers.size(), 2U);
  // The page assumes that the directory returns a.json first. If it does not, the names are swapped.
  const std::string version_dir = dir_ + "/proto/version";
  zotest::Write(version_dir + "/a.json", "");
  zotest::Write(version_dir + "/b.json", "");
  const bool a_first = zotest::JsonInOrder(version_dir)[0] == version_dir + "/a.json";
  zotest::Write(version_dir + "/a.json", files[a_first ? 0 : 1]);
  zotest::Write(version_dir + "/b.json", files[a_first ? 1 : 0]);
  zotest::Write(dir_ + "/src/ZoTuningVersion.h", headers[0]);
  EXPECT_TRUE(ZoTuningUtils::GeneratedNewVersionHeader(dir_ + "/proto"));
  EXPECT_EQ(zotest::Read(dir_ + "/src/ZoTuningVersion.h"), headers[1]);
  EXPECT_THAT(zotest::TakeLog(6), testing::Each(E("PARSE_VERSION_FROM_STR", "Stop Parsing")));
}

}  // namespace
