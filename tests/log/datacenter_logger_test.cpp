#include <unistd.h>

#include <cstdio>

#include "ZoTuningUtils.h"
#include "log/debug_file.h"
#include "support/files.h"
#include "support/log.h"

namespace {

using namespace zotest;
using testing::MatchesRegex;

class DatacenterLoggerTest : public LogTest {
 protected:
  DatacenterLoggerTest() : default_path_(ZO_TUNING::internal::debug_file_path) { UseDebugFile(path_); }
  ~DatacenterLoggerTest() override {
    SetMasks(0, 2);
    FileCreate();
    UseDebugFile(default_path_);
  }

  static void UseDebugFile(const std::string& path) {
    path.copy(ZO_TUNING::internal::debug_file_path, path.size());
    ZO_TUNING::internal::debug_file_path[path.size()] = '\0';
  }
  static void SetMasks(int debug_level, int group_level) {
    ZoDatacenterSettingDebugLevel = debug_level;
    ZoDatacenterSettingGroupLevel = group_level;
  }

  TempDir dir_;
  const std::string path_ = dir_ / "debug.log";
  const std::string default_path_;
};

TEST_F(DatacenterLoggerTest, StartsSilentWithTheAgreedSettings) {
  EXPECT_EQ(ZoDatacenterSettingDebugLevel, 0);
  EXPECT_EQ(ZoDatacenterSettingGroupLevel, 2);
  EXPECT_EQ(default_path_, "/data/vendor/camera/offlinelog/ZoTuningDebugLogger.log");
  DatacenterLoggerFunction("a.cpp", 1, "Fn", 2, 16, "text");
  EXPECT_THAT(TakeRawLog(), IsEmpty());
  EXPECT_FALSE(Exists(path_));
}

TEST_F(DatacenterLoggerTest, WritesWhatTheMasksLetThrough) {
  constexpr int kAll = 0x7fffffff;
  struct Row {
    int debug_level, group_level;
    unsigned group, level;
    int priority = 0;  // none: the message is dropped
    std::string tag = "";
  };
  for (const Row& row : {Row{1, 0, 7, 1, 6, "[ERROR]"}, Row{4, 1, 1, 4, 5, "[ WARN]"}, Row{16, 2, 2, 16, 4, "[ INFO]"},
                         Row{32, 3, 1, 32, 2, "[ VERB]"}, Row{64, 2, 2, 64, 6, "[ Time]"},
                         // The level is off, or the group, or there is no such group or level.
                         Row{kAll - 1, 3, 1, 1}, Row{1, 3, 2, 4}, Row{31, 3, 1, 32}, Row{4, 1, 2, 4}, Row{4, 0, 1, 4},
                         Row{kAll, kAll, 0, 16}, Row{kAll, kAll, 3, 16}, Row{kAll, kAll, 4, 16}, Row{kAll, kAll, 2, 0},
                         Row{kAll, kAll, 2, 5}, Row{kAll, kAll, 2, 8}}) {
    SCOPED_TRACE(std::to_string(row.group) + " " + std::to_string(row.level) + row.tag);
    SetMasks(row.debug_level, row.group_level);
    testing::internal::CaptureStdout();
    DatacenterLoggerFunction("dir/a.cpp", 17, "Fn", row.group, row.level, "%d%% of %s", 5, "%s");
    EXPECT_THAT(testing::internal::GetCapturedStdout(), MatchesRegex("fopen a FD 0x0x[0-9a-f]+"));
    const std::vector<RawLine> lines = TakeRawLog();
    EXPECT_EQ(HoldsOpen(path_), row.priority == 0);  // a dropped message leaves the file open
    ASSERT_EQ(lines.size(), row.priority == 0 ? 0U : 1U);
    for (const auto& [priority, tag, text] : lines) {
      EXPECT_EQ(priority, row.priority);
      EXPECT_EQ(tag + " " + text, "ZoDatacenterLib " + row.tag + "[ZoDatacenterLib] dir/a.cpp:17: Fn 5% of %s");
    }
    SetMasks(0, 2);
    FileCreate();
    EXPECT_FALSE(HoldsOpen(path_));
  }
}

TEST_F(DatacenterLoggerTest, AppendsOneLinePerMessageToTheDebugFile) {
  SetMasks(1, 2);
  Write(path_, "before\n");
  testing::internal::CaptureStdout();
  const time_t now = time(nullptr);
  DatacenterLoggerFunction("a.cpp", 1, "Fn", 2, 1, "one");
  DatacenterLoggerFunction("a.cpp", 2, "Fn", 2, 1, "two");
  UseDebugFile(dir_ / "missing/debug.log");
  DatacenterLoggerFunction("a.cpp", 3, "Fn", 2, 1, "still logged");
  EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::EndsWith("Open Debug file Failed"));
  EXPECT_EQ(TakeRawLog().size(), 3U);
  char month[8];
  strftime(month, sizeof(month), "%m", localtime(&now));
  const std::string head = std::string(month) + "-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}:[0-9]{6} " +
                           std::to_string(getpid()) + " [0-9]+ .ERROR..ZoDatacenterLib. a.cpp:";
  EXPECT_THAT(Read(path_), MatchesRegex("before\n" + head + "1: Fn one\n" + head + "2: Fn two\n"));
}

