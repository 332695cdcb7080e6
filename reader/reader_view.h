// Runs as text for a person.
#pragma once

#include <cstdio>

#include "reader_model.h"

// Write one run: in full, or as one line.
void READER_RunToView(std::FILE *out, const Run &run);
void READER_RunToLine(std::FILE *out, const Run &run);
