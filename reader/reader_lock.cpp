#include "reader_lock.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "mpi_owner.h"
#include "mpi_usr_if.h"
#include "reader_time.h"

std::optional<RunLock> READER_AskLock()
{
    const OwnedFd fd(open(kPidFile, O_RDONLY | O_CLOEXEC));
    if (!fd.IsOpen()) {
        return std::nullopt;  // if the file was removed, a run may still be at work
    }
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    struct stat file = {};
    if (fcntl(fd.Get(), F_GETLK, &lock) != 0 || fstat(fd.Get(), &file) != 0) {
        return std::nullopt;
    }
    if (lock.l_type == F_UNLCK) {
        return RunLock();
    }
    // The holder wrote its process ID right after it took the lock.
    return RunLock{true, READER_LocalTime(file.st_mtime), lock.l_pid};
}

void READER_MarkAtWork(Run &run, const RunLock &lock)
{
    run.isAtWork = lock.isHeld && run.outcome == Outcome::NotEnded && run.end >= lock.since;
}
