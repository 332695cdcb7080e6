// Preloaded in front of sg_double: makes one platform call of the command fail.
//
// VD_FAULT=N:ERRNO   call number N, counted from 1, fails with ERRNO; with 0 a read or write is short; with -1 the
//                    process is killed there
//
// Each call is appended to /run/calls: "PHASE FUNCTION WHAT", where PHASE counts the udev contexts.
//
// No header that declares the functions themselves is included: here they have plain, not variadic, parameters.
#include <dlfcn.h>
#include <sys/syscall.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>

extern "C" {
long syscall(long number, ...) noexcept;
char *getenv(const char *name) noexcept;
int sscanf(const char *text, const char *format, ...) noexcept;
int snprintf(char *text, size_t size, const char *format, ...) noexcept;
void *__libc_malloc(size_t size);
extern char *program_invocation_short_name;
}

namespace {

int g_left = 0, g_errno = 0, g_phase = 0;
long g_calls = -1;

// The shell and the programs that the command starts keep their calls.
__attribute__((constructor)) void Init()
{
    const char *fault = getenv("VD_FAULT");
    if (std::strcmp(program_invocation_short_name, "vdRescan_plus") == 0) {
        (void)sscanf(fault == nullptr ? "" : fault, "%d:%d", &g_left, &g_errno);
        g_calls = syscall(SYS_open, "/run/calls", 02002101, 0600);  // O_WRONLY, O_CREAT, O_APPEND, O_CLOEXEC
    }
}

bool Fails(const char *function, const char *what, int fd = -1)
{
    if (g_calls < 0) {
        return false;
    }
    char link[32], path[256] = {}, line[512];
    (void)snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    (void)syscall(SYS_readlink, link, path, sizeof path - 1);
    const int length = snprintf(line, sizeof line, "%d %s %s%s\n", g_phase, function, what, path);
    (void)syscall(SYS_write, g_calls, line, length);
    if (--g_left != 0) {
        return false;
    }
    if (g_errno < 0) {
        (void)syscall(SYS_kill, syscall(SYS_getpid), SIGKILL);
    }
    errno = g_errno;
    return true;
}

// The result of a close that fails: closed it is all the same.
int Failed(int /*closed*/)
{
    errno = g_errno;
    return -1;
}

}  // namespace

#define NEXT(NAME) reinterpret_cast<decltype(&NAME)>(dlsym(RTLD_NEXT, #NAME))
#define FAULT(RESULT, NAME, PARAMETERS, ARGUMENTS, WHAT, FD, FAILURE) \
    extern "C" RESULT NAME PARAMETERS                                 \
    {                                                                 \
        static const auto next = NEXT(NAME);                          \
        return Fails(#NAME, WHAT, FD) ? (FAILURE) : next ARGUMENTS;   \
    }

FAULT(int, open, (const char *path, int flags, int mode), (path, flags, mode), path, -1, -1)
FAULT(long, read, (int fd, void *data, size_t size), (fd, data, size), "", fd,
      g_errno == 0 ? next(fd, data, size / 2) : -1)
FAULT(long, write, (int fd, const void *data, size_t size), (fd, data, size), "", fd, g_errno == 0 ? 0 : -1)
FAULT(long, readlink, (const char *path, char *data, size_t size), (path, data, size), path, -1, -1)
FAULT(int, access, (const char *path, int mode), (path, mode), path, -1, -1)
FAULT(int, ioctl, (int fd, unsigned long request, void *data), (fd, request, data), "", fd, -1)
FAULT(int, close, (int fd), (fd), "", fd, Failed(next(fd)))
FAULT(int, fcntl, (int fd, int command, void *lock), (fd, command, lock), "", fd, -1)
FAULT(int, ftruncate, (int fd, long size), (fd, size), "", fd, -1)
FAULT(void *, fopen, (const char *path, const char *mode), (path, mode), path, -1, nullptr)
FAULT(int, fclose, (void *file), (file), "", -1, Failed(next(file)))
FAULT(int, fgetc, (void *file), (file), "", -1, -1)
FAULT(int, fseek, (void *file, long offset, int whence), (file, offset, whence), "", -1, -1)
FAULT(int, fflush, (void *file), (file), "", -1, -1)
FAULT(void *, localtime, (const void *time), (time), "", -1, nullptr)
FAULT(int, system, (const char *command), (command), command, -1, g_errno == 0 ? 256 : -1)
FAULT(void *, udev_enumerate_new, (void *udev), (udev), "", -1, nullptr)
FAULT(int, udev_enumerate_add_match_subsystem, (void *at, const char *name), (at, name), name, -1, -g_errno)
FAULT(int, udev_enumerate_scan_devices, (void *at), (at), "", -1, -g_errno)
FAULT(void *, udev_enumerate_get_list_entry, (void *at), (at), "", -1, nullptr)
FAULT(const char *, udev_list_entry_get_name, (void *at), (at), "", -1, nullptr)
FAULT(void *, udev_device_new_from_syspath, (void *udev, const char *path), (udev, path), path, -1, nullptr)

extern "C" void *udev_new()
{
    ++g_phase;
    return Fails("udev_new", "") ? nullptr : NEXT(udev_new)();
}
extern "C" void *malloc(size_t size) { return Fails("malloc", "") ? nullptr : __libc_malloc(size); }
