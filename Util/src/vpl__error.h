/// @file
/// The error codes of the platform layer. 0 is success, every failure is a number from -9099 to -9000.
#pragma once

#include "PluginSDK_export.h"

constexpr int VPL_OK = 0;                    ///< success
constexpr int VPL_ERR_NOMEM = -9000;         ///< ENOMEM
constexpr int VPL_ERR_PERM = -9001;          ///< EPERM; a mutex that the caller does not own
constexpr int VPL_ERR_INTR = -9002;          ///< EINTR
constexpr int VPL_ERR_IO = -9003;            ///< EIO
constexpr int VPL_ERR_BADF = -9004;          ///< EBADF; a directory stream that is not open
constexpr int VPL_ERR_AGAIN = -9005;         ///< EAGAIN
constexpr int VPL_ERR_BUSY = -9006;          ///< EBUSY, EINPROGRESS
constexpr int VPL_ERR_INVALID = -9007;       ///< EINVAL; an argument that was refused before any call
constexpr int VPL_ERR_DEADLK = -9008;        ///< EDEADLK
constexpr int VPL_ERR_MFILE = -9009;         ///< ENFILE, EMFILE
constexpr int VPL_ERR_NO_MORE = -9009;       ///< no more directory entries; shares its number with the above
constexpr int VPL_ERR_CONNRESET = -9010;     ///< ECONNRESET
constexpr int VPL_ERR_DESTADDRREQ = -9011;   ///< EDESTADDRREQ
constexpr int VPL_ERR_FAULT = -9012;         ///< EFAULT
constexpr int VPL_ERR_ISCONN = -9013;        ///< EISCONN
constexpr int VPL_ERR_MSGSIZE = -9014;       ///< EMSGSIZE
constexpr int VPL_ERR_NOBUFS = -9015;        ///< ENOBUFS
constexpr int VPL_ERR_NOTCONN = -9016;       ///< ENOTCONN
constexpr int VPL_ERR_NOTSOCK = -9017;       ///< ENOTSOCK
constexpr int VPL_ERR_OPNOTSUPP = -9018;     ///< EOPNOTSUPP
constexpr int VPL_ERR_PIPE = -9019;          ///< EPIPE
constexpr int VPL_ERR_ADDRINUSE = -9020;     ///< EADDRINUSE
constexpr int VPL_ERR_ADDRNOTAVAIL = -9021;  ///< EADDRNOTAVAIL
constexpr int VPL_ERR_LOOP = -9022;          ///< ELOOP
constexpr int VPL_ERR_NAMETOOLONG = -9023;   ///< ENAMETOOLONG
constexpr int VPL_ERR_NOENT = -9024;         ///< ENOENT
constexpr int VPL_ERR_NOTDIR = -9025;        ///< ENOTDIR
constexpr int VPL_ERR_ROFS = -9026;          ///< EROFS
constexpr int VPL_ERR_CONNABORTED = -9031;   ///< ECONNABORTED
constexpr int VPL_ERR_UNREACH = -9032;       ///< ENETUNREACH, EHOSTUNREACH
constexpr int VPL_ERR_NETDOWN = -9033;       ///< ENETDOWN
constexpr int VPL_ERR_NETRESET = -9034;      ///< ENETRESET
constexpr int VPL_ERR_CONNREFUSED = -9039;   ///< ECONNREFUSED
constexpr int VPL_ERR_NOSPC = -9041;         ///< ENOSPC
constexpr int VPL_ERR_NOTEMPTY = -9042;      ///< ENOTEMPTY
constexpr int VPL_ERR_EXIST = -9043;         ///< EEXIST
constexpr int VPL_ERR_NOSYS = -9044;         ///< ENOSYS
constexpr int VPL_ERR_NODEV = -9045;         ///< ENODEV
constexpr int VPL_ERR_TXTBSY = -9046;        ///< ETXTBSY
constexpr int VPL_ERR_XDEV = -9057;          ///< EXDEV
constexpr int VPL_ERR_IS_INITIALISED = -9089;  ///< a condition variable initialised twice
constexpr int VPL_ERR_ACCESS = -9091;          ///< EACCES
constexpr int VPL_ERR_TIMEDOUT = -9096;        ///< ETIMEDOUT
constexpr int VPL_ERR_NO_THREAD = -9097;       ///< a thread handle that holds no thread
constexpr int VPL_ERR_FAIL = -9099;            ///< any other errno; a clock that cannot be read

/// The code of an errno value; 0 for 0. A value without a code of its own is logged as a warning and gives
/// VPL_ERR_FAIL. Safe for concurrent use.
PLUGINSDK_API int VPLError_XlatErrno(int errnoValue);
