// What can be compared: every form of side, on disk and at a git revision.

#include "workspace/sides.h"

#include <filesystem>

#include "bin/bin_folder.h"
#include "support/project.h"
#include "support/wire.h"
#include "workspace/git.h"
#include "workspace/pack.h"

namespace zotest {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using zotuning::CollectingSink;
using zotuning::CompareSidesOptions;
using zotuning::EntryComparison;
using zotuning::Side;
using zotuning::SideOpener;
using zotuning::SidesComparison;

class SidesTest : public ProjectTest {
 protected:
  void SetUp() override {
    project_.Add("default", {{"AWGain.json", GainJson("1.5"), {kAWGain}, GainBytes(1.5)},
                             {"AfCommon.json", kAfJson, {kAfCommon}, AfBytes()}});
    project_.Add("tele", {{"mode_1/AWGain.json", GainJson("2.5"), {kAWGain, 1}, GainBytes(2.5)},
                          {"mode_2/AWGain.json", GainJson("2.5"), {kAWGain, 2}, GainBytes(2.5)},
                          {"AfCommon.json", kAfJson, {kAfCommon}, AfBytes()}});
    Write(dir_ + "/proto/version/a.json", VersionJson("a", "1"));
    Write(dir_ + "/tele/version/t.json", VersionJson("t", "2"));
    MakeDirs(dir_ + "/bins");
  }

  void Open() {
    CollectingSink sink;
    opener_ = std::make_unique<SideOpener>(zotuning::Project::Load(dir_, sink));
    ASSERT_TRUE(sink.ok());
  }

  void Pack() {
    CollectingSink sink;
    const auto project = zotuning::Project::Load(dir_, sink);
    std::vector<zotuning::ScopeInputs> inputs;
    std::vector<zotuning::PackedBin> bins;
    ASSERT_TRUE(ListInputs(*project, project->Scopes(), inputs, sink));
    ASSERT_TRUE(PackBins(*project, inputs, {false}, dir_ + "/bins", "bins", bins, sink));
  }

  void Git(Strings words) const {
    words.insert(words.begin(), {"git", "-C", dir_, "-c", "user.name=n", "-c", "user.email=e"});
    std::string out, err;
    ASSERT_EQ(zotuning::RunProgram(words, out, err), 0) << err;
  }
  void Commit() const {
    if (!fs::exists(dir_ + "/.git")) Git({"init", "-q"});
    Git({"add", "-A"});
    Git({"commit", "-q", "-m", "m"});
  }

  /// "changed tele module=AWGain mode=1", and the errors; the number of equal entries at the end.
  Strings Compare(const std::string& left_name, const std::string& right_name, CompareSidesOptions options = {}) {
    Strings found;
    CollectingSink sink;
    const auto left = opener_->Open(left_name, sink);
    const auto right = opener_->Open(right_name, sink);
    if (left != nullptr && right != nullptr) {
      SidesComparison comparison;
      const auto add = [&](const EntryComparison& pair) {
        const auto& entry = pair.right != nullptr ? *pair.right : *pair.left;
        found.push_back((pair.left == nullptr    ? "added "
                         : pair.right == nullptr ? "removed "
                                                 : "changed ") +
                        entry.scope + " " + zotuning::LabelText(entry.labels));
      };
      (void)CompareSides(*left, *right, options, add, comparison, sink);
      for (const std::string& field : comparison.only_left_schema) found.push_back("only left " + field);
      for (const std::string& field : comparison.only_right_schema) found.push_back("only right " + field);
      found.push_back(std::to_string(comparison.same) + " same");
    }
    for (const auto& diagnostic : sink.diagnostics()) found.push_back(diagnostic.file + ": " + diagnostic.message);
    return found;
  }

