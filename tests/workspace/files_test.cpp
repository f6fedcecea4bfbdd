// Replacing files, and listing them.

#include "workspace/files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "support/child.h"
#include "support/files.h"

namespace zotest {
namespace {

namespace fs = std::filesystem;
using zotuning::CollectingSink;
using zotuning::ReplaceFile;

ino_t Inode(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 ? info.st_ino : 0;
}

TEST(ReplaceFile, KeepsModeLinksAndNames) {
  const TempDir dir;
  CollectingSink sink;
  const std::string file = dir / "a.json";
  ASSERT_TRUE(ReplaceFile(file, "first", sink));
  EXPECT_EQ(Mode(file), 0644u);
  ASSERT_EQ(chmod(file.c_str(), 0640), 0);
  const ino_t before = Inode(file);
  ASSERT_TRUE(ReplaceFile(file, "second", sink));
  EXPECT_EQ(Read(file), "second");
  EXPECT_EQ(Mode(file), 0640u);
  EXPECT_NE(Inode(file), before);  // another file took its place

  fs::create_directory(dir / "other");
  fs::create_symlink("../a.json", dir / "other/link.json");
  ASSERT_TRUE(ReplaceFile(dir / "other/link.json", "third", sink));
  EXPECT_TRUE(fs::is_symlink(dir / "other/link.json"));
  EXPECT_EQ(Read(file), "third");

  // A file with several hard links keeps them all, so it is written in place.
  fs::create_hard_link(file, dir / "b.json");
  ASSERT_TRUE(ReplaceFile(file, "fourth", sink));
  EXPECT_EQ(Read(dir / "b.json"), "fourth");
  EXPECT_TRUE(sink.diagnostics().empty());
  EXPECT_EQ(Tree(dir.str()), (Strings{"a.json", "a.json", "b.json", "other/"}));  // the link reads as its target
}

TEST(ReplaceFile, LeavesTheOldFileWholeWhenItFails) {
  const TempDir dir;
  const std::string file = dir / "a.json", old(100000, 'o'), longer(300000, 'n');
  Write(file, old);
  const bool ran = InChild([&] {
    LimitFileSize(200000);
    CollectingSink sink;
    EXPECT_FALSE(ReplaceFile(file, longer, sink));
    EXPECT_THAT(sink.diagnostics().at(0).message, testing::HasSubstr(std::string("a.json: ") + std::strerror(EFBIG)));
  });
  ASSERT_TRUE(ran);
  EXPECT_EQ(Read(file), old);
  EXPECT_EQ(Tree(dir.str()), Strings{"a.json"});

  CollectingSink sink;
  fs::create_directory(dir / "folder");
  EXPECT_FALSE(ReplaceFile(dir / "folder", "x", sink));
  EXPECT_FALSE(ReplaceFile(dir / "missing/a.json", "x", sink));
  EXPECT_EQ(sink.errors(), 2u);
}

TEST(ReplaceFile, WritesInPlaceWhereTheFolderAllowsNothingElse) {
  const TempDir dir;
  const std::string file = dir / "locked/a.json";
  Write(file, "old");
  ASSERT_EQ(chmod(file.c_str(), 0666), 0);
  ASSERT_EQ(chmod((dir / "locked").c_str(), 0555), 0);
  ASSERT_EQ(chmod(dir.str().c_str(), 0755), 0);
  InChild([&] {
    BecomeNobody();
    CollectingSink sink;
    if (access(file.c_str(), R_OK) != 0) CannotRunHere();
    EXPECT_TRUE(ReplaceFile(file, "new", sink));
    EXPECT_EQ(Read(file), "new");
  });
  ASSERT_EQ(chmod((dir / "locked").c_str(), 0755), 0);
}

TEST(ListFiles, IsOrderedByTheBytesOfPaths) {
  const TempDir dir;
  for (const char* name : {"b.json", "a/z.json", "a-b/y.json", "a.json", "version/v.json", "c.txt", "x.JSON"}) {
    Write(dir / name, "");
  }
  std::vector<zotuning::FoundFile> files;
  CollectingSink sink;
  ASSERT_TRUE(zotuning::ListFiles(dir.str(), ".json", files, sink));
  Strings found;
  for (const auto& file : files) found.push_back(file.relative);
  EXPECT_EQ(found, (Strings{"a-b/y.json", "a.json", "a/z.json", "b.json"}));
}

}  // namespace
}  // namespace zotest
