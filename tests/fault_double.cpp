// Preloaded in front of sg_double: makes one platform call of the command fail.
//
// So that thousands of runs cost one start, the command does not begin at once. It reads orders from the socket
// VD_FAULT_SOCKET and forks for each: the child is the run, and its wait status is written back.
#include <dlfcn.h>
#include <fcntl.h>
#include <libudev.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "fault_order.h"

extern "C" void *__libc_malloc(size_t size);
extern "C" void *__libc_calloc(size_t count, size_t size);

namespace {

constexpr unsigned int kHangSeconds = 600;  // a run takes milliseconds

FaultOrder g_order = {};
bool g_isRun = false;    // calls count: this process is a run, and in no call of its own here
int g_calls = 0;         // platform calls so far
int g_contexts = 0;      // udev contexts so far: the hosts are listed in the first, the controllers in the second
FILE *g_list = nullptr;  // /run/calls, in a run that lists its calls

__attribute__((constructor)) void Serve()
{
    const int orders = std::atoi(std::getenv("VD_FAULT_SOCKET"));
    while (read(orders, &g_order, sizeof g_order) == sizeof g_order) {
        const pid_t child = fork();
        if (child == 0) {
            (void)close(orders);
            (void)alarm(kHangSeconds);
            g_list = g_order.call == 0 ? std::fopen("/run/calls", "ae") : nullptr;
            g_isRun = true;
            return;
        }
        int status = 0;
        (void)waitpid(child, &status, 0);
        if (write(orders, &status, sizeof status) != sizeof status) {
            break;
        }
    }
    _exit(0);
}

void ListCall(const char *function, const char *what, int fd)
{
    char link[32];
    char path[256] = {};
    (void)std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    (void)readlink(link, path, sizeof path - 1);
    (void)std::fprintf(g_list, "%d %s %s%s\n", g_contexts, function, what, path);
    (void)std::fflush(g_list);
}

// Counts a call of `function`, which concerns `what` or the file behind `fd`. True when it is to fail; errno is set.
bool Fails(const char *function, const char *what, int fd = -1)
{
    if (!g_isRun) {
        return false;
    }
    ++g_calls;
    if (g_list != nullptr) {
        g_isRun = false;
        ListCall(function, what, fd);
        g_isRun = true;
    }
    if (g_calls != g_order.call) {
        return false;
    }
    if (g_order.error == kKill) {
        (void)std::raise(SIGKILL);
    }
    errno = g_order.error;
    return true;
}

template <typename Function>
Function *Next(Function * /*type*/, const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// The function of that name behind this library.
#define NEXT(name) Next(&name, #name)

extern "C" {

int open(const char *path, int flags, ...)
{
    va_list list;
    va_start(list, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(list, mode_t) : 0;
    va_end(list);
    return Fails("open", path) ? -1 : NEXT(open)(path, flags, mode);
}

ssize_t read(int fd, void *data, size_t size)
{
    if (!Fails("read", "", fd)) {
        return NEXT(read)(fd, data, size);
    }
    return g_order.error == kShortTransfer ? NEXT(read)(fd, data, size / 2) : -1;
}

ssize_t write(int fd, const void *data, size_t size)
{
    if (!Fails("write", "", fd)) {
        return NEXT(write)(fd, data, size);
    }
    return g_order.error == kShortTransfer ? 0 : -1;
}

ssize_t readlink(const char *path, char *data, size_t size) noexcept
{
    return Fails("readlink", path) ? -1 : NEXT(readlink)(path, data, size);
}

int access(const char *path, int mode) noexcept { return Fails("access", path) ? -1 : NEXT(access)(path, mode); }

int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list list;
    va_start(list, request);
    void *argument = va_arg(list, void *);
    va_end(list);
    return Fails("ioctl", "", fd) ? -1 : NEXT(ioctl)(fd, request, argument);
}

// A close that fails has closed all the same.
int close(int fd)
{
    const bool fails = Fails("close", "", fd);
    const int result = NEXT(close)(fd);
    errno = fails ? g_order.error : errno;
    return fails ? -1 : result;
}

int fcntl(int fd, int command, ...)
{
    va_list list;
    va_start(list, command);
    void *argument = va_arg(list, void *);
    va_end(list);
    return Fails("fcntl", "", fd) ? -1 : NEXT(fcntl)(fd, command, argument);
}

int ftruncate(int fd, off_t size) noexcept { return Fails("ftruncate", "", fd) ? -1 : NEXT(ftruncate)(fd, size); }

FILE *fopen(const char *path, const char *mode) { return Fails("fopen", path) ? nullptr : NEXT(fopen)(path, mode); }

int fclose(FILE *file)
{
    const bool fails = Fails("fclose", "");
    const int result = NEXT(fclose)(file);
    errno = fails ? g_order.error : errno;
    return fails ? EOF : result;
}

int fgetc(FILE *file) { return Fails("fgetc", "") ? EOF : NEXT(fgetc)(file); }

int fseek(FILE *file, long offset, int whence) { return Fails("fseek", "") ? -1 : NEXT(fseek)(file, offset, whence); }

int fflush(FILE *file) { return Fails("fflush", "") ? EOF : NEXT(fflush)(file); }

tm *localtime(const time_t *time) noexcept { return Fails("localtime", "") ? nullptr : NEXT(localtime)(time); }

// No shell is started: the command is noted.
int system(const char *command)
{
    if (Fails("system", command)) {
        return g_order.error == kShortTransfer ? W_EXITCODE(1, 0) : -1;
    }
    g_isRun = false;
    FILE *calls = std::fopen("/run/nvme.calls", "ae");
    (void)std::fprintf(calls, "%s\n", command);
    (void)std::fclose(calls);
    g_isRun = true;
    return 0;
}

udev *udev_new()
{
    ++g_contexts;
    return Fails("udev_new", "") ? nullptr : NEXT(udev_new)();
}

udev_enumerate *udev_enumerate_new(udev *context)
{
    return Fails("udev_enumerate_new", "") ? nullptr : NEXT(udev_enumerate_new)(context);
}

int udev_enumerate_add_match_subsystem(udev_enumerate *enumeration, const char *subsystem)
{
    return Fails("udev_enumerate_add_match_subsystem", subsystem)
               ? -g_order.error
               : NEXT(udev_enumerate_add_match_subsystem)(enumeration, subsystem);
}

int udev_enumerate_scan_devices(udev_enumerate *enumeration)
{
    return Fails("udev_enumerate_scan_devices", "") ? -g_order.error : NEXT(udev_enumerate_scan_devices)(enumeration);
}

udev_list_entry *udev_enumerate_get_list_entry(udev_enumerate *enumeration)
{
    return Fails("udev_enumerate_get_list_entry", "") ? nullptr : NEXT(udev_enumerate_get_list_entry)(enumeration);
}

const char *udev_list_entry_get_name(udev_list_entry *entry)
{
    return Fails("udev_list_entry_get_name", "") ? nullptr : NEXT(udev_list_entry_get_name)(entry);
}

udev_device *udev_device_new_from_syspath(udev *context, const char *path)
{
    return Fails("udev_device_new_from_syspath", path) ? nullptr : NEXT(udev_device_new_from_syspath)(context, path);
}

// Looking up the next one would itself take memory.
void *malloc(size_t size) noexcept { return Fails("malloc", "") ? nullptr : __libc_malloc(size); }

// The compiler makes one of a malloc and the memset behind it.
void *calloc(size_t count, size_t size) noexcept { return Fails("calloc", "") ? nullptr : __libc_calloc(count, size); }
}
