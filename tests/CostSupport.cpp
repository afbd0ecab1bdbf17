#include "CostSupport.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <map>

namespace {

std::atomic<std::size_t> allocations{0};

}  // namespace

// Allocations are counted by standing in for the C library's functions; a sanitizer, which does so itself, is
// asked to tell instead.
#ifdef PLUGINSDK_SANITIZED
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*allocated)(const volatile void*, std::size_t),
                                                         void (*freed)(const volatile void*));
namespace {
[[maybe_unused]] const int installed = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t) { ++allocations; }, [](const volatile void*) {});
}  // namespace
#else
#define PLUGINSDK_INSTEAD extern "C" __attribute__((visibility("default"))) void*
extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* block, std::size_t size);

PLUGINSDK_INSTEAD malloc(std::size_t size) {
  ++allocations;
  return __libc_malloc(size);
}
PLUGINSDK_INSTEAD calloc(std::size_t count, std::size_t size) {
  ++allocations;
  return __libc_calloc(count, size);
}
PLUGINSDK_INSTEAD realloc(void* block, std::size_t size) {
  ++allocations;
  return __libc_realloc(block, size);
}
#endif

namespace costtest {

namespace {

constexpr long kMark = SYS_getppid;  // made before and after the operation; nothing else here makes it

[[noreturn]] void RunChild(const std::function<void()>& prepare, const std::function<void()>& operation,
                           std::size_t* counted) {
  if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(1);
  dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);  // what the child prints is nobody's business
  prepare();
  raise(SIGSTOP);
  syscall(kMark);
  *counted = AllocationsOf(operation);
  syscall(kMark);
  _exit(0);
}

std::string Name(std::uint64_t number) {
  static const std::map<std::uint64_t, const char*> names = {
      {SYS_write, "write"},    {SYS_pwritev2, "write"}, {SYS_fsync, "fsync"},
      {SYS_fstat, "fstat"},    {SYS_clone, "clone"},    {SYS_newfstatat, "fstat"},
      {SYS_clone3, "clone"},   {SYS_gettimeofday, ""},  {SYS_rt_sigprocmask, ""},
      {SYS_clock_gettime, ""}, {SYS_rt_sigpending, ""}, {SYS_mmap, ""},
      {SYS_munmap, ""},        {SYS_brk, ""},           {SYS_madvise, ""}};
  const auto found = names.find(number);
  return found == names.end() ? std::to_string(number) : found->second;
}

/// Lets `child` run to its next stop at a system call or for a signal; whether there was one.
bool Continue(pid_t child) {
  int status = 0;
  return ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) == 0 && waitpid(child, &status, 0) == child &&
         WIFSTOPPED(status);
}

std::vector<std::string> Trace(pid_t child) {
  std::vector<std::string> calls;
  int marks = 0;
  while (Continue(child)) {
    __ptrace_syscall_info info = {};
    ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info);
    if (info.op != PTRACE_SYSCALL_INFO_ENTRY) continue;
    if (info.entry.nr == kMark) {
      ++marks;
    } else if (const std::string name = Name(info.entry.nr); marks == 1 && !name.empty()) {
      calls.push_back(name);
    }
  }
  return calls;
}

}  // namespace

std::size_t AllocationsOf(const std::function<void()>& operation) {
  const std::size_t before = allocations;
  operation();
  return allocations - before;
}

std::optional<Cost> CostOf(const std::function<void()>& prepare, const std::function<void()>& operation) {
  void* shared =
      mmap(nullptr, sizeof(std::size_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  auto* counted = static_cast<std::size_t*>(shared);
  const pid_t child = fork();
  if (child == 0) RunChild(prepare, operation, counted);
  int status = 0;
  waitpid(child, &status, 0);
  std::optional<Cost> cost;
  if (WIFSTOPPED(status)) {
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    cost = Cost{Trace(child), *counted};
  }
  munmap(shared, sizeof(std::size_t));
  return cost;
}

}  // namespace costtest
