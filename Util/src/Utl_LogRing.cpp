// The in-memory log: a ring in POSIX shared memory that outlives the process.

#include <fcntl.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "Utl_Log.h"
#include "Utl_LogRingLayout_internal.h"
#include "Utl_LogSignal_internal.h"
#include "Utl_Log_internal.h"
#include "Utl_file.h"

namespace ring = pluginsdk::ring;

namespace {

constexpr int kCannotOpen = -3;

char openName[ring::kNameSize] = {};  // the segment that is on; turning off removes this one

// What the header's count cannot hold: all bytes since the last flush. Guarded like the ring's contents.
std::int64_t bytesStored = 0;

// The segment while it is being turned on; what fails on the way leaves nothing behind, the name included.
class NewSegment {
 public:
  explicit NewSegment(int id) {
    std::snprintf(m_name, sizeof m_name, ring::kNameFormat, ring::kNamePrefix, id);
  }
  NewSegment(const NewSegment&) = delete;
  NewSegment& operator=(const NewSegment&) = delete;

  ~NewSegment() {
    if (m_kept) {
      return;
    }
    if (m_fd >= 0) {
      UTL_Close(m_fd);
    }
    UTLShm_Unlink(m_name);
  }

  // Mapping comes last, so a failure never has one to undo.
  bool Open() {
    m_fd = pluginsdk::log::AboveStandard(UTLShm_Open(m_name, O_RDWR | O_CREAT, 0600));
    return m_fd >= 0 && SetSize() &&
           UTL_Mmap(nullptr, ring::kSegmentSize, PROT_READ | PROT_WRITE, MAP_SHARED, m_fd, 0, &m_address) ==
               0;
  }

  void Keep() {
    m_kept = true;
    utl_shmFd = m_fd;
    utl_shmHeader = static_cast<ring::Header*>(m_address);
    std::memcpy(openName, m_name, sizeof openName);
  }

 private:
  bool SetSize() {
    const pluginsdk::log::SignalBlock block;
    const bool isSet = UTL_Fallocate(m_fd, 0, ring::kSegmentSize) == 0;
    if (!isSet) {
      block.Consume();
    }
    return isSet;
  }

  char m_name[ring::kNameSize];
  int m_fd = -1;
  void* m_address = nullptr;
  bool m_kept = false;
};

// Lets go of mapping and descriptor. The contents and the name stay.
void Release() {
  UTL_Munmap(utl_shmHeader, ring::kSegmentSize);
  UTL_Close(utl_shmFd);
  utl_shmHeader = nullptr;
  utl_shmFd = -1;
  utl_enableInMemoryLogging = false;
}

// An empty ring with a valid magic.
void Reset() {
  ring::BeginChange(*utl_shmHeader);
  bytesStored = 0;
  ring::StoreState(*utl_shmHeader, {});
  ring::EndChange(*utl_shmHeader);
}

void Warn(const char* function, const char* name) {
  UTLTime_CalendarTime now = {};
  UTLTime_GetCalendarTimeLocal(&now);
  UTL_log_print(UTL_LOG_WRN, kLogSource, __LINE__, function, &now,
                "The header of the in-memory log \"%s\" contradicts itself; its contents are dropped", name);
}

// Keeps what an earlier process stored under this name, or begins an empty ring.
void Adopt(const char* function) {
  const bool valid = ring::LoadMagic(*utl_shmHeader) == ring::kMagic;
  const ring::State state = ring::LoadState(*utl_shmHeader);
  if (valid && ring::CanBeTrue(state)) {
    bytesStored = state.bytesStored;
    return;
  }
  if (valid) {
    Warn(function, openName);
  }
  utl_shmHeader->word = 1;
  Reset();
}

// The header's count up to the largest it can hold; from there on only this process knows more.
std::int64_t CountOf(const ring::State& state) {
  return state.bytesStored == INT32_MAX ? std::max<std::int64_t>(bytesStored, INT32_MAX) : state.bytesStored;
}

void CopyIn(std::uint32_t offset, const char* text, std::size_t length) {
  std::memcpy(reinterpret_cast<char*>(utl_shmHeader) + offset, text, length);
}

// Copies a line of at most the ring's capacity behind the newest one.
void Append(const char* text, std::uint32_t length) {
  ring::State state = ring::LoadState(*utl_shmHeader);
  if (!ring::CanBeTrue(state)) {
    state = {};  // another process wrote into the header: nothing in it may be used as an offset
  }
  bytesStored = CountOf(state) + length;
  state.bytesStored = static_cast<std::int32_t>(std::min<std::int64_t>(bytesStored, INT32_MAX));

  const std::uint32_t front = std::min(length, ring::kSegmentSize - state.writePosition);
  CopyIn(state.writePosition, text, front);
  if (front == length) {
    state.writePosition += length;
  } else {
    CopyIn(ring::kRingStart, text + front, length - front);
    state.writePosition = ring::kRingStart + (length - front);
    state.wrapped = 1;
  }
  if (state.wrapped == 1) {
    state.readPosition = state.writePosition;
  }
  ring::StoreState(*utl_shmHeader, state);
}

// Writes `amount` ring bytes to the process log, from `position` on. Between two pieces the log may be
// switched to a new file. A piece that cannot be written is lost.
void CopyOut(std::uint32_t position, std::uint32_t amount) {
  while (amount > 0) {
    UTLTime_CalendarTime now = {};
    UTLTime_GetCalendarTimeLocal(&now);
    UTL_log_redirect(&now, true);
    if (position == ring::kSegmentSize) {
      position = ring::kRingStart;
    }
    const std::uint32_t piece = std::min(amount, ring::kSegmentSize - position);
    if (UTLFile_IsValidHandle(utl_logProcessFd)) {
      pluginsdk::log::WriteToFile(utl_logProcessFd, reinterpret_cast<const char*>(utl_shmHeader) + position,
                                  piece);
    }
    amount -= piece;
    position += piece;
  }
}

// Tells the processor that this thread waits for another one, where it can be told.
void Pause() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#endif
}

