// Reading of the configuration files under /etc.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mpi_owner.h"
#include "mpi_usr_if.h"

// Opens the configuration file `path` at its start, for reading and writing although it is never written: a file that
// root cannot write is not taken for a configuration. Null, with errno set, when it cannot be opened.
[[nodiscard]] OwnedFile UDEV_OpenConfigFile(const char *path);

// Called for each line with its text, which it may change in place, the text's length in characters, and the argument
// of the reader's caller; anything but RET_OK ends the reading.
using FileLineHandler = ResultCode (*)(char *line, std::int32_t length, void *userArg);

// Hands every line of the file `path`, without its line feed, to `handler` together with `userArg`. A line feed behind
// a backslash is dropped and the line goes on, backslash included. A line of more than 510 characters is recorded and
// left out; a last line without a line feed is left out.
// Returns RET_OK at the end of the file, RET_FAIL when it cannot be opened, RET_LINE_HANDLER_FAIL when the handler
// refused a line.
[[nodiscard]] ResultCode INTF_UTIL_ReadFileHandleByLine(const char *path, void *userArg, FileLineHandler handler);
