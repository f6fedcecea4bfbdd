#include <filesystem>

#include "ZoTuningUtils.h"
#include "support/child.h"
#include "support/project.h"

namespace {

using namespace zotest;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class DumpTest : public ProjectTest {
 protected:
  DumpTest() { MakeDirs(bins_); }
  bool Dump() { return ZoTuningUtils::DumpProjTuningBins(dir_.c_str(), bins_.c_str()); }
  bool DumpVersions() { return ZoTuningUtils::DumpBinVersions(dir_.c_str(), bins_.c_str()); }
  bool ParseVersions(const std::string& path) {
    std::vector<Message*> versions;
    const bool result = ZoTuningUtils::ParseVersionMsgFromBin(path, schema_.Prototype("ZO_TUNING.Version"), versions);
    parsed_.clear();
    for (Message* version : versions) {
      parsed_.push_back(Text(*version));
      delete version;
    }
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
const std::string kRecords =
    Item(LabelBytes({kAWGain, 3})) + Item(GainBytes(1.5)) + Item(LabelBytes({kAfCommon})) + Item(AfBytes());

TEST_F(DumpTest, ListsBinsAndNamesTheRest) {
  for (const std::string name : {"default.bin", "a.b.bin", ".bin", "bin", "a.BIN", "%s.txt"})
    Write(bins_ + "/" + name, I32(0));
  MakeDirs(bins_ + "/dir.bin");
  Strings names = {"kept"}, paths = {"kept"};
  EXPECT_TRUE(ZoTuningUtils::FindTuningBinFiles(bins_.c_str(), names, paths));
  EXPECT_THAT(names, UnorderedElementsAre("kept", "default", "a.b", ""));
  EXPECT_THAT(paths, testing::SizeIs(4));
  for (size_t i = 1; i < paths.size(); ++i) EXPECT_EQ(paths[i], Bin(names[i]));
  const auto warning = [](const std::string& name) {
    return W("FindTuningBinFiles", "Unexpected file type in tuning data dir: " + name);
  };
  EXPECT_THAT(TakeLog(), UnorderedElementsAre(warning("bin"), warning("a.BIN"), warning("%s.txt")));
  EXPECT_FALSE(ZoTuningUtils::FindTuningBinFiles((bins_ + "/no%s").c_str(), names, paths));
  EXPECT_THAT(TakeLog(), ElementsAre(E("FindTuningBinFiles", "Open directory failed: " + bins_ + "/no%s")));
}

TEST_F(DumpTest, AcceptsWhatThePartsOfTheBinAllow) {
  Write(Bin("default"), I32(2) + Item(VersionBytes("A", "1")) + Item("") + kRecords);
  for (const std::string& tele :
       {std::string(), I32(0), std::string(3, '\0'), I32(-1), I32(0) + Item("") + Item(""),
        I32(0) + kRecords + kRecords, I32(0) + Item(LabelBytes({kAWGain})) + Item("\xff no AWGain"),
        I32(1) + Item(VersionBytes("A", "1")) + kRecords + "abc"}) {
    Write(Bin("tele"), tele);
    EXPECT_TRUE(Dump()) << testing::PrintToString(tele);
    EXPECT_TRUE(DumpVersions());
    EXPECT_THAT(TakeLog(), IsEmpty()) << testing::PrintToString(tele);
  }
  EXPECT_TRUE(ParseVersions(Bin("default")));
  EXPECT_THAT(parsed_, ElementsAre(R"(name: "A" version: "1")", ""));
}

TEST_F(DumpTest, ReportsWhereADamagedBinBreaks) {
  // The last of the versions has no counterpart in the list of bins.
  const Strings versions = {Item(VersionBytes("AF", "1.0")), Item(VersionBytes("AE", "2")),
                            Item(VersionBytes("", "3"))};
  std::string whole = I32(3);
  for (const std::string& version : versions) whole += version;
  whole += kRecords;
  Write(Bin("default"), I32(0));
  Write(Bin("tele"), whole);
  const Strings listed = Listed();
  ASSERT_EQ(listed.size(), 2U);
  const auto at = [&](size_t index) { return index < listed.size() ? listed[index] : Bin("tele"); };
  const auto version_line = [&](const std::string& what, size_t index) { return E(kDump, what + at(index)); };

  /// The lines of a dump, and of the version reader alone, when the reading of the item at `offset` breaks.
  struct Break {
    size_t begin, end;  // cuts from begin on and before end
    Strings dumped, parsed;
  };
  std::vector<Break> breaks;
  size_t offset = 0;
  const auto add = [&](size_t size, const Strings& dumped, const std::string& parsed) {
    breaks.push_back(
        {offset, offset + size, dumped, parsed.empty() ? Strings() : Strings{E("ParseVersionMsgFromBin", parsed)}});
    offset += size;
  };
  add(4, {}, "");
  for (size_t i = 0; i < versions.size(); ++i) {
    add(4, {version_line("Read tuning version len from bin failed: ", i)},
        "Read tuning version len from file " + Bin("tele") + " failed");
    Strings lines = {version_line("Read tuning version msg failed: ", i)};
    if (i + 1 < versions.size()) lines.push_back(version_line("Read tuning version len from bin failed: ", i + 1));
    add(versions[i].size() - 4, lines, "Read tuning version msg from " + Bin("tele") + " failed");
  }
  for (const auto& [label, module, name] : {std::tuple(LabelBytes({kAWGain, 3}), GainBytes(1.5), "AWGain"),
                                            std::tuple(LabelBytes({kAfCommon}), AfBytes(), "AfCommon")}) {
    add(4, {}, "");  // a clean end, or one to three bytes that are no length
    add(label.size(), {E(kDump, "Read tuning data label from bin failed: " + Bin("tele"))}, "");
    add(4, {E(kDump, std::string("Read tuning data for module failed: ") + name)}, "");
    add(module.size(), {E(kDump, std::string("Parse module msg failed: ") + name)}, "");
  }
  ASSERT_EQ(offset, whole.size());

  const auto expect = [&](const std::string& bytes, const Break& broken) {
    Write(Bin("tele"), bytes);
    EXPECT_TRUE(Dump());
    EXPECT_EQ(TakeLog(6), broken.dumped);
    EXPECT_EQ(ParseVersions(Bin("tele")), broken.parsed.empty());
    EXPECT_EQ(TakeLog(6), broken.parsed);
    EXPECT_EQ(DumpVersions(), broken.parsed.empty());
    EXPECT_EQ(TakeLog(6), broken.parsed);
  };
  for (size_t i = 0; i < breaks.size(); ++i) {
    for (size_t cut = breaks[i].begin; cut < breaks[i].end; ++cut) {
      SCOPED_TRACE("cut at " + std::to_string(cut));
      expect(whole.substr(0, cut), breaks[i]);
    }
    // A length that is negative or promises more than there is breaks the item that it stands for.
    if (i == 0 || breaks[i].end - breaks[i].begin != 4) continue;
    for (const int32_t length : {-1, INT32_MIN, INT32_MAX, static_cast<int32_t>(whole.size() - breaks[i].end) + 1}) {
      SCOPED_TRACE("length " + std::to_string(length) + " at " + std::to_string(breaks[i].begin));
      std::string bytes = whole;
      bytes.replace(breaks[i].begin, 4, I32(length));
      expect(bytes, breaks[i + 1]);
    }
  }

  // Items that do not parse. The reading goes on with the next version, but not with the records.
  const std::string bad = Item("\xff");
  const auto bad_version = [&](size_t index) { return version_line("Parse tuning version msg failed: ", index); };
  const Strings parsed = {E("ParseVersionMsgFromBin", "Parse tuning version msg failed: " + Bin("tele"))};
  expect(I32(3) + versions[0] + bad + bad + bad, {0, 0, {bad_version(1), bad_version(2)}, parsed});
  expect(I32(1) + bad + Item(LabelBytes({kGhost})), {0, 0, {bad_version(0)}, parsed});
  expect(I32(0) + bad + Item("") + Item(LabelBytes({kGhost})),
         {0, 0, {E(kDump, "Parse tuning data label failed: " + Bin("tele"))}, {}});
  EXPECT_FALSE(ParseVersions(bins_ + "/no%s.bin"));
  EXPECT_THAT(TakeLog(),
              ElementsAre(E("ParseVersionMsgFromBin", "Open default bin file failed: " + bins_ + "/no%s.bin")));
}

TEST_F(DumpTest, DamageEndsTheWalkAndAMissingTypeFailsIt) {
  for (const std::string name : {"default", "tele"}) Write(Bin(name), "");
  const std::string ghost = I32(0) + Item(LabelBytes({kGhost})) + Item("");
  const Strings no_type = {
      E("GetDescByClassName", "Find descriptor of ZO_TUNING.Ghost failed, please check the protos under project dir"),
      E(kDump, "Get module descriptor failed: Ghost")};
  Write(Listed()[0], I32(0));
  Write(Listed()[1], ghost);
  EXPECT_FALSE(Dump());
  EXPECT_EQ(TakeLog(), no_type);
  Write(Listed()[0], I32(0) + I32(9));
  EXPECT_TRUE(Dump());
  EXPECT_THAT(TakeLog(), ElementsAre(E(kDump, "Read tuning data label from bin failed: " + Listed()[0])));
  Write(Bin("tele"), I32(0) + Item(LabelBytes({1000})) + Item(""));
  Write(Bin("default"), I32(0));
  EXPECT_FALSE(Dump());
  EXPECT_EQ(TakeLog().back(), E(kDump, "Get module descriptor failed: "));
}

TEST_F(DumpTest, NamesOfBins) {
  Write(Bin("other%s"), I32(0) + kRecords);
  Write(Bin("default"), "\xff\xff");
  EXPECT_FALSE(Dump());
  EXPECT_THAT(TakeLog(), ElementsAre(E(kDump, "Name of sensor bin other%s doesn't existed in the project config")));
  EXPECT_TRUE(DumpVersions());
  std::filesystem::rename(Bin("other%s"), Bin("tele"));
  std::filesystem::remove(Bin("default"));
  EXPECT_TRUE(Dump());
  EXPECT_FALSE(DumpVersions());
  EXPECT_THAT(TakeLog(), IsEmpty());
}

TEST_F(DumpTest, NeedsTheProjectItsTypesAndReadableBins) {
  const std::string dir = project_.temp / "p";
  const auto both_fail = [&](const std::string& proj, const std::string& bins, const std::string& line) {
    EXPECT_FALSE(ZoTuningUtils::DumpProjTuningBins(proj.c_str(), bins.c_str()));
    EXPECT_EQ(TakeLog(6).back(), E(kDump, line));
    EXPECT_FALSE(ZoTuningUtils::DumpBinVersions(proj.c_str(), bins.c_str()));
    EXPECT_EQ(TakeLog(6).back(), E("DumpBinVersions", line));
  };
  both_fail(dir, bins_, "Input proj_dir doesn't existed: " + dir);
  MakeDirs(dir);
  both_fail(dir, bins_, "Cannot find project proto folder in input proj_dir: " + dir + "/proto");
  MakeDirs(dir + "/proto");
  both_fail(dir, bins_, "Get tuning label descriptor failed");
  Write(dir + "/proto/a.proto",
        "syntax = \"proto3\"; package ZO_TUNING; message TuningDataLabel { int32 module = 1; }");
  both_fail(dir, bins_, "Get tuning version descriptor failed");

  for (const bool versions : {false, true}) {
    const std::string missing = bins_ + "/missing";
    EXPECT_FALSE(versions ? ZoTuningUtils::DumpBinVersions(dir_.c_str(), missing.c_str())
                          : ZoTuningUtils::DumpProjTuningBins(dir_.c_str(), missing.c_str()));
    EXPECT_THAT(TakeLog(6), ElementsAre(E("FindTuningBinFiles", "Open directory failed: " + missing)));
  }
  Write(Bin("default"), I32(0));
  chmod(Bin("default").c_str(), 0);
  for (const std::string& path : {project_.out, bins_}) chmod(path.c_str(), 0755);
  if (!InChild([&] {
        BecomeNobody();
        EXPECT_FALSE(Dump());
        EXPECT_THAT(TakeLog(6), ElementsAre(E(kDump, "Open tuning bin file failed: " + Bin("default"))));
        EXPECT_FALSE(DumpVersions());
        EXPECT_THAT(TakeLog(6),
                    ElementsAre(E("ParseVersionMsgFromBin", "Open default bin file failed: " + Bin("default"))));
      })) {
    GTEST_SKIP() << "this process may not become another user";
  }
}

}  // namespace
