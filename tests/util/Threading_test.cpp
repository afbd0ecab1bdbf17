#include <gtest/gtest.h>
#include <sched.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <future>
#include <string>
#include <vector>

#include "Utl_mutex.h"
#include "Utl_thread.h"
#include "util/LogTestSupport.h"

namespace {

template <typename Function, typename... Arguments>
int OnOtherThread(Function function, Arguments... arguments) {
  return std::async(std::launch::async, function, arguments...).get();
}

struct Locks {
  UTLMutex mutex;
  UTLCond_t cond;
  int Init() { return UTLMutex_Init(&mutex) + UTLCond_Init(&cond); }
};

TEST(Threading, RefusesNullAndWhatIsNotInitialised) {
  Locks ready{}, zeroed{}, destroyed{};
  ASSERT_EQ(ready.Init() + destroyed.Init(), 0);
  EXPECT_EQ(ready.mutex.marker, 0x476f6f64U);
  EXPECT_EQ(UTLCond_Init(&ready.cond), -9089);
  ASSERT_EQ(UTLMutex_Destroy(&destroyed.mutex) + UTLCond_Destroy(&destroyed.cond), 0);
  EXPECT_EQ(destroyed.mutex.marker, 0xdeadbeefU);
  for (Locks* locks : {static_cast<Locks*>(nullptr), &zeroed, &destroyed}) {
    SCOPED_TRACE(locks == nullptr ? "null" : locks == &zeroed ? "zeroed" : "destroyed");
    UTLMutex* const mutex = locks == nullptr ? nullptr : &locks->mutex;
    UTLCond_t* const cond = locks == nullptr ? nullptr : &locks->cond;
    for (int code : {UTLMutex_Lock(mutex), UTLMutex_Unlock(mutex), UTLMutex_Destroy(mutex),
                     UTLCond_Signal(cond), UTLCond_Broadcast(cond), UTLCond_Destroy(cond),
                     UTLCond_TimedWait(cond, &ready.mutex, 0), UTLCond_TimedWait(&ready.cond, mutex, 0)})
      EXPECT_EQ(code, -9007);
    EXPECT_EQ(UTLMutex_LockedSelf(mutex), locks == nullptr ? -9007 : 0);
  }
  for (int code : {UTLMutex_Init(nullptr), UTLCond_Init(nullptr), UTLSlimRWLock_Init(nullptr),
                   UTLSlimRWLock_LockRead(nullptr), UTLSlimRWLock_UnlockRead(nullptr),
                   UTLSlimRWLock_LockWrite(nullptr), UTLSlimRWLock_UnlockWrite(nullptr),
                   UTLThread_AttrInit(nullptr), UTLThread_AttrSetStackSize(nullptr, 1),
                   UTLThread_AttrDestroy(nullptr), UTLDetachableThread_Join(nullptr)})
    EXPECT_EQ(code, -9007);
}

TEST(Mutex, BelongsToOneThreadUntilAsManyUnlocksAsLocks) {
  Locks locks{};
  ASSERT_EQ(locks.Init(), 0);
  UTLMutex* const mutex = &locks.mutex;
  EXPECT_EQ(UTLMutex_Lock(mutex) + UTLMutex_Lock(mutex) + UTLMutex_Unlock(mutex), 0);
  EXPECT_EQ(OnOtherThread(UTLMutex_LockedSelf, mutex), 0);
  EXPECT_EQ(OnOtherThread(pthread_mutex_trylock, &mutex->mutex), EBUSY);
  EXPECT_EQ(OnOtherThread(UTLMutex_Unlock, mutex), -9001);
  EXPECT_EQ(OnOtherThread(UTLCond_TimedWait, &locks.cond, mutex, ULONG_MAX), -9001);
  EXPECT_EQ(UTLMutex_LockedSelf(mutex), 1);
  EXPECT_EQ(UTLMutex_Unlock(mutex), 0);
  EXPECT_EQ(UTLMutex_Unlock(mutex), -9001);
}

TEST(RWLock, SharesReadersAndExcludesWriters) {
  UTLSlimRWLock lock{};
  ASSERT_EQ(UTLSlimRWLock_Init(&lock) + UTLSlimRWLock_LockRead(&lock), 0);
  EXPECT_EQ(OnOtherThread(pthread_rwlock_trywrlock, &lock.lock), EBUSY);
  EXPECT_EQ(UTLSlimRWLock_UnlockRead(&lock) + UTLSlimRWLock_LockWrite(&lock), 0);
  EXPECT_EQ(UTLSlimRWLock_LockWrite(&lock), -9008);
  EXPECT_EQ(UTLSlimRWLock_UnlockWrite(&lock), 0);
}

TEST(TimedWait, GivesTheMutexBackAndHoldsItAsBeforeInTheEnd) {
  struct {
    const char* name;
    unsigned long timeout;
    int (*wake)(UTLCond_t*);
    int code, leastMs;
  } const rows[] = {
      {"no time", 0, nullptr, -9096, 0},
      {"seconds and a part", 1500000, nullptr, -9096, 1500},
      {"longest limit", ULONG_MAX - 1, UTLCond_Signal, 0, 0},
      {"no limit", ULONG_MAX, UTLCond_Broadcast, 0, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    Locks locks{};
    EXPECT_EQ(locks.Init() + UTLMutex_Lock(&locks.mutex) + UTLMutex_Lock(&locks.mutex), 0);
    bool woken = row.wake == nullptr;
    auto waker = std::async(std::launch::async, [&, wake = row.wake] {
      if (wake != nullptr) {
        UTLMutex_Lock(&locks.mutex);  // succeeds only when the wait has given both locks back
        woken = true;
        EXPECT_EQ(wake(&locks.cond) + UTLMutex_Unlock(&locks.mutex), 0);
      }
    });
    const auto start = std::chrono::steady_clock::now();
    int code = 0;
    do {
      code = UTLCond_TimedWait(&locks.cond, &locks.mutex, row.timeout);
    } while (code == 0 && !woken);
    const auto waited = (std::chrono::steady_clock::now() - start) / std::chrono::milliseconds(1);
    EXPECT_EQ(code, row.code);
    EXPECT_TRUE(waited >= row.leastMs && waited < row.leastMs + 5000) << waited;
    EXPECT_EQ(UTLMutex_Unlock(&locks.mutex) + UTLMutex_Unlock(&locks.mutex), 0);
    EXPECT_EQ(UTLMutex_Unlock(&locks.mutex), -9001);
  }
}

constexpr UTLDetachableThreadHandle_t kStale = 1;

struct Creation {
  const char* name;
  bool function, handle, attributes, detached;
  unsigned long stackSize;
  std::uint32_t level;
  int code;
  int loggedSize;  // 0: refused before anything is logged
  int priority, readBack;
};

// The formulas of the levels round down, so a level does not read back as itself.
const Creation kCreations[] = {
    {"defaults", true, true, false, false, 1, 10, 0, 2097152, 0, 0},
    {"defaults without handle", true, false, false, false, 1, 10, -9007, 0, 0, 0},
    {"no function", false, true, false, false, 1, 10, -9007, 0, 0, 0},
    {"joinable", true, true, true, false, 0, 0xFFFFFFFF, 0, 2097152, 0, 0},
    {"joinable without handle", true, false, true, false, 0, 0, -9007, 0, 0, 0},
    {"detached", true, true, true, true, 1048576, 0, 0, 1048576, 0, 0},
    {"detached without handle", true, false, true, true, 1048576, 0, 0, 1048576, 0, 0},
    {"lowest real-time level", true, true, true, false, 65536, 1, 0, 65536, 11, 0},
    {"middle level", true, true, true, false, 65536, 5, 0, 65536, 55, 4},
    {"highest level", true, true, true, false, 65536, 9, 0, 65536, 99, 9},
    {"level above the scale", true, true, true, false, 65536, 10, -9007, 65536, 0, 0},
};

struct Seen {
  sched_param parameter{};
  int level = -1;
  std::promise<void> done{};
};

void* Look(void* argument) {
  auto* seen = static_cast<Seen*>(argument);
  int policy = 0;
  pthread_getschedparam(pthread_self(), &policy, &seen->parameter);
  seen->level = UTLThread_GetSchedPriority();
  seen->done.set_value();
  return nullptr;
}

void CreateAndJudge(const Creation& row) {
  SCOPED_TRACE(row.name);
  Seen seen;
  UTLDetachableThreadHandle_t handle = kStale;
  const UTLThread_attr_t attributes{row.stackSize, row.detached, row.level, {}};
  const int code = UTLDetachableThread_Create(row.handle ? &handle : nullptr, row.function ? Look : nullptr,
                                              &seen, row.attributes ? &attributes : nullptr, "name");
  if (row.priority > 0 && code == -9001) return;  // no privilege for real-time scheduling here
  EXPECT_EQ(code, row.code);
  if (code != 0 || row.detached) {
    EXPECT_EQ(handle, row.handle && row.function ? 0 : kStale);
  }
  if (code != 0) return;
  seen.done.get_future().wait();
  EXPECT_EQ(seen.parameter.sched_priority, row.priority);
  EXPECT_EQ(seen.level, row.readBack);
  if (!row.detached) {
    EXPECT_EQ(UTLDetachableThread_Join(&handle), 0);
    EXPECT_EQ(UTLDetachableThread_Join(&handle), -9097);
  }
}

TEST(Threads, AreCreatedAsAskedForOrRefused) {
  UTLDetachableThreadHandle_t self = pthread_self();
  EXPECT_EQ(UTLDetachableThread_Join(&self), -9008);
  const auto result = logtest::RunInChild([] {
    UTL_LOGInit("threads", nullptr);
    for (const Creation& row : kCreations) CreateAndJudge(row);
  });
  logtest::ExpectCleanExit(result);
  logtest::Texts expected;
  for (const Creation& row : kCreations) {
    const std::string line = " INFO  |Creating thread with stack size = " + std::to_string(row.loggedSize);
    if (row.loggedSize != 0) expected.push_back(line);
  }
  EXPECT_EQ(logtest::Messages(result.out), expected);
}

}  // namespace
