#include "Utl_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "vpl__error.h"

namespace {

// Each passes on a result, or turns the -1 of a failed call into the code of its errno. The call stands as
// the argument, so errno is read right behind it.
int CodeOr(int result) {
  return result == -1 ? VPLError_XlatErrno(errno) : result;
}

ssize_t CodeOr(ssize_t result) {
  return result == -1 ? VPLError_XlatErrno(errno) : result;
}

// A request for a lock over the whole file: from its start, and length 0 for all there will ever be.
void LockWholeFile(int fd, int command, short type) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  // Locks are a courtesy between processes; a file that cannot be locked is used all the same.
  static_cast<void>(fcntl(fd, command, &lock));
}

std::uint32_t TypeOfMode(mode_t mode) {
  if (S_ISREG(mode)) {
    return UTLFS_TYPE_FILE;
  }
  return S_ISDIR(mode) ? UTLFS_TYPE_DIR : UTLFS_TYPE_OTHER;
}

std::uint32_t TypeOfEntry(unsigned char type) {
  if (type == DT_REG) {
    return UTLFS_TYPE_FILE;
  }
  return type == DT_DIR ? UTLFS_TYPE_DIR : UTLFS_TYPE_OTHER;
}

// The far-off times that some file systems store wrap round, in a defined way.
std::int64_t Microseconds(const timespec& time) {
  std::int64_t microseconds = 0;
  static_cast<void>(__builtin_mul_overflow(time.tv_sec, 1000000, &microseconds));
  static_cast<void>(__builtin_add_overflow(microseconds, time.tv_nsec / 1000, &microseconds));
  return microseconds;
}

UTLFS_stat_t RecordOf(const struct stat& status) {
  UTLFS_stat_t record{};
  record.size = status.st_size;
  record.type = TypeOfMode(status.st_mode);
  record.atime = status.st_atim.tv_sec;
  record.mtime = status.st_mtim.tv_sec;
  record.ctime = status.st_ctim.tv_sec;
  record.atimeUsec = Microseconds(status.st_atim);
  record.mtimeUsec = Microseconds(status.st_mtim);
  record.ctimeUsec = Microseconds(status.st_ctim);
  record.isSymLink = S_ISLNK(status.st_mode);
  return record;
}

}  // namespace

int UTLDir_Create(char const* path, int mode) {
  return path == nullptr ? VPL_ERR_INVALID : CodeOr(mkdir(path, static_cast<mode_t>(mode)));
}

int UTLFile_Open(char const* path, int flags, int mode) {
  if (path == nullptr) {
    return VPL_ERR_INVALID;
  }
  const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
  flags |= O_CLOEXEC;
  const int fd = CodeOr(creates ? open(path, flags, static_cast<mode_t>(mode)) : open(path, flags));
  if (fd >= 0) {
    LockWholeFile(fd, F_SETLKW, F_WRLCK);
  }
  return fd;
}

int UTLFile_Close(int fd) {
  LockWholeFile(fd, F_SETLK, F_UNLCK);
  return UTL_Close(fd);
}

bool UTLFile_IsValidHandle(int fd) {
  return fd >= 0;
}

ssize_t UTLFile_Write(int fd, void const* data, unsigned long length) {
  return data == nullptr ? VPL_ERR_INVALID : CodeOr(write(fd, data, length));
}

ssize_t UTLFile_Read(int fd, void* buffer, unsigned long length) {
  return buffer == nullptr ? VPL_ERR_INVALID : CodeOr(read(fd, buffer, length));
}

ssize_t UTLFile_WriteAt(int fd, void const* data, unsigned long length, long offset) {
  return data == nullptr ? VPL_ERR_INVALID : CodeOr(pwrite(fd, data, length, offset));
}

ssize_t UTLFile_ReadAt(int fd, void* buffer, unsigned long length, long offset) {
  return buffer == nullptr ? VPL_ERR_INVALID : CodeOr(pread(fd, buffer, length, offset));
}

