#include "scan_lock.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "safestr_format.h"
#include "scan_print.h"
#include "scan_state.h"

namespace {

constexpr std::size_t kPidTextSize = 128;

}  // namespace

ResultCode SCAN_CheckOnlyOneRun()
{
    char text[kPidTextSize] = {};
    // No O_TRUNC: a copy that does not get the lock must not remove the holder's process id.
    g_pidFd = open(kPidFile, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (g_pidFd < 0) {
        SCAN_Record(LogLevel::Error, "can't open file{%s} with err{%s}.\n", kPidFile, std::strerror(errno));
        return RET_FAIL;
    }
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    if (fcntl(g_pidFd, F_SETLK, &lock) == -1) {
        SCAN_Record(LogLevel::Error, "can't lock file{%s} with err{%s}.\n", kPidFile, std::strerror(errno));
        (void)close(g_pidFd);  // nothing was written
        g_pidFd = -1;
        return RET_FAIL;
    }
    // Ignore a failure: only the lock counts, not old content after the process id.
    [[maybe_unused]] const int truncated = ftruncate(g_pidFd, 0);
    const int length = sprintf_s(text, TEXT_Limit(text), "%ld", static_cast<long>(getpid()));
    if (write(g_pidFd, text, static_cast<std::size_t>(length) + 1) < 0) {
        SCAN_Record(LogLevel::Error, "write fail in file{%s} with err{%s}.\n", kPidFile, std::strerror(errno));
    }
    return RET_OK;
}

void SCAN_ReleaseLock()
{
    (void)close(g_pidFd);  // even a close that fails releases the lock
    g_pidFd = -1;
}
