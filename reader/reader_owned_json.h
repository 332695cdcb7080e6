// Owns JSON values of jansson.
#pragma once

#include <jansson.h>

#include <memory>

struct JsonReleaser {
    void operator()(json_t *json) const { json_decref(json); }
};

using OwnedJson = std::unique_ptr<json_t, JsonReleaser>;
