/*
 * Lock-free stack of intrusive nodes, and the atomic primitive it is built
 * on.
 *
 * Every change of the head is a 64-bit compare-and-swap with a full memory
 * barrier, so a node's contents written before a push are visible to the
 * thread that later takes it. The stack offers no single-node pop: a reader
 * takes the whole chain with one swap (PopAll) and, if it wants only part of
 * it, pushes the rest back in one piece (PushChain). Because a chain is only
 * ever taken whole, and a node's link is read only after the chain has been
 * taken, a head value that was freed and pushed again between a read and its
 * swap (the classic ABA case) cannot corrupt the stack.
 *
 * Node must be a type with a public `Node* mNext` member; the stack neither
 * allocates nor frees nodes.
 */
#ifndef CAATOMICSTACK_H
#define CAATOMICSTACK_H

#include <atomic>

static_assert(sizeof(void*) == 8, "the head swap is a 64-bit compare-and-swap");

// Full-barrier compare-and-swap: when *target holds oldValue, stores
// newValue and returns true; otherwise changes nothing and returns false.
// [render] safe (one locked instruction, no system call)
template <class T>
inline bool CAAtomicCompareAndSwapPtrBarrier(T* oldValue, T* newValue, std::atomic<T*>& target)
{
    static_assert(std::atomic<T*>::is_always_lock_free, "head must swap without a lock");
    return target.compare_exchange_strong(oldValue, newValue, std::memory_order_seq_cst,
                                          std::memory_order_seq_cst);
}

template <class Node> class TAtomicStack
{
public:
    TAtomicStack() : mHead(nullptr) {}
    TAtomicStack(const TAtomicStack&) = delete;
    TAtomicStack& operator=(const TAtomicStack&) = delete;

    // Pushes one node; the caller gives up the node. [any]
    void PushAtomic(Node* node) { PushChain(node, node); }

    // Pushes the chain first..last (linked through mNext, last's link is
    // overwritten) in one step, keeping its order on top. [any]
    void PushChain(Node* first, Node* last)
    {
        Node* head;
        do {
            head = mHead.load(std::memory_order_seq_cst);
            last->mNext = head;
        } while (!CAAtomicCompareAndSwapPtrBarrier(head, first, mHead));
    }

    // Takes the whole stack, most recently pushed node first; null when
    // empty. The caller owns the returned chain. [any]
    Node* PopAll()
    {
        Node* head;
        do {
            head = mHead.load(std::memory_order_seq_cst);
            if (head == nullptr) {
                return nullptr;
            }
        } while (!CAAtomicCompareAndSwapPtrBarrier(head, static_cast<Node*>(nullptr), mHead));
        return head;
    }

private:
    std::atomic<Node*> mHead;
};

#endif
