/// @file
/// Recursive mutex, readers-writer lock and condition variable over POSIX threads.
///
/// Every operation returns 0 or a negative code of vpl__error.h; none throws. "Invalid" below is
/// VPL_ERR_INVALID (-9007). What POSIX refuses returns the code of its error.
///
/// The records are plain: one that is zeroed, as every global is, may be initialised without a constructor.
/// Their operations are safe for concurrent use, apart from initialising and destroying: those are for one
/// thread at a time and need a record that nobody uses. Records are not copied or moved while initialised.
#pragma once

#include <pthread.h>

#include <cstdint>

#include "PluginSDK_export.h"

/// A mutex that its owner may lock again; it is free after as many unlocks.
struct UTLMutex__t {
  pthread_mutex_t mutex;  ///< default attributes
  pthread_t owner;        ///< 0 when unowned
  std::uint32_t count;    ///< how often the owner holds it
  std::uint32_t marker;   ///< 0x476f6f64 ("dooG" in memory) while initialised, 0xdeadbeef once destroyed
};
using UTLMutex = UTLMutex__t;  ///< the name for everyday use

/// A readers-writer lock. Not recursive; nobody tracks its owners.
struct UTLSlimRWLock__t {
  pthread_rwlock_t lock;  ///< default attributes
};
using UTLSlimRWLock = UTLSlimRWLock__t;  ///< the name for everyday use

/// A condition variable, waited for with a UTLMutex.
struct UTLCond_t {
  pthread_cond_t cond;   ///< default attributes
  std::uint32_t marker;  ///< as in UTLMutex__t
};

/// Makes the mutex unowned and ready for use. Invalid for null.
PLUGINSDK_API int UTLMutex_Init(UTLMutex__t* mutex);

/// 1 when the calling thread owns the mutex, else 0, on a destroyed one too. Invalid for null.
PLUGINSDK_API int UTLMutex_LockedSelf(UTLMutex__t const* mutex);

/// Waits until the calling thread owns the mutex; returns at once when it already does. Invalid for null and
/// for a mutex that is not initialised.
PLUGINSDK_API int UTLMutex_Lock(UTLMutex__t* mutex);

/// Takes back one lock; the last one frees the mutex. Invalid as above; -9001 when the calling thread is not
/// the owner.
PLUGINSDK_API int UTLMutex_Unlock(UTLMutex__t* mutex);

/// Destroys a free mutex, after which locking and unlocking it are invalid. Invalid as above; -9006, and the
/// mutex stays usable, when it is locked.
PLUGINSDK_API int UTLMutex_Destroy(UTLMutex__t* mutex);

/// Makes the lock free and ready for use. Invalid for null.
PLUGINSDK_API int UTLSlimRWLock_Init(UTLSlimRWLock__t* lock);

/// Waits until no thread writes; any number may read at once. Invalid for null.
PLUGINSDK_API int UTLSlimRWLock_LockRead(UTLSlimRWLock__t* lock);

/// Gives back a lock for reading. Invalid for null; by a thread that holds none, undefined as it is in POSIX.
PLUGINSDK_API int UTLSlimRWLock_UnlockRead(UTLSlimRWLock__t* lock);

/// Waits until no thread reads or writes. Invalid for null.
PLUGINSDK_API int UTLSlimRWLock_LockWrite(UTLSlimRWLock__t* lock);

/// Gives back the lock for writing; otherwise as UTLSlimRWLock_UnlockRead.
PLUGINSDK_API int UTLSlimRWLock_UnlockWrite(UTLSlimRWLock__t* lock);

/// Invalid for null; -9089 for a condition that is initialised already. That is told by the marker, which is
/// read before it is written: zero the record before its first initialisation.
PLUGINSDK_API int UTLCond_Init(UTLCond_t* cond);

/// Wakes one waiter; nothing when there is none. Invalid for null and for a condition that is not
/// initialised.
PLUGINSDK_API int UTLCond_Signal(UTLCond_t* cond);

/// Wakes all waiters. Invalid as above.
PLUGINSDK_API int UTLCond_Broadcast(UTLCond_t* cond);

/// Gives the mutex back, however often it is locked, waits for a signal, and takes the mutex again as often.
/// @param timeoutMicroseconds from now, by the wall clock; the largest unsigned long waits without a limit.
/// @return 0 when woken, which may happen without a signal: test your condition in a loop. -9096 after the
///   timeout. Invalid when either argument is null or not initialised. -9001, without waiting, when the
///   calling thread does not own the mutex. -9099, without waiting, when the clock cannot be read. The
///   caller owns the mutex as before in every case.
PLUGINSDK_API int UTLCond_TimedWait(UTLCond_t* cond, UTLMutex__t* mutex, unsigned long timeoutMicroseconds);

/// Invalid as above. The condition counts as destroyed even when POSIX reports a failure.
PLUGINSDK_API int UTLCond_Destroy(UTLCond_t* cond);
