// Runs as JSON.
#pragma once

#include <cstdio>

#include "reader_model.h"

// Write one JSON document on one line: its beginning, each run, and its end.
void READER_BeginJson(std::FILE *out);
void READER_RunToJson(std::FILE *out, const Run &run, bool isFirst);
void READER_EndJson(std::FILE *out);
