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
  for (const std::string& tele : {std::string(), I32(0), std::string(3, '\0'), I32(-1), I32(0) + Item("") + Item(""),
                                  I32(0) + kRecords, I32(0) + Item(LabelBytes({kAWGain})) + Item("\xff no AWGain"),
                                  I32(1) + Item(VersionBytes("A", "1")) + kRecords + "abc"}) {
    Write(Bin("tele"), tele);
    EXPECT_TRUE(Dump()) << testing::PrintToString(tele);
    EXPECT_TRUE(DumpVersions()) << testing::PrintToString(tele);
    EXPECT_LOG();
  }
  EXPECT_TRUE(ParseVersions(Bin("default")));
  EXPECT_THAT(parsed_, ElementsAre(R"(name: "A" version: "1")", ""));
}

TEST_F(DumpTest, ReportsWhereADamagedBinBreaks) {
  // A line about version record i names bin i of the listing, whichever bin it is in; the third record has no such bin.
  const Strings versions = {Item(VersionBytes("AF", "1.0")), Item(VersionBytes("AE", "2")),
                            Item(VersionBytes("", "3"))};
  Write(Bin("default"), I32(0));
  Write(Bin("tele"), "");
  const Strings listed = Listed();
  const auto version_line = [&](const std::string& what, size_t index) {
    return E(kDump, what + (index < listed.size() ? listed[index] : Bin("tele")));
  };

  /// The lines of a dump, and of the version reader alone, when the bytes of one item are not all there.
  struct Break {
    size_t begin, size;
    Strings dumped, parsed;
  };
  std::vector<Break> breaks;
  std::string whole;
  const auto add = [&](const std::string& bytes, const Strings& dumped, const Strings& parsed = {}) {
    breaks.push_back({whole.size(), bytes.size(), dumped, parsed});
    whole += bytes;
  };
  const std::string no_length = "Read tuning version len from bin failed: ";
  add(I32(3), {});
  for (size_t i = 0; i < versions.size(); ++i) {
    add(versions[i].substr(0, 4), {version_line(no_length, i)},
        {E(kParse, "Read tuning version len from file " + Bin("tele") + " failed")});
    Strings lines = {version_line("Read tuning version msg failed: ", i)};
    if (i + 1 < versions.size()) lines.push_back(version_line(no_length, i + 1));
    add(versions[i].substr(4), lines, {E(kParse, "Read tuning version msg from " + Bin("tele") + " failed")});
  }
  const auto add_record = [&](const std::string& label, const std::string& module, const std::string& name) {
    add(I32(static_cast<int32_t>(label.size())), {});  // a clean end, or one to three bytes that are no length
    add(label, {E(kDump, "Read tuning data label from bin failed: " + Bin("tele"))});
    add(I32(static_cast<int32_t>(module.size())), {E(kDump, "Read tuning data for module failed: " + name)});
    add(module, {E(kDump, "Parse module msg failed: " + name)});
  };
  add_record(LabelBytes({kAWGain, 3}), GainBytes(1.5), "AWGain");
  add_record(LabelBytes({kAfCommon}), AfBytes(), "AfCommon");

  const auto expect = [&](const std::string& bytes, const Strings& dumped, const Strings& parsed) {
    Write(Bin("tele"), bytes);
    EXPECT_TRUE(Dump());
    EXPECT_EQ(TakeLog(6), dumped);
    EXPECT_EQ(ParseVersions(Bin("tele")), parsed.empty());
    EXPECT_EQ(TakeLog(6), parsed);
    EXPECT_EQ(DumpVersions(), parsed.empty());
    EXPECT_EQ(TakeLog(6), parsed);
  };
  for (size_t i = 0; i < breaks.size(); ++i) {
    const auto& [begin, size, dumped, parsed] = breaks[i];
    for (size_t cut = begin; cut < begin + size; ++cut) {
      SCOPED_TRACE("cut at " + std::to_string(cut));
      expect(whole.substr(0, cut), dumped, parsed);
    }
    // A length that is negative or promises more than there is breaks the item that it stands for.
    if (i % 2 == 0) continue;
    const int32_t left = static_cast<int32_t>(whole.size() - begin) - 4;
    for (const int32_t length : {-1, INT32_MIN, INT32_MAX, left + 1}) {
      SCOPED_TRACE("length " + std::to_string(length) + " at " + std::to_string(begin));
      expect(std::string(whole).replace(begin, 4, I32(length)), breaks[i + 1].dumped, breaks[i + 1].parsed);
    }
  }

  // Items that do not parse. The reading goes on with the next version, but not with the records.
  const std::string bad = Item("\xff");
  const auto bad_version = [&](size_t index) { return version_line("Parse tuning version msg failed: ", index); };
  const Strings parsed = {E(kParse, "Parse tuning version msg failed: " + Bin("tele"))};
  expect(I32(3) + versions[0] + bad + bad + bad, {bad_version(1), bad_version(2)}, parsed);
  expect(I32(1) + bad + Item(LabelBytes({kGhost})), {bad_version(0)}, parsed);
  expect(I32(0) + bad + Item("") + Item(LabelBytes({kGhost})),
         {E(kDump, "Parse tuning data label failed: " + Bin("tele"))}, {});
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
