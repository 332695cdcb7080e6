// Stand-in for the kernel, preloaded into the command.
//
// `ioctl` answers the SG_IO commands of a made-up generic node, and appends each to NODE.log with the size of its
// buffer. The answer stands in NODE.OPCODE.ATTEMPT or else in NODE.OPCODE, with two hexadecimal digits of the opcode
// and the attempts counted from 1: a byte each for errno and the status of the device, the host and the driver, then
// the data. Without such a file the command fails with EINVAL.
//
// `write` appends what it writes into an attribute to /run/writes: "2:0:0:3/delete 1".
//
// All system calls are direct and no memory is taken, so that a fault put into the command's calls never lands here.
#include <fcntl.h>
#include <scsi/sg.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

int Open(const char *path, int flags) { return static_cast<int>(syscall(SYS_open, path, flags, 0600)); }

void Append(const char *path, const char *line)
{
    const int fd = Open(path, O_WRONLY | O_APPEND | O_CREAT);
    (void)syscall(SYS_write, fd, line, std::strlen(line));
    (void)syscall(SYS_close, fd);
}

// Path of the file behind a descriptor.
void PathOf(int fd, char (&path)[512])
{
    char link[32];
    (void)snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    path[std::max(syscall(SYS_readlink, link, path, sizeof path - 1), 0L)] = '\0';
}

void Record(const char *node, int flags, const sg_io_hdr &header)
{
    char path[600], line[256];
    int length = 0;
    for (int i = 0; i < header.cmd_len; ++i) {
        length += snprintf(line + length, 3, "%02x", header.cmdp[i]);
    }
    // Everything else is the same for every command.
    const bool isUsual =
        (flags & O_ACCMODE) == O_RDONLY && header.interface_id == 'S' && header.dxfer_direction == SG_DXFER_FROM_DEV &&
        header.mx_sb_len == 32 && std::count(header.sbp, header.sbp + 32, 0) == 32 && header.timeout == 10000 &&
        header.iovec_count == 0 && header.flags == 0 && header.pack_id == 0 && header.usr_ptr == nullptr;
    (void)snprintf(line + length, 64, " %u%s\n", header.dxfer_len, isUsual ? "" : " and something unusual");
    (void)snprintf(path, sizeof path, "%s.log", node);
    Append(path, line);
}

}  // namespace

// <sys/ioctl.h> declares it otherwise. Programs beside the command may want other requests.
extern "C" int ioctl(int fd, unsigned long request, sg_io_hdr *header)
{
    if (request != SG_IO) {
        return static_cast<int>(syscall(SYS_ioctl, fd, request, header));
    }
    static int attempts[1 << 14][256];  // of each node and opcode
    char node[512], path[600];
    PathOf(fd, node);
    Record(node, static_cast<int>(syscall(SYS_fcntl, fd, F_GETFL)), *header);
    const int opcode = header->cmdp[0], attempt = ++attempts[std::atoi(node + 7) % (1 << 14)][opcode];
    (void)snprintf(path, sizeof path, "%s.%02x.%d", node, opcode, attempt);
    int answer = Open(path, O_RDONLY);
    if (answer < 0) {
        (void)snprintf(path, sizeof path, "%s.%02x", node, opcode);
        answer = Open(path, O_RDONLY);
    }
    unsigned char status[4] = {EINVAL};
    (void)syscall(SYS_read, answer, status, sizeof status);
    (void)syscall(SYS_read, answer, header->dxferp, header->dxfer_len);
    (void)syscall(SYS_close, answer);
    header->resid = header->masked_status = header->msg_status = 1;  // what must not be looked at is never clean
    header->status = status[1];
    header->host_status = status[2];
    header->driver_status = status[3];
    errno = status[0];
    return errno == 0 ? 0 : -1;
}

extern "C" ssize_t write(int fd, const void *data, size_t size)
{
    char path[512], line[600];
    PathOf(fd, path);
    if (std::strncmp(path, "/sys/", 5) == 0) {
        const char *slash = std::strrchr(path, '/');
        while (*--slash != '/') {
        }
        (void)snprintf(line, sizeof line, "%s %.*s\n", slash + 1, static_cast<int>(size),
                       static_cast<const char *>(data));
        Append("/run/writes", line);
    }
    return syscall(SYS_write, fd, data, size);
}
