/// \file
/// Capturing what is written to a standard descriptor.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "support.h"

namespace zofuzz {

/// Captures what is written to a standard descriptor during its lifetime.
class CaughtOutput {
 public:
  explicit CaughtOutput(int descriptor)
      : descriptor_(descriptor), kept_(dup(descriptor)), file_(memfd_create("output", 0)) {
    dup2(file_, descriptor_);
  }
  ~CaughtOutput() {
    dup2(kept_, descriptor_);
    close(kept_);
    close(file_);
  }
  CaughtOutput(const CaughtOutput&) = delete;
  CaughtOutput& operator=(const CaughtOutput&) = delete;

  std::string Text() const {
    std::string text(static_cast<size_t>(lseek(file_, 0, SEEK_END)), '\0');
    if (pread(file_, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) Fail("lost output");
    return text;
  }

 private:
  int descriptor_, kept_, file_;
};

}  // namespace zofuzz
