// Changes to several files: what git makes of their diff, and what is left if one of them fails.

#include "workspace/change_set.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "support/child.h"
#include "support/files.h"
#include "transcode/random_json.h"

namespace zotest {
namespace {

using testing::HasSubstr;
using zotuning::ChangeSet;
using zotuning::Code;
using zotuning::CollectingSink;

/// Everything below a directory with its contents.
std::string Contents(const std::string& dir) {
  std::string contents;
  for (const std::string& name : Tree(dir)) {
    contents += name + "\n";
    if (name.back() != '/') contents += Read(dir + "/" + name) + "\n";
  }
  return contents;
}

/// Applies the diff of `changes`, whose files are below `dir`, with git.
void GitApply(const ChangeSet& changes, const std::string& dir, const std::string& patch) {
  Write(patch, changes.Diff(dir));
  ASSERT_EQ(std::system(("cd '" + dir + "' && git apply --whitespace=nowarn '" + patch + "'").c_str()), 0)
      << Read(patch);
}

TEST(ChangeSet, GitMakesOfTheDiffWhatApplyMakes) {
  // Each name with its text before and after; "-" for no file.
  struct Row {
    const char* name;
    const char* before;
    const char* after;
    const char* new_name = nullptr;
  };
  const Row rows[] = {
      {"changed.json", "{\n \"a\": 1,\n \"b\": 2\n}\n", "{\n \"a\": 1,\n \"b\": 3\n}\n"},
      {"no newline.json", "{\"a\": 1}", "{\"a\": 2}"},
      {"newline comes.json", "a\nb", "a\nb\n"},
      {"newline goes.json", "a\nb\n", "a\nb"},
      {"crlf.json", "{\r\n \"a\": 1\r\n}\r\n", "{\r\n \"a\": 2,\r\n \"c\": 1\r\n}"},
      {"added.json", "-", "{\n}\n"},
      {"deep/er/added.json", "-", "x"},
      {"empty.json", "-", ""},
      {"emptied.json", "x\n", ""},
      {"filled.json", "", "x\n"},
      {"gone/removed.json", "1\n2\n", "-"},
      {"moved.json", "same\n", "same\n", "to/moved.json"},
      {"moved and changed.json", "1\n2\n3\n4\n5\n6\n7\n8\n9\n", "1\n2\n3\n4\n5\n6\n7\n8\n0\n", "other.json"},
      {"odd \"name\"\t\\ gr\xc3\xb6\xc3\x9f"
       "e.json",
       "1\n", "2\n"},
  };
  const TempDir temp;
  const std::string by_git = temp / "git", by_us = temp / "us";
  ChangeSet changes, same;
  for (const std::string& dir : {by_git, by_us}) {
    MakeDirs(dir);
    ChangeSet& set = dir == by_us ? changes : same;
    for (const Row& row : rows) {
      const std::string path = dir + "/" + row.name;
      if (row.before != std::string("-")) Write(path, row.before);
      if (row.new_name != nullptr) {
        set.Rename(path, dir + "/" + row.new_name, row.before, row.after);
      } else if (row.after == std::string("-")) {
        set.Remove(path, row.before);
      } else {
        row.before == std::string("-") ? set.Create(path, row.after) : set.Replace(path, row.before, row.after);
      }
    }
    set.Replace(dir + "/unchanged.json", "same", "same");
    set.RemoveIfEmpty(dir + "/gone");
  }
  EXPECT_EQ(changes.changes().size(), std::size(rows));
  GitApply(same, by_git, temp / "patch");
  CollectingSink sink;
  ASSERT_TRUE(changes.Apply(sink));
  EXPECT_EQ(Contents(by_us), Contents(by_git));
}

TEST(ChangeSet, GitTakesTheDiffOfAnyTwoTexts) {
  Random random(3);
  const auto text = [&](size_t lines, size_t words) {
    std::string made;
    for (size_t i = 0; i < lines; ++i) {
      made += "line " + std::to_string(random.Below(words)) + (random.OneIn(9) ? "\r\n" : "\n");
    }
    if (random.OneIn(4) && !made.empty()) made.pop_back();
    return made;
  };
  const TempDir temp;
  const std::string by_git = temp / "git", by_us = temp / "us";
  ChangeSet changes, same;
  for (size_t i = 0; i < 120; ++i) {
    // Few distinct lines, so that there are many solutions; and, twice, more than the search has time for.
    const bool large = i % 60 == 0;
    const std::string before = text(large ? 3000 : random.Below(60), large ? 9999 : 1 + random.Below(30));
    std::string after = before;
    for (size_t j = random.Below(6); j > 0 && !large; --j) {
      size_t at = random.Below(after.size() + 1);
      while (at > 0 && after[at - 1] != '\n') --at;
      random.OneIn(2) ? after.insert(at, text(1 + random.Below(4), 30)) : after.erase(at, random.Below(60));
    }
    if (large || random.OneIn(5)) after = text(large ? 3000 : random.Below(60), large ? 9999 : 1 + random.Below(30));
    const std::string name = "/" + std::to_string(i) + ".json";
    Write(by_git + name, before);
    Write(by_us + name, before);
    same.Replace(by_git + name, before, after);
    changes.Replace(by_us + name, before, after);
  }
  GitApply(same, by_git, temp / "patch");
  CollectingSink sink;
  ASSERT_TRUE(changes.Apply(sink));
  EXPECT_EQ(Contents(by_us), Contents(by_git));
}

TEST(ChangeSet, TheDiffOfAProjectInsideARepositoryFitsThere) {
  const TempDir temp;
  const std::string project = temp / "repository/tuning project";
  MakeDirs(project);
  ASSERT_EQ(std::system(("git init -q '" + (temp / "repository") + "'").c_str()), 0);
  Write(project + "/front/a.json", "1\n");
  ChangeSet changes;
  changes.Replace(project + "/./front/../front/a.json", "1\n", "2\n");
  changes.Create(project + "/front/mode_1/b.json", "3\n");
  GitApply(changes, project, temp / "patch");
  EXPECT_EQ(Read(project + "/front/a.json") + Read(project + "/front/mode_1/b.json"), "2\n3\n");
}

TEST(ChangeSet, HunksAreSmall) {
  EXPECT_EQ(zotuning::DiffLines("1\n2\n3\n4\n5\n6\n7\n8\n9\n", "1\n2\n3\n4\nx\n6\n7\n8\n9\n"),
            "@@ -2,7 +2,7 @@\n 2\n 3\n 4\n-5\n+x\n 6\n 7\n 8\n");
  EXPECT_EQ(zotuning::DiffLines("a\nb\nc\na\nb\nb\na\n", "c\nb\na\nb\na\nc\n"),
            "@@ -1,7 +1,6 @@\n-a\n-b\n c\n+b\n a\n b\n-b\n a\n+c\n");
}

TEST(ChangeSet, FilesMayBeSwappedAndKeepTheirModes) {
  const TempDir temp;
  Write(temp / "a", "1");
  Write(temp / "b", "2");
  chmod((temp / "a").c_str(), 0640);
  chmod((temp / "b").c_str(), 0600);
  ChangeSet changes;
  changes.Rename(temp / "a", temp / "b", "1", "1");
  changes.Rename(temp / "b", temp / "a", "2", "3");
  CollectingSink sink;
  ASSERT_TRUE(changes.Apply(sink));
  EXPECT_EQ(Read(temp / "a") + Read(temp / "b"), "31");
  EXPECT_EQ(Mode(temp / "a"), 0600u);
  EXPECT_EQ(Mode(temp / "b"), 0640u);
}

TEST(ChangeSet, NothingIsWrittenWhenAFileIsNotWhatItWas) {
  const TempDir temp;
  Write(temp / "a", "1");
  Write(temp / "b", "edited meanwhile");
  Write(temp / "c", "in the way");
  ChangeSet changes;
  changes.Replace(temp / "a", "1", "2");
  changes.Replace(temp / "b", "1", "2");
  changes.Create(temp / "c", "2");
  changes.Remove(temp / "d", "1");
  const std::string before = Contents(temp.str());
  CollectingSink sink;
  EXPECT_FALSE(changes.Apply(sink));
  EXPECT_EQ(Contents(temp.str()), before);
  ASSERT_EQ(sink.diagnostics().size(), 3u);
  EXPECT_EQ(sink.diagnostics()[0].code, Code::kChangedMeanwhile);
  EXPECT_EQ(sink.diagnostics()[0].file, temp / "b");
  EXPECT_EQ(sink.diagnostics()[1].code, Code::kExists);
  EXPECT_EQ(sink.diagnostics()[2].code, Code::kIo);
}

TEST(ChangeSet, AFailurePutsBackWhatWasWritten) {
  const TempDir temp;
  for (const char* name : {"a", "gone", "moved", "z/file"}) Write(temp / name, "1");
  chmod((temp / "gone").c_str(), 0640);
  const std::string before = Contents(temp.str());
  ChangeSet changes;
  changes.Remove(temp / "gone", "1");
  changes.Replace(temp / "a", "1", "2");
  changes.Create(temp / "new/folder/file", "2");
  changes.Rename(temp / "moved", temp / "to", "1", "2");
  // "z/file" is a file, so nothing can be created below it.
  changes.Create(temp / "z/file/below", "2");
  CollectingSink sink;
  EXPECT_FALSE(changes.Apply(sink));
  EXPECT_EQ(Contents(temp.str()), before);
  EXPECT_EQ(Mode(temp / "gone"), 0640u);
  ASSERT_EQ(sink.diagnostics().size(), 2u);
  EXPECT_THAT(sink.diagnostics()[0].message, HasSubstr(std::strerror(ENOTDIR)));
  EXPECT_EQ(sink.diagnostics()[1].message, "nothing was changed: 3 files written before it were put back");
}

TEST(ChangeSet, WhatCannotBePutBackIsNamed) {
  const TempDir temp;
  const std::string long_text(3000, 'x');
  Write(temp / "a", long_text);
  Write(temp / "b", "1");
  ChangeSet changes;
  changes.Replace(temp / "a", long_text, "2");
  changes.Replace(temp / "b", "1", long_text);
  ASSERT_TRUE(InChild([&] {
    LimitFileSize(1000);
    CollectingSink sink;
    EXPECT_FALSE(changes.Apply(sink));
    ASSERT_EQ(sink.diagnostics().size(), 3u);
    EXPECT_EQ(sink.diagnostics()[0].file, temp / "b");
    EXPECT_EQ(sink.diagnostics()[1].file, temp / "a");
    EXPECT_THAT(sink.diagnostics()[1].message, HasSubstr("this file was changed and cannot be put back: cannot write"));
    EXPECT_EQ(sink.diagnostics()[2].message, "1 file of 2 stayed changed; the others are as they were");
  }));
  EXPECT_EQ(Read(temp / "a") + Read(temp / "b"), "21");
}

}  // namespace
}  // namespace zotest
