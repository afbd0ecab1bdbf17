#include "vpl__error.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>

#include "Utl_Warn_internal.h"

namespace {

struct Row {
  int errnoValue;
  int code;
};

// By name, because the numbers differ between platforms.
constexpr Row kRows[] = {
    {0, VPL_OK},
    {ENOMEM, VPL_ERR_NOMEM},
    {EPERM, VPL_ERR_PERM},
    {EINTR, VPL_ERR_INTR},
    {EIO, VPL_ERR_IO},
    {EBADF, VPL_ERR_BADF},
    {EAGAIN, VPL_ERR_AGAIN},
    {EBUSY, VPL_ERR_BUSY},
    {EINPROGRESS, VPL_ERR_BUSY},
    {EINVAL, VPL_ERR_INVALID},
    {EDEADLK, VPL_ERR_DEADLK},
    {ENFILE, VPL_ERR_MFILE},
    {EMFILE, VPL_ERR_MFILE},
    {ECONNRESET, VPL_ERR_CONNRESET},
    {EDESTADDRREQ, VPL_ERR_DESTADDRREQ},
    {EFAULT, VPL_ERR_FAULT},
    {EISCONN, VPL_ERR_ISCONN},
    {EMSGSIZE, VPL_ERR_MSGSIZE},
    {ENOBUFS, VPL_ERR_NOBUFS},
    {ENOTCONN, VPL_ERR_NOTCONN},
    {ENOTSOCK, VPL_ERR_NOTSOCK},
    {EOPNOTSUPP, VPL_ERR_OPNOTSUPP},
    {EPIPE, VPL_ERR_PIPE},
    {EADDRINUSE, VPL_ERR_ADDRINUSE},
    {EADDRNOTAVAIL, VPL_ERR_ADDRNOTAVAIL},
    {ELOOP, VPL_ERR_LOOP},
    {ENAMETOOLONG, VPL_ERR_NAMETOOLONG},
    {ENOENT, VPL_ERR_NOENT},
    {ENOTDIR, VPL_ERR_NOTDIR},
    {EROFS, VPL_ERR_ROFS},
    {ECONNABORTED, VPL_ERR_CONNABORTED},
    {ENETUNREACH, VPL_ERR_UNREACH},
    {EHOSTUNREACH, VPL_ERR_UNREACH},
    {ENETDOWN, VPL_ERR_NETDOWN},
    {ENETRESET, VPL_ERR_NETRESET},
    {ECONNREFUSED, VPL_ERR_CONNREFUSED},
    {ENOSPC, VPL_ERR_NOSPC},
    {ENOTEMPTY, VPL_ERR_NOTEMPTY},
    {EEXIST, VPL_ERR_EXIST},
    {ENOSYS, VPL_ERR_NOSYS},
    {ENODEV, VPL_ERR_NODEV},
    {ETXTBSY, VPL_ERR_TXTBSY},
    {EXDEV, VPL_ERR_XDEV},
    {EACCES, VPL_ERR_ACCESS},
    {ETIMEDOUT, VPL_ERR_TIMEDOUT},
};

constexpr std::size_t TableSize() {
  int largest = 0;
  for (const Row& row : kRows) {
    largest = std::max(largest, row.errnoValue);
  }
  return static_cast<std::size_t>(largest) + 1;
}

// The rows spread out over their errno values, so that a translation is one read.
constexpr std::array<int, TableSize()> SpreadRows() {
  std::array<int, TableSize()> codes{};
  for (int& code : codes) {
    code = VPL_ERR_FAIL;
  }
  for (const Row& row : kRows) {
    codes[static_cast<std::size_t>(row.errnoValue)] = row.code;
  }
  return codes;
}

constexpr std::array<int, TableSize()> kCodes = SpreadRows();

}  // namespace

int VPLError_XlatErrno(int errnoValue) {
  const auto index = static_cast<std::size_t>(errnoValue);  // a negative value lands far beyond the table
  const int code = index < kCodes.size() ? kCodes[index] : VPL_ERR_FAIL;
  if (code == VPL_ERR_FAIL) {
    UTLWarn(3, "Util/src/vpl__error", __LINE__, "VPLError_XlatErrno",
            "Converting unknown error code %d to VPL_ERR_FAIL.", errnoValue);
  }
  return code;
}
