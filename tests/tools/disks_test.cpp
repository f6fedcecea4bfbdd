// The commands that write, on disks with different behaviour and on full ones: a replaced file is either old or new,
// and the exit code tells which.

#include <sys/resource.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "support/child.h"
#include "support/wire.h"
#include "tools/tool.h"

namespace zotest {
namespace {

namespace fs = std::filesystem;

// What they write differs from the existing files.
const char* const kWriting[] = {
    "pack -o new/place",
    "pack -o out --force",
    "pack -o out --sensor front --force",
    "version set AF 9.9",
    "version header",
    "template AfCommon --force",
    "new --sensor front module=PdCommon mode=9 scenario=Video",
    "new --sensor front module=AfCommon mode=1 --force",
    "set lens.macro_code=700",
    "fmt",
    "init tuning_project --into .. --proto proto --sensor third --force",
};

class DisksTest : public PackedTest {
 protected:
  using Files = std::map<std::string, std::string>;

  void SetUp() override {
    PackedTest::SetUp();
    Write(At("out/zo_tuning/front.bin"), "changed");
    Write(At("src/ZoTuningVersion.h"), Read(At("src/ZoTuningVersion.h")) + "#define VERSION_NUM 0\n");
    Edit("default/AfCommon.json", "{", "  {");
  }

  Files Snapshot() const {
    Files files;
    for (const std::string& path : Tree(dir_)) files[path] = path.back() == '/' ? "" : Read(At(path));
    return files;
  }

  /// Runs every command as it is, and in each of these environments; counts the runs that failed.
  void Sweep(const std::vector<std::map<std::string, std::string>>& environments) {
    const std::string kept = temp_ / "kept";
    fs::remove_all(kept);
    fs::copy(dir_, kept, fs::copy_options::recursive);
    const auto restore = [&] {
      fs::remove_all(dir_);
      fs::copy(kept, dir_, fs::copy_options::recursive);
    };
    const Files before = Snapshot();
    for (const char* line : kWriting) {
      const Ran clean = Tool(line);
      ASSERT_EQ(clean.code, 0) << line << "\n" << clean.err;
      const Files after = Snapshot();
      for (const auto& environment : environments) {
        restore();
        SCOPED_TRACE(line + (" with " + environment.rbegin()->first + "=" + environment.rbegin()->second));
        const Ran run = Tool(line, {"", "", [&] {
                                      setenv("LD_PRELOAD", ZOTUNING_FAIL_LIBRARY, 1);
                                      for (const auto& [name, value] : environment)
                                        setenv(name.c_str(), value.c_str(), 1);
                                    }});
        if (run.code != 0) {
          ++failed_;
          EXPECT_EQ(run.code, 1);
          EXPECT_NE(run.err, "");
        }
        // Each of several files is either old or new if the disk has no room to restore the old ones.
        const bool several = line == std::string("fmt") || line == std::string("set lens.macro_code=700");
        ExpectFiles(run.code == 0 ? after : before, several ? after : before);
      }
      restore();
    }
  }

  void ExpectFiles(const Files& wanted, const Files& or_else) const {
    const Files found = Snapshot();
    for (const auto& [path, content] : wanted) {
      const auto file = found.find(path);
      EXPECT_TRUE(file != found.end() && (file->second == content || file->second == or_else.at(path)))
          << path << " is " << (file == found.end() ? "gone" : "other");
    }
    for (const auto& [path, content] : found) EXPECT_TRUE(wanted.count(path) > 0) << path << " is left";
  }

