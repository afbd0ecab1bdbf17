#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <cerrno>
#include <ctime>
#include <map>
#include <tuple>

#include "Utl_file.h"
#include "Utl_time.h"
#include "util/LogTestSupport.h"
#include "vpl__error.h"

namespace {

// clang-format off
const std::map<int, int> kCodes = {
    {0, 0}, {ENOMEM, -9000}, {EPERM, -9001}, {EINTR, -9002}, {EIO, -9003}, {EBADF, -9004}, {EAGAIN, -9005},
    {EBUSY, -9006}, {EINPROGRESS, -9006}, {EINVAL, -9007}, {EDEADLK, -9008}, {ENFILE, -9009}, {EMFILE, -9009},
    {ECONNRESET, -9010}, {EDESTADDRREQ, -9011}, {EFAULT, -9012}, {EISCONN, -9013}, {EMSGSIZE, -9014},
    {ENOBUFS, -9015}, {ENOTCONN, -9016}, {ENOTSOCK, -9017}, {EOPNOTSUPP, -9018}, {EPIPE, -9019},
    {EADDRINUSE, -9020}, {EADDRNOTAVAIL, -9021}, {ELOOP, -9022}, {ENAMETOOLONG, -9023}, {ENOENT, -9024},
    {ENOTDIR, -9025}, {EROFS, -9026}, {ECONNABORTED, -9031}, {ENETUNREACH, -9032}, {EHOSTUNREACH, -9032},
    {ENETDOWN, -9033}, {ENETRESET, -9034}, {ECONNREFUSED, -9039}, {ENOSPC, -9041}, {ENOTEMPTY, -9042},
    {EEXIST, -9043}, {ENOSYS, -9044}, {ENODEV, -9045}, {ETXTBSY, -9046}, {EXDEV, -9057}, {EACCES, -9091},
    {ETIMEDOUT, -9096}};
// clang-format on

TEST(ErrorCodes, EveryErrnoHasItsCodeAndTheUnknownOnesAreLogged) {
  const auto result = logtest::RunInChild([] {
    UTL_LOGInit("errors", nullptr);
    for (int value = -1; value <= 200; ++value)
      EXPECT_EQ(VPLError_XlatErrno(value), kCodes.count(value) == 0 ? -9099 : kCodes.at(value)) << value;
  });
  logtest::ExpectCleanExit(result);
  logtest::Texts expected;
  for (int value = -1; value <= 200; ++value) {
    if (kCodes.count(value) == 0) {
      expected.push_back("!!WRN!!|Converting unknown error code " + std::to_string(value) +
                         " to VPL_ERR_FAIL.");
    }
  }
  EXPECT_EQ(logtest::Messages(result.out), expected);
}

int MakeFile(const std::string& path) {
  const int fd = UTLFile_Open(path.c_str(), O_RDWR | O_CREAT, 0600);
  EXPECT_EQ(UTLFile_Write(fd, "1", 1) + UTLFile_WriteAt(fd, "5", 1, 4), 2);
  return fd;
}

TEST(Files, RefusalsAndFailuresHaveTheirCodes) {
  const logtest::TemporaryDirectory directory;
  const char* const dir = directory.c_str();
  const int fd = MakeFile(directory.path() + "/file");
  char byte = 'x';
  UTLFS_stat_t record{};
  UTLFS_dirent_t entry{};
  UTLFS_dir__t closed{};
  void* mapped = &byte;
  // clang-format off
  const std::map<long, std::vector<long>> results = {
      {-9007, {UTLDir_Create(nullptr, 0700), UTLFile_Open(nullptr, 0, 0), UTLFile_Delete(nullptr),
               UTLFile_Write(fd, nullptr, 1), UTLFile_WriteAt(fd, nullptr, 1, 0),
               UTLFile_Read(fd, nullptr, 1), UTLFile_ReadAt(fd, nullptr, 1, 0),
               UTLFS_FStat(fd, nullptr), UTLFS_FStat(-1, &record),
               UTLFS_Stat(nullptr, &record), UTLFS_Stat(dir, nullptr),
               UTLFS_Opendir(nullptr, &closed), UTLFS_Opendir(dir, nullptr), UTLFS_Closedir(nullptr),
               UTLFS_Readdir(nullptr, &entry), UTLFS_Readdir(&closed, nullptr),
               UTLShm_Open(nullptr, O_RDWR, 0), UTLShm_Unlink(nullptr), UTL_Munmap(nullptr, 1),
               UTL_Mmap(nullptr, 1, PROT_READ, MAP_SHARED, fd, 0, nullptr), UTLFile_Seek(fd, -1, SEEK_SET)}},
      {-9004, {UTLFile_Close(-1), UTL_Close(-1), UTLFile_Seek(-1, 0, SEEK_SET),
               UTLFile_Write(-1, &byte, 1), UTLFile_WriteAt(-1, &byte, 1, 0),
               UTLFile_Read(-1, &byte, 1), UTLFile_ReadAt(-1, &byte, 1, 0),
               UTLFS_FStat(2147483647, &record), UTLFS_Readdir(&closed, &entry), UTLFS_Closedir(&closed),
               UTL_Fallocate(-1, 0, 1), UTL_Mmap(nullptr, 1, PROT_READ, MAP_SHARED, -1, 0, &mapped)}},
      {-9043, {UTLDir_Create(dir, 0700)}},
      {-9024, {UTLShm_Unlink("/pluginsdk-none")}},
      {-9025, {UTLFS_Opendir("/dev/null", &closed)}},
      {-9099, {UTLFile_Open(dir, O_WRONLY, 0)}},  // EISDIR has no code of its own
  };
  // clang-format on
  for (const auto& [code, group] : results) EXPECT_EQ(group, std::vector<long>(group.size(), code));
  EXPECT_EQ(mapped, &byte);
  EXPECT_EQ(UTLFile_Close(fd), 0);
  EXPECT_TRUE(UTLFile_IsValidHandle(0) && !UTLFile_IsValidHandle(-1));
}

TEST(Files, TheSecondProcessWaitsInItsOpenUntilTheFirstCloses) {
  const logtest::TemporaryDirectory directory;
  const std::string path = directory.path() + "/file";
  const int fd = MakeFile(path);
  EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
  const pid_t child = fork();
  if (child == 0) _exit(UTLFile_Open(path.c_str(), O_WRONLY, 0) >= 0 ? 0 : 1);
  int status = -1;
  usleep(300000);
  EXPECT_EQ(waitpid(child, &status, WNOHANG), 0);
  EXPECT_EQ(UTLFile_Close(fd), 0);
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST(Files, AreListedAndDescribed) {
  const logtest::TemporaryDirectory directory;
  const std::string longest(255, 'n');
  const int fd = MakeFile(directory.path() + "/" + longest);
  const timespec times[2] = {{100, 1999}, {-1, 500000000}};
  ASSERT_EQ(futimens(fd, times) + symlink("dangling", (directory.path() + "/link").c_str()), 0);
  EXPECT_EQ(UTLFile_Close(fd), 0);

  UTLFS_dir__t stream{};
  UTLFS_dirent_t entry{};
  std::map<std::string, std::uint32_t> listed;
  ASSERT_EQ(UTLFS_Opendir(directory.c_str(), &stream), 0);
  while (UTLFS_Readdir(&stream, &entry) == 0) listed[entry.name] = entry.type;
  EXPECT_EQ(UTLFS_Readdir(&stream, &entry), -9009);
  EXPECT_EQ(listed, (std::map<std::string, std::uint32_t>{{".", 1}, {"..", 1}, {"link", 2}, {longest, 0}}));
  EXPECT_EQ(UTLFS_Closedir(&stream), 0);
  EXPECT_EQ(stream.dir, nullptr);

  UTLFS_stat_t record{};
  struct {
    std::string name;
    std::uint32_t type;
    bool isSymLink;
    std::int64_t size;
  } const rows[] = {{"/proc", 1, false, 0},
                    {"/dev/null", 2, false, 0},
                    {directory.path() + "/link", 2, true, 8},
                    {directory.path() + "/" + longest, 0, false, 5}};
  for (const auto& row : rows) {
    EXPECT_EQ(UTLFS_Stat(row.name.c_str(), &record), 0);
    EXPECT_EQ(std::tuple(record.type, record.isSymLink, record.size),
              std::tuple(row.type, row.isSymLink, row.size))
        << row.name;
  }
  EXPECT_EQ(record.atime, 100);
  EXPECT_EQ(record.atimeUsec, 100000001);
  EXPECT_EQ(record.mtimeUsec, -500000);
}

TEST(CalendarTime, IsTheLocalTimeOfNow) {
  setenv("TZ", "XYZ-13:45", 1);  // far from UTC, so that a mix-up shows
  tzset();
  const time_t before = time(nullptr);
  UTLTime_CalendarTime now{};
  UTLTime_GetCalendarTimeLocal(nullptr);
  UTLTime_GetCalendarTimeLocal(&now);
  std::tm local{now.sec, now.min, now.hour, now.day, now.month - 1, now.year - 1900, 0, 0, 0, 0, nullptr};
  const time_t told = mktime(&local);
  EXPECT_TRUE(before <= told && told <= time(nullptr)) << told - before;
  EXPECT_EQ(now.msec, now.usec / 1000);
}

}  // namespace
