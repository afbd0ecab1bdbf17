/// @file
/// Faults that tests of the log switch on in a child process.
#pragma once

namespace faults {

extern bool noMemory;      ///< new (std::nothrow) fails
extern bool noSignalFlag;  ///< pwritev2 does not know its flag against SIGPIPE
extern bool slowDisk;      ///< fsync takes five milliseconds

}  // namespace faults
