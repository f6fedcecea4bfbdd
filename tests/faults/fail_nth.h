/// \file
/// Injected system faults: the n-th call of one function fails as the system would make it fail. Linked into a test
/// program, or preloaded into any program and controlled by the environment: FAIL_CALL gives the function, FAIL_NTH the
/// call, FAIL_FIRED a file that is created at the moment of the fault.
///
/// And disks that answer differently, by the environment alone: FAIL_DISK holds any of the words "unknown" (directories
/// do not tell the kinds of their entries), "noexchange" (renameat2 knows no flags), "nolinks" (a file has one name)
/// and "exdev" (nothing is renamed); FAIL_EXDEV names a directory that cannot be renamed, as one from a lower layer of
/// an overlay; FAIL_BYTES is how many bytes files take until the disk is full.
#pragma once

#include <string_view>

namespace fail_nth {

/// Lets call `nth` (from 1) of `call` fail, once: open, fopen, read, fread, write, writev, fwrite, fflush, fclose,
/// mkdir, opendir, readdir, stat, fstat, lstat, rename or link, each with its 64-bit, checked and unlocked forms; or
/// "new", memory for anybody but libprotobuf. Nothing fails with an empty `call`.
void Arm(std::string_view call, long nth);

/// Whether the fault has happened.
bool Fired();

}  // namespace fail_nth
