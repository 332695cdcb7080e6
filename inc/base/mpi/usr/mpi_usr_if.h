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
    RET_NO_MEMORY = 1037,          // memory or a libudev context could not be obtained
    RET_LINE_HANDLER_FAIL = 1050,  // a line handler refused a line, so reading stopped
    RET_NOT_FOUND = 1056,          // no setting of that name
    RET_OPEN_FAIL = 1065,          // a SCSI generic node could not be opened
};

// The lock of the running copy, which also holds its process id. It remains after the run.
inline constexpr const char *kPidFile = "/run/vdRescan_plus.pid";

// Link of an intrusive circular list. A record embeds it as its first member `link`, so that the node's address is
// the record's address; a list head is a bare node that points at itself both ways while the list is empty.
struct ListNode {
    ListNode *next;
    ListNode *prev;
};

// Makes `node` an empty head, or a record's link that is in no list.
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

// Takes `node` out from between its neighbours; its own pointers stay as they were.
inline void LIST_Unlink(const ListNode &node)
{
    node.next->prev = node.prev;
    node.prev->next = node.next;
}

// The record whose link is `node`; of a constant node, a constant record.
template <typename Record, typename Node>
[[nodiscard]] Record &LIST_RecordOf(Node &node)
{
    static_assert(std::is_standard_layout_v<Record> && offsetof(Record, link) == 0,
                  "the node's address must be the record's address");
    return reinterpret_cast<Record &>(node);
}

// The records of the list `head` from the first to the last. The header that declares a record names its lists, such as
// `Hosts()`, so that no walk takes one list's records for another's: `for (const ScsiHost &host : Hosts())`.
// A walk goes on while the node is not the head and its next is not null, so a node of zero bytes ends it.
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

// Makes a record of zero bytes with its link pointed at itself; null without memory. It has this owner until it is
// released into a list, which LIST_Free empties.
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

// Empties the list `head`: each record is unlinked, its link pointed at itself, and handed to `release` to be freed.
template <typename Record, typename Release = MemoryReleaser>
// cppcheck-suppress constParameterReference ; it is changed through its neighbours
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
