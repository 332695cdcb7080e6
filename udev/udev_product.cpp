#include "udev_product.h"

#include <array>
#include <cstdio>
#include <cstring>

#include "log_syslog.h"
#include "safestr_format.h"
#include "safestr_memory.h"
#include "safestr_scan.h"
#include "safestr_string.h"
#include "udev_line.h"
#include "udev_reader.h"

namespace {

ListNode g_productList = {&g_productList, &g_productList};  // empty before the load, too

constexpr const char *kConfigPath = "/etc/vd_plus.conf";
constexpr std::size_t kConfigLineSize = 512;
constexpr std::int32_t kMaxHeld = kConfigLineSize - 1;  // characters; more make a line too long

using ProductField = char (ProductNode::*)[kProductFieldSize];

struct ProductKey {
    char name[kProductFieldSize];
    ProductField field;
};

constexpr std::array<ProductKey, 4> kProductKeys = {{
    {"ruler_name", &ProductNode::ruler_name},
    {"vendor_id", &ProductNode::vendor_id},
    {"product_id", &ProductNode::product_id},
    {"driver", &ProductNode::driver},
}};

// Returns a new entry with empty fields. Without memory, records that and returns null.
OwnedMemory<ProductNode> UDEV_AllocProductNode()
{
    OwnedMemory<ProductNode> node = LIST_NewRecord<ProductNode>();
    if (node == nullptr) {
        LOG_PrintUdev(LogLevel::Error, "malloc failed");
    }
    return node;
}

// Overwrites the groups "\x20" (four characters each) at the end of the text `buffer` of `bufferLen` bytes with NUL.
void UDEV_ClearTailSpace(char *buffer, std::int32_t bufferLen)
{
    if (!LOG_ASSERT(buffer != LOG_NULL) || !LOG_ASSERT(bufferLen != 0)) {
        return;
    }
    constexpr char kGroup[] = "\\x20";
    constexpr std::int32_t kGroupLength = sizeof kGroup - 1;
    for (std::int32_t p = static_cast<std::int32_t>(std::strlen(buffer)) - kGroupLength;
         p >= 0 && p < bufferLen && std::strcmp(buffer + p, kGroup) == 0; p -= kGroupLength) {
        (void)memset_s(buffer + p, kGroupLength, 0, kGroupLength);  // sizes are equal
    }
}

// Returns 1 if the entry has this `vendor` and `product`. `vendor` must not be null. A null `product` matches an entry
// without a product. Groups "\x20" at the end of the product do not count.
std::uint8_t UDEV_MatchProductStr(const char *vendor, const char *product, const ProductNode *productNode)
{
    if (!LOG_ASSERT(productNode != 0)) {
        return 0;
    }
    char wanted[kProductFieldSize] = {};
    if (product != nullptr) {
        if (sprintf_s(wanted, sizeof wanted, "%s", product) == -1) {
            LOG_PrintUdev(LogLevel::Error, "sprintf_s failed.");
            return 0;
        }
        UDEV_ClearTailSpace(wanted, sizeof wanted);
    }
    const bool matches =
        std::strcmp(productNode->vendor_id, vendor) == 0 && std::strcmp(productNode->product_id, wanted) == 0;
    return matches ? 1 : 0;
}

// Stores `keyValue` in the field named `keyName`. Ignores an unknown key. Returns 0 if the value does not fit.
std::uint8_t UDEV_InitProductNode(const char *keyName, const char *keyValue, ProductNode *node)
{
    if (!LOG_ASSERT(keyName != LOG_NULL) || !LOG_ASSERT(keyValue != LOG_NULL) || !LOG_ASSERT(node != LOG_NULL)) {
        return 0;
    }
    for (const ProductKey &key : kProductKeys) {
        if (std::strcmp(keyName, key.name) != 0) {
            continue;
        }
        if (sprintf_s(node->*key.field, kProductFieldSize, "%s", keyValue) == -1) {
            LOG_PrintUdev(LogLevel::Error, "sprintf_s failed.");
            return 0;
        }
        return 1;
    }
    return 1;
}

// Fills `node` from the product line `buffer` of `bufferLen` bytes and changes the buffer. Returns 0 if it rejects the
// line.
std::uint8_t UDEV_DivisionString(char *buffer, std::int32_t bufferLen, ProductNode *node)
{
    if (!LOG_ASSERT(buffer != LOG_NULL) || !LOG_ASSERT(bufferLen != 0) || !LOG_ASSERT(node != LOG_NULL)) {
        return 0;
    }
    char key[kProductFieldSize] = {};
    (void)UDEV_ReplaceCharacters(buffer, bufferLen);  // its arguments are checked above
    char *context = nullptr;
    std::size_t pieces = 0;
    for (const char *piece = strtok_s(buffer, ",", &context); piece != nullptr;
         piece = strtok_s(nullptr, ",", &context)) {
        if (pieces == kProductKeys.size()) {
            LOG_PrintUdev(LogLevel::Error, "more than buffer length.");
            return 0;
        }
        ++pieces;
        // Empty for each piece: a key without a value must not get the value of the previous piece.
        char value[kProductFieldSize] = {};
        if (sscanf_s(piece, "%s %s", key, static_cast<unsigned int>(sizeof key), value,
                     static_cast<unsigned int>(sizeof value)) == -1) {
            LOG_PrintUdev(LogLevel::Error, "sscanf_s failed.");
            return 0;
        }
        if (UDEV_InitProductNode(key, value, node) == 0) {
            return 0;
        }
    }
    return 1;
}

// Ends a physical line: `*bufferIndex` characters in the `bufferLen` bytes at `buffer`. If `*lineFlag` is 1, the next
// physical line continues them; else cleans and analyses them.
void UDEV_HandleSingleLine(char *buffer, std::int32_t bufferLen, std::int32_t *bufferIndex, std::uint8_t *lineFlag,
                           std::uint8_t *vendorsUnit)
{
    if (!LOG_ASSERT(buffer != LOG_NULL) || !LOG_ASSERT(bufferLen != 0) || !LOG_ASSERT(lineFlag != LOG_NULL) ||
        !LOG_ASSERT(bufferIndex != LOG_NULL) || !LOG_ASSERT(vendorsUnit != LOG_NULL)) {
        return;
    }
    if (*lineFlag == 1) {
        *lineFlag = 0;
        return;
    }
    if (*bufferIndex == 0) {
        return;
    }
    buffer[*bufferIndex] = '\0';
    (void)UDEV_ClearCharacters(buffer, bufferLen);  // its arguments are checked above
    if (buffer[0] != '\0') {
        UDEV_AnalyzeLine(buffer, bufferLen, vendorsUnit);
    }
    (void)memset_s(buffer, static_cast<std::size_t>(bufferLen), 0, static_cast<std::size_t>(bufferLen));  // equal sizes
    *bufferIndex = 0;
}

}  // namespace

