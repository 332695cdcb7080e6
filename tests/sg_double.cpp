// Stand-in for the kernel, preloaded into the command or linked into the tests.
//
// `ioctl` answers the SG_IO commands of a simulated generic node, and appends each command to NODE.log with the size of
// its buffer. The answer is the file NODE.OPCODE.ATTEMPT, or else NODE.OPCODE. OPCODE has two hexadecimal digits,
// ATTEMPT counts from 1. The file has one byte each for errno and the status of the device, the host and the driver,
// then the data. Without such a file the command fails with EINVAL.
//
// `fstat` makes a simulated node (with the sticky bit) a character device; its minor number is the size of the file.
//
// `write` appends each write to an attribute to /run/writes: "2:0:0:3/delete 1".
//
// All system calls are direct and nothing allocates memory, so faults in the command's calls never occur here.
#include <fcntl.h>
#include <linux/major.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int kMaxNodes = 1 << 14;
constexpr int kOpcodes = 256;

// Programs that the command starts run without this library, because they may be for another processor.
__attribute__((constructor)) void LeaveOthersAlone()
{
    if (std::strcmp(program_invocation_short_name, "vdRescan_plus") == 0) {
        (void)unsetenv("LD_PRELOAD");
    }
}

int Open(const char *path, int flags)
{
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags | O_CLOEXEC, 0600));
}

void Append(const char *path, const char *line)
{
    const int fd = Open(path, O_WRONLY | O_APPEND | O_CREAT);
    (void)syscall(SYS_write, fd, line, std::strlen(line));
    (void)syscall(SYS_close, fd);
}

// Path of the file of a descriptor.
void PathOf(int fd, char (&path)[512])
{
    char link[32];
    (void)snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    const long length = syscall(SYS_readlinkat, AT_FDCWD, link, path, sizeof path - 1);
    path[std::max(length, 0L)] = '\0';
}

// True if the fields that are the same for every command have their usual values.
bool IsUsual(const sg_io_hdr &header, int flags)
{
    return (flags & O_ACCMODE) == O_RDONLY && header.interface_id == 'S' &&
           header.dxfer_direction == SG_DXFER_FROM_DEV && header.mx_sb_len == 32 &&
           std::count(header.sbp, header.sbp + 32, 0) == 32 && header.timeout == 10000 && header.iovec_count == 0 &&
           header.flags == 0 && header.pack_id == 0 && header.usr_ptr == nullptr;
}

void Record(const char *node, int flags, const sg_io_hdr &header)
{
    char path[600];
    char line[256];
    int length = 0;
    for (int i = 0; i < header.cmd_len; ++i) {
        length += snprintf(line + length, 3, "%02x", header.cmdp[i]);
    }
    (void)snprintf(line + length, 64, " %u%s\n", header.dxfer_len,
                   IsUsual(header, flags) ? "" : " and something unusual");
    (void)snprintf(path, sizeof path, "%s.log", node);
    Append(path, line);
}

// Opens the answer to this attempt of the command. Negative if there is none.
int OpenAnswer(const char *node, int opcode)
{
    static int attempts[kMaxNodes][kOpcodes];
    char path[600];
    const int number = std::atoi(node + std::strlen("/dev/sg")) % kMaxNodes;
    (void)snprintf(path, sizeof path, "%s.%02x.%d", node, opcode, ++attempts[number][opcode]);
    const int answer = Open(path, O_RDONLY);
    if (answer >= 0) {
        return answer;
    }
    (void)snprintf(path, sizeof path, "%s.%02x", node, opcode);
    return Open(path, O_RDONLY);
}

int Answer(int fd, sg_io_hdr &header)
{
    char node[512];
    PathOf(fd, node);
    Record(node, static_cast<int>(syscall(SYS_fcntl, fd, F_GETFL)), header);
    unsigned char status[4] = {EINVAL};
    const int answer = OpenAnswer(node, header.cmdp[0]);
    (void)syscall(SYS_read, answer, status, sizeof status);
    (void)syscall(SYS_read, answer, header.dxferp, header.dxfer_len);
    (void)syscall(SYS_close, answer);
    header.resid = 1;  // fields that the command must not check always look bad
    header.masked_status = 1;
    header.msg_status = 1;
    header.status = status[1];
    header.host_status = status[2];
    header.driver_status = status[3];
    errno = status[0];
    return errno == 0 ? 0 : -1;
}

}  // namespace

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list list;
    va_start(list, request);
    void *argument = va_arg(list, void *);
    va_end(list);
    // Other programs may use other requests.
    return request == SG_IO ? Answer(fd, *static_cast<sg_io_hdr *>(argument))
                            : static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
}

extern "C" int fstat(int fd, struct stat *status) noexcept
{
    const long result = syscall(SYS_fstat, fd, status);
    if (result == 0 && (status->st_mode & S_ISVTX) != 0 && S_ISREG(status->st_mode)) {
        status->st_mode = S_IFCHR | 0600;
        status->st_rdev = makedev(SCSI_GENERIC_MAJOR, static_cast<unsigned int>(status->st_size));
    }
    return static_cast<int>(result);
}

extern "C" ssize_t write(int fd, const void *data, size_t size)
{
    char path[512];
    PathOf(fd, path);
    if (std::strncmp(path, "/sys/", 5) == 0) {
        char line[600];
        const char *slash = std::strrchr(path, '/');
        while (*--slash != '/') {
        }
        (void)snprintf(line, sizeof line, "%s %.*s\n", slash + 1, static_cast<int>(size),
                       static_cast<const char *>(data));
        Append("/run/writes", line);
    }
    return syscall(SYS_write, fd, data, size);
}
