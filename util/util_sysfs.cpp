#include "util_sysfs.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "log_syslog.h"
#include "mpi_owner.h"
#include "mpi_usr_if.h"
#include "safestr_format.h"

std::int32_t INTF_UTIL_Read(const char *directory, const char *file, char *buffer, std::int32_t length)
{
    char path[kPathSize] = {};
    if (length < 0) {
        return -1;
    }
    if (sprintf_s(path, TEXT_Limit(path), "%s/%s", directory, file) == -1) {
        LOG_PrintUdev(LogLevel::Error, "structure full name fail with dir{%s} file{%s}.\n", directory, file);
        return -1;
    }
    const OwnedFd fd(open(path, O_RDONLY));  // closed before any child process starts
    if (!fd.IsOpen()) {
        LOG_PrintUdev(LogLevel::Error, "open file{%s} failed!\n", path);
        return -1;
    }
    const auto count = static_cast<std::int32_t>(read(fd.Get(), buffer, static_cast<std::size_t>(length)));
    if (count < 0) {
        LOG_PrintUdev(LogLevel::Error, "read fail in file{%s} with ret{%d}.\n", path, count);
        return count;
    }
    if (count >= 1 && count <= length && buffer[count - 1] == '\n') {
        buffer[count - 1] = '\0';
    }
    return count;
}

std::int32_t INTF_UTIL_Write(const char *directory, const char *file, const char *data, std::uint32_t length,
                             std::uint64_t inode)
{
    char path[kPathSize] = {};
    if (sprintf_s(path, TEXT_Limit(path), "%s/%s", directory, file) == -1) {
        LOG_PrintUdev(LogLevel::Error, "structure full name fail with path{%s} file{%s}.\n", directory, file);
        return -1;
    }
    const OwnedFd fd(open(path, O_WRONLY | O_CLOEXEC));
    if (!fd.IsOpen()) {
        LOG_PrintUdev(LogLevel::Error, "open file{%s} failed!\n", path);
        return -1;
    }
    // Compare after opening: the open attribute belongs to one device, and a write fails if that device is deleted.
    if (inode != 0 && INTF_UTIL_Inode(directory) != inode) {
        return -1;
    }
    const auto count = static_cast<std::int32_t>(write(fd.Get(), data, length));
    if (count < 0) {
        LOG_PrintUdev(LogLevel::Error, "write fail in file{%s} with ret{%d}.\n", path, count);
    }
    return count;
}

std::uint64_t INTF_UTIL_Inode(const char *directory)
{
    struct stat status = {};
    return stat(directory, &status) == 0 ? status.st_ino : 0;
}
