/// @file
/// Threads with a priority on a scale from 0 to 9.
///
/// Level 0 is the normal time-sharing policy. Levels 1 to 9 are the round-robin real-time policy with the
/// real-time priorities 11 to 99 and need the privilege for it. Operations return 0 or a negative code of
/// vpl__error.h; none throws. "Invalid" below is VPL_ERR_INVALID (-9007).
#pragma once

#include <pthread.h>

#include <cstdint>

#include "PluginSDK_export.h"

/// How a thread is to be created. One thread at a time; concurrent const use is safe.
struct UTLThread_attr_t {
  std::uint64_t stackSize;    ///< in bytes; 0 stands for 2097152
  bool createDetached;        ///< true: the thread cannot be joined
  std::uint32_t priority;     ///< 0 to 9; 0xFFFFFFFF for the level of the creating thread
  std::uint8_t reserved[12];  ///< not used
};

/// A joinable thread; 0 when none.
using UTLDetachableThreadHandle_t = pthread_t;

/// Sets a stack of 2097152 bytes, joinable, the level of the creating thread. Invalid for null.
PLUGINSDK_API int UTLThread_AttrInit(UTLThread_attr_t* attributes);

/// Sets the stack size in bytes; it is judged when a thread is created. Invalid for null.
PLUGINSDK_API int UTLThread_AttrSetStackSize(UTLThread_attr_t* attributes, unsigned long stackSize);

/// Zeroes the record. Invalid for null.
PLUGINSDK_API int UTLThread_AttrDestroy(UTLThread_attr_t* attributes);

/// The level of the calling thread, 0 to 9. It rounds down: a thread created at level n > 0 and below 9 reads
/// n - 1. Invalid for a thread with another policy or priority; the code of the error, which is also logged,
/// when they cannot be read. Safe for concurrent use.
PLUGINSDK_API int UTLThread_GetSchedPriority();

/// Starts `function` with `argument` on a new thread and logs its stack size (INFO). Safe for concurrent use.
///
/// The thread may run, and even end, before `handle` is stored: it must not read the handle unless the two
/// threads arrange it between them. An exception must not leave `function`.
/// @param handle receives the thread when it is joinable, and is 0 otherwise or after a failure. It may be
///   null for a detached thread only.
/// @param attributes null for the defaults of UTLThread_AttrInit; not kept.
/// @param name accepted and not used.
/// @return 0. Invalid for a null function (the handle is then left alone), a missing handle, a level above
///   9 or a stack that the system refuses; -9001 for a real-time level without the privilege.
PLUGINSDK_API int UTLDetachableThread_Create(UTLDetachableThreadHandle_t* handle, void* (*function)(void*),
                                             void* argument, UTLThread_attr_t const* attributes,
                                             char const* name);

/// Waits for the end of the thread and sets the handle to 0; a failure leaves the handle as it was.
/// @return 0. Invalid for null; -9097 for a handle of 0; -9008 when the calling thread joins itself.
PLUGINSDK_API int UTLDetachableThread_Join(UTLDetachableThreadHandle_t* handle);

/// The kernel's id of the calling thread, as /proc and debuggers show it; one system call. Safe for
/// concurrent use.
PLUGINSDK_API std::uint64_t UTLDetachableThread_Self();
