// Uses the input as a trace log. For every input, each output format must be valid.
#include <jansson.h>

#include <algorithm>
#include <array>
#include <string>

#include "reader_check.h"
#include "reader_json.h"
#include "reader_reconstruct.h"
#include "reader_view.h"
#include "target.h"

void Run(std::string_view input)
{
    static std::array<char, 1 << 20> text;
    RunStream runs;
    runs.log.file = fmemopen(const_cast<char *>(input.data()), input.size(), "rb");
    for (RunText records; runs.log.file != nullptr && READER_NextRun(runs, records);) {
        const struct Run run = READER_Reconstruct(records);
        std::FILE *out = fmemopen(text.data(), text.size(), "wb");
        READER_BeginJson(out);
        READER_RunToJson(out, run, true);
        READER_EndJson(out);
        const auto jsonSize = static_cast<std::size_t>(std::ftell(out));
        CHECK(READER_Check(out, {run}, {.since = 1, .oldest = 0, .now = 1, .mustLook = true, .ignored = {"2:0:0:1"}},
                           {}) <= kCheckUnknown);
        const auto checkSize = static_cast<std::size_t>(std::ftell(out)) - jsonSize;
        READER_RunToLine(out, run);
        READER_RunToView(out, run);
        const std::string_view all(text.data(), static_cast<std::size_t>(std::ftell(out)));
        (void)std::fclose(out);
        json_t *json = json_loadb(text.data(), jsonSize, 0, nullptr);
        CHECK(json != nullptr);
        json_decref(json);
        const std::string_view line = all.substr(jsonSize, checkSize);
        CHECK(line.find('\n') == line.size() - 1 && std::count(line.begin(), line.end(), '|') <= 1);
        CHECK(std::all_of(all.begin(), all.end(), [](char c) { return c == '\n' || (c >= ' ' && c <= '~'); }));
    }
    if (runs.log.file != nullptr) {
        (void)std::fclose(runs.log.file);
    }
}
