#include "FaultEngine.h"

#include <dirent.h>
#include <dlfcn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/uio.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

using faults::current;

namespace {

bool Meets(const char* call) {
  if (!faults::Window::isOpen || std::strcmp(call, current.call) != 0) return false;
  ++current.seen;
  return current.nth == 0 || current.seen == current.nth;
}

bool IsOdd() {
  return current.error == faults::kOdd;
}

int Failure() {
  errno = IsOdd() ? EIO : current.error;
  return -1;
}

iovec Half(const iovec* part) {
  return {part->iov_base, part->iov_len / 2};
}

dirent* WithoutType(dirent* entry) {
  if (entry != nullptr) entry->d_type = DT_UNKNOWN;
  return entry;
}

}  // namespace

// The functions below stand in for those of the C library and of the sanitizer, where there is one. Only the
// linker sees their names, because the compiler knows other declarations of them.
// NOLINTBEGIN(bugprone-macro-parentheses): parameters and arguments come in their parentheses.
#define PLUGINSDK_INSTEAD(Result, name, Parameters)                                                 \
  extern "C" __attribute__((visibility("default"))) Result Faulty_##name Parameters __asm__(#name); \
  Result Faulty_##name Parameters

#ifdef PLUGINSDK_SANITIZED
#define PLUGINSDK_REAL(name) __interceptor_##name
#else
#define PLUGINSDK_REAL(name) __libc_##name
#endif
#define PLUGINSDK_ALLOCATE(name, Parameters, arguments)                                  \
  extern "C" void* PLUGINSDK_REAL(name) Parameters;                                      \
  PLUGINSDK_INSTEAD(void*, name, Parameters) {                                           \
    return Meets("malloc") && Failure() != 0 ? nullptr : PLUGINSDK_REAL(name) arguments; \
  }

PLUGINSDK_ALLOCATE(malloc, (std::size_t size), (size))
PLUGINSDK_ALLOCATE(calloc, (std::size_t count, std::size_t size), (count, size))
PLUGINSDK_ALLOCATE(realloc, (void* block, std::size_t size), (block, size))

// A sanitizer's own operators would not come by malloc.
void* operator new(std::size_t size) {
  void* const block = malloc(size);
  return block != nullptr ? block : throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return malloc(size);
}
void* operator new[](std::size_t size) {
  return operator new(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return malloc(size);
}
void operator delete[](void* block) noexcept {
  std::free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  std::free(block);
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}

// `met` is what happens instead of the real call when the fault meets it.
#define PLUGINSDK_CALL(Result, name, Parameters, arguments, met)                              \
  PLUGINSDK_INSTEAD(Result, name, Parameters) {                                               \
    static const auto real = reinterpret_cast<Result(*) Parameters>(dlsym(RTLD_NEXT, #name)); \
    return Meets(#name) ? met : real arguments;                                               \
  }

// NOLINTEND(bugprone-macro-parentheses)

PLUGINSDK_CALL(ssize_t, write, (int fd, const void* data, size_t size), (fd, data, size),
               (IsOdd() ? real(fd, data, size / 2) : Failure()))
PLUGINSDK_CALL(ssize_t, pwritev2, (int fd, const iovec* part, int, off_t at, int flags),
               (fd, part, 1, at, flags),
               (IsOdd() ? real(fd, std::array{Half(part)}.data(), 1, at, flags) : Failure()))
PLUGINSDK_CALL(int, open, (const char* path, int flags, mode_t mode), (path, flags, mode), Failure())
PLUGINSDK_CALL(int, fcntl, (int fd, int command, void* argument), (fd, command, argument), Failure())
PLUGINSDK_CALL(int, fstat, (int fd, struct stat* status), (fd, status), Failure())
PLUGINSDK_CALL(int, lstat, (const char* path, struct stat* status), (path, status), Failure())
PLUGINSDK_CALL(int, mkdir, (const char* path, mode_t mode), (path, mode), Failure())
PLUGINSDK_CALL(int, unlink, (const char* path), (path), Failure())
PLUGINSDK_CALL(DIR*, opendir, (const char* path), (path), (Failure(), nullptr))
PLUGINSDK_CALL(dirent*, readdir, (DIR * stream), (stream),
               (IsOdd() ? WithoutType(real(stream)) : (Failure(), nullptr)))
PLUGINSDK_CALL(int, shm_open, (const char* name, int flags, mode_t mode), (name, flags, mode), Failure())
PLUGINSDK_CALL(int, shm_unlink, (const char* name), (name), Failure())
PLUGINSDK_CALL(int, posix_fallocate, (int fd, off_t at, off_t size), (fd, at, size), (Failure(), errno))
PLUGINSDK_CALL(void*, mmap, (void* at, size_t size, int access, int flags, int fd, off_t from),
               (at, size, access, flags, fd, from), (Failure(), MAP_FAILED))
// These have done their work when they fail, as the system's own have.
PLUGINSDK_CALL(int, close, (int fd), (fd), (real(fd), Failure()))
PLUGINSDK_CALL(int, closedir, (DIR * stream), (stream), (real(stream), Failure()))
PLUGINSDK_CALL(int, munmap, (void* at, size_t size), (at, size), (real(at, size), Failure()))
// Tests do not cut the power, and waiting for a disk takes time.
PLUGINSDK_INSTEAD(int, fsync, (int)) {
  return Meets("fsync") ? Failure() : 0;
}

PLUGINSDK_INSTEAD(int, gettimeofday, (timeval * now, void*)) {
  static long ticks = 0;
  timespec real;
  clock_gettime(CLOCK_REALTIME, &real);
  *now = {real.tv_sec, real.tv_nsec / 1000};
  if (faults::clock != 0) *now = {faults::clock, ++ticks % 1000000};
  return 0;
}
PLUGINSDK_INSTEAD(time_t, time, (time_t*)) {
  timeval now;
  Faulty_gettimeofday(&now, nullptr);
  return now.tv_sec;
}
