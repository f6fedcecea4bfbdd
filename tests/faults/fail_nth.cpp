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

// Counts a call of `name` and says whether it is the one that fails.
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

// Whether libprotobuf is at work. The caller alone does not tell: templates of the standard library that libprotobuf
// uses may stand in the program.
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
  backtrace(first, 1);  // loads what it needs, so that it does not later
  const char* call = std::getenv("FAIL_CALL");
  const char* nth = std::getenv("FAIL_NTH");
  g_fired_file = std::getenv("FAIL_FIRED");
  if (call != nullptr && nth != nullptr) fail_nth::Arm(call, std::atol(nth));
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

// A function that fails: under which name, how and with which errno; its result, name and parameters; the arguments.
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
FAILING("write", -1, ENOSPC, ssize_t, write, (int file, const void* from, size_t n), file, from, n)
FAILING("writev", -1, ENOSPC, ssize_t, writev, (int file, const iovec* from, int n), file, from, n)
FAILING("fwrite", Broken(f), ENOSPC, size_t, fwrite, (const void* from, size_t k, size_t n, FILE* f), from, k, n, f)
FAILING("fwrite", Broken(f), ENOSPC, size_t, fwrite_unlocked, (const void* p, size_t k, size_t n, FILE* f), p, k, n, f)
FAILING("fflush", (f == nullptr || Broken(f) == 0) ? EOF : 0, ENOSPC, int, fflush, (FILE* f), f)
FAILING("fclose", (real(f), errno = EIO, EOF), EIO, int, fclose, (FILE* f), f)
FAILING("mkdir", -1, ENOSPC, int, mkdir, (const char* path, mode_t mode), path, mode)
FAILING("opendir", nullptr, EMFILE, DIR*, opendir, (const char* path), path)
FAILING("opendir", nullptr, ENOMEM, DIR*, fdopendir, (int dir), dir)
FAILING("readdir", nullptr, EIO, dirent*, readdir, (DIR* dir), dir)
FAILING("readdir", nullptr, EIO, dirent64*, readdir64, (DIR* dir), dir)
FAILING("stat", -1, EIO, int, stat, (const char* path, struct stat* to), path, to)
FAILING("stat", -1, EIO, int, stat64, (const char* path, struct stat64* to), path, to)
FAILING("fstat", -1, EIO, int, fstat, (int file, struct stat* to), file, to)
FAILING("fstat", -1, EIO, int, fstat64, (int file, struct stat64* to), file, to)
FAILING("lstat", -1, EIO, int, lstat, (const char* path, struct stat* to), path, to)
FAILING("lstat", -1, EIO, int, lstat64, (const char* path, struct stat64* to), path, to)
FAILING("rename", -1, EIO, int, rename, (const char* from, const char* to), from, to)
FAILING("rename", -1, EIO, int, renameat2, (int d, const char* p, int e, const char* q, unsigned x), d, p, e, q, x)
// clang-format on

// All forms of new and delete, so that what one takes another can give back.
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
