// Supported-device list /etc/vd_plus.conf: the arrays, by SCSI vendor and product identification, whose disks the tool
// may examine and delete.
//
// One-byte results are truth values. An operation called without a required argument writes an assertion record and
// returns 0, or nothing.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mpi_usr_if.h"

inline constexpr std::size_t kProductFieldSize = 64;  // bytes of a field, the terminator included

// One entry of the list; its fields bear the key names of the file.
struct ProductNode {
    ListNode link;
    char ruler_name[kProductFieldSize];
    char vendor_id[kProductFieldSize];   // compared exactly
    char product_id[kProductFieldSize];  // compared exactly; may be empty
    char driver[kProductFieldSize];
};

// Loads the list, which starts empty. Returns 1 when the file was read to its end, whatever it held, and 0 when it
// could not be opened.
[[nodiscard]] std::uint8_t UDEV_InitConfig();

// Returns 1 when an entry has exactly this `vendor` and `product`, both NUL-terminated; a null `product` asks for an
// entry without one.
[[nodiscard]] std::uint8_t UDEV_DeviceIsSupport(const char *vendor, const char *product);

// The entries of the list in file order.
[[nodiscard]] LIST_Range<const ProductNode> Products();

// Frees every entry; the list is empty afterwards.
void UDEV_FreeProductList();

// The steps of a load.

// Ends the physical line held in the `bufferLen` bytes at `buffer`: `*bufferIndex` characters, which are cleaned and
// analysed unless `*lineFlag` says that the next physical line continues them.
void UDEV_HandleSingleLine(char *buffer, std::int32_t bufferLen, std::int32_t *bufferIndex, std::uint8_t *lineFlag,
                           std::uint8_t *vendorsUnit);

// Takes the cleaned line `buffer` as section line, which sets `*vendorsUnit`, or inside the section as product line,
// which adds an entry unless it is rejected.
void UDEV_AnalyzeLine(char *buffer, std::int32_t bufferLen, std::uint8_t *vendorsUnit);

// Fills `node` from the product line `buffer` of `bufferLen` bytes, which is cut up. Returns 0 when it is rejected.
[[nodiscard]] std::uint8_t UDEV_DivisionString(char *buffer, std::int32_t bufferLen, ProductNode *node);

// Stores `keyValue` in the field named `keyName`; an unknown key is ignored. Returns 0 when the value does not fit.
[[nodiscard]] std::uint8_t UDEV_InitProductNode(const char *keyName, const char *keyValue, ProductNode *node);

// Returns 1 when the entry has this `vendor`, which must not be null, and `product`, which may be: an entry without one
// is asked for then. Trailing groups "\x20" of the product do not count.
[[nodiscard]] std::uint8_t UDEV_MatchProductStr(const char *vendor, const char *product,
                                                const ProductNode *productNode);

// Overwrites the groups "\x20", four characters each, at the end of the text `buffer` of `bufferLen` bytes with NUL.
void UDEV_ClearTailSpace(char *buffer, std::int32_t bufferLen);