off_t UTLFile_Seek(int fd, long offset, int whence) {
  return CodeOr(lseek(fd, offset, whence));
}

int UTLFile_Delete(char const* path) {
  return path == nullptr ? VPL_ERR_INVALID : CodeOr(unlink(path));
}

int UTLFS_FStat(int fd, UTLFS_stat_t* record) {
  if (!UTLFile_IsValidHandle(fd) || record == nullptr) {
    return VPL_ERR_INVALID;
  }
  struct stat status {};
  const int code = CodeOr(fstat(fd, &status));
  if (code == VPL_OK) {
    *record = RecordOf(status);
    record->isSymLink = false;  // a descriptor of a link itself (O_PATH) is not told apart
  }
  return code;
}

int UTLFS_Stat(char const* path, UTLFS_stat_t* record) {
  if (path == nullptr || record == nullptr) {
    return VPL_ERR_INVALID;
  }
  struct stat status {};
  const int code = CodeOr(lstat(path, &status));
  if (code != VPL_OK) {
    return code;
  }
  *record = RecordOf(status);
  struct stat target {};
  // A link without a readable target keeps its own size; that is no failure.
  if (record->isSymLink && stat(path, &target) == 0) {
    record->size = target.st_size;
  }
  return VPL_OK;
}

int UTLFS_Opendir(char const* path, UTLFS_dir__t* stream) {
  if (stream == nullptr) {
    return VPL_ERR_INVALID;
  }
  stream->dir = nullptr;
  if (path == nullptr) {
    return VPL_ERR_INVALID;
  }
  stream->dir = opendir(path);
  return stream->dir == nullptr ? VPLError_XlatErrno(errno) : VPL_OK;
}

int UTLFS_Readdir(UTLFS_dir__t* stream, UTLFS_dirent_t* entry) {
  if (stream == nullptr || entry == nullptr) {
    return VPL_ERR_INVALID;
  }
  if (stream->dir == nullptr) {
    return VPL_ERR_BADF;
  }
  errno = 0;  // the end and an error differ in errno alone
  const dirent* found = readdir(stream->dir);
  if (found == nullptr) {
    return errno == 0 ? VPL_ERR_NO_MORE : VPLError_XlatErrno(errno);
  }
  entry->type = TypeOfEntry(found->d_type);
  const std::size_t length = strnlen(found->d_name, sizeof entry->name - 1);
  std::memcpy(entry->name, found->d_name, length);
  entry->name[length] = '\0';
  return VPL_OK;
}

int UTLFS_Closedir(UTLFS_dir__t* stream) {
  if (stream == nullptr) {
    return VPL_ERR_INVALID;
  }
  if (stream->dir == nullptr) {
    return VPL_ERR_BADF;
  }
  DIR* const dir = stream->dir;
  stream->dir = nullptr;
  return CodeOr(closedir(dir));
}

int UTLShm_Open(char const* name, int flags, unsigned int mode) {
  return name == nullptr ? VPL_ERR_INVALID : CodeOr(shm_open(name, flags, mode));
}

int UTLShm_Unlink(char const* name) {
  return name == nullptr ? VPL_ERR_INVALID : CodeOr(shm_unlink(name));
}

int UTL_Fallocate(int fd, long offset, long length) {
  return VPLError_XlatErrno(posix_fallocate(fd, offset, length));  // returns its error and leaves errno alone
}

int UTL_Mmap(void* address, unsigned long length, int protection, int flags, int fd, long offset,
             void** mapped) {
  if (mapped == nullptr) {
    return VPL_ERR_INVALID;
  }
  void* const result = mmap(address, length, protection, flags, fd, offset);
  if (result == MAP_FAILED) {
    return VPLError_XlatErrno(errno);
  }
  *mapped = result;
  return VPL_OK;
}

int UTL_Munmap(void* address, unsigned long length) {
  return address == nullptr ? VPL_ERR_INVALID : CodeOr(munmap(address, length));
}

int UTL_Close(int fd) {
  return CodeOr(close(fd));
}