  size_t failed_ = 0;
};

TEST_F(DisksTest, KindsOfEntriesAndWaysToRenameThatAreMissing) {
  Sweep({{{"FAIL_DISK", "unknown"}},
         {{"FAIL_DISK", "noexchange"}},
         {{"FAIL_DISK", "nolinks"}},
         {{"FAIL_EXDEV", At("out/zo_tuning")}}});
  EXPECT_EQ(failed_, 0u);
  Sweep({{{"FAIL_DISK", "exdev"}}});
  EXPECT_GE(failed_, 9u);
}

// In two steps, either of which fails, or the way back from the first.
TEST_F(DisksTest, RenamesThatFailWhereNamesCannotBeExchanged) {
  std::vector<std::map<std::string, std::string>> environments;
  for (const char* nth : {"1", "2", "3", "4"})
    environments.push_back({{"FAIL_NTH", nth}, {"FAIL_CALL", "rename"}, {"FAIL_DISK", "noexchange"}});
  Sweep(environments);
  EXPECT_GE(failed_, 9u);
}

TEST_F(DisksTest, FullAtAnyByte) {
  std::vector<std::map<std::string, std::string>> environments;
  for (const int bytes : {0, 30, 4096, 30000}) environments.push_back({{"FAIL_BYTES", std::to_string(bytes)}});
  Sweep(environments);
  EXPECT_GE(failed_, 20u);
}

TEST_F(DisksTest, ASmallDisk) {
  const std::string disk = temp_ / "disk", example = dir_;
  MakeDirs(disk);
  const bool ran = InChild([&] {
    MountSmallDisk(disk, 4 << 20);
    dir_ = disk + "/tuning_project";
    fs::copy(example, dir_, fs::copy_options::recursive);
    const std::string fill = disk + "/fill";
    std::ofstream(fill) << std::string(4 << 20, 'x') << std::flush;
    const uintmax_t full = fs::file_size(fill);
    size_t failed = 0;
    for (const uintmax_t spare : {0, 1, 3, 12}) {
      fs::resize_file(fill, full - 4096 * spare);
      for (const char* line : kWriting) {
        SCOPED_TRACE(line + (" with " + std::to_string(spare) + " pages"));
        const Files before = Snapshot();
        const Ran run = Tool(line);
        failed += run.code == 1 ? 1 : 0;
        EXPECT_LE(run.code, 1) << run.err;
        if (run.code == 1) ExpectFiles(before, before);
      }
    }
    EXPECT_GE(failed, 9u);
  });
  if (!ran) GTEST_SKIP() << "this process may not mount a file system";
}

TEST_F(DisksTest, SmallStacks) {
  Write(At("default/Deep.json"), std::string(90, '[') + std::string(90, ']'));
  for (const char* line : {"check", "pack -o new", "verify out", "show out/zo_tuning/default.bin --json",
                           "diff default front", "migrate --dry-run", "fmt --check", "get lens"}) {
    for (const rlim_t kilobytes : {64, 1024, 8192}) {
      const Ran run = Tool(line, {"", "", [&] {
                                    const rlimit limit = {kilobytes << 10, kilobytes << 10};
                                    if (setrlimit(RLIMIT_STACK, &limit) != 0) _exit(1);
                                  }});
      EXPECT_LE(run.code, 1) << line << " with a stack of " << kilobytes << " kB";
    }
  }
}

// Made into messages, the records of this bin would take more.
TEST_F(DisksTest, SmallMemory) {
  std::string bytes(4, '\0');
  for (int i = 0; i < 60000; ++i) bytes += Item("\x08\x01") + Item("");
  Write(At("out/zo_tuning/front.bin"), bytes);
  const Rows lines = {{"show out/zo_tuning/front.bin", "\n  59999   599994  10 "},
                      {"show out/zo_tuning/front.bin --json", "\"offset\": 599994"},
                      {"verify out", "and 50000 more"}};
  for (const auto& [line, says] : lines) {
    const Ran run = Tool(line, {"", "", [] {
                                  const rlimit limit = {120 << 20, 120 << 20};
                                  if (setrlimit(RLIMIT_AS, &limit) != 0) _exit(2);
                                }});
    EXPECT_EQ(run.code, line == "verify out" ? 1 : 0) << line << run.err.substr(0, 500);
    EXPECT_TRUE(run.out.find(says) != std::string::npos) << line << run.out.substr(0, 500);
  }
}

}  // namespace
}  // namespace zotest
