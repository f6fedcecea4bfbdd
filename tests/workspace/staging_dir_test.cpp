// The folder in which output is made: complete in its place or gone, however the run ends.

#include "workspace/staging_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "support/files.h"
#include "workspace/files.h"

namespace zotest {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using zotuning::CollectingSink;
using zotuning::DiagnosticSink;
using zotuning::StagingDir;

const StagingDir::MayReplace kAlways = [](const std::string&, DiagnosticSink&) { return true; };

TEST(StagingDir, CommitsOrLeavesNothing) {
  const TempDir dir;
  const std::string parent = dir / "deep/out", target = parent + "/zo_tuning";
  CollectingSink sink;
  { ASSERT_NE(StagingDir::Make(parent, nullptr, sink), nullptr); }
  EXPECT_THAT(Tree(dir.str()), IsEmpty());
  {
    const auto staging = StagingDir::Make(parent, nullptr, sink);
    Write(staging->path() + "/zo_tuning/a.bin", "new");
    ASSERT_TRUE(staging->Commit("zo_tuning", target, nullptr, sink));
  }
  EXPECT_THAT(Tree(parent), ElementsAre("zo_tuning/", "zo_tuning/a.bin"));
  {
    const auto staging = StagingDir::Make(parent, nullptr, sink);
    Write(staging->path() + "/zo_tuning/b.bin", "newer");
    EXPECT_FALSE(staging->Commit("zo_tuning", target, nullptr, sink));
    ASSERT_TRUE(staging->Commit("zo_tuning", target, kAlways, sink));
  }
  EXPECT_THAT(Tree(parent), ElementsAre("zo_tuning/", "zo_tuning/b.bin"));
}

TEST(StagingDir, KeepsWhatCameIntoTheOldFolderMeanwhile) {
  const TempDir dir;
  const std::string target = dir / "zo_tuning";
  Write(target + "/a.bin", "old");
  CollectingSink sink;
  const auto no_notes = [](const std::string& folder, DiagnosticSink& told) {
    if (!Exists(folder + "/notes")) return true;
    told.Report(zotuning::Code::kExists, "there are notes");
    return false;
  };
  {
    const auto staging = StagingDir::Make(dir.str(), nullptr, sink);
    Write(staging->path() + "/zo_tuning/a.bin", "new");
    Write(target + "/notes", "mine");
    EXPECT_FALSE(staging->Commit("zo_tuning", target, no_notes, sink));
  }
  EXPECT_EQ(sink.diagnostics().at(0).message, "there are notes");
  EXPECT_THAT(Tree(dir.str()), ElementsAre("zo_tuning/", "zo_tuning/a.bin", "zo_tuning/notes"));
  EXPECT_EQ(Read(target + "/a.bin"), "old");
}

TEST(StagingDir, RemovesOnlyWhatADeadRunLeft) {
  const TempDir dir;
  Write(dir / ".zo_tuning-abcdef/.made-by-zotuning", "");
  Write(dir / ".zo_tuning-abcdef/zo_tuning/default.bin", "half");
  fs::create_directory(dir / ".zo_tuning-empty1");
  // Not ours: no marker, another form of name, a file; and one that a run is using.
  Write(dir / ".zo_tuning-backup/main.bin", "mine");
  Write(dir / ".zo_tuning-2024/.made-by-zotuning", "");
  Write(dir / ".zo_tuning-file12", "");
  Write(dir / ".zo_tuning-atwork/.made-by-zotuning", "");
  const int lock = open((dir / ".zo_tuning-atwork").c_str(), O_RDONLY);
  ASSERT_EQ(flock(lock, LOCK_EX), 0);
  // A run that died between the two steps of a replacement: its old folder is restored.
  Write(dir / ".zo_tuning-twostp/.made-by-zotuning", "");
  Write(dir / ".zo_tuning-twostp/.replaced-target", "zo_tuning");
  Write(dir / ".zo_tuning-twostp/replaced/default.bin", "old");
  CollectingSink sink;
  StagingDir::Make(dir.str(), nullptr, sink);
  close(lock);
  Strings left;
  for (const fs::directory_entry& entry : fs::directory_iterator(dir.str())) left.push_back(entry.path().filename());
  EXPECT_THAT(left, testing::UnorderedElementsAre(".zo_tuning-backup", ".zo_tuning-2024", ".zo_tuning-file12",
                                                  ".zo_tuning-atwork", "zo_tuning"));
  EXPECT_EQ(Read(dir / "zo_tuning/default.bin"), "old");
}

TEST(StagingDir, ASignalLeavesNothingBehind) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    const TempDir dir;
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = fork();
    if (child == 0) {
      CollectingSink sink;
      const auto staging = StagingDir::Make(dir / "out", nullptr, sink);
      Write(staging->path() + "/a.bin", "half");
      (void)!write(ready[1], "x", 1);
      for (;;) pause();
    }
    char byte;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    kill(child, number);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == number) << status;
    EXPECT_THAT(Tree(dir.str()), IsEmpty()) << number;
    close(ready[0]);
    close(ready[1]);
  }
}

}  // namespace
}  // namespace zotest