// Locks the ring for one line. A line is stored in less time than it takes to put a thread to sleep and wake
// it up, so waiting begins with trying again. The POSIX mutex is taken as it is: nobody stores a line while
// storing one, so there is no ownership to keep.
class RingHold {
 public:
  RingHold() {
    constexpr int kTries = 100;
    for (int i = 0; i < kTries; ++i) {
      if (pthread_mutex_trylock(&utl_shmMutex.mutex) == 0) {
        return;
      }
      Pause();
    }
    pthread_mutex_lock(&utl_shmMutex.mutex);
  }
  ~RingHold() { pthread_mutex_unlock(&utl_shmMutex.mutex); }
  RingHold(const RingHold&) = delete;
  RingHold& operator=(const RingHold&) = delete;
};

int TurnOn(int id) {
  NewSegment segment(id);
  if (!segment.Open()) {
    return kCannotOpen;
  }
  segment.Keep();
  Adopt("UTL_LOGSetEnableInMemoryLogging");
  utl_enableInMemoryLogging = true;
  return 0;
}

void TurnOff() {
  UTL_logFlushInMemoryLogsHelper();
  ring::StoreMagic(*utl_shmHeader, {});
  Release();
  UTLShm_Unlink(openName);
}

}  // namespace

int UTL_LOGSetEnableInMemoryLogging(bool enable, int id) {
  const pluginsdk::log::ExclusiveHold hold;
  if (utl_enableInMemoryLogging == enable) {
    return 0;
  }
  if (enable) {
    return TurnOn(id);
  }
  TurnOff();
  return 0;
}

void UTL_LOGFlushInMemoryLogs() {
  const pluginsdk::log::ExclusiveHold hold;
  if (utl_enableInMemoryLogging) {
    UTL_logFlushInMemoryLogsHelper();
  }
}

void UTL_log_storeInRing(const char* text, std::size_t length) {
  const RingHold hold;
  ring::BeginChange(*utl_shmHeader);
  if (length <= ring::kCapacity) {
    Append(text, static_cast<std::uint32_t>(length));
  }
  ring::EndChange(*utl_shmHeader);
}

void UTL_logFlushInMemoryLogsHelper() {
  utl_enableInMemoryLogging = false;  // lines logged from here on go to the file
  ring::BeginChange(*utl_shmHeader);
  ring::State state = ring::LoadState(*utl_shmHeader);
  if (!ring::CanBeTrue(state)) {
    Warn("UTL_logFlushInMemoryLogsHelper", openName);
    state = {};
  }

  auto amount = static_cast<std::uint32_t>(state.bytesStored);
  if (state.wrapped == 1) {
    amount = ring::kCapacity;
    UTLTime_CalendarTime now = {};
    UTLTime_GetCalendarTimeLocal(&now);
    UTL_log_print(UTL_LOG_ALWAYS, kLogSource, __LINE__, "UTL_logFlushInMemoryLogsHelper", &now,
                  "%lld bytes of logging were dropped here",
                  static_cast<long long>(CountOf(state) - ring::kCapacity));
  }
  CopyOut(state.readPosition, amount);
  Reset();
  utl_enableInMemoryLogging = true;
}

void UTL_log_dropRingAfterFork() {
  if (utl_shmHeader != nullptr) {
    Release();
  }
}
