/// \file
/// Shows long output as git does, in a pager.
#pragma once

#include <sys/types.h>

namespace zotuning::tool {

/// While it lives, standard output goes through the pager that GIT_PAGER, else PAGER, names, else less; so do messages
/// where they would be on the same terminal. Does nothing where standard output is no terminal, or where the pager is
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
  int out_ = -1;  ///< what standard output was
  int err_ = -1;
};

}  // namespace zotuning::tool
