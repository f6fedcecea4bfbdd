/// \file
/// Shows long output in a pager, as git does.
#pragma once

#include <sys/types.h>

namespace zotuning::tool {

/// During its lifetime, standard output goes through the pager given by GIT_PAGER, else PAGER, else less; so do
/// messages that would go to the same terminal. Does nothing if standard output is not a terminal, or if the pager is
/// "" or "cat".
class Pager {
 public:
  Pager();
  /// Waits until the reader has finished.
  ~Pager();
  Pager(const Pager&) = delete;
  Pager& operator=(const Pager&) = delete;

 private:
  pid_t process_ = -1;
  int out_ = -1;  ///< the original standard output
  int err_ = -1;
};

}  // namespace zotuning::tool
