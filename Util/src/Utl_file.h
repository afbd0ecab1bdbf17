/// @file
/// Files, directories and shared memory: each operation is one POSIX call with its error as a code.
///
/// Every operation returns 0 (or a count, offset or descriptor) or a negative code of vpl__error.h; none
/// throws and none repeats a call that a signal interrupted (-9002). Flags, modes, whence values and
/// protections are the POSIX ones. A null path, record or buffer gives VPL_ERR_INVALID (-9007) before any
/// call, a negative descriptor -9004 where nothing else is said.
///
/// Descriptors opened here are closed in programs that the process executes. Safe for concurrent use, except
/// that a directory stream is for one thread at a time.
#pragma once

#include <dirent.h>
#include <sys/types.h>

#include <cstdint>

#include "PluginSDK_export.h"

// Values of the `type` fields below.
constexpr std::uint32_t UTLFS_TYPE_FILE = 0;   ///< a regular file
constexpr std::uint32_t UTLFS_TYPE_DIR = 1;    ///< a directory
constexpr std::uint32_t UTLFS_TYPE_OTHER = 2;  ///< anything else, symbolic links included

/// What is known of a file. Times are since the epoch.
struct UTLFS_stat_t {
  std::int64_t size;       ///< bytes; of the target, for a symbolic link whose target can be read
  std::uint32_t type;      ///< one of UTLFS_TYPE_...
  std::int64_t atime;      ///< last access, in seconds
  std::int64_t mtime;      ///< last change of the contents, in seconds
  std::int64_t ctime;      ///< last change of this record, in seconds
  std::int64_t atimeUsec;  ///< last access in microseconds, the seconds included
  std::int64_t mtimeUsec;  ///< last change of the contents, likewise
  std::int64_t ctimeUsec;  ///< last change of this record, likewise
  bool isHidden;           ///< always false
  bool isSymLink;          ///< the path itself is a symbolic link; UTLFS_Stat only
};

/// One directory entry.
struct UTLFS_dirent_t {
  std::uint32_t type;  ///< as the directory reports it; UTLFS_TYPE_OTHER where it does not tell
  char name[256];      ///< always terminated
};

/// An open directory stream, owned by the record until UTLFS_Closedir; null when none.
struct UTLFS_dir__t {
  DIR* dir;  ///< null when none
};

/// mkdir. -9043 when the path exists.
PLUGINSDK_API int UTLDir_Create(char const* path, int mode);

/// Opens the file, then waits until this process holds an advisory write lock on the whole of it: processes
/// that open one file through this layer take turns. The lock is requested, not promised: its failure, as on
/// a descriptor that cannot write, is ignored. Closing any descriptor of the file in this process, by
/// whatever means, releases it.
/// @param mode used only when `flags` create a file (O_CREAT, O_TMPFILE).
/// @return the descriptor, which the caller owns, or the code.
PLUGINSDK_API int UTLFile_Open(char const* path, int flags, int mode);

/// Releases the lock and closes the descriptor.
PLUGINSDK_API int UTLFile_Close(int fd);

/// Whether the number can be a descriptor at all: 0 or more.
PLUGINSDK_API bool UTLFile_IsValidHandle(int fd);

/// The number of bytes written or read, which may be smaller than `length`, or the code. Reading at the end
/// gives 0.
///@{
PLUGINSDK_API ssize_t UTLFile_Write(int fd, void const* data, unsigned long length);
PLUGINSDK_API ssize_t UTLFile_Read(int fd, void* buffer, unsigned long length);
///@}

/// The same at an offset, without moving the file's own position.
///@{
PLUGINSDK_API ssize_t UTLFile_WriteAt(int fd, void const* data, unsigned long length, long offset);
PLUGINSDK_API ssize_t UTLFile_ReadAt(int fd, void* buffer, unsigned long length, long offset);
///@}

/// The new offset from the start of the file, or the code.
PLUGINSDK_API off_t UTLFile_Seek(int fd, long offset, int whence);

/// unlink.
PLUGINSDK_API int UTLFile_Delete(char const* path);

/// Fills the record; a failure leaves it alone. -9007 for a negative descriptor.
PLUGINSDK_API int UTLFS_FStat(int fd, UTLFS_stat_t* record);

/// Fills the record from the path itself; a failure leaves it alone. A symbolic link is described as the link
/// that it is, with the size of its target when that can be read.
PLUGINSDK_API int UTLFS_Stat(char const* path, UTLFS_stat_t* record);

/// Opens the stream; it is null after a failure.
PLUGINSDK_API int UTLFS_Opendir(char const* path, UTLFS_dir__t* stream);

/// The next entry, "." and ".." among them, in the directory's own order.
/// @return 0 with an entry; -9009 after the last one; -9004 when the stream is null.
PLUGINSDK_API int UTLFS_Readdir(UTLFS_dir__t* stream, UTLFS_dirent_t* entry);

/// Closes the stream and leaves it null. -9004 when it is null already.
PLUGINSDK_API int UTLFS_Closedir(UTLFS_dir__t* stream);

/// shm_open. The descriptor, which the caller owns, or the code.
PLUGINSDK_API int UTLShm_Open(char const* name, int flags, unsigned int mode);

/// shm_unlink.
PLUGINSDK_API int UTLShm_Unlink(char const* name);

/// Makes sure that the range has storage; grows the file to its end where necessary.
PLUGINSDK_API int UTL_Fallocate(int fd, long offset, long length);

/// mmap. `mapped` receives the address on success and is left alone otherwise; -9007 when it is null.
/// `address` may be null, and `fd` -1 for an anonymous mapping.
PLUGINSDK_API int UTL_Mmap(void* address, unsigned long length, int protection, int flags, int fd,
                           long offset, void** mapped);

/// munmap. -9007 for a null address.
PLUGINSDK_API int UTL_Munmap(void* address, unsigned long length);

/// close, without the lock release of UTLFile_Close.
PLUGINSDK_API int UTL_Close(int fd);
