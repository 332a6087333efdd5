#pragma once
// Kv::PooledObject: a base that gives a class its own operator new and delete over a pool of
// blocks of the class's size. Blocks given back wait on a lock-free stack for the next new, so
// that an object made and dropped many times a second costs no trip to the heap once the pool
// has grown to the number alive at once. The pool is shared by every module of the process
// (it is found by name) and never gives a block back to the heap.

#include <cstddef>
#include <new>
#include <typeinfo>

#include "ole/Kv/KvLockFree.h"
#include "ole/platform/commands/KvNamedObjects.h"

namespace Kv {

namespace PooledObjectAllocation {

// What happens to a block as it leaves the pool for a new object, and as it comes back.
struct NullInitTraits {
    static void init(void*) noexcept {}
};
struct NullFiniTraits {
    static void fini(void*) noexcept {}
};

// An empty pool asks the heap for one more block: the pool grows to the most ever alive.
struct ExpandingAllocator {
    template <class T>
    static LockFree::SLNode<T>* reuse(LockFree::Stack<T>& pool) noexcept
    {
        return pool.pop();
    }
    static void* fresh(std::size_t bytes) { return ::operator new(bytes); }
};

// Every block given back stays in the pool.
struct ExpandingDeallocator {
    template <class T>
    static void giveBack(LockFree::Stack<T>& pool, LockFree::SLNode<T>* node) noexcept
    {
        pool.push(node);
    }
};

template <class InitTraits, class FiniTraits, class Allocator, class Deallocator>
struct Traits {
    using Init = InitTraits;
    using Fini = FiniTraits;
    using Alloc = Allocator;
    using Dealloc = Deallocator;
};

}  // namespace PooledObjectAllocation

namespace PooledObjectDebug {

// Watches blocks come and go; this one watches nothing.
template <class T>
struct NullTraits {
    void taken(void*) noexcept {}
    void givenBack(void*) noexcept {}
};

}  // namespace PooledObjectDebug

namespace Private {

// The pool of T, found by name on first use so that all modules share it.
template <class T>
struct StackHolder {
    static LockFree::Stack<T>* getStack()
    {
        static LockFree::Stack<T>* const theStack = [] {
            LockFree::Stack<T>* found = nullptr;
            NamedObjects::findOrCreate(&found, typeid(LockFree::Stack<T>).name());
            return found;
        }();
        return theStack;
    }
};

template <class T, template <class> class DebugTraits>
struct DebugTraitsHolder {
    static DebugTraits<T>* getDT()
    {
        static DebugTraits<T>* const theDT = [] {
            DebugTraits<T>* found = nullptr;
            NamedObjects::findOrCreate(&found, typeid(DebugTraits<T>).name());
            return found;
        }();
        return theDT;
    }
};

}  // namespace Private

// T derives from PooledObject<T, ...>. A block in the pool keeps its link in the SLNode part of
// the T that last lived in it; T itself never writes there.
template <class T, class AllocationTraits, template <class> class DebugTraits>
class PooledObject : public LockFree::SLNode<T> {
public:
    using Pool = LockFree::Stack<T>;

    // A block of exactly T's size comes from the pool; any other size (a class derived from T)
    // comes from the global operator new.
    static void* operator new(std::size_t bytes)
    {
        if (bytes != sizeof(T)) return ::operator new(bytes);
        Pool& pool = *Private::StackHolder<T>::getStack();
        DebugTraits<T>& debug = *Private::DebugTraitsHolder<T, DebugTraits>::getDT();
        void* block = nullptr;
        if (LockFree::SLNode<T>* node = AllocationTraits::Alloc::reuse(pool))
            block = blockOf(node);
        else
            block = AllocationTraits::Alloc::fresh(sizeof(T));
        AllocationTraits::Init::init(block);
        debug.taken(block);
        return block;
    }

    // Only a block of T's size goes into the pool; another goes to the global operator delete,
    // and null does nothing. Also called when T's constructor throws, so that the block is not
    // lost.
    static void operator delete(void* block, std::size_t bytes) noexcept
    {
        if (!block) return;
        if (bytes != sizeof(T)) {
            ::operator delete(block);
            return;
        }
        Private::DebugTraitsHolder<T, DebugTraits>::getDT()->givenBack(block);
        AllocationTraits::Fini::fini(block);
        AllocationTraits::Dealloc::giveBack(*Private::StackHolder<T>::getStack(), nodeOf(block));
    }

    // The shared pool, for diagnostics.
    static Pool& pool() { return *Private::StackHolder<T>::getStack(); }

protected:
    PooledObject() noexcept {}
    PooledObject(const PooledObject&) noexcept : LockFree::SLNode<T>() {}
    PooledObject& operator=(const PooledObject&) noexcept { return *this; }
    ~PooledObject() = default;

private:
    // Where the link lies in a block: the place of the SLNode part within a T, found by
    // address arithmetic on storage that holds no object.
    static std::ptrdiff_t linkOffset() noexcept
    {
        alignas(T) static unsigned char shape[sizeof(T)];
        T* t = reinterpret_cast<T*>(shape);
        auto* link = static_cast<LockFree::SLNode<T>*>(static_cast<PooledObject*>(t));
        return reinterpret_cast<unsigned char*>(link) - shape;
    }
    static LockFree::SLNode<T>* nodeOf(void* block) noexcept
    {
        return reinterpret_cast<LockFree::SLNode<T>*>(static_cast<unsigned char*>(block) +
                                                      linkOffset());
    }
    static void* blockOf(LockFree::SLNode<T>* node) noexcept
    {
        return reinterpret_cast<unsigned char*>(node) - linkOffset();
    }
};

}  // namespace Kv
