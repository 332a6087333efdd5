#pragma once
// MTPixelIterator runs a per-line function over the lines of a picture on a small fixed team
// of worker threads ("$Pixel Iterator Thread", one per processor, at most four), and blocks
// its caller until every line is done.
//
// Work is handed out by one shared atomic line counter, two lines a step, rather than by
// cutting the picture up front: a worker that meets slow lines simply takes fewer steps. The
// calling thread takes no lines; it sleeps until the last worker signals. The first non-zero
// result of the line function stops the hand-out on every worker, and iterate returns it.
//
// A line function runs on a worker thread, concurrently with itself on other lines, so it may
// share nothing writable between lines; it may throw nothing, and it must not call iterate
// (all workers would end up waiting on themselves).

#include <atomic>
#include <vector>

#include "ole/Kv/KvPtr.h"
#include "ole/image/KvSurface.h"
#include "ole/image/TopDownRect.h"
#include "ole/platform/commands/KvDCCommand.h"
#include "ole/platform/commands/KvWorkerThreadQueue.h"
#include "ole/platform/os/OS.h"

// (param, x, y, width, source line, destination line) -> 0 to go on, anything else to fail.
// x is the region's left column on every call and y the line in picture coordinates; the
// pointers address column x of line y. Without a source both pointers are the destination's.
using MTPixelIteratorLineFunc = int (*)(int, int, int, int, unsigned char*, unsigned char*);

// The shared state of one iterate call. It lives in the caller's frame; the workers reach it
// by pointer until each has been told there is no more work.
struct MTPixelIteratorParams {
    int param;
    MTPixelIteratorLineFunc lineFunc;
    unsigned char* src;  // column left of line top; null when there is no source
    unsigned char* dst;
    int left;
    int top;
    int right;
    int bottom;
    int result;  // 0, or the value of a failed line; read and written with relaxed atomics
    int srcBitsPerPixel;
    int dstBitsPerPixel;
    int srcStride;  // may be negative
    int dstStride;
    std::atomic<int> nextLine;
    int linesPerStep;
    std::atomic<int> activeWorkers;
    Kv::Ptr<iThreadEvent> doneEvent;
};

using MTPixelIteratorCmd = KvDC::ParamCmd<MTPixelIteratorParams*, KvDC::NoTag, KvDC::NoCtx,
                                          MTPixelIteratorParams*, KvDC::ThreadSafetyTraits::ThreadSafe>;

class KV_EXPORT MTPixelIterator : private KvDC::Receiver<MTPixelIteratorCmd> {
public:
    using LineFunc = MTPixelIteratorLineFunc;
    using WorkerQueue =
        KvCmdProcessors::WorkerThreadQueue<KvDC::ThreadSafetyTraits::ThreadSafe, KvDC::NoCtx>;

    // The one iterator of the process; the first call starts the workers. Throws
    // Kv::Exception::BadAlloc or RuntimeError when a worker cannot be made.
    static MTPixelIterator* instance();

    // Runs lineFunc over lines top to bottom - 1 of raw memory; src and dst address column
    // left of line top, and line y lies (y - top) * stride bytes on (a 32-bit signed product).
    // Returns 0, or the non-zero result of a failed line.
    int iterate(int param, LineFunc lineFunc, unsigned char* src, unsigned char* dst, int left,
                int top, int right, int bottom, int srcBitsPerPixel, int dstBitsPerPixel,
                int srcStride, int dstStride);

    // Over two pictures of dst's size (src may be empty), reading both strides; the surfaces are
    // taken by value so that each is held for the length of the call. A null rect means the
    // whole picture; a rect that misses the picture does nothing and returns 0 without
    // touching the workers. Lines that lie beyond either picture's memory are left out.
    static int iterate(int param, LineFunc lineFunc, Kv::Image::Surface src,
                       Kv::Image::Surface dst, TopDownRect* rect);
    // In place: the line function gets the surface's line as source and destination.
    static int iterate(int param, LineFunc lineFunc, Kv::Image::Surface surface, TopDownRect* rect);

    // The worker's side of a run, called on a worker thread by the command body. Returns 1;
    // throws Kv::Exception::LogicError when the command carries no parameter block.
    int executeCommand(MTPixelIteratorCmd& command, KvDC::NoCtx& context) override;

    // Hands out the next step: true with `line` its first line while there is work and no line
    // has failed. Otherwise counts the worker out, the last one signalling doneEvent, and
    // returns false; after that the worker must not touch `params` again.
    static bool getNextLine(MTPixelIteratorParams& params, int& line);

    std::size_t workerCount() const noexcept { return queues_.size(); }

private:
    MTPixelIterator();
    ~MTPixelIterator() override;
    MTPixelIterator(const MTPixelIterator&) = delete;
    MTPixelIterator& operator=(const MTPixelIterator&) = delete;

    std::vector<WorkerQueue*> queues_;
};
