// Uses the input as /etc/vd_plus.conf: a query finds every entry, and no entry has a character that the format removes.
// Also uses it as /etc/vdLinux.conf, which is always read to its end.
#include <cstdio>
#include <cstring>
#include <string>

#include "target.h"
#include "udev_product.h"
#include "udev_settings.h"

namespace {

std::string_view g_input;

}  // namespace

// The linker redirects fopen to this function.
extern "C" FILE *__real_fopen(const char *path, const char *mode);
extern "C" FILE *__wrap_fopen(const char *path, const char *mode)
{
    if (std::strncmp(path, "/etc/vd", 7) != 0) {
        return __real_fopen(path, mode);
    }
    return fmemopen(const_cast<char *>(g_input.data()), g_input.size(), mode);
}

void Run(std::string_view input)
{
    g_input = input;
    CHECK(UDEV_InitConfig() == 1);
    for (const ProductNode &node : Products()) {
        for (const char *field : {node.ruler_name, node.vendor_id, node.product_id, node.driver}) {
            CHECK(std::strlen(field) < kProductFieldSize);
            CHECK(std::strpbrk(field, " \t\r\n\";,=\\") == nullptr);
        }
        CHECK(UDEV_DeviceIsSupport(node.vendor_id, node.product_id) == 1);
    }
    UDEV_FreeProductList();
    CHECK(UDEV_InitVdLinuxConfig() == RET_OK);
}
