#include "ole/image/MTPixelIterator.h"

#include <algorithm>
#include <cstdint>
#include <new>

#include "ole/Kv/KvException.h"
#include "ole/platform/os/KvAssert.h"

using Kv::Image::Surface;

namespace {

std::atomic<MTPixelIterator*> theInstance{nullptr};
// Guards the making of the instance; exists from static initialisation to static destruction.
Kv::Ptr<iCriticalSection> theInstanceLock;

struct StaticCsInitializer_TheMTPixelIteratorExecutor {
    StaticCsInitializer_TheMTPixelIteratorExecutor()
    {
        if (!theInstanceLock) theInstanceLock = OS()->synchronisation()->createCriticalSection(0);
    }
    ~StaticCsInitializer_TheMTPixelIteratorExecutor() { theInstanceLock.reset(); }
};
StaticCsInitializer_TheMTPixelIteratorExecutor theStaticCsInitializer;

constexpr int kLinesPerStep = 2;
constexpr int kMostWorkers = 4;

// `base` moved by a signed byte count, as an address: a region of raw memory may be described
// by any pointer and stride, and nothing is read here.
unsigned char* offsetAddress(unsigned char* base, std::int64_t bytes) noexcept
{
    return reinterpret_cast<unsigned char*>(reinterpret_cast<std::uintptr_t>(base) +
                                            static_cast<std::uintptr_t>(bytes));
}

// (line - top) * stride as a 32-bit product, wrapping as 32-bit arithmetic does, sign-extended.
std::int64_t lineOffset(int line, int top, int stride) noexcept
{
    const std::uint32_t product =
        (static_cast<std::uint32_t>(line) - static_cast<std::uint32_t>(top)) * static_cast<std::uint32_t>(stride);
    return static_cast<std::int32_t>(product);
}

// Bytes a line function may touch on a line of `width` pixels.
std::size_t rowBytes(int width, unsigned int bitsPerPixel) noexcept
{
    if (width <= 0) return 0;
    return (std::size_t(width) * bitsPerPixel + 7) >> 3;
}

// How many of `lines` lines, the first at `first` and each `stride` bytes on, have all their
// `row` bytes inside the memory behind `surface`.
int linesInMemory(const Surface& surface, const unsigned char* first, int stride, std::size_t row,
                  int lines)
{
    if (lines <= 0 || row == 0) return std::max(lines, 0);
    const std::size_t room = surface.holderBytesFrom(first);
    if (room < row) return 0;
    std::size_t fit;
    if (stride == 0) {
        fit = std::size_t(lines);
    } else if (stride > 0) {
        fit = (room - row) / std::size_t(stride) + 1;
    } else {
        // Upward through memory: as far as the start of the holder.
        const auto begin = reinterpret_cast<std::uintptr_t>(surface.getMemHolder()->getBuffer());
        const std::size_t below = reinterpret_cast<std::uintptr_t>(first) - begin;
        fit = below / (std::size_t(-std::int64_t(stride))) + 1;
    }
    return int(std::min<std::size_t>(fit, std::size_t(lines)));
}

}  // namespace

MTPixelIterator* MTPixelIterator::instance()
{
    if (MTPixelIterator* existing = theInstance.load(std::memory_order_acquire)) return existing;
    if (!theInstanceLock)  // called before this module's static initialisers ran
        theInstanceLock = OS()->synchronisation()->createCriticalSection(0);
    Kv::Ptr<iCriticalSection> lock = theInstanceLock;
    lock->enter();
    MTPixelIterator* it = theInstance.load(std::memory_order_acquire);
    if (!it) {
        // Should this throw, the section stays held by this thread: a later call here tries
        // again, a call on another thread waits.
        it = new MTPixelIterator();
        theInstance.store(it, std::memory_order_release);
    }
    lock->leave();
    return it;
}

