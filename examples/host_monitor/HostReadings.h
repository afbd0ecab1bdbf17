/// @file
/// Measures the machine it runs on: load, memory, uptime and one disk.
#pragma once

#include <cstdint>
#include <string>

namespace demo {

struct HostReadings {
  double load1 = 0;  ///< processes that run or want to, averaged over 1, 5 and 15 minutes
  double load5 = 0;
  double load15 = 0;
  double uptimeSeconds = 0;
  std::uint64_t memoryTotalKiB = 0;
  std::uint64_t memoryAvailableKiB = 0;
  std::uint64_t diskTotalMiB = 0;
  std::uint64_t diskAvailableMiB = 0;  ///< to an ordinary user
  std::uint64_t inodesTotal = 0;       ///< 0 on file systems that make inodes as needed
  std::uint64_t inodesFree = 0;

  double MemoryUsedPercent() const;
  double DiskUsedPercent() const;
  double InodesUsedPercent() const;
};

/// @param mountPoint any path on the disk to measure
/// @throws std::runtime_error when the kernel does not tell
HostReadings ReadHost(const std::string& mountPoint);

std::string HostName();
std::string KernelRelease();

}  // namespace demo
