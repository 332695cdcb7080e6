// What all fuzz targets share. Each target is a file that defines Run, and a program of its own.
#pragma once

#include <string_view>

// Tries one input, with the trace log set up to go nowhere. What must hold for every input is a CHECK.
void Run(std::string_view input);

[[noreturn]] void Fail(const char *file, int line, const char *condition);

#define CHECK(condition) ((condition) ? (void)0 : Fail(__FILE__, __LINE__, #condition))
