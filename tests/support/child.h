/// \file
/// Tests that need a process of their own: limits, another user, a standard input.
#pragma once

#include <functional>
#include <string>

namespace zotest {

/// Runs `body` in a forked child. Failures there, unexpected error lines and any other end than the normal one fail the
/// calling test. False when the body called CannotRunHere.
bool InChild(const std::function<void()>& body);

// For bodies of children only:
[[noreturn]] void CannotRunHere();
void FeedStdin(const std::string& text);
void LimitFileSize(size_t bytes);  ///< writes past the limit fail; the process is not killed
void BecomeNobody();               ///< so that permissions bind

}  // namespace zotest
