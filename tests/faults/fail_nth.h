/// \file
/// Faults of the system, made on purpose: the n-th call of one function fails as the system would fail it. Linked into
/// a test program, or preloaded into any program and told by the environment: FAIL_CALL what fails, FAIL_NTH which
/// call, FAIL_FIRED a file that is made at the moment of the fault.
#pragma once

#include <string_view>

namespace fail_nth {

/// Lets call `nth` (from 1) of `call` fail, once: open, fopen, read, fread, write, writev, fwrite, fflush, fclose,
/// mkdir, opendir, readdir, stat, fstat, lstat or rename, each with its 64-bit, checked and unlocked forms; or "new",
/// memory for anybody but libprotobuf. Nothing fails with an empty `call`.
void Arm(std::string_view call, long nth);

/// Whether the fault has happened.
bool Fired();

}  // namespace fail_nth
