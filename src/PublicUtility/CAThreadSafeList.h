/*
 * TThreadSafeList: a list that one thread (the render thread) owns and
 * iterates, while any thread may ask for entries to be added or removed.
 *
 * Requests do not touch the list itself. deferAdd/deferRemove put an event
 * node on a lock-free pending stack; the owning thread applies all queued
 * events, in the order they were queued, when it calls update(). So a render
 * never sees the list change during its iteration, and neither update() nor
 * iteration allocates, locks or makes a system call: update() only relinks
 * nodes. A node that leaves the list (or an event that has been applied) goes
 * to a lock-free free stack and is reused by the next request; malloc runs
 * only on a requesting thread when that stack is empty. Nodes are freed only
 * when the list is destroyed, so a list's memory is bounded by the largest
 * number of entries plus queued events it ever held.
 *
 * The list holds no duplicates: adding a value already present is dropped,
 * and removing takes out the one matching entry. T must be trivially
 * copyable and comparable with ==; for a pair of pointers a node is 32 bytes.
 */
#ifndef CATHREADSAFELIST_H
#define CATHREADSAFELIST_H

#include "CAAtomicStack.h"

#include <cstdint>
#include <cstdlib>
#include <new>
#include <type_traits>

template <class T> class TThreadSafeList
{
public:
    static_assert(std::is_trivially_copyable<T>::value, "nodes are raw heap blocks");

    enum EventKind : std::uint32_t
    {
        kEventAdd = 0,
        kEventRemove = 1
    };

    // One heap block: link, event kind, value.
    struct Node
    {
        Node* mNext;
        std::uint32_t mEventKind;
        T mObject;
    };

    // Forward iteration over the active entries, in the order they were added.
    class iterator
    {
    public:
        explicit iterator(Node* node) : mNode(node) {}
        T& operator*() const { return mNode->mObject; }
        T* operator->() const { return &mNode->mObject; }
        iterator& operator++()
        {
            mNode = mNode->mNext;
            return *this;
        }
        bool operator==(const iterator& other) const { return mNode == other.mNode; }
        bool operator!=(const iterator& other) const { return mNode != other.mNode; }

    private:
        Node* mNode;
    };

    TThreadSafeList() : mActiveList(nullptr) {}
    TThreadSafeList(const TThreadSafeList&) = delete;
    TThreadSafeList& operator=(const TThreadSafeList&) = delete;

    // Frees every node: the active entries, queued events and recycled nodes.
    // No other thread may use the list any more. [control]
    ~TThreadSafeList()
    {
        FreeChain(mActiveList);
        FreeChain(mPendingList.PopAll());
        FreeChain(mFreeList.PopAll());
    }

    // Queues adding obj; it appears at the next update(). Throws
    // std::bad_alloc when a new node cannot be allocated. [any]
    void deferAdd(const T& obj) { Defer(kEventAdd, obj); }

    // Queues removing obj; it disappears at the next update(). Removing a
    // value that is not in the list then changes nothing. [any]
    void deferRemove(const T& obj) { Defer(kEventRemove, obj); }

    // Applies every queued event in queue order. Only the owning thread may
    // call it, and not while iterating. [render]
    void update()
    {
        Node* taken = mPendingList.PopAll();
        // The stack hands the newest event first; reverse to queue order.
        Node* events = nullptr;
        while (taken != nullptr) {
            Node* next = taken->mNext;
            taken->mNext = events;
            events = taken;
            taken = next;
        }
        while (events != nullptr) {
            Node* event = events;
            events = events->mNext;
            Node** link = &mActiveList;
            while (*link != nullptr && !((*link)->mObject == event->mObject)) {
                link = &(*link)->mNext;
            }
            if (event->mEventKind == kEventAdd) {
                if (*link != nullptr) {
                    mFreeList.PushAtomic(event);
                } else {
                    event->mNext = nullptr;
                    *link = event;
                }
            } else {
                if (*link != nullptr) {
                    Node* removed = *link;
                    *link = removed->mNext;
                    mFreeList.PushAtomic(removed);
                }
                mFreeList.PushAtomic(event);
            }
        }
    }

    // Iteration over the active entries; owning thread only. [render]
    iterator begin() const { return iterator(mActiveList); }
    iterator end() const { return iterator(nullptr); }

    // A node for a new event: a recycled one when the free stack has any,
    // else a new heap block (throws std::bad_alloc when malloc fails). The
    // caller owns it until it pushes it somewhere. [any]
    Node* AllocNode()
    {
        Node* taken = mFreeList.PopAll();
        if (taken == nullptr) {
            void* block = std::malloc(sizeof(Node));
            if (block == nullptr) {
                throw std::bad_alloc();
            }
            return static_cast<Node*>(block);
        }
        // Keep the first node and give the rest back in one piece.
        Node* rest = taken->mNext;
        if (rest != nullptr) {
            Node* last = rest;
            while (last->mNext != nullptr) {
                last = last->mNext;
            }
            mFreeList.PushChain(rest, last);
        }
        return taken;
    }

private:
    void Defer(EventKind kind, const T& obj)
    {
        Node* node = AllocNode();
        node->mEventKind = kind;
        node->mObject = obj;
        mPendingList.PushAtomic(node);
    }

    static void FreeChain(Node* node)
    {
        while (node != nullptr) {
            Node* next = node->mNext;
            std::free(node);
            node = next;
        }
    }

    Node* mActiveList;
    TAtomicStack<Node> mPendingList;
    TAtomicStack<Node> mFreeList;
};

#endif
