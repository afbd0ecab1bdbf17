#include "HostReadings.h"

#include <sys/statvfs.h>
#include <sys/utsname.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <limits>
#include <stdexcept>

namespace demo {
namespace {

constexpr std::uint64_t kMiB = 1048576;

double UsedPercent(std::uint64_t total, std::uint64_t available) {
  return total == 0 ? 0.0 : 100.0 * (1.0 - static_cast<double>(available) / static_cast<double>(total));
}

void ReadLoad(HostReadings& readings) {
  std::ifstream file("/proc/loadavg");
  if (!(file >> readings.load1 >> readings.load5 >> readings.load15)) {
    throw std::runtime_error("/proc/loadavg tells no load");
  }
}

void ReadUptime(HostReadings& readings) {
  std::ifstream file("/proc/uptime");
  if (!(file >> readings.uptimeSeconds)) {
    throw std::runtime_error("/proc/uptime tells no uptime");
  }
}

void ReadMemory(HostReadings& readings) {
  std::ifstream file("/proc/meminfo");
  std::string key;
  std::uint64_t kib = 0;
  // Lines such as "MemTotal:       24683656 kB"; a few lines further down have no unit.
  while (file >> key >> kib) {
    if (key == "MemTotal:") {
      readings.memoryTotalKiB = kib;
    } else if (key == "MemAvailable:") {
      readings.memoryAvailableKiB = kib;
      return;
    }
    file.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
  }
  throw std::runtime_error("/proc/meminfo tells no available memory");
}

void ReadDisk(const std::string& mountPoint, HostReadings& readings) {
  struct statvfs disk {};
  if (::statvfs(mountPoint.c_str(), &disk) != 0) {
    throw std::runtime_error("statvfs " + mountPoint + ": " + std::strerror(errno));
  }
  readings.diskTotalMiB = disk.f_blocks * disk.f_frsize / kMiB;
  readings.diskAvailableMiB = disk.f_bavail * disk.f_frsize / kMiB;
  readings.inodesTotal = disk.f_files;
  readings.inodesFree = disk.f_ffree;
}

utsname SystemNames() {
  utsname names{};
  if (::uname(&names) != 0) {
    throw std::runtime_error(std::string("uname: ") + std::strerror(errno));
  }
  return names;
}

}  // namespace

double HostReadings::MemoryUsedPercent() const {
  return UsedPercent(memoryTotalKiB, memoryAvailableKiB);
}
double HostReadings::DiskUsedPercent() const {
  return UsedPercent(diskTotalMiB, diskAvailableMiB);
}
double HostReadings::InodesUsedPercent() const {
  return UsedPercent(inodesTotal, inodesFree);
}

HostReadings ReadHost(const std::string& mountPoint) {
  HostReadings readings;
  ReadLoad(readings);
  ReadUptime(readings);
  ReadMemory(readings);
  ReadDisk(mountPoint, readings);
  return readings;
}

std::string HostName() {
  return SystemNames().nodename;
}
std::string KernelRelease() {
  return SystemNames().release;
}

}  // namespace demo
