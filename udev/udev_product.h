// Supported-device list /etc/vd_plus.conf: the SCSI vendor and product identifications of the arrays whose disks the
// tool may query and delete.
//
// One-byte results are 1 (true) or 0 (false). Without a required argument, an operation writes an assertion record and
// returns 0, or nothing.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mpi_usr_if.h"

inline constexpr std::size_t kProductFieldSize = 64;  // bytes of a field, the terminator included

// One entry of the list. Its fields have the names of the keys in the file.
struct ProductNode {
    ListNode link;
    char ruler_name[kProductFieldSize];
    char vendor_id[kProductFieldSize];   // compared exactly
    char product_id[kProductFieldSize];  // compared exactly; may be empty
    char driver[kProductFieldSize];
};

// Starts with an empty list and loads the file's entries. Returns 0 if the file cannot be opened, else 1, even if no
// entry is valid.
[[nodiscard]] std::uint8_t UDEV_InitConfig();

// Returns 1 if an entry has exactly this `vendor` and `product`, both NUL-terminated. A null `product` matches an entry
// without a product.
[[nodiscard]] std::uint8_t UDEV_DeviceIsSupport(const char *vendor, const char *product);

// The entries of the list in file order.
[[nodiscard]] LIST_Range<const ProductNode> Products();

// Frees every entry and leaves the list empty.
void UDEV_FreeProductList();

// A step of the load, which can also add an entry without a file: analyses the cleaned line `buffer`. The section line
// sets `*vendorsUnit`. Inside the section, a valid product line adds an entry.
void UDEV_AnalyzeLine(char *buffer, std::int32_t bufferLen, std::uint8_t *vendorsUnit);