TEST_F(DatacenterLoggerTest, CutsWhatIsTooLong) {
  SetMasks(1, 2);
  testing::internal::CaptureStdout();
  const std::string head = "[ERROR][ZoDatacenterLib] a.cpp:1: ";
  const std::string function(300, 'f');
  const std::string message(2000, 'm');
  DatacenterLoggerFunction("a.cpp", 1, "Fn", 2, 1, "%s", message.c_str());
  DatacenterLoggerFunction("a.cpp", 1, function.c_str(), 2, 1, "text");
  testing::internal::GetCapturedStdout();
  const auto lines = TakeRawLog();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0].text, (head + "Fn " + message).substr(0, 1023));
  EXPECT_EQ(lines[1].text, (head + function).substr(0, 249) + " text");
}

TEST_F(DatacenterLoggerTest, EndTimeWritesTheCostAndResetsTheSlot) {
  start_t[255] = {5, 42};
  EndTime("dir/a.cpp", 9, "Fn", 255);  // whatever the masks are
  EndTime("a.cpp", 9, std::string(300, 'f').c_str(), 0);
  // A debug file that happens to be open gets the line and stays open.
  SetMasks(1, 0);
  testing::internal::CaptureStdout();
  FileCreate();
  testing::internal::GetCapturedStdout();
  EndTime("a.cpp", 9, "Fn", 7);  // a slot that was never started starts at zero
  EXPECT_TRUE(HoldsOpen(path_));
  SetMasks(0, 2);
  FileCreate();
  const auto lines = TakeRawLog();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(std::to_string(lines[0].priority) + lines[0].tag, "6ZoDatacenterLib");
  long long seconds = 0, microseconds = 0;
  std::sscanf(lines[0].text.c_str(), "[TimeDiff] dir/a.cpp:9: Fn Start: 5.42 -> %lld.%lld,", &seconds, &microseconds);
  EXPECT_GT(seconds, 1000000000);
  EXPECT_THAT(lines[0].text,
              testing::EndsWith(std::to_string(seconds) + "." + std::to_string(microseconds) +
                                ", Cost: " + std::to_string((seconds - 5) * 1000000 + microseconds - 42) + " us"));
  EXPECT_EQ(start_t[255].tv_sec + start_t[255].tv_usec + end_t[255].tv_sec + end_t[255].tv_usec, 0);
  EXPECT_EQ(lines[1].text, ("[TimeDiff] a.cpp:9: " + std::string(300, 'f')).substr(0, 255));
  EXPECT_THAT(Read(path_), AllOf(testing::EndsWith(" " + lines[2].text + "\n"), testing::Not(HasSubstr("5.42"))));
}

TEST(GetFileNameTest, PointsBehindTheLastSlash) {
  for (const auto& [path, offset] :
       std::vector<std::pair<const char*, int>>{{"a.cpp", 0}, {"/x/a.cpp", 3}, {"x/", 2}, {"", 0}, {"x\\a.cpp", 0}}) {
    EXPECT_EQ(GetFileName(path), path + offset) << path;
  }
}

}  // namespace