std::uint8_t UDEV_DeviceIsSupport(const char *vendor, const char *product)
{
    if (!LOG_ASSERT(vendor != LOG_NULL)) {
        return 0;
    }
    if (g_productList.next == &g_productList) {
        LOG_PrintUdev(LogLevel::Error, "list is NULL.");
        return 0;
    }
    for (const ProductNode &node : Products()) {
        if (UDEV_MatchProductStr(vendor, product, &node) == 1) {
            return 1;
        }
    }
    return 0;
}

LIST_Range<const ProductNode> Products()
{
    return LIST_Range<const ProductNode>(g_productList);
}

void UDEV_FreeProductList()
{
    LIST_Free<ProductNode>(g_productList);
}

void UDEV_AnalyzeLine(char *buffer, std::int32_t bufferLen, std::uint8_t *vendorsUnit)
{
    if (!LOG_ASSERT(buffer != LOG_NULL) || !LOG_ASSERT(bufferLen != 0) || !LOG_ASSERT(vendorsUnit != LOG_NULL)) {
        return;
    }
    if (std::strcmp(buffer, "[vendors]") == 0) {
        *vendorsUnit = 1;
        return;
    }
    if (*vendorsUnit == 0) {
        return;
    }
    OwnedMemory<ProductNode> node = UDEV_AllocProductNode();
    if (node == nullptr || UDEV_DivisionString(buffer, bufferLen, node.get()) == 0) {
        return;
    }
    LIST_Append(node.release()->link, g_productList);
}

std::uint8_t UDEV_InitConfig()
{
    std::uint8_t lineFlag = 0;
    std::uint8_t vendorsUnit = 0;
    std::int32_t bufferIndex = 0;
    char buffer[kConfigLineSize] = {};
    LIST_Init(g_productList);
    const OwnedFile file = UDEV_OpenConfigFile(kConfigPath);
    if (file == nullptr) {
        LOG_PrintUdev(LogLevel::Error, "open file failed.");
        return 0;
    }
    for (int c = std::fgetc(file.get()); c != EOF; c = std::fgetc(file.get())) {
        if (c == '\\') {
            lineFlag = 1;
        } else if (bufferIndex >= kMaxHeld) {
            buffer[bufferIndex] = '\0';
            LOG_PrintUdev(LogLevel::Error, "single line over maximum number of characters:%s\n", buffer);
            bufferIndex = 0;
            lineFlag = 0;
        } else if (c == '\n') {
            UDEV_HandleSingleLine(buffer, kConfigLineSize, &bufferIndex, &lineFlag, &vendorsUnit);
        } else {
            buffer[bufferIndex++] = static_cast<char>(c);
        }
    }
    return 1;
}
