// The list: circular, doubly linked, its node embedded in each record. A head is a node that is
// part of no record; an empty list has both pointers at the head. There is one insertion, at the
// tail. Nothing here locks.

#pragma once

#include <cstddef>

struct ListNode {
    ListNode *prev;
    ListNode *next;
};

inline void listInit(ListNode *head)
{
    head->prev = head;
    head->next = head;
}

inline void listAddTail(ListNode *node, ListNode *head)
{
    node->prev = head->prev;
    node->next = head;
    head->prev->next = node;
    head->prev = node;
}

// Unlinks the node and clears its pointers. A node whose
// pointers are null, unlinked before, is left alone.
inline void listDel(ListNode *node)
{
    if (!node->prev || !node->next)
        return;
    node->prev->next = node->next;
    node->next->prev = node->prev;
    node->prev = nullptr;
    node->next = nullptr;
}

inline bool listEmpty(const ListNode *head)
{
    return head->next == head;
}

// Moves every element of `from` to the tail of `to`, in order.
inline void listMoveAll(ListNode *from, ListNode *to)
{
    while (!listEmpty(from)) {
        ListNode *node = from->next;
        listDel(node);
        listAddTail(node, to);
    }
}

// The record that embeds the node.
template <typename Record> Record *recordOf(ListNode *node, size_t nodeOffset)
{
    return reinterpret_cast<Record *>(reinterpret_cast<char *>(node) - nodeOffset);
}

// A walk over the records of a list. It may free the record that it stands on. A null head is an
// empty walk.
template <typename Record> class ListWalk {
public:
    using Step = ListNode *ListNode::*;

    class Iterator {
    public:
        Iterator(ListNode *start, Step step, size_t nodeOffset)
            : at(start), following(start ? start->*step : nullptr), way(step), offset(nodeOffset)
        {
        }
        Record &operator*() const
        {
            return *recordOf<Record>(at, offset);
        }
        Iterator &operator++()
        {
            at = following;
            following = at->*way;
            return *this;
        }
        bool operator!=(const Iterator &other) const
        {
            return at != other.at;
        }

    private:
        ListNode *at;
        ListNode *following;
        Step way;
        size_t offset;
    };

    ListWalk(const ListNode *listHead, Step step, size_t nodeOffset)
        : head(const_cast<ListNode *>(listHead)), way(step), offset(nodeOffset)
    {
    }
    Iterator begin() const
    {
        return Iterator(head ? head->*way : nullptr, way, offset);
    }
    Iterator end() const
    {
        return Iterator(head, way, offset);
    }

private:
    ListNode *head;
    Step way;
    size_t offset;
};

// for (Scene &scene : ELEMENTS(Scene, node, &scenesListHead)): oldest first.
#define ELEMENTS(Record, member, head)                                                             \
    ListWalk<Record>((head), &ListNode::next, offsetof(Record, member))
// The same, newest first.
#define ELEMENTS_BACKWARDS(Record, member, head)                                                   \
    ListWalk<Record>((head), &ListNode::prev, offsetof(Record, member))

// The first or last record of a list, or null when it is empty.
#define FIRST_ELEMENT(Record, member, head)                                                        \
    (listEmpty(head) ? nullptr : recordOf<Record>((head)->next, offsetof(Record, member)))
#define LAST_ELEMENT(Record, member, head)                                                         \
    (listEmpty(head) ? nullptr : recordOf<Record>((head)->prev, offsetof(Record, member)))
