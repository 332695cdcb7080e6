// Reconstructs what one run did from its records.
#pragma once

#include "reader_model.h"
#include "reader_split.h"

// Reconstructs the run with these records, which must outlive the result.
[[nodiscard]] Run READER_Reconstruct(const RunText &text);
