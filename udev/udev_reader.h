// Reads the configuration files in /etc.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mpi_owner.h"
#include "mpi_usr_if.h"

// Opens the configuration file `path` at its start, for reading and for writing. The tool never writes to it, but does
// not accept a configuration that root cannot write. Null, with errno set, if it cannot be opened.
[[nodiscard]] OwnedFile UDEV_OpenConfigFile(const char *path);

// Called for each line. It may change the text `line` of `length` characters in place. `userArg` is the argument of the
// reader's caller. Every result but RET_OK ends the reading.
using FileLineHandler = ResultCode (*)(char *line, std::int32_t length, void *userArg);

// Calls `handler` with every line of the file `path`, without its line feed, and with `userArg`. Drops a line feed
// after a backslash, so the line continues and keeps the backslash. Records and skips a line of more than 510
// characters. Skips a last line without a line feed.
// Returns RET_OK at the end of the file, RET_FAIL if it cannot be opened, RET_LINE_HANDLER_FAIL if the handler rejects
// a line.
[[nodiscard]] ResultCode INTF_UTIL_ReadFileHandleByLine(const char *path, void *userArg, FileLineHandler handler);
