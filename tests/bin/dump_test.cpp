#include <filesystem>

#include "ZoTuningUtils.h"
#include "support/child.h"
#include "support/project.h"

namespace {

using namespace zotest;

class DumpTest : public ProjectTest {
 protected:
  DumpTest() { MakeDirs(bins_); }
  bool Dump() { return ZoTuningUtils::DumpProjTuningBins(dir_.c_str(), bins_.c_str()); }
  bool DumpVersions() { return ZoTuningUtils::DumpBinVersions(dir_.c_str(), bins_.c_str()); }
  bool ParseVersions(const std::string& path) {
    std::vector<Message*> versions;
    const bool result = ZoTuningUtils::ParseVersionMsgFromBin(path, schema_.Prototype("ZO_TUNING.Version"), versions);
    parsed_.clear();
    for (Message* version : versions) parsed_.push_back(Text(*MessagePtr(version)));
    return result;
  }
  std::string Bin(const std::string& name) const { return bins_ + "/" + name + ".bin"; }
  /// The bins in directory order.
  Strings Listed() const {
    Strings paths;
    for (const auto& entry : std::filesystem::directory_iterator(bins_))
      paths.push_back(bins_ + "/" + entry.path().filename().string());
    return paths;
  }

  Schema schema_{dir_ + "/proto"};
  Strings parsed_;
  const std::string bins_ = project_.out + "/bins%s";
};

const std::string kDump = "DumpProjTuningBins";
const std::string kParse = "ParseVersionMsgFromBin";
const std::string kRecords =
    Item(LabelBytes({kAWGain, 3})) + Item(GainBytes(1.5)) + Item(LabelBytes({kAfCommon})) + Item(AfBytes());

TEST_F(DumpTest, ListsBinsAndNamesTheRest) {
  for (const std::string name : {"default.bin", "a.b.bin", ".bin", "bin", "a.BIN", "%s.txt"})
    Write(bins_ + "/" + name, "");
  MakeDirs(bins_ + "/dir.bin");
  Strings names = {"kept"}, paths = {"kept"};
  EXPECT_TRUE(ZoTuningUtils::FindTuningBinFiles(bins_.c_str(), names, paths));
  EXPECT_THAT(names, UnorderedElementsAre("kept", "default", "a.b", ""));
  ASSERT_EQ(paths.size(), 4U);
  for (size_t i = 1; i < paths.size(); ++i) EXPECT_EQ(paths[i], Bin(names[i]));
  const auto warning = [](const std::string& name) {
    return W("FindTuningBinFiles", "Unexpected file type in tuning data dir: " + name);
  };
  EXPECT_THAT(TakeLog(), UnorderedElementsAre(warning("bin"), warning("a.BIN"), warning("%s.txt")));
}

TEST_F(DumpTest, AcceptsEveryBinThatDecodes) {
  Write(Bin("default"), I32(2) + Item(VersionBytes("A", "1")) + Item("") + kRecords);
  for (const std::string& tele : {std::string(), std::string(3, '\0'), I32(-1), I32(0) + Item("") + Item(""),
                                  I32(0) + Item(LabelBytes({kAWGain})) + Item("\xff no AWGain"),
                                  I32(1) + Item(VersionBytes("A", "1")) + kRecords + "abc"}) {
    Write(Bin("tele"), tele);
    EXPECT_TRUE(Dump() && DumpVersions()) << testing::PrintToString(tele);
    EXPECT_LOG();
  }
  EXPECT_TRUE(ParseVersions(Bin("default")));
  EXPECT_THAT(parsed_, ElementsAre(R"(name: "A" version: "1")", ""));
}

// fuzz/bin.cpp covers every truncation and change; this is what the library says about each item that can be damaged.
TEST_F(DumpTest, NamesTheItemThatBreaks) {
  const std::string v0 = Item(VersionBytes("AF", "1.0")), v1 = Item(VersionBytes("AE", "2"));
  const std::string label = Item(LabelBytes({kAWGain, 3})), gain = Item(GainBytes(1.5)), bad = Item("\xff");
  Write(Bin("default"), I32(0));
  Write(Bin("tele"), "");
  // A line about version i names bin i of the listing, whichever bin it is in; the third version has no such bin.
  const Strings listed = Listed();
  const auto version = [&](const std::string& what, size_t index) {
    return E(kDump, what + (index < listed.size() ? listed[index] : Bin("tele")));
  };
  const std::string no_length = "Read tuning version len from bin failed: ";
  const std::string no_message = "Read tuning version msg failed: ", no_version = "Parse tuning version msg failed: ";
  const std::string parsed_length = "Read tuning version len from file " + Bin("tele") + " failed";
  const std::string parsed_message = "Read tuning version msg from " + Bin("tele") + " failed";
  const std::string no_label = "Read tuning data label from bin failed: " + Bin("tele");
  const std::string no_data = "Read tuning data for module failed: AWGain";
  const std::string no_module = "Parse module msg failed: AWGain";
  struct Row {
    std::string bytes;
    Strings dumped;      // the lines of a dump
    std::string parsed;  // the line of the version reader by itself
  };
  for (const Row& row : {
           Row{I32(3) + "\1", {version(no_length, 0)}, parsed_length},
           Row{I32(3) + v0 + v1 + "\1\2\3", {version(no_length, 2)}, parsed_length},
           Row{I32(3) + v0.substr(0, 5), {version(no_message, 0), version(no_length, 1)}, parsed_message},
           Row{I32(3) + I32(-1) + v0, {version(no_message, 0), version(no_length, 1)}, parsed_message},
           Row{I32(3) + v0 + v1 + v0.substr(0, 6), {version(no_message, 2)}, parsed_message},
           // Reading continues with the next version, but not with the records.
           Row{I32(3) + v0 + bad + bad + bad,
               {version(no_version, 1), version(no_version, 2)},
               no_version + Bin("tele")},
           Row{I32(1) + bad + Item(LabelBytes({kGhost})), {version(no_version, 0)}, no_version + Bin("tele")},
           Row{I32(0) + label + gain + label.substr(0, 4), {E(kDump, no_label)}, ""},
           Row{I32(0) + label.substr(0, label.size() - 1), {E(kDump, no_label)}, ""},
           Row{I32(0) + I32(INT32_MIN) + label + gain, {E(kDump, no_label)}, ""},
           Row{I32(0) + label, {E(kDump, no_data)}, ""},
           Row{I32(0) + label + "\1\2\3", {E(kDump, no_data)}, ""},
           Row{I32(0) + label + gain.substr(0, gain.size() - 1), {E(kDump, no_module)}, ""},
           Row{I32(0) + label + I32(INT32_MAX) + gain, {E(kDump, no_module)}, ""},
           Row{I32(0) + label + I32(-1) + gain, {E(kDump, no_module)}, ""},
           Row{I32(0) + bad + gain, {E(kDump, "Parse tuning data label failed: " + Bin("tele"))}, ""},
       }) {
    SCOPED_TRACE(testing::PrintToString(row.bytes));
    Write(Bin("tele"), row.bytes);
    EXPECT_TRUE(Dump());
    EXPECT_EQ(TakeLog(6), row.dumped);
    const Strings parsed = row.parsed.empty() ? Strings() : Strings{E(kParse, row.parsed)};
    EXPECT_EQ(ParseVersions(Bin("tele")), parsed.empty());
    EXPECT_EQ(TakeLog(6), parsed);
    EXPECT_EQ(DumpVersions(), parsed.empty());
    EXPECT_EQ(TakeLog(6), parsed);
  }
}

TEST_F(DumpTest, DamageEndsTheWalkAndAMissingTypeFailsIt) {
  for (const std::string name : {"default", "tele"}) Write(Bin(name), I32(0));
  Write(Listed()[1], I32(0) + Item(LabelBytes({kGhost})) + Item(""));
  EXPECT_FALSE(Dump());
  EXPECT_LOG(NoType("ZO_TUNING.Ghost"), E(kDump, "Get module descriptor failed: Ghost"));
  Write(Listed()[0], I32(0) + I32(9));
  EXPECT_TRUE(Dump());
  EXPECT_LOG(E(kDump, "Read tuning data label from bin failed: " + Listed()[0]));
}

TEST_F(DumpTest, NamesOfBins) {
  Write(Bin("other%s"), I32(0) + kRecords);
  Write(Bin("default"), "\xff\xff");
  EXPECT_FALSE(Dump());
  EXPECT_LOG(E(kDump, "Name of sensor bin other%s doesn't existed in the project config"));
  EXPECT_TRUE(DumpVersions());
  // Versions are read from the default bin first.
  for (const std::string name : {"other%s", "default"}) Write(Bin(name), I32(1));
  EXPECT_FALSE(DumpVersions());
  EXPECT_LOG(E(kParse, "Read tuning version len from file " + Bin("default") + " failed"));
  std::filesystem::rename(Bin("other%s"), Bin("tele"));
  std::filesystem::remove(Bin("default"));
  EXPECT_FALSE(DumpVersions());
  EXPECT_LOG();
}

TEST_F(DumpTest, NeedsTheProjectItsTypesAndReadableBins) {
  const auto both_fail = [&](const std::string& proj, const std::string& bins, const std::string& line) {
    for (const bool versions : {false, true}) {
      EXPECT_FALSE(
          (versions ? ZoTuningUtils::DumpBinVersions : ZoTuningUtils::DumpProjTuningBins)(proj.c_str(), bins.c_str()));
      EXPECT_EQ(TakeLog(6).back(), line[0] == '6' ? line : E(versions ? "DumpBinVersions" : kDump, line));
    }
  };
  const std::string dir = project_.temp / "p";
  both_fail(dir, bins_, "Input proj_dir doesn't existed: " + dir);
  MakeDirs(dir);
  both_fail(dir, bins_, "Cannot find project proto folder in input proj_dir: " + dir + "/proto");
  MakeDirs(dir + "/proto");
  both_fail(dir, bins_, "Get tuning label descriptor failed");
  Write(dir + "/proto/a.proto",
        "syntax = \"proto3\"; package ZO_TUNING; message TuningDataLabel { int32 module = 1; }");
  both_fail(dir, bins_, "Get tuning version descriptor failed");
  both_fail(dir_, bins_ + "/missing", E("FindTuningBinFiles", "Open directory failed: " + bins_ + "/missing"));

  Write(Bin("default"), I32(0));
  chmod(Bin("default").c_str(), 0);
  for (const std::string& path : {project_.out, bins_}) chmod(path.c_str(), 0755);
  const bool ran = InChild([&] {
    BecomeNobody();
    EXPECT_FALSE(Dump());
    EXPECT_FALSE(DumpVersions());
    EXPECT_ERRORS(E(kDump, "Open tuning bin file failed: " + Bin("default")),
                  E(kParse, "Open default bin file failed: " + Bin("default")));
  });
  if (!ran) GTEST_SKIP() << "this process may not become another user";
}

}  // namespace