// One worker a processor, at most four, at least one when the processors are not known.
MTPixelIterator::MTPixelIterator()
{
    const unsigned int processors = OS()->systemInfo()->processorCount();
    const int workers = processors == 0 ? 1 : int(std::min<unsigned int>(processors, kMostWorkers));
    queues_.reserve(workers);
    using Null = KvDC::NullCommand<KvDC::NoCtx, KvDC::ThreadSafetyTraits::ThreadSafe>;
    for (int i = 0; i < workers; ++i) {
        // The queues already made stay alive if a later one fails: their threads may be busy.
        auto* queue = new (std::nothrow) WorkerQueue("$Pixel Iterator Thread", Null(), Null(), 1, 1 << i, false);
        if (!queue) throw Kv::Exception::BadAlloc("MTPixelIterator: Out of memory!", __FILE__, __LINE__);
        if (!queue->threadRunning()) {
            delete queue;  // its thread is not there to be busy
            throw Kv::Exception::RuntimeError("MTPixelIterator: Failed to start worker thread!", __FILE__, __LINE__);
        }
        queues_.push_back(queue);
    }
}

MTPixelIterator::~MTPixelIterator()
{
    for (WorkerQueue* queue : queues_) delete queue;
}

int MTPixelIterator::iterate(int param, LineFunc lineFunc, unsigned char* src, unsigned char* dst,
                             int left, int top, int right, int bottom, int srcBitsPerPixel,
                             int dstBitsPerPixel, int srcStride, int dstStride)
{
    MTPixelIteratorParams params;
    params.doneEvent = OS()->synchronisation()->createEvent(1, 0, 0);
    params.param = param;
    params.lineFunc = lineFunc;
    params.src = src;
    params.dst = dst;
    params.left = left;
    params.top = top;
    params.right = right;
    params.bottom = bottom;
    params.result = 0;
    params.srcBitsPerPixel = srcBitsPerPixel;
    params.dstBitsPerPixel = dstBitsPerPixel;
    params.srcStride = srcStride;
    params.dstStride = dstStride;
    params.nextLine.store(top, std::memory_order_relaxed);
    params.linesPerStep = kLinesPerStep;
    params.activeWorkers.store(int(queues_.size()), std::memory_order_relaxed);

    // A worker that will never see the block is counted out here, so that the wait below
    // still ends.
    auto countOut = [&params] {
        if (params.activeWorkers.fetch_sub(1, std::memory_order_acq_rel) == 1) params.doneEvent->signal();
    };

    // One command a worker, however few the lines: each worker leaves through getNextLine.
    std::size_t handled = 0;
    try {
        for (WorkerQueue* queue : queues_) {
            MTPixelIteratorCmd command(static_cast<KvDC::Receiver<MTPixelIteratorCmd>*>(this));
            if (command.isValid()) {
                CriticalSection::Lock hold(command.paramRep()->section());
                command.paramRep()->param = &params;
            } else {
                KvDC::ErrorNullRep();
            }
            ++handled;
            if (!queue->insert(command, 0)) countOut();
        }
    } catch (...) {
        // The block lives in this frame: the workers already given it must be done with it
        // before the exception may leave.
        for (; handled < queues_.size(); ++handled) countOut();
        params.doneEvent->wait(iThreadEvent::forever);
        throw;
    }
    params.doneEvent->wait(iThreadEvent::forever);
    return __atomic_load_n(&params.result, __ATOMIC_RELAXED);
}

int MTPixelIterator::iterate(int param, LineFunc lineFunc, Surface src, Surface dst, TopDownRect* rect)
{
    KV_ASSERT(dst.getDataPtr() != NULL);
    KV_ASSERT(( src.getDataPtr() == NULL ) || ( ( src.getWidth() == dst.getWidth() ) && ( src.getHeight() == dst.getHeight() ) ));

    const std::int64_t width = dst.getWidth();
    const std::int64_t height = dst.getHeight();
    unsigned char* srcData = src.getDataPtr();
    unsigned char* dstData = dst.getDataPtr();
    // Reads the stride of both pictures.
    const int srcStride = int(src.getStride());
    const int dstStride = int(dst.getStride());
    int left = 0, top = 0, right = int(width), bottom = int(height);
    if (rect) {
        if (!(width > rect->left && height > rect->top && rect->bottom > 0 && rect->right > 0)) return 0;
        left = std::max(rect->left, 0);
        top = std::max(rect->top, 0);
        right = int(std::min<std::int64_t>(rect->right, width));
        bottom = int(std::min<std::int64_t>(rect->bottom, height));
        const auto firstPixel = [top, left](const Surface& s) {
            return static_cast<std::uint32_t>(s.getStride() * std::uint32_t(top) +
                                              ((s.getBitsPerPixel() * std::uint32_t(left)) >> 3));
        };
        dstData = offsetAddress(dstData, firstPixel(dst));
        if (srcData) srcData = offsetAddress(srcData, firstPixel(src));
    }

    // A picture whose descriptors claim more lines than its memory holds stops at the memory's
    // edge: those lines are never handed to the line function.
    if (bottom > top) {
        int lines = bottom - top;
        lines = linesInMemory(dst, dstData, dstStride, rowBytes(right - left, dst.getBitsPerPixel()), lines);
        if (srcData)
            lines = linesInMemory(src, srcData, srcStride, rowBytes(right - left, src.getBitsPerPixel()), lines);
        bottom = top + lines;
    }

    return instance()->iterate(param, lineFunc, srcData, dstData, left, top, right, bottom,
                               src.getBitsPerPixel(), dst.getBitsPerPixel(), srcStride, dstStride);
}

