#include "Utl_mutex.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <ctime>

#include "vpl__error.h"

namespace {

constexpr std::uint32_t kMarkerGood = 0x476f6f64;
constexpr std::uint32_t kMarkerDead = 0xdeadbeef;
constexpr unsigned long kNoLimit = ULONG_MAX;

// Markers and owners are looked at without the mutex, hence atomically. Relaxed order is enough: a marker
// publishes nothing, and only the calling thread itself ever stores its own id as the owner, so "is it me"
// has one answer whatever the other threads are storing meanwhile.
bool HasMarker(const std::uint32_t& marker, std::uint32_t value) {
  return __atomic_load_n(&marker, __ATOMIC_RELAXED) == value;
}

void SetMarker(std::uint32_t& marker, std::uint32_t value) {
  __atomic_store_n(&marker, value, __ATOMIC_RELAXED);
}

template <typename Record>
bool IsReady(const Record* record) {
  return record != nullptr && HasMarker(record->marker, kMarkerGood);
}

bool IsOwner(const UTLMutex__t& mutex) {
  return __atomic_load_n(&mutex.owner, __ATOMIC_RELAXED) == pthread_self();
}

// Called with the POSIX mutex held, except while the record is being initialised.
void SetOwner(UTLMutex__t& mutex, pthread_t owner, std::uint32_t count) {
  __atomic_store_n(&mutex.owner, owner, __ATOMIC_RELAXED);
  mutex.count = count;
}

// Most calls succeed; they are spared the table.
int Xlat(int error) {
  return error == 0 ? VPL_OK : VPLError_XlatErrno(error);
}

// Gives up the ownership for the length of a wait. A destructor takes it back so that the record is right for
// the clean-up handlers of a thread that is cancelled in its wait, too.
class OwnershipPause {
 public:
  explicit OwnershipPause(UTLMutex__t& mutex) : m_mutex(mutex), m_count(mutex.count) {
    SetOwner(m_mutex, 0, 0);
  }
  ~OwnershipPause() { SetOwner(m_mutex, pthread_self(), m_count); }
  OwnershipPause(const OwnershipPause&) = delete;
  OwnershipPause& operator=(const OwnershipPause&) = delete;

 private:
  UTLMutex__t& m_mutex;
  const std::uint32_t m_count;
};

// Sums are formed without a sign, where an overflow is defined; it shows as a deadline before `now`.
timespec DeadlineAfter(const timespec& now, unsigned long timeoutMicroseconds) {
  constexpr unsigned long kMicrosPerSecond = 1000000;
  constexpr unsigned long kNanosPerSecond = 1000000000;
  const unsigned long nanos =
      static_cast<unsigned long>(now.tv_nsec) + timeoutMicroseconds % kMicrosPerSecond * 1000;
  const unsigned long seconds = static_cast<unsigned long>(now.tv_sec) +
                                timeoutMicroseconds / kMicrosPerSecond + nanos / kNanosPerSecond;
  timespec deadline{};
  deadline.tv_sec = static_cast<time_t>(seconds);
  deadline.tv_nsec = static_cast<long>(nanos % kNanosPerSecond);
  const bool isEarlier =
      deadline.tv_sec < now.tv_sec || (deadline.tv_sec == now.tv_sec && deadline.tv_nsec < now.tv_nsec);
  if (isEarlier) {
    deadline.tv_sec = 2147483647;
    deadline.tv_nsec = 999999999;
  }
  return deadline;
}

int WaitWithLimit(UTLCond_t& cond, UTLMutex__t& mutex, unsigned long timeoutMicroseconds) {
  timespec now{};
  if (clock_gettime(CLOCK_REALTIME, &now) != 0) {
    return VPL_ERR_FAIL;
  }
  const timespec deadline = DeadlineAfter(now, timeoutMicroseconds);
  return Xlat(pthread_cond_timedwait(&cond.cond, &mutex.mutex, &deadline));
}

}  // namespace

int UTLMutex_Init(UTLMutex__t* mutex) {
  if (mutex == nullptr) {
    return VPL_ERR_INVALID;
  }
  SetOwner(*mutex, 0, 0);
  const int error = pthread_mutex_init(&mutex->mutex, nullptr);
  if (error != 0) {
    return VPLError_XlatErrno(error);
  }
  SetMarker(mutex->marker, kMarkerGood);
  return VPL_OK;
}

