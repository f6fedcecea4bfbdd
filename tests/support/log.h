/// \file
/// What reaches the Android log: the test programs define both log calls themselves and keep the lines.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace zotest {

using Strings = std::vector<std::string>;
using Rows = std::vector<std::pair<std::string, std::string>>;  ///< cases: what is given, what is wanted

// The matchers of most tests.
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using testing::UnorderedElementsAre;

struct RawLine {
  int priority;
  std::string tag;
  std::string text;
};

/// All lines since the last take, as written.
std::vector<RawLine> TakeRawLog();

/// The lines of the library's operations since the last take, as "<priority> <function>: <message>", without those
/// below `lowest`. Fails the test on a line of another tag, priority or form.
Strings TakeLog(int lowest = 4);

inline std::string Line(int priority, const std::string& function, const std::string& message) {
  return std::to_string(priority) + ' ' + function + ": " + message;
}
inline std::string E(const std::string& function, const std::string& message) { return Line(6, function, message); }
inline std::string W(const std::string& function, const std::string& message) { return Line(5, function, message); }
inline std::string I(const std::string& function, const std::string& message) { return Line(4, function, message); }

/// The line about a type that the schema lacks.
inline std::string NoType(const std::string& name) {
  return E("GetDescByClassName", "Find descriptor of " + name + " failed, please check the protos under project dir");
}

/// The line about a file that is not named after a module.
inline std::string UnknownModule(const std::string& name) {
  return E("PATH_TO_TUNING_CONFIG", "Unknown module name " + name +
                                        " in EnumTuningDataLable_Module, please check the setting of "
                                        "EnumTuningDataLable_Module in project");
}

/// What `body` prints to standard error.
template <typename Body>
std::string StderrOf(Body body) {
  testing::internal::CaptureStderr();
  body();
  return testing::internal::GetCapturedStderr();
}

/// Takes the log and compares it with these lines, either all lines or only the error lines.
#define EXPECT_LOG(...) EXPECT_THAT(zotest::TakeLog(), testing::ElementsAre(__VA_ARGS__))
#define EXPECT_ERRORS(...) EXPECT_THAT(zotest::TakeLog(6), testing::ElementsAre(__VA_ARGS__))

/// Fails a test that leaves an error line that it did not take.
class LogTest : public testing::Test {
 protected:
  void SetUp() override { TakeRawLog(); }
  void TearDown() override { EXPECT_THAT(TakeLog(6), IsEmpty()) << "error lines that the test did not expect"; }
};

}  // namespace zotest
