#include "scan_start.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include "log_path.h"
#include "scan_disk.h"
#include "scan_lock.h"
#include "scan_print.h"
#include "scan_state.h"
#include "scan_target.h"
#include "udev_product.h"

namespace {

// Signal dispositions of the caller must not end a run between two deletions or hide the result of a rescan.
void SetSignals()
{
    // None of these calls can fail for these signals.
    (void)std::signal(SIGPIPE, SIG_IGN);  // the reader of the output may exit
    (void)std::signal(SIGXFSZ, SIG_IGN);  // the trace log may reach the caller's file size limit
    (void)std::signal(SIGCHLD, SIG_DFL);  // if ignored, the exit status of `nvme` is lost
}

// Only root may write the trace log, because a writer can forge records of a run.
void LimitFileModes()
{
    constexpr mode_t kNoGroupWriteNorOthers = 027;
    (void)umask(umask(kNoGroupWriteNorOthers) | kNoGroupWriteNorOthers);  // cannot fail
}

// A standard stream that the caller closed must not become the pid file.
void HoldStandardStreams()
{
    int fd = 0;
    do {
        // No O_CLOEXEC: `nvme` inherits these streams, so none of its own files becomes a standard stream.
        fd = open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd > STDERR_FILENO) {
        (void)close(fd);  // not a standard stream; nothing was written
    }
}

}  // namespace

ResultCode SCAN_Init()
{
    SetSignals();
    LimitFileModes();
    HoldStandardStreams();
    if (SCAN_InitLog() != RET_OK) {
        return RET_FAIL;
    }
    SCAN_Print(LogLevel::Info, "vdRescan_plus start...\n");
    if (getuid() != 0) {
        SCAN_Print(LogLevel::Warn, "WARN: please exit and run as root!\n");
        return RET_FAIL;
    }
    if (SCAN_CheckOnlyOneRun() != RET_OK) {
        SCAN_Print(LogLevel::Warn, "WARN: there is one other vdRescan_plus running, please stop and try again!\n");
        return RET_FAIL;
    }
    SCAN_InitLists();
    g_configLoaded = UDEV_InitConfig();
    if (g_configLoaded != 1) {
        SCAN_Record(LogLevel::Error, "init vd config fail!\n");
    }
    return RET_OK;
}

void SCAN_Uninit()
{
    SCAN_FreeAllScsiSession();
    SCAN_FreeAllScsiHost();
    SCAN_FreeAllNvmeCtrl();
    if (g_configLoaded == 1) {
        UDEV_FreeProductList();
    }
    SCAN_ReleaseLock();
}
