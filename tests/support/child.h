/// \file
/// Tests that need a process of their own: limits, another user, a standard input.
#pragma once

#include <functional>
#include <string>

namespace zotest {

/// Runs `body` in a forked child. Failures in it, unexpected error lines and any abnormal exit fail the calling test.
/// False if the body called CannotRunHere.
bool InChild(const std::function<void()>& body);

// Only for bodies of children:
[[noreturn]] void CannotRunHere();
void FeedStdin(const std::string& text);
void LimitFileSize(size_t bytes);                           ///< writes past the limit fail; the process is not killed
void MountSmallDisk(const std::string& dir, size_t bytes);  ///< visible only to this child
void BecomeNobody();                                        ///< so that permissions apply

}  // namespace zotest
