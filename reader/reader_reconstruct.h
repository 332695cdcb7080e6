// Reconstructs what one run did from its records.
#pragma once

#include "reader_model.h"
#include "reader_split.h"

// Makes out what the run with these records did; they must stay as long as the result.
[[nodiscard]] Run READER_Reconstruct(const RunText &text);
