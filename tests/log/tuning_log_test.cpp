#include "log/tuning_log-inl.h"
#include "support/log.h"

namespace {

using namespace zotest;
using ZO_TUNING::internal::TuningLog;

TEST(TuningLogTest, WritesSourceLineFunctionAndMessageFromPriorityFourOn) {
  TakeRawLog();
  const std::string long_text(3000, 'x');
  TuningLog(3, __LINE__, "Fn", "dropped");
  TuningLog(4, 41, "Fn", "%s%%", "%n");
  TuningLog(5, 42, "operator()", "%s\n", long_text.c_str());
  TuningLog(6, 43, "Fn", "%d", 7);
  const auto lines = TakeRawLog();
  ASSERT_EQ(lines.size(), 3U);
  const RawLine wanted[] = {{4, "ZoLOG", "tuning_log_test.cpp:41 Fn() %n%"},
                            {5, "ZoLOG", "tuning_log_test.cpp:42 operator()() " + long_text + "\n"},
                            {6, "ZoLOG", "tuning_log_test.cpp:43 Fn() 7"}};
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(std::tie(lines[i].priority, lines[i].tag, lines[i].text),
              std::tie(wanted[i].priority, wanted[i].tag, wanted[i].text));
  }
}

}  // namespace
