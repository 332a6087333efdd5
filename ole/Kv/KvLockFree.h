#pragma once
// Kv::LockFree::Stack: an intrusive last-in first-out list of nodes that any number of threads
// push onto and pop from without a lock.
//
// The head is a pointer and a version counter that change together in one 16-byte
// compare-and-swap. A bare pointer swap has the classic reuse hazard: a thread reads head A and
// its next B, is overtaken while others pop A and B and push A back, and then swings the head to
// B, which is no longer on the list. With the version counter that late swap fails, because
// every successful push or pop moves the counter on.
//
// A node's link is read while another thread may already have popped the node; the reader then
// sees a stale value and its swap fails. For that to be harmless a node's memory must stay
// readable as long as the stack is used (the pools built on this never give a block back to
// the heap), and nothing but the stack may write the link while the node is off the list.

#include <cstdint>
#include <cstring>

namespace Kv::LockFree {

template <class T>
class Stack;
namespace Private {
template <class T>
class SLNodeAccessor;
}

// The link of a node. Deliberately without a constructor that writes it: an object that
// derives from it leaves the link alone for its whole life, so that a thread that still reads
// it after a pop races with nobody.
template <class T>
class SLNode {
public:
    // User-provided, so that even value-initialisation of a derived object leaves the link.
    SLNode() noexcept {}

private:
    template <class>
    friend class Private::SLNodeAccessor;

    SLNode* next;
};

namespace Private {

// The only code that touches a node's link; always atomically, because a popper may read the
// link of a node that a pusher is writing.
template <class T>
class SLNodeAccessor {
protected:
    static SLNode<T>* getNext(const SLNode<T>* node) noexcept
    {
        return __atomic_load_n(&node->next, __ATOMIC_ACQUIRE);
    }
    static void setNext(SLNode<T>* node, SLNode<T>* next) noexcept
    {
        __atomic_store_n(&node->next, next, __ATOMIC_RELAXED);
    }
};

}  // namespace Private

template <class T>
class Stack : private Private::SLNodeAccessor<T> {
public:
    using Node = SLNode<T>;

    // All zero: an empty stack. An all-zero block of memory is an empty stack as well.
    constexpr Stack() noexcept = default;
    Stack(const Stack&) = delete;
    Stack& operator=(const Stack&) = delete;

    void push(Node* node) noexcept
    {
        Head seen = loadHead();
        for (;;) {
            this->setNext(node, seen.node);
            if (swapHead(seen, Head{node, seen.version + 1})) break;
        }
        __atomic_add_fetch(&count_, 1, __ATOMIC_RELAXED);
    }

    // Null when the stack is empty.
    Node* pop() noexcept
    {
        Head seen = loadHead();
        for (;;) {
            if (!seen.node) return nullptr;
            Node* next = this->getNext(seen.node);
            if (swapHead(seen, Head{next, seen.version + 1})) break;
        }
        __atomic_sub_fetch(&count_, 1, __ATOMIC_RELAXED);
        return seen.node;
    }

    // The nodes on the stack; exact when no push or pop is under way.
    int count() const noexcept { return __atomic_load_n(&count_, __ATOMIC_RELAXED); }
    bool empty() const noexcept { return loadHead().node == nullptr; }

private:
    struct alignas(16) Head {
        Node* node;
        std::uint64_t version;
    };
    static_assert(sizeof(Head) == 16);

    // The two halves are read one by one and may not belong together; the swap that follows
    // compares both and fails on a torn pair.
    Head loadHead() const noexcept
    {
        Head h;
        h.version = __atomic_load_n(&head_.version, __ATOMIC_ACQUIRE);
        h.node = __atomic_load_n(&head_.node, __ATOMIC_ACQUIRE);
        return h;
    }

    // Replaces the head by `desired` if it still is `expected`; otherwise `expected` becomes the
    // head found.
    bool swapHead(Head& expected, Head desired) noexcept
    {
#if defined(__x86_64__)
        return swap16(&head_, expected, desired);
#else
        return __atomic_compare_exchange(&head_, &expected, &desired, false, __ATOMIC_ACQ_REL,
                                         __ATOMIC_ACQUIRE);
#endif
    }

#if defined(__x86_64__)
    // cmpxchg16b is on every x86-64 processor that runs this editor; asking for it in this one
    // function keeps the rest of the build at the baseline instruction set.
    __attribute__((target("cx16"))) static bool swap16(Head* target, Head& expected,
                                                       const Head& desired) noexcept
    {
        unsigned __int128 want, put;
        std::memcpy(&want, &expected, sizeof want);
        std::memcpy(&put, &desired, sizeof put);
        const unsigned __int128 found =
            __sync_val_compare_and_swap(reinterpret_cast<unsigned __int128*>(target), want, put);
        if (found == want) return true;
        std::memcpy(&expected, &found, sizeof found);
        return false;
    }
#endif

    Head head_{nullptr, 0};
    int count_ = 0;
};

}  // namespace Kv::LockFree
