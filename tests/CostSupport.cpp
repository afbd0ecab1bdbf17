#include "CostSupport.h"

#include <atomic>

namespace {

std::atomic<std::size_t> allocations{0};

}  // namespace

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

std::size_t costtest::AllocationsOf(const std::function<void()>& operation) {
  const std::size_t before = allocations;
  operation();
  return allocations - before;
}
