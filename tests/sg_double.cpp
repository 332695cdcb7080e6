// Stand-in for the kernel, linked into the test program and preloaded into the command.
//
// `ioctl` answers SG_IO from the rule lines that a made-up generic node holds, and appends each command to NODE.log.
// A rule is "OPCODE ATTEMPT ANSWER"; the first one that fits answers. OPCODE is two hexadecimal digits, ATTEMPT counts
// the commands with this opcode from 1, and "*" fits any of them. ANSWER is one of
//   errno N                         ioctl fails
//   status STATUS HOST DRIVER HEX   the command ends with these, and leaves these bytes behind
//   data HEX                        the command succeeds with these bytes, as far as the buffer holds them
// A line "see FILE" goes on with the rules of FILE. A command that no rule fits fails with EINVAL.
//
// `write` appends what it writes into an attribute to /run/writes: "2:0:0:3/delete 1".
#include <fcntl.h>
#include <scsi/sg.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// All system calls are direct and no memory is taken, so that a fault put into the command's calls never lands here.
char *Load(const char *path)
{
    static char text[1 << 20];
    const int fd = static_cast<int>(syscall(SYS_open, path, O_RDONLY));
    const long size = syscall(SYS_read, fd, text, sizeof text - 1);
    (void)syscall(SYS_close, fd);
    text[std::max(size, 0L)] = '\0';
    return text;
}

void Append(const char *path, const char *line)
{
    const int fd = static_cast<int>(syscall(SYS_open, path, O_WRONLY | O_APPEND | O_CREAT, 0600));
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

// Appends the command to the node's log and returns the number of this attempt.
int Record(const char *node, int flags, const sg_io_hdr &header)
{
    char path[600], cdb[33] = {}, line[256], *rest = nullptr;
    for (int i = 0; i < header.cmd_len && i < 16; ++i) {
        (void)snprintf(cdb + 2 * i, 3, "%02x", header.cmdp[i]);
    }
    (void)snprintf(path, sizeof path, "%s.log", node);
    int attempt = 1;
    for (char *at = strtok_r(Load(path), "\n", &rest); at != nullptr; at = strtok_r(nullptr, "\n", &rest)) {
        attempt += std::strncmp(at, cdb, 2) == 0 ? 1 : 0;
    }
    // Everything else is the same for every command.
    const bool isUsual =
        (flags & O_ACCMODE) == O_RDONLY && header.interface_id == 'S' && header.dxfer_direction == SG_DXFER_FROM_DEV &&
        header.mx_sb_len == 32 && std::count(header.sbp, header.sbp + 32, 0) == 32 && header.timeout == 10000 &&
        header.iovec_count == 0 && header.flags == 0 && header.pack_id == 0 && header.usr_ptr == nullptr;
    (void)snprintf(line, sizeof line, "%s %u%s\n", cdb, header.dxfer_len, isUsual ? "" : " and something unusual");
    Append(path, line);
    return attempt;
}

int Answer(const char *rules, int attempt, sg_io_hdr &header)
{
    char first[64], second[8], kind[8], *rest = nullptr;
    for (char *at = strtok_r(Load(rules), "\n", &rest); at != nullptr; at = strtok_r(nullptr, "\n", &rest)) {
        int dataAt = 0;
        if (sscanf(at, "see %63s", first) == 1) {
            return Answer(first, attempt, header);
        }
        if (sscanf(at, "%2s %7s %7s %n", first, second, kind, &dataAt) != 3 ||
            (*first != '*' && std::strtoul(first, nullptr, 16) != header.cmdp[0]) ||
            (*second != '*' && std::atoi(second) != attempt)) {
            continue;
        }
        at += dataAt;
        if (*kind == 'e') {
            errno = std::atoi(at);
            return -1;
        }
        header.resid = header.masked_status = header.msg_status = 1;  // what must not be looked at is never clean
        header.status = 0;
        header.host_status = header.driver_status = 0;
        if (*kind == 's' &&
            sscanf(at, "%hhu %hu %hu %n", &header.status, &header.host_status, &header.driver_status, &dataAt) == 3) {
            at += dataAt;
        }
        for (unsigned int i = 0; i < header.dxfer_len && *at != '\0'; ++i, at += 2) {
            const char byte[] = {at[0], at[1], '\0'};
            static_cast<char *>(header.dxferp)[i] = static_cast<char>(std::strtoul(byte, nullptr, 16));
        }
        return 0;
    }
    errno = EINVAL;
    return -1;
}

}  // namespace

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list list;
    va_start(list, request);
    void *argument = va_arg(list, void *);
    va_end(list);
    if (request != SG_IO) {
        return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
    }
    char node[512];
    PathOf(fd, node);
    auto &header = *static_cast<sg_io_hdr *>(argument);
    const int attempt = Record(node, static_cast<int>(syscall(SYS_fcntl, fd, F_GETFL)), header);
    return Answer(node, attempt, header);
}

extern "C" ssize_t write(int fd, const void *data, size_t size)
{
    char path[512], line[600];
    PathOf(fd, path);
    const ssize_t written = syscall(SYS_write, fd, data, size);
    const char *slash = std::strrchr(path, '/');
    if (std::strncmp(path, "/sys/", 5) == 0) {
        while (*--slash != '/') {
        }
        (void)snprintf(line, sizeof line, "%s %.*s\n", slash + 1, static_cast<int>(size),
                       static_cast<const char *>(data));
        Append("/run/writes", line);
    }
    return written;
}
