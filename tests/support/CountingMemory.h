#pragma once
// A memory service for tests: counts blocks and bytes, and forwards to the service it replaced
// so that blocks allocated before it was installed can still be released.

#include <atomic>
#include <cstddef>

#include "ole/platform/os/OSCore.h"

class CountingMemory final : public iMemory {
public:
    CountingMemory() : previous_(OS()->setMemory(this)) {}
    ~CountingMemory() { OS()->setMemory(previous_); }
    CountingMemory(const CountingMemory&) = delete;
    CountingMemory& operator=(const CountingMemory&) = delete;

    void* allocate(std::size_t bytes) override
    {
        allocations.fetch_add(1, std::memory_order_relaxed);
        lastBytes.store(bytes, std::memory_order_relaxed);
        return previous_->allocate(bytes);
    }
    void release(void* block) override
    {
        if (block) releases.fetch_add(1, std::memory_order_relaxed);
        previous_->release(block);
    }

    long outstanding() const { return allocations.load() - releases.load(); }

    std::atomic<long> allocations{0};
    std::atomic<long> releases{0};
    std::atomic<std::size_t> lastBytes{0};

private:
    iMemory* previous_;
};
