/// \file
/// What the fuzz targets share: a scratch directory, the project in it, the lines of the log, and how a find is made.
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

/// Ends the process with a find.
[[noreturn]] void Fail(const std::string& message);

inline void Require(bool holds, const char* promise) {
  if (!holds) Fail(std::string("broken promise: ") + promise);
}

/// Which of `count` ways an input goes, where each run takes one of them.
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

/// A directory of this process below TMPDIR, which goes when the process ends in good order.
const std::string& ScratchDir();

/// Makes ScratchDir()/project, the example project with its configuration, and returns its path. With `types` its
/// schema holds these and those of every project alone, so that it loads faster.
std::string MakeExampleProject(std::vector<std::string> types = {});

/// The sensors of the example project.
extern const std::vector<std::string> kExampleSensors;

/// The parts of an input of several texts: each begins with a line "//// NAME". What stands before the first such line
/// is a part without a name.
std::vector<std::pair<std::string, std::string>> SplitParts(std::string_view input);

/// The lines of the library since the last take, "<priority> <file>:<line> <function>() <message>". A line about an
/// exception that was stopped at the border of an operation is a find.
std::vector<std::string> TakeLog();

/// For those who catch the lines.
void AddLogLine(int priority, const char* text);

/// How many of the lines are errors.
size_t CountErrors(const std::vector<std::string>& lines);

/// To be called at the end of each run: forgets the log; a descriptor left open is a find.
void EndRun();

/// Every target has these two. `Seeds` makes inputs from the example project in a directory that exists.
void Run(const uint8_t* data, size_t size);
void Seeds(const std::string& dir);

}  // namespace zofuzz
