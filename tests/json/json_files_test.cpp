#include <unistd.h>

#include "ZoTuningUtils.h"
#include "support/child.h"
#include "support/project.h"

namespace {

using namespace zotest;

using JsonFilesTest = LogTest;

TEST_F(JsonFilesTest, ListsInDirectoryOrderWithoutVersions) {
  const TempDir dir;
  const Strings listed = {"a.json",           ".json",           "b.c.json",       "100%s.json", "sub/d.json",
                          "sub/sub ö/e.json", "versions/f.json", "dir.json/g.json"};
  for (const std::string& name : listed) Write(dir / name, "{}");
  for (const std::string name : {"a.JSON", "a.json.bak", "json", "ajson", "version/h.json", "sub/version/i.json"}) {
    Write(dir / name, "{}");
  }
  ASSERT_EQ(symlink("nowhere", (dir / "link.json").c_str()), 0);
  ASSERT_EQ(symlink("sub", (dir / "linked").c_str()), 0);  // a link to a directory is not entered

  Strings found = {"kept"};
  EXPECT_TRUE(ZoTuningUtils::FindAllJsonFiles(dir.str().c_str(), found));
  Strings wanted = JsonInOrder(dir.str());
  wanted.insert(wanted.begin(), "kept");
  EXPECT_EQ(found, wanted);
  EXPECT_EQ(found.size(), 2 + listed.size());

  // The directory passed in may itself be named "version".
  found.clear();
  EXPECT_TRUE(ZoTuningUtils::FindAllJsonFiles((dir / "version").c_str(), found));
  EXPECT_THAT(found, ElementsAre(dir / "version/h.json"));
}

TEST_F(JsonFilesTest, ReportsWhatItCannotOpenAndGoesOn) {
  const TempDir dir;
  Strings found = {"kept"};
  EXPECT_FALSE(ZoTuningUtils::FindAllJsonFiles((dir / "no%s").c_str(), found));
  EXPECT_LOG(E("FindAllJsonFiles", "Open directory failed: " + (dir / "no%s")));
  Write(dir / "open/a.json", "");
  Write(dir / "closed/b.json", "");
  chmod((dir / "closed").c_str(), 0);
  const bool ran = InChild([&] {
    BecomeNobody();
    EXPECT_TRUE(ZoTuningUtils::FindAllJsonFiles(dir.str().c_str(), found));
    EXPECT_THAT(found, ElementsAre("kept", dir / "open/a.json"));
    EXPECT_LOG(E("FindAllJsonFiles", "Open directory failed: " + (dir / "closed")));
  });
  chmod((dir / "closed").c_str(), 0700);
  if (!ran) GTEST_SKIP() << "this process may not become another user";
}

TEST_F(JsonFilesTest, CutsSubdirectoriesButNotFilesAtTheBuffersEnd) {
  const TempDir temp;
  std::string dir = temp.str();
  while (dir.size() < 800) dir += "/" + std::string(100, 'd');
  dir += "/" + std::string(1019 - dir.size(), 'e');
  ASSERT_EQ(dir.size(), 1020U);
  for (const std::string name : {"ab", "abc", "abcd"})
    Write(dir + "/" + name + "/" + std::string(200, 'f') + ".json", "");
  Write(dir + "/" + std::string(200, 'g') + ".json", "");

  Strings found;
  EXPECT_TRUE(ZoTuningUtils::FindAllJsonFiles(dir.c_str(), found));
  const std::string file = "/" + std::string(200, 'f') + ".json";
  EXPECT_THAT(found, UnorderedElementsAre(dir + "/ab" + file, dir + "/" + std::string(200, 'g') + ".json"));
  // 1,023 bytes still fit, "/ab"; the other two are truncated to the same name, which is not entered.
  const std::string cut = E("FindAllJsonFiles", "Open directory failed: " + dir + "/ab");
  EXPECT_LOG(cut, cut);
}

}  // namespace
