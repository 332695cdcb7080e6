// Owners of memory, files and descriptors: each releases its resource when it leaves scope.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

struct MemoryReleaser {
    void operator()(void *memory) const { std::free(memory); }
};

// Memory from malloc.
template <typename Type>
using OwnedMemory = std::unique_ptr<Type, MemoryReleaser>;

struct FileReleaser {
    void operator()(FILE *file) const { (void)std::fclose(file); }  // callers flush what matters
};

using OwnedFile = std::unique_ptr<FILE, FileReleaser>;

// File descriptor; a negative value means none.
class OwnedFd {
public:
    explicit OwnedFd(int fd) : fd_(fd) {}
    OwnedFd(const OwnedFd &) = delete;
    OwnedFd &operator=(const OwnedFd &) = delete;
    ~OwnedFd() { Close(); }
    void Close()
    {
        if (fd_ >= 0) {
            (void)close(fd_);  // a device file writes at once, so close loses nothing
            fd_ = -1;
        }
    }
    [[nodiscard]] int Get() const { return fd_; }
    [[nodiscard]] bool IsOpen() const { return fd_ >= 0; }

private:
    int fd_;
};
