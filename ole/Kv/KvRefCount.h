#pragma once
// The intrusive count at the root of every interface.

namespace Kv {

// A 32-bit count that starts at 0; the first Kv::Ptr to take the object makes it 1. Copying
// an object does not copy its count: the copy is a new object with no owners yet.
class InternalRefCount {
public:
    virtual ~InternalRefCount() = default;

    int* refCountAddress() noexcept { return &refCount_; }
    int refCount() const noexcept { return __atomic_load_n(&refCount_, __ATOMIC_RELAXED); }

protected:
    InternalRefCount() noexcept : refCount_(0) {}
    InternalRefCount(const InternalRefCount&) noexcept : refCount_(0) {}
    InternalRefCount& operator=(const InternalRefCount&) noexcept { return *this; }

private:
    int refCount_;
};

}  // namespace Kv

// The root of every interface (iFile, iImage, iHostImage, iPixelGuard and the rest). The count
// base is virtual so that an object implementing several interfaces has one count.
class iObject : public virtual Kv::InternalRefCount {
public:
    virtual ~iObject() = default;
};
