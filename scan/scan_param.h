// Options and usage text.
#pragma once

#include "mpi_usr_if.h"

// Sets g_noCheck and g_silent from the command line. Returns RET_OK, or RET_FAIL with both unchanged when the options
// are not exactly one of the accepted combinations.
[[nodiscard]] ResultCode SCAN_ParseParam(int argc, char *const argv[]);

// Prints the usage text with `program`, the name as invoked.
void SCAN_PrintUsage(const char *program);
