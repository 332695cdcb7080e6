// Shared base of every layer: result codes and the intrusive list.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <type_traits>

#include "mpi_owner.h"

// Result of the tool's own operations. Predicates return 1 or 0 instead.
enum ResultCode : std::int32_t {
    RET_OK = 1024,                 // success
    RET_INVALID_PARAM = 1026,      // a required argument is missing, or a destination is too small
    RET_DATA_INVALID = 1027,       // a device answer of the wrong form
    RET_FAIL = 1030,               // failure
    RET_CMD_FAIL = 1031,           // the SG_IO request failed or the SCSI command ended with a non-zero status
    RET_NO_MEMORY = 1037,          // no memory or no libudev context
    RET_LINE_HANDLER_FAIL = 1050,  // a line handler refused a line, so reading stopped
    RET_NOT_FOUND = 1056,          // no setting of that name
    RET_OPEN_FAIL = 1065,          // a SCSI generic node could not be opened
};

// Lock file of the running copy, with its process id. It remains after the run.
inline constexpr const char *kPidFile = "/run/vdRescan_plus.pid";

// Bytes of a text field that an operation may fill: all but the last one, which stays NUL.
template <std::size_t size>
[[nodiscard]] constexpr std::size_t TEXT_Limit(const char (& /*field*/)[size])
{
    return size - 1;
}

// Link of an intrusive circular list. A record embeds it as its first member `link`, so the node's address is the
// record's address. A list head is a bare node; both its pointers point to itself while the list is empty.
struct ListNode {
    ListNode *next;
    ListNode *prev;
};

// Makes `node` an empty head, or a record's link outside any list.
inline void LIST_Init(ListNode &node)
{
    node.next = &node;
    node.prev = &node;
}

// Inserts `node` between the neighbours `prev` and `next`.
inline void LIST_Insert(ListNode &node, ListNode &prev, ListNode &next)
{
    next.prev = &node;
    node.next = &next;
    node.prev = &prev;
    prev.next = &node;
}

// Appends `node` at the tail of `head`, so that the list keeps insertion order.
inline void LIST_Append(ListNode &node, ListNode &head)
{
    LIST_Insert(node, *head.prev, head);
}

// Removes `node` from its list. Its own pointers do not change.
inline void LIST_Unlink(const ListNode &node)
{
    node.next->prev = node.prev;
    node.prev->next = node.next;
}

// The record whose link is `node`. A constant node gives a constant record.
template <typename Record, typename Node>
[[nodiscard]] Record &LIST_RecordOf(Node &node)
{
    static_assert(std::is_standard_layout_v<Record> && offsetof(Record, link) == 0,
                  "the node's address must be the record's address");
    return reinterpret_cast<Record &>(node);
}

// The records of the list `head` from the first to the last. The header that declares a record also names its lists,
// such as `Hosts()`, so a loop cannot use the wrong record type: `for (const ScsiHost &host : Hosts())`.
// A loop ends at the head or at a node whose next is null, such as a node of zero bytes.
template <typename Record>
class LIST_Range {
    using Node = std::conditional_t<std::is_const_v<Record>, const ListNode, ListNode>;

public:
    class Iterator {
    public:
        Iterator(Node *node, const ListNode *head) : node_(node), head_(head) {}
        [[nodiscard]] Record &operator*() const { return LIST_RecordOf<Record>(*node_); }
        Iterator &operator++()
        {
            node_ = node_->next;
            return *this;
        }
        [[nodiscard]] bool operator==(std::default_sentinel_t /*end*/) const
        {
            return node_ == head_ || node_->next == nullptr;
        }

    private:
        Node *node_;
        const ListNode *head_;
    };

    explicit LIST_Range(Node &head) : head_(&head) {}
    [[nodiscard]] Iterator begin() const { return {head_->next, head_}; }
    [[nodiscard]] std::default_sentinel_t end() const { return {}; }

private:
    Node *head_;
};

// Makes a record of zero bytes whose link points to itself; null without memory. The caller owns it until it releases
// it into a list. LIST_Free frees the records of a list.
template <typename Record>
[[nodiscard]] OwnedMemory<Record> LIST_NewRecord()
{
    static_assert(std::is_trivial_v<Record>, "a record is made of bytes, without a constructor");
    OwnedMemory<Record> record(static_cast<Record *>(std::malloc(sizeof(Record))));
    if (record != nullptr) {
        (void)std::memset(record.get(), 0, sizeof(Record));
        LIST_Init(record->link);
    }
    return record;
}

// Empties the list `head`: unlinks each record, points its link to itself, and passes it to `release`, which frees it.
template <typename Record, typename Release = MemoryReleaser>
// cppcheck-suppress constParameterReference ; it changes through its neighbours
void LIST_Free(ListNode &head, Release release = {})
{
    for (ListNode *node = head.next; node != &head;) {
        ListNode *next = node->next;
        LIST_Unlink(*node);
        LIST_Init(*node);
        release(&LIST_RecordOf<Record>(*node));
        node = next;
    }
}