  std::unique_ptr<SideOpener> opener_;
};

TEST_F(SidesTest, EveryFormIsTheSameAtItsRevision) {
  // Git does not keep the folder of a sensor without files.
  Write(dir_ + "/ProjConf.bin", Item(ConfigBytes("proj", {"tele", "wide"})));
  MakeDirs(dir_ + "/wide/version");
  Pack();
  Commit();
  Open();
  const std::string prefix = "HEAD:";
  for (const std::string form : {"", "default", "tele", "tele/mode_1", "tele/mode_1/AWGain.json", "bins",
                                 "bins/tele.bin", "proto/version", "tele/version/t.json"}) {
    const Strings same = Compare(prefix + form, form.empty() ? dir_ : form);
    ASSERT_EQ(same.size(), 1u) << form << ": " << testing::PrintToString(same);
    EXPECT_NE(same[0], "0 same") << form;
  }
  EXPECT_THAT(Compare("HEAD:", "bins"), ElementsAre("7 same"));
  EXPECT_THAT(Compare("bins/tele.bin", "tele"), ElementsAre("4 same"));
  EXPECT_THAT(Compare(dir_ + "/tele/mode_1", "tele"), ElementsAre("1 same"));
  Write(dir_ + "/tele/mode_1/AWGain.json", GainJson("2.50") + "\n");
  EXPECT_THAT(Compare(prefix, dir_), ElementsAre("7 same"));
  Write(dir_ + "/tele/mode_1/AWGain.json", GainJson("2.75"));
  Write(dir_ + "/tele/version/t.json", VersionJson("t", "3"));
  Write(dir_ + "/tele/mode_3/AWGain.json", GainJson("1"));
  fs::remove(dir_ + "/tele/mode_2/AWGain.json");
  EXPECT_THAT(Compare("HEAD:", dir_),
              ElementsAre("changed tele version=t", "changed tele module=AWGain mode=1",
                          "added tele module=AWGain mode=3", "removed tele module=AWGain mode=2", "4 same"));
  EXPECT_EQ(Compare("bins", dir_), Compare("HEAD:", dir_));
  EXPECT_THAT(Compare("HEAD:tele/version/t.json", "tele/version"), ElementsAre("changed tele version=t", "0 same"));
  EXPECT_THAT(Compare("HEAD:tele/version", "bins/tele.bin"), ElementsAre("1 same"));
  Commit();
  EXPECT_THAT(Compare("HEAD~1:tele", "HEAD@{0}:tele/").size(), 5u);
}

TEST_F(SidesTest, FoldersArePairedByWhatIsBelowThemAndDefaultsByModule) {
  Open();
  EXPECT_THAT(Compare("tele/mode_1", "tele/mode_2"), ElementsAre("1 same"));
  EXPECT_THAT(Compare("tele/mode_1/AWGain.json", "tele/mode_2/AWGain.json"), ElementsAre("1 same"));
  EXPECT_THAT(Compare("default", "tele"),
              ElementsAre("changed tele module=AWGain mode=1", "changed tele module=AWGain mode=2", "1 same"));
  EXPECT_THAT(Compare("default", dir_), Compare("default", "tele"));
  EXPECT_THAT(Compare("default/AWGain.json", "tele/mode_1"),
              ElementsAre("changed tele module=AWGain mode=1", "0 same"));
  EXPECT_THAT(Compare("tele/AfCommon.json", "tele/mode_1/AWGain.json"),
              ElementsAre("0 same",
                          ": 'tele/AfCommon.json' is a setting of 'AfCommon', 'tele/mode_1/AWGain.json' one of "
                          "'AWGain'"));
  EXPECT_THAT(Compare("tele/version/t.json", "tele/mode_1/AWGain.json").back(),
              HasSubstr("'tele/version/t.json' is a version, 'tele/mode_1/AWGain.json' a setting"));
}

TEST_F(SidesTest, ARevisionHasItsOwnSchema) {
  Commit();
  std::string schema = Read(dir_ + "/proto/awb.proto");
  schema.insert(schema.find('}', schema.find("message AWGain")), "  ZO_TUNING.FloatData offset = 2;\n");
  Write(dir_ + "/proto/awb.proto", schema);
  Open();
  EXPECT_THAT(Compare("HEAD:", dir_), ElementsAre("only right AWGain.offset", "7 same"));
  std::string text = GainJson("2.5");
  text.insert(text.rfind('}'), ", \"offset\": {\"value\": 1}");
  Write(dir_ + "/tele/mode_1/AWGain.json", text);
  EXPECT_THAT(Compare("HEAD:", dir_),
              ElementsAre("changed tele module=AWGain mode=1", "only right AWGain.offset", "6 same"));
  Write(dir_ + "/proto/awb.proto", "syntax = \"proto3\"; broken");
  Commit();
  EXPECT_THAT(Compare("HEAD@{0}:", dir_)[0], HasSubstr("HEAD@{0}:proto/awb.proto: "));
}

TEST_F(SidesTest, NothingIsWritten) {
  Commit();
  Open();
  const auto state = [&] {
    std::map<std::string, fs::file_time_type> files;
    for (const auto& entry : fs::recursive_directory_iterator(dir_)) files[entry.path()] = entry.last_write_time();
    return files;
  };
  const auto before = state();
  size_t temporary = 0;
  for (const auto& entry : fs::directory_iterator(fs::temp_directory_path())) {
    temporary += entry.path().filename().string().rfind(".zo_tuning-", 0) == 0;
  }
  EXPECT_THAT(Compare("HEAD:", dir_), ElementsAre("7 same"));
  EXPECT_EQ(state(), before);
  for (const auto& entry : fs::directory_iterator(fs::temp_directory_path())) {
    temporary -= entry.path().filename().string().rfind(".zo_tuning-", 0) == 0;
  }
  EXPECT_EQ(temporary, 0u);
}

TEST_F(SidesTest, WhatIsNoSideIsRefused) {
  Open();
  EXPECT_THAT(Compare("HEAD:", dir_), ElementsAre(HasSubstr("revisions cannot be read: not a git repository")));
  Commit();
  fs::create_symlink("AfCommon.json", dir_ + "/tele/AWGain.json");
  Git({"add", "-A"});
  Git({"commit", "-q", "-m", "link"});
  const struct {
    const char *side, *message;
  } kRows[] = {
      {"", "there is no sensor and no file ''"},
      {"tela", "did you mean 'tele'?"},
      {"HEAD", "there is no sensor and no file 'HEAD'"},
      {"NO:tele", "cannot read the revision 'NO'"},
      {"--output=x:tele", "'--output=x' is not a revision"},
      {"HEAD:nowhere", "has nothing at 'nowhere'"},
      {"HEAD:proto", "this folder holds no bins"},
      {"HEAD:tele", "HEAD:tele/AWGain.json: this is a link"},
      {"proto/awb.proto", "neither a setting of a sensor nor a bin"},
      {"ProjConf.bin", "neither a setting of a sensor nor a bin"},
  };
  for (const auto& row : kRows) {
    const Strings found = Compare(row.side, "tele");
    EXPECT_THAT(found.back(), HasSubstr(row.message)) << row.side;
  }
  Write(dir_ + "/tele/mode_1/AWGain.json", "{\"gain\": }");
  EXPECT_THAT(Compare("HEAD:", dir_).back(), HasSubstr("tele/mode_1/AWGain.json: a value is expected"));
  Write(dir_ + "/tele/Nothing.json", "{}");
  EXPECT_THAT(Compare("tele", "tele").back(), HasSubstr("tele/Nothing.json: no module 'Nothing'"));
}

TEST_F(SidesTest, EveryByteCountsWhereAsked) {
  Pack();
  Open();
  CompareSidesOptions bytes;
  bytes.bytes = true;
  bytes.compare.rules = true;
  EXPECT_THAT(Compare("bins/tele.bin", "bins/tele.bin", bytes), ElementsAre("4 same"));
  const std::string bin = Read(dir_ + "/bins/tele.bin");
  MakeDirs(dir_ + "/other");
  // A field that the schema lacks, in the first label.
  size_t at = 4;
  const auto length = [&](size_t place) {
    return static_cast<size_t>(static_cast<unsigned char>(bin[place])) +
           256 * static_cast<size_t>(static_cast<unsigned char>(bin[place + 1]));
  };
  at += 4 + length(at);
  std::string changed = bin;
  changed.insert(at + 4 + length(at), "\xf8\x3f\x01");
  changed[at] = static_cast<char>(changed[at] + 3);
  Write(dir_ + "/other/tele.bin", changed);
  EXPECT_THAT(Compare("other/tele.bin", "bins/tele.bin"), ElementsAre("4 same"));
  EXPECT_THAT(Compare("other/tele.bin", "bins/tele.bin", bytes), testing::Contains("3 same"));
  // A damaged bin, and a module that is not a message.
  Write(dir_ + "/other/tele.bin", bin.substr(0, bin.size() - 1));
  EXPECT_THAT(Compare("other/tele.bin", "tele"), ElementsAre(HasSubstr("the bin is damaged at byte")));
  changed = bin;
  changed[bin.find(GainBytes(2.5)) + 1] = '\x7f';
  Write(dir_ + "/other/tele.bin", changed);
  EXPECT_THAT(Compare("other/tele.bin", "tele").back(), HasSubstr("the bin is damaged at byte"));
}

TEST_F(SidesTest, TwoBinsAreComparedWithoutWhatTheyHaveInCommon) {
  Open();
  // Larger than what is read at once, and different in the last byte.
  const std::string large = GainBytes(1) + Len(99, std::string(100000, 'x')),
                    other = GainBytes(1) + Len(99, std::string(99999, 'x') + 'y');
  const auto record = [](int mode, const std::string& module) {
    return Item(LabelBytes({kAWGain, mode})) + Item(module);
  };
  std::string many;
  for (size_t i = 0; i < zotuning::kMaxBinEntries + 5; ++i) many += record(9, "");
  const std::string version = Item(VersionBytes("a", "1"));
  const struct {
    std::string left, right;
    size_t same, unlisted, different;
  } rows[] = {
      {I32(1) + version + record(1, large) + record(2, "") + record(3, ""),
       I32(1) + version + record(3, "") + record(1, large) + record(2, ""), 4, 0, 0},
      {I32(0) + record(1, large) + record(2, "") + record(2, ""), I32(0) + record(2, "") + record(1, other), 1, 0, 2},
      {I32(1) + version, I32(0) + record(1, ""), 0, 0, 2},
      {I32(0) + many, I32(0) + record(9, "") + record(1, ""), 1, 4, zotuning::kMaxBinEntries + 1},
  };
  for (const auto& row : rows) {
    Write(dir_ + "/left.bin", row.left);
    Write(dir_ + "/right.bin", row.right);
    CollectingSink sink;
    zotuning::BinPair pair;
    ASSERT_TRUE(opener_->OpenBinPair({dir_ + "/left.bin", "l"}, {dir_ + "/right.bin", "r"}, "tele", pair, sink));
    EXPECT_EQ(pair.same, row.same);
    EXPECT_EQ(pair.unlisted, row.unlisted);
    CompareSidesOptions options;
    options.bytes = true;
    SidesComparison comparison;
    EXPECT_TRUE(CompareSides(
        *pair.left, *pair.right, options, [](const EntryComparison&) {}, comparison, sink));
    EXPECT_EQ(comparison.different, row.different);
    EXPECT_EQ(comparison.same, 0u);
  }
  Write(dir_ + "/left.bin", I32(0) + "x");
  CollectingSink sink;
  zotuning::BinPair pair;
  EXPECT_FALSE(opener_->OpenBinPair({dir_ + "/left.bin", "l"}, {dir_ + "/right.bin", "r"}, "tele", pair, sink));
  ASSERT_EQ(sink.errors(), 1u);
  EXPECT_EQ(sink.diagnostics()[0].file, "l");
}

}  // namespace
}  // namespace zotest
