#pragma once
// Counted blocks of bytes: the iMemHolder interface that pictures keep their pixels behind,
// ByteBufferImpl that owns its block, and FastMemSet.

#include "ole/Kv/KvRefCount.h"
#include "ole/platform/os/KvPlatformExport.h"

// A block of bytes that can be shared by count.
class iMemHolder : public iObject {
public:
    virtual unsigned char* getBuffer() const = 0;
    virtual unsigned int getSize() const = 0;
    virtual unsigned int getUsed() const = 0;
    // Whether the value was taken.
    virtual bool setUsed(unsigned int used) = 0;
};

// Owns its block, which comes from OS()->memory() and lives as long as the object.
class KV_EXPORT ByteBufferImpl : public iMemHolder {
public:
    // No block yet: buffer null, size as requested, used 0.
    explicit ByteBufferImpl(unsigned int size = 0) noexcept;
    ~ByteBufferImpl() override;
    ByteBufferImpl(const ByteBufferImpl&) = delete;
    ByteBufferImpl& operator=(const ByteBufferImpl&) = delete;

    // Gets a block of `size` bytes (uncleared, 64-byte aligned) in place of any earlier one.
    bool alloc(unsigned int size);

    unsigned char* getBuffer() const override { return buffer_; }
    unsigned int getSize() const override { return size_; }
    unsigned int getUsed() const override { return used_; }
    bool setUsed(unsigned int used) override;

private:
    void release() noexcept;

    unsigned char* buffer_;
    void* block_;
    unsigned int size_;
    unsigned int used_;
};

// Fills `bytes` bytes with the 32-bit pattern, lowest byte first; a tail shorter than four
// bytes takes the pattern's first bytes.
KV_EXPORT void FastMemSet(void* destination, unsigned int pattern, unsigned long bytes);
