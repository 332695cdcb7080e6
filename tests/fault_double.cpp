// Preloaded before sg_double: makes one platform call of the command fail.
//
// The command starts once for thousands of runs. Before main, it reads orders from its standard input and forks for
// each: the child is the run. The parent writes the child's result to kResultFd.
#include <dlfcn.h>
#include <fcntl.h>
#include <libudev.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "fault_order.h"

extern "C" void *__libc_malloc(size_t size);
extern "C" void *__libc_calloc(size_t count, size_t size);
extern "C" void *__libc_realloc(void *memory, size_t size);
extern "C" void __libc_free(void *memory);

namespace {

constexpr unsigned int kHangSeconds = 600;  // a run takes milliseconds

FaultOrder g_order = {};
bool g_isRun = false;          // count calls: this process is a run, and the call is the command's
int g_calls = 0;               // platform calls so far
int g_contexts = 0;            // udev contexts so far: the first lists hosts, the second controllers
FILE *g_list = nullptr;        // /run/calls, in a run that lists its calls
int *g_allocations = nullptr;  // not freed yet; the run shares it with its parent

__attribute__((constructor)) void Serve()
{
    void *shared = mmap(nullptr, sizeof *g_allocations, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    g_allocations = static_cast<int *>(shared);
    while (read(STDIN_FILENO, &g_order, sizeof g_order) == sizeof g_order) {
        *g_allocations = 0;
        if (fork() == 0) {
            (void)alarm(kHangSeconds);
            g_list = g_order.call == 0 ? std::fopen("/run/calls", "ae") : nullptr;
            g_isRun = true;
            return;
        }
        FaultResult result = {};
        (void)wait(&result.status);
        result.leaked = *g_allocations;
        (void)write(kResultFd, &result, sizeof result);
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
}

// Counts a call of `function`, the caller of Fails, with `what` or the file of `fd` as its object. Returns true, with
// errno set, if the call must fail.
bool Fails(const char *what = "", int fd = -1, const char *function = __builtin_FUNCTION())
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
    if (g_order.error == kTakeOver) {
        FAULT_TakeOver();
        return false;
    }
    errno = g_order.error;
    return true;
}

bool Fails(int fd, const char *function = __builtin_FUNCTION()) { return Fails("", fd, function); }

void *Counted(void *memory)
{
    if (g_isRun && memory != nullptr) {
        ++*g_allocations;
    }
    return memory;
}

// The next function with the caller's name after this library.
template <typename Function>
Function *Next(Function * /*type*/, const char *name = __builtin_FUNCTION())
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

int open(const char *path, int flags, ...)
{
    va_list list;
    va_start(list, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(list, mode_t) : 0;
    va_end(list);
    return Fails(path) ? -1 : Next(open)(path, flags, mode);
}

ssize_t read(int fd, void *data, size_t size)
{
    if (!Fails(fd)) {
        return Next(read)(fd, data, size);
    }
    return g_order.error == kShort ? Next(read)(fd, data, size / 2) : -1;
}

ssize_t write(int fd, const void *data, size_t size)
{
    if (Fails(fd)) {
        return g_order.error == kShort ? 0 : -1;
    }
    return Next(write)(fd, data, size);
}

ssize_t readlink(const char *path, char *data, size_t size) noexcept
{
    return Fails(path) ? -1 : Next(readlink)(path, data, size);
}

int stat(const char *path, struct stat *status) noexcept { return Fails(path) ? -1 : Next(stat)(path, status); }

int fstat(int fd, struct stat *status) noexcept { return Fails(fd) ? -1 : Next(fstat)(fd, status); }

int access(const char *path, int mode) noexcept { return Fails(path) ? -1 : Next(access)(path, mode); }

int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list list;
    va_start(list, request);
    void *argument = va_arg(list, void *);
    va_end(list);
    return Fails(fd) ? -1 : Next(ioctl)(fd, request, argument);
}

int fcntl(int fd, int command, ...)
{
    va_list list;
    va_start(list, command);
    void *argument = va_arg(list, void *);
    va_end(list);
    return Fails(fd) ? -1 : Next(fcntl)(fd, command, argument);
}

// Even a close that fails closes the descriptor.
int close(int fd)
{
    const bool fails = Fails(fd);
    const int result = Next(close)(fd);
    return fails ? -1 : result;
}

int fclose(FILE *file)
{
    const bool fails = Fails();
    const int result = Next(fclose)(file);
    return fails ? EOF : result;
}

int ftruncate(int fd, off_t size) noexcept { return Fails(fd) ? -1 : Next(ftruncate)(fd, size); }

FILE *fopen(const char *path, const char *mode) { return Fails(path) ? nullptr : Next(fopen)(path, mode); }

int fgetc(FILE *file) { return Fails() ? EOF : Next(fgetc)(file); }

int fseek(FILE *file, long offset, int whence) { return Fails() ? -1 : Next(fseek)(file, offset, whence); }

int fflush(FILE *file) { return Fails() ? EOF : Next(fflush)(file); }

tm *localtime(const time_t *time) noexcept { return Fails() ? nullptr : Next(localtime)(time); }

// Prints the command instead of starting a shell.
int system(const char *command)
{
    if (Fails(command)) {
        return g_order.error == kShort ? W_EXITCODE(1, 0) : -1;
    }
    (void)Next(write, "write")(STDOUT_FILENO, command, std::strlen(command));
    return 0;
}

udev *udev_new()
{
    ++g_contexts;
    return Fails() ? nullptr : Next(udev_new)();
}

udev_enumerate *udev_enumerate_new(udev *context) { return Fails() ? nullptr : Next(udev_enumerate_new)(context); }

int udev_enumerate_add_match_subsystem(udev_enumerate *enumeration, const char *subsystem)
{
    return Fails(subsystem) ? -errno : Next(udev_enumerate_add_match_subsystem)(enumeration, subsystem);
}

int udev_enumerate_scan_devices(udev_enumerate *enumeration)
{
    return Fails() ? -errno : Next(udev_enumerate_scan_devices)(enumeration);
}

udev_list_entry *udev_enumerate_get_list_entry(udev_enumerate *enumeration)
{
    return Fails() ? nullptr : Next(udev_enumerate_get_list_entry)(enumeration);
}

const char *udev_list_entry_get_name(udev_list_entry *entry)
{
    return Fails() ? nullptr : Next(udev_list_entry_get_name)(entry);
}

udev_device *udev_device_new_from_syspath(udev *context, const char *path)
{
    return Fails(path) ? nullptr : Next(udev_device_new_from_syspath)(context, path);
}

// dlsym would itself allocate memory.
void *malloc(size_t size) noexcept { return Fails() ? nullptr : Counted(__libc_malloc(size)); }

// The compiler replaces malloc and memset with one calloc.
void *calloc(size_t count, size_t size) noexcept { return Fails() ? nullptr : Counted(__libc_calloc(count, size)); }

void *realloc(void *memory, size_t size) noexcept
{
    return memory == nullptr ? Counted(__libc_realloc(memory, size)) : __libc_realloc(memory, size);
}

void free(void *memory) noexcept
{
    if (g_isRun && memory != nullptr) {
        --*g_allocations;
    }
    __libc_free(memory);
}
}