int MTPixelIterator::iterate(int param, LineFunc lineFunc, Surface surface, TopDownRect* rect)
{
    return iterate(param, lineFunc, Surface(), surface, rect);
}

bool MTPixelIterator::getNextLine(MTPixelIteratorParams& params, int& line)
{
    // The counter runs past bottom harmlessly; `line >= top` only matters to a counter that ran
    // past the largest int and wrapped round.
    line = params.nextLine.fetch_add(params.linesPerStep, std::memory_order_relaxed);
    if (line >= params.top && line < params.bottom && __atomic_load_n(&params.result, __ATOMIC_RELAXED) == 0)
        return true;
    if (params.activeWorkers.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        // Read only now that this worker is counted out; a counted reference keeps the event
        // alive through the signal, after which the caller's frame may vanish.
        Kv::Ptr<iThreadEvent> done = params.doneEvent;
        done->signal();
    }
    return false;
}

int MTPixelIterator::executeCommand(MTPixelIteratorCmd& command, KvDC::NoCtx&)
{
    MTPixelIteratorParams* params = nullptr;
    if (MTPixelIteratorCmd::RepType* rep = command.paramRep()) {
        CriticalSection::Lock hold(rep->section());  // the second entry on this thread
        params = rep->param;
    } else {
        KvDC::ErrorNullRep();
    }
    if (!params)
        throw Kv::Exception::LogicError("MTPixelIterator: Null parameters passed to executeCommand!", __FILE__, __LINE__);

    // Everything a step needs, read while this worker still counts as active.
    const LineFunc lineFunc = params->lineFunc;
    const int param = params->param;
    const int x = params->left;
    const int width = int(static_cast<std::uint32_t>(params->right) - static_cast<std::uint32_t>(params->left));
    const int top = params->top;
    const int bottom = params->bottom;
    const int step = params->linesPerStep;
    unsigned char* const src = params->src;
    unsigned char* const dst = params->dst;
    const int srcStride = params->srcStride;
    const int dstStride = params->dstStride;

    int line;
    if (src) {
        while (getNextLine(*params, line)) {
            const int end = int(std::min<std::int64_t>(std::int64_t(line) + step, bottom));
            unsigned char* s = offsetAddress(src, lineOffset(line, top, srcStride));
            unsigned char* d = offsetAddress(dst, lineOffset(line, top, dstStride));
            for (int y = line; y < end; ++y) {
                if (const int failed = lineFunc(param, x, y, width, s, d)) {
                    __atomic_store_n(&params->result, failed, __ATOMIC_RELAXED);
                    break;
                }
                s += srcStride;
                d += dstStride;
            }
        }
    } else {
        while (getNextLine(*params, line)) {
            const int end = int(std::min<std::int64_t>(std::int64_t(line) + step, bottom));
            unsigned char* d = offsetAddress(dst, lineOffset(line, top, dstStride));
            for (int y = line; y < end; ++y) {
                if (const int failed = lineFunc(param, x, y, width, d, d)) {
                    __atomic_store_n(&params->result, failed, __ATOMIC_RELAXED);
                    break;
                }
                d += dstStride;
            }
        }
    }
    return 1;
}
