#include "target.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "log.h"

void Fail(const char *file, int line, const char *condition)
{
    (void)std::fprintf(stderr, "%s:%d: %s\n", file, line, condition);
    std::abort();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    (void)LOG_Init("/dev/null");  // records are still formatted
    Run({reinterpret_cast<const char *>(data), size});
    return 0;
}
