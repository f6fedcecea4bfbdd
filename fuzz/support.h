/// \file
/// What the fuzz targets share: a scratch directory, the project in it, the log lines, and how to report a finding.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/files.h"

namespace zofuzz {

using zotest::Read;
using zotest::Write;

/// Ends the process with a finding.
[[noreturn]] void Fail(const std::string& message);

inline void Require(bool holds, const char* promise) {
  if (!holds) Fail(std::string("broken promise: ") + promise);
}

/// Which of `count` ways an input takes, if each run takes one of them.
inline size_t Way(std::string_view bytes, size_t count) { return std::hash<std::string_view>()(bytes) % count; }

/// Whether an input is among those that a check is made for that takes far longer than the others: in the fuzzer one in
/// `count`, in the tests all.
inline bool IsChosen(std::string_view bytes, [[maybe_unused]] size_t count) {
#ifdef FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION
  return Way(bytes, count) == 0;
#else
  return !bytes.empty();
#endif
}

/// `bytes` as C would spell them.
std::string Escaped(std::string_view bytes);

/// A directory of this process below TMPDIR, removed when the process ends normally.
const std::string& ScratchDir();

/// Creates ScratchDir()/project, the example project with its configuration, and returns its path. With `types`, its
/// schema contains only these and those of every project, so that it loads faster.
std::string MakeExampleProject(std::vector<std::string> types = {});

/// The sensors of the example project.
extern const std::vector<std::string> kExampleSensors;

/// The parts of an input of several texts: each starts with a line "//// NAME". Text before the first such line is a
/// part without a name.
std::vector<std::pair<std::string, std::string>> SplitParts(std::string_view input);

/// The lines of the library since the last take, "<priority> <file>:<line> <function>() <message>". A line about an
/// exception caught at the border of an operation is a finding.
std::vector<std::string> TakeLog();

/// For targets that capture the lines.
void AddLogLine(int priority, const char* text);

/// How many of the lines are errors.
size_t CountErrors(const std::vector<std::string>& lines);

/// To be called at the end of each run: clears the log; an open descriptor is a finding.
void EndRun();

/// Every target has these two. `Seeds` makes inputs from the example project in an existing directory.
void Run(const uint8_t* data, size_t size);
void Seeds(const std::string& dir);

}  // namespace zofuzz
