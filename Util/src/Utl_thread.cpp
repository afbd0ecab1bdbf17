#include "Utl_thread.h"

#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>

#include "Utl_Warn_internal.h"
#include "vpl__error.h"

namespace {

constexpr const char* kSource = "Util/src/Utl_thread";
constexpr std::uint64_t kDefaultStackSize = 2097152;
constexpr std::uint32_t kCreatorsLevel = 0xFFFFFFFF;
constexpr std::uint32_t kHighestLevel = 9;
// The scale spreads levels over the 98 steps between the real-time priorities 1 and 99.
constexpr double kLevels = 9.0;
constexpr double kSteps = 98.0;

struct Schedule {
  int policy;
  int priority;
};

// A level above the scale gets a priority that no policy has, so that no thread starts with it.
Schedule ScheduleOf(std::uint32_t level) {
  if (level == 0) {
    return {SCHED_OTHER, 0};
  }
  if (level > kHighestLevel) {
    return {SCHED_RR, -1};
  }
  return {SCHED_RR, static_cast<int>(level / kLevels * kSteps) + 1};
}

// A thread whose priority is not on the scale yields a code, which as a level is far above 9: such a thread
// cannot hand its priority on.
std::uint32_t CallersLevel() {
  return static_cast<std::uint32_t>(UTLThread_GetSchedPriority());
}

UTLThread_attr_t DefaultAttributes() {
  return {kDefaultStackSize, false, kCreatorsLevel, {}};
}

// The level was read once already, and none that CallersLevel yields equals kCreatorsLevel; should that ever
// change, the line in the log says why no thread starts.
std::uint32_t ResolveLevel(std::uint32_t level) {
  if (level != kCreatorsLevel) {
    return level;
  }
  level = CallersLevel();
  if (level > kHighestLevel) {
    UTLWarn(3, kSource, __LINE__, "UTLDetachableThread_Create",
            "UTLThread internal error: impossible priority %d", static_cast<int>(level));
  }
  return level;
}

// The POSIX attributes of one creation, released with it.
class PosixAttributes {
 public:
  PosixAttributes() : m_error(pthread_attr_init(&m_attributes)), m_isOpen(m_error == 0) {}
  ~PosixAttributes() {
    if (m_isOpen) {
      pthread_attr_destroy(&m_attributes);
    }
  }
  PosixAttributes(const PosixAttributes&) = delete;
  PosixAttributes& operator=(const PosixAttributes&) = delete;

  // Sets what it can and remembers the first refusal.
  void Set(const UTLThread_attr_t& wanted) {
    const Schedule schedule = ScheduleOf(ResolveLevel(wanted.priority));
    sched_param parameter{};
    parameter.sched_priority = schedule.priority;
    Note(pthread_attr_setstacksize(&m_attributes, wanted.stackSize));
    if (wanted.createDetached) {
      Note(pthread_attr_setdetachstate(&m_attributes, PTHREAD_CREATE_DETACHED));
    }
    Note(pthread_attr_setschedpolicy(&m_attributes, schedule.policy));
    // Judged against the policy, therefore after it.
    Note(pthread_attr_setschedparam(&m_attributes, &parameter));
    Note(pthread_attr_setinheritsched(&m_attributes, PTHREAD_EXPLICIT_SCHED));
  }

  unsigned long StackSize() const {
    std::size_t size = 0;
    pthread_attr_getstacksize(&m_attributes, &size);
    return size;
  }

  int Error() const { return m_error; }
  const pthread_attr_t* Get() const { return &m_attributes; }

 private:
  void Note(int error) {
    if (m_error == 0) {
      m_error = error;
    }
  }

  pthread_attr_t m_attributes{};
  int m_error;
  const bool m_isOpen;
};

int CreateThread(pthread_t& thread, void* (*function)(void*), void* argument,
                 const UTLThread_attr_t& wanted) {
  PosixAttributes attributes;
  if (attributes.Error() != 0) {
    return VPLError_XlatErrno(attributes.Error());
  }
  attributes.Set(wanted);
  UTLWarn(2, kSource, __LINE__, "UTLDetachableThread_Create", "Creating thread with stack size = %lu",
          attributes.StackSize());
  // Attributes that were refused would start another thread than the one asked for.
  if (attributes.Error() != 0) {
    return VPLError_XlatErrno(attributes.Error());
  }
  return VPLError_XlatErrno(pthread_create(&thread, attributes.Get(), function, argument));
}

}  // namespace

int UTLThread_AttrInit(UTLThread_attr_t* attributes) {
  if (attributes == nullptr) {
    return VPL_ERR_INVALID;
  }
  *attributes = DefaultAttributes();
  return VPL_OK;
}

int UTLThread_AttrSetStackSize(UTLThread_attr_t* attributes, unsigned long stackSize) {
  if (attributes == nullptr) {
    return VPL_ERR_INVALID;
  }
  attributes->stackSize = stackSize;
  return VPL_OK;
}

int UTLThread_AttrDestroy(UTLThread_attr_t* attributes) {
  if (attributes == nullptr) {
    return VPL_ERR_INVALID;
  }
  std::memset(attributes, 0, sizeof *attributes);
  return VPL_OK;
}

int UTLThread_GetSchedPriority() {
  int policy = 0;
  sched_param parameter{};
  const int error = pthread_getschedparam(pthread_self(), &policy, &parameter);
  if (error != 0) {
    UTLWarn(3, kSource, __LINE__, "UTLThread_GetSchedPriority", "pthread_getschedparam failed with %d",
            error);
    return VPLError_XlatErrno(error);
  }
  const int priority = parameter.sched_priority;
  if (policy == SCHED_OTHER && priority == 0) {
    return 0;
  }
  if (priority < 1 || priority > 99) {
    return VPL_ERR_INVALID;
  }
  return static_cast<int>((priority - 1) / kSteps * kLevels);
}

int UTLDetachableThread_Create(UTLDetachableThreadHandle_t* handle, void* (*function)(void*), void* argument,
                               UTLThread_attr_t const* attributes, char const* /*name*/) {
  if (function == nullptr) {
    return VPL_ERR_INVALID;
  }
  UTLThread_attr_t wanted = attributes != nullptr ? *attributes : DefaultAttributes();
  const bool isJoinable = !wanted.createDetached;
  if (handle != nullptr) {
    *handle = 0;
  } else if (isJoinable) {
    return VPL_ERR_INVALID;
  }
  if (wanted.stackSize == 0) {
    wanted.stackSize = kDefaultStackSize;
  }
  if (wanted.priority == kCreatorsLevel) {
    wanted.priority = CallersLevel();
  }
  pthread_t thread = 0;
  const int code = CreateThread(thread, function, argument, wanted);
  if (code == VPL_OK && isJoinable) {
    *handle = thread;
  }
  return code;
}

int UTLDetachableThread_Join(UTLDetachableThreadHandle_t* handle) {
  if (handle == nullptr) {
    return VPL_ERR_INVALID;
  }
  if (*handle == 0) {
    return VPL_ERR_NO_THREAD;
  }
  const int error = pthread_join(*handle, nullptr);
  if (error != 0) {
    return VPLError_XlatErrno(error);
  }
  *handle = 0;
  return VPL_OK;
}

std::uint64_t UTLDetachableThread_Self() {
  return static_cast<std::uint64_t>(syscall(SYS_gettid));
}