int UTLMutex_LockedSelf(UTLMutex__t const* mutex) {
  if (mutex == nullptr) {
    return VPL_ERR_INVALID;
  }
  return IsOwner(*mutex) ? 1 : 0;
}

int UTLMutex_Lock(UTLMutex__t* mutex) {
  if (!IsReady(mutex)) {
    return VPL_ERR_INVALID;
  }
  if (IsOwner(*mutex)) {
    ++mutex->count;
    return VPL_OK;
  }
  const int error = pthread_mutex_lock(&mutex->mutex);
  if (error != 0) {
    return VPLError_XlatErrno(error);
  }
  SetOwner(*mutex, pthread_self(), 1);
  return VPL_OK;
}

int UTLMutex_Unlock(UTLMutex__t* mutex) {
  if (!IsReady(mutex)) {
    return VPL_ERR_INVALID;
  }
  if (!IsOwner(*mutex)) {
    return VPL_ERR_PERM;
  }
  if (mutex->count > 1) {
    --mutex->count;
    return VPL_OK;
  }
  SetOwner(*mutex, 0, 0);
  return Xlat(pthread_mutex_unlock(&mutex->mutex));
}

int UTLMutex_Destroy(UTLMutex__t* mutex) {
  if (!IsReady(mutex)) {
    return VPL_ERR_INVALID;
  }
  const int error = pthread_mutex_destroy(&mutex->mutex);
  if (error != 0) {
    return VPLError_XlatErrno(error);
  }
  SetMarker(mutex->marker, kMarkerDead);
  return VPL_OK;
}

int UTLSlimRWLock_Init(UTLSlimRWLock__t* lock) {
  return lock == nullptr ? VPL_ERR_INVALID : Xlat(pthread_rwlock_init(&lock->lock, nullptr));
}

int UTLSlimRWLock_LockRead(UTLSlimRWLock__t* lock) {
  return lock == nullptr ? VPL_ERR_INVALID : Xlat(pthread_rwlock_rdlock(&lock->lock));
}

int UTLSlimRWLock_UnlockRead(UTLSlimRWLock__t* lock) {
  return lock == nullptr ? VPL_ERR_INVALID : Xlat(pthread_rwlock_unlock(&lock->lock));
}

int UTLSlimRWLock_LockWrite(UTLSlimRWLock__t* lock) {
  return lock == nullptr ? VPL_ERR_INVALID : Xlat(pthread_rwlock_wrlock(&lock->lock));
}

int UTLSlimRWLock_UnlockWrite(UTLSlimRWLock__t* lock) {
  return UTLSlimRWLock_UnlockRead(lock);
}

int UTLCond_Init(UTLCond_t* cond) {
  if (cond == nullptr) {
    return VPL_ERR_INVALID;
  }
  if (HasMarker(cond->marker, kMarkerGood)) {
    return VPL_ERR_IS_INITIALISED;
  }
  const int error = pthread_cond_init(&cond->cond, nullptr);
  if (error != 0) {
    return VPLError_XlatErrno(error);
  }
  SetMarker(cond->marker, kMarkerGood);
  return VPL_OK;
}

int UTLCond_Signal(UTLCond_t* cond) {
  return IsReady(cond) ? Xlat(pthread_cond_signal(&cond->cond)) : VPL_ERR_INVALID;
}

int UTLCond_Broadcast(UTLCond_t* cond) {
  return IsReady(cond) ? Xlat(pthread_cond_broadcast(&cond->cond)) : VPL_ERR_INVALID;
}

int UTLCond_TimedWait(UTLCond_t* cond, UTLMutex__t* mutex, unsigned long timeoutMicroseconds) {
  if (!IsReady(cond) || !IsReady(mutex)) {
    return VPL_ERR_INVALID;
  }
  if (!IsOwner(*mutex)) {
    return VPL_ERR_PERM;  // waiting would write over the owner and count of whoever holds the mutex
  }
  const OwnershipPause pause(*mutex);
  if (timeoutMicroseconds == kNoLimit) {
    return Xlat(pthread_cond_wait(&cond->cond, &mutex->mutex));
  }
  return WaitWithLimit(*cond, *mutex, timeoutMicroseconds);
}

int UTLCond_Destroy(UTLCond_t* cond) {
  if (!IsReady(cond)) {
    return VPL_ERR_INVALID;
  }
  const int error = pthread_cond_destroy(&cond->cond);
  SetMarker(cond->marker, kMarkerDead);
  return Xlat(error);
}
