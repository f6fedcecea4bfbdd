/// \file
/// What reaches the Android log: the test programs define both log calls themselves and keep the lines.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zotest {

using Strings = std::vector<std::string>;

struct RawLine {
  int priority;
  std::string tag;
  std::string text;
};

/// All lines since the last take, as they were written.
std::vector<RawLine> TakeRawLog();

/// The lines of the library's operations since the last take, as "<priority> <function>: <message>", without those
/// below `lowest`. Fails the test on a line of another tag, priority or shape.
Strings TakeLog(int lowest = 4);

inline std::string E(const std::string& function, const std::string& message) {
  return "6 " + function + ": " + message;
}
inline std::string W(const std::string& function, const std::string& message) {
  return "5 " + function + ": " + message;
}
inline std::string I(const std::string& function, const std::string& message) {
  return "4 " + function + ": " + message;
}

/// Fails a test that leaves an error line behind which it did not take.
class LogTest : public testing::Test {
 protected:
  void SetUp() override { TakeRawLog(); }
  void TearDown() override {
    EXPECT_THAT(TakeLog(6), testing::IsEmpty()) << "error lines that the test did not expect";
  }
};

}  // namespace zotest
