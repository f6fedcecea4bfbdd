/// \file
/// Injected system faults: the n-th call of one function fails as the system would make it fail. Linked into a test
/// program, or preloaded into any program and controlled by the environment: FAIL_CALL gives the function, FAIL_NTH the
/// call, FAIL_FIRED a file that is created at the moment of the fault.
///
/// Also disks with different behaviour, controlled only by the environment: FAIL_DISK contains any of the words
/// "unknown" (directories do not report the kinds of their entries), "noexchange" (renameat2 supports no flags) and
/// "exdev" (nothing can be renamed); FAIL_EXDEV names a directory that cannot be renamed, like one from a lower layer
/// of an overlay; FAIL_BYTES is how many bytes can be written until the disk is full.
#pragma once

#include <string_view>

namespace fail_nth {

/// Makes call `nth` (from 1) of `call` fail, once: open, fopen, read, fread, write, writev, fwrite, fflush, fclose,
/// mkdir, opendir, readdir, stat, fstat, lstat or rename, each with its 64-bit, checked and unlocked forms; or "new",
/// memory allocation except by libprotobuf. Nothing fails if `call` is empty.
void Arm(std::string_view call, long nth);

/// Whether the fault has happened.
bool Fired();

}  // namespace fail_nth
