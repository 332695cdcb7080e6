// Shared by all fuzz targets. Each target is a file that defines Run, and a separate program.
#pragma once

#include <string_view>

// Tries one input. The trace log is /dev/null. Every CHECK must hold for every input.
void Run(std::string_view input);

[[noreturn]] void Fail(const char *file, int line, const char *condition);

#define CHECK(condition) ((condition) ? (void)0 : Fail(__FILE__, __LINE__, #condition))
