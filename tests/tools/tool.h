/// \file
/// Runs the command-line tool as a user does, on a copy of the example project.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "support/files.h"

namespace zotest {

using Json = nlohmann::ordered_json;
using testing::HasSubstr;
using testing::IsEmpty;

/// A command line or a file, and what the tool says about it.
using Rows = std::vector<std::pair<std::string, std::string>>;

/// One run of the tool.
struct Ran {
  int code = -1;  ///< exit code; 128 plus the signal's number if a signal ended it
  std::string out;
  std::string err;

  /// The object that --json printed; fails the test if there is none, or if it lacks a common key.
  Json json() const;
};

/// The conditions of a run besides its arguments.
struct RunWith {
  std::string dir = "";                              ///< where it runs
  std::string input = "";                            ///< its standard input
  std::function<void()> prepare = nullptr;           ///< called in the child before it becomes the tool
  std::function<void(int pid)> meanwhile = nullptr;  ///< called with the child's id while it runs
};

Ran RunProgram(const std::string& program, const Strings& arguments, const RunWith& with);

/// A fresh copy of the example project, turned into a project by 'init'.
class ToolTest : public testing::Test {
 protected:
  void SetUp() override;

  /// Runs the tool with the words of `line`, in the project's folder unless `with` names another.
  Ran Tool(const std::string& line, RunWith with = {}) const;

  /// Also runs it; expects exit code 1, or `code`, and `says` on standard error.
  void Fails(const std::string& line, const std::string& says, int code = 1) const;

  /// Replaces the first `from` in a file of the project; fails the test if there is none.
  void Edit(const std::string& file, const std::string& from, const std::string& to) const;

  /// A path in the project's folder.
  std::string At(const std::string& name) const { return dir_ + "/" + name; }

  TempDir temp_;
  std::string dir_ = temp_ / "tuning_project";
};

/// The same with its bins in out/zo_tuning.
class PackedTest : public ToolTest {
 protected:
  void SetUp() override;

  const std::string bin_ = "out/zo_tuning/front.bin";
};

}  // namespace zotest
