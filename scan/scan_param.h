// Options and usage text.
#pragma once

#include "mpi_usr_if.h"

// Sets g_noCheck and g_silent from the command line. Returns RET_OK. Returns RET_FAIL and changes neither if the
// options are not one of the valid combinations.
[[nodiscard]] ResultCode SCAN_ParseParam(int argc, char *const argv[]);

// Prints the usage text. `program` is the name from the command line.
void SCAN_PrintUsage(const char *program);
