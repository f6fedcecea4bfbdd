#include "faults/fail_nth.h"

#include <dirent.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

char g_call[16];
std::atomic<long> g_nth{0}, g_calls{0};
const char* g_fired_file;

bool g_unknown_kinds, g_no_flags, g_no_links, g_no_rename, g_has_fixed;
struct stat g_fixed;           // the directory that cannot be renamed
std::atomic<long> g_room{-1};  // bytes until the disk is full; negative for no limit

// Counts a call of `name` and returns whether it is the one that fails.
bool Hit(const char* name, int error) {
  if (std::strcmp(g_call, name) != 0 || ++g_calls != g_nth) return false;
  if (g_fired_file != nullptr) {
    syscall(SYS_close, syscall(SYS_openat, AT_FDCWD, g_fired_file, O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
  }
  errno = error;
  return true;
}

size_t Broken(FILE* file) {
  file->_flags |= _IO_ERR_SEEN;
  return 0;
}

bool Unrenamable(const char* path) {
  struct stat info;
  if (g_no_rename) return true;
  return g_has_fixed && stat(path, &info) == 0 && info.st_ino == g_fixed.st_ino && info.st_dev == g_fixed.st_dev;
}

// How many of `wanted` bytes still fit into a file; -1, with errno set, for none.
ssize_t Room(size_t wanted) {
  if (g_room < 0 || wanted == 0) return static_cast<ssize_t>(wanted);
  const long room = std::min(g_room.load(), static_cast<long>(wanted));
  g_room -= room;
  if (room > 0) return room;
  errno = ENOSPC;
  return -1;
}

// Whether libprotobuf is on the stack. The caller alone is not enough: templates of the standard library that
// libprotobuf uses may be in the program.
bool InProtobuf(void* caller) {
  const auto belongs = [](void* address) {
    dl_find_object found;
    return _dl_find_object(address, &found) == 0 && std::strstr(found.dlfo_link_map->l_name, "/libprotobuf") != nullptr;
  };
  if (belongs(caller)) return true;
  void* frames[64];
  return std::any_of(frames, frames + backtrace(frames, 64), belongs);
}

void* Allocate(size_t size, void* caller) {
  if (g_call[0] == 'n' && !InProtobuf(caller) && Hit("new", ENOMEM)) return nullptr;
  return std::malloc(size == 0 ? 1 : size);
}

void* AllocateOrThrow(size_t size, void* caller) {
  void* memory = Allocate(size, caller);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

__attribute__((constructor)) void ArmByEnvironment() {
  void* first[1];
  backtrace(first, 1);  // loads what it needs now rather than later
  const char* call = std::getenv("FAIL_CALL");
  const char* nth = std::getenv("FAIL_NTH");
  g_fired_file = std::getenv("FAIL_FIRED");
  if (call != nullptr && nth != nullptr) fail_nth::Arm(call, std::atol(nth));
  if (const char* fixed = std::getenv("FAIL_EXDEV")) g_has_fixed = stat(fixed, &g_fixed) == 0;
  if (const char* bytes = std::getenv("FAIL_BYTES")) g_room = std::atol(bytes);
  if (const char* disk = std::getenv("FAIL_DISK")) {
    g_unknown_kinds = std::strstr(disk, "unknown") != nullptr;
    g_no_flags = std::strstr(disk, "noexchange") != nullptr;
    g_no_links = std::strstr(disk, "nolinks") != nullptr;
    g_no_rename = std::strstr(disk, "exdev") != nullptr;
  }
}

}  // namespace

namespace fail_nth {

void Arm(std::string_view call, long nth) {
  g_call[0] = '\0';
  g_nth = nth;
  g_calls = 0;
  g_call[call.copy(g_call, sizeof(g_call) - 1)] = '\0';
}

bool Fired() { return g_nth > 0 && g_calls >= g_nth; }

}  // namespace fail_nth

// A failing function: under which name, how and with which errno; its result, name and parameters; the arguments.
#define FAILING(call, failed, error, result, name, parameters, ...)                           \
  extern "C" result name parameters {                                                         \
    static const auto real = reinterpret_cast<result(*) parameters>(dlsym(RTLD_NEXT, #name)); \
    return Hit(call, error) ? (failed) : real(__VA_ARGS__);                                   \
  }
#define FAILING_OPEN(name, parameters, ...)                                                            \
  extern "C" int name(parameters, int flags, ...) {                                                    \
    static const auto real = reinterpret_cast<int (*)(parameters, int, ...)>(dlsym(RTLD_NEXT, #name)); \
    va_list rest;                                                                                      \
    va_start(rest, flags);                                                                             \
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0;               \
    va_end(rest);                                                                                      \
    return Hit("open", EMFILE) ? -1 : real(__VA_ARGS__, flags, mode);                                  \
  }
#define COMMA ,
#define CALLER __builtin_return_address(0)

// clang-format off
FAILING_OPEN(open, const char* path, path)
FAILING_OPEN(open64, const char* path, path)
FAILING_OPEN(openat, int dir COMMA const char* path, dir, path)
FAILING_OPEN(openat64, int dir COMMA const char* path, dir, path)
FAILING("open", -1, EMFILE, int, __open_2, (const char* path, int flags), path, flags)
FAILING("open", -1, EMFILE, int, __open64_2, (const char* path, int flags), path, flags)
FAILING("fopen", nullptr, EMFILE, FILE*, fopen, (const char* path, const char* mode), path, mode)
FAILING("fopen", nullptr, EMFILE, FILE*, fopen64, (const char* path, const char* mode), path, mode)
FAILING("read", -1, EIO, ssize_t, read, (int file, void* to, size_t n), file, to, n)
FAILING("read", -1, EIO, ssize_t, __read_chk, (int file, void* to, size_t n, size_t room), file, to, n, room)
FAILING("fread", Broken(f), EIO, size_t, fread, (void* to, size_t k, size_t n, FILE* f), to, k, n, f)
FAILING("fread", Broken(f), EIO, size_t, fread_unlocked, (void* to, size_t k, size_t n, FILE* f), to, k, n, f)
FAILING("fread", Broken(f), EIO, size_t, __fread_chk, (void* to, size_t r, size_t k, size_t n, FILE* f), to, r, k, n, f)
FAILING("fflush", (f == nullptr || Broken(f) == 0) ? EOF : 0, ENOSPC, int, fflush, (FILE* f), f)
FAILING("fclose", (real(f), errno = EIO, EOF), EIO, int, fclose, (FILE* f), f)
FAILING("mkdir", -1, ENOSPC, int, mkdir, (const char* path, mode_t mode), path, mode)
FAILING("opendir", nullptr, EMFILE, DIR*, opendir, (const char* path), path)
FAILING("opendir", nullptr, ENOMEM, DIR*, fdopendir, (int dir), dir)
FAILING("stat", -1, EIO, int, stat, (const char* path, struct stat* to), path, to)
FAILING("stat", -1, EIO, int, stat64, (const char* path, struct stat64* to), path, to)
FAILING("fstat", -1, EIO, int, fstat, (int file, struct stat* to), file, to)
FAILING("fstat", -1, EIO, int, fstat64, (int file, struct stat64* to), file, to)
FAILING("lstat", -1, EIO, int, lstat, (const char* path, struct stat* to), path, to)
FAILING("lstat", -1, EIO, int, lstat64, (const char* path, struct stat64* to), path, to)
// clang-format on

#define REAL(name) static const auto real = reinterpret_cast<decltype(&name)>(dlsym(RTLD_NEXT, #name))

extern "C" ssize_t write(int file, const void* from, size_t n) {
  REAL(write);
  if (Hit("write", ENOSPC)) return -1;
  const ssize_t room = file <= STDERR_FILENO ? static_cast<ssize_t>(n) : Room(n);
  return room < 0 ? -1 : real(file, from, static_cast<size_t>(room));
}
extern "C" ssize_t writev(int file, const iovec* from, int n) {
  REAL(writev);
  if (Hit("writev", ENOSPC)) return -1;
  if (g_room < 0 || file <= STDERR_FILENO) return real(file, from, n);
  ssize_t all = 0;
  for (int i = 0; i < n; ++i) {
    const ssize_t count = write(file, from[i].iov_base, from[i].iov_len);
    if (count < 0) return all > 0 ? all : -1;
    all += count;
    if (static_cast<size_t>(count) < from[i].iov_len) break;
  }
  return all;
}
#define FAILING_FWRITE(name)                                              \
  extern "C" size_t name(const void* from, size_t k, size_t n, FILE* f) { \
    REAL(name);                                                           \
    if (Hit("fwrite", ENOSPC)) return Broken(f);                          \
    if (f == stdout || f == stderr) return real(from, k, n, f);           \
    const ssize_t room = Room(k * n);                                     \
    if (room == static_cast<ssize_t>(k * n)) return real(from, k, n, f);  \
    if (room > 0) (void)real(from, 1, static_cast<size_t>(room), f);      \
    errno = ENOSPC;                                                       \
    return Broken(f);                                                     \
  }
FAILING_FWRITE(fwrite)
FAILING_FWRITE(fwrite_unlocked)

#define FAILING_READDIR(name, entry)                                     \
  extern "C" entry* name(DIR* dir) {                                     \
    REAL(name);                                                          \
    if (Hit("readdir", EIO)) return nullptr;                             \
    entry* found = real(dir);                                            \
    if (found != nullptr && g_unknown_kinds) found->d_type = DT_UNKNOWN; \
    return found;                                                        \
  }
FAILING_READDIR(readdir, dirent)
FAILING_READDIR(readdir64, dirent64)

extern "C" int rename(const char* from, const char* to) {
  REAL(rename);
  if (Hit("rename", EIO)) return -1;
  return Unrenamable(from) ? (errno = EXDEV, -1) : real(from, to);
}
extern "C" int link(const char* from, const char* to) {
  REAL(link);
  if (Hit("link", EMLINK)) return -1;
  return g_no_links ? (errno = EPERM, -1) : real(from, to);
}
extern "C" int renameat2(int d, const char* from, int e, const char* to, unsigned flags) {
  REAL(renameat2);
  if (Hit("rename", EIO)) return -1;
  if (flags != 0 && g_no_flags) return errno = EINVAL, -1;
  if (Unrenamable(from) || ((flags & RENAME_EXCHANGE) != 0 && Unrenamable(to))) return errno = EXDEV, -1;
  return real(d, from, e, to, flags);
}

// All forms of new and delete, so that allocation and deallocation match.
void* operator new(size_t size) { return AllocateOrThrow(size, CALLER); }
void* operator new[](size_t size) { return AllocateOrThrow(size, CALLER); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return Allocate(size, CALLER); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return Allocate(size, CALLER); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
