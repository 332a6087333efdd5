#pragma once
// How the converters of ImageConvert.cpp and ImageConvertFields.cpp keep their walks inside
// the memory of each picture. The walks go by the descriptors, which may claim more lines, or
// longer lines, than the memory behind a picture holds; here a walk learns, before it starts,
// which of its lines lie in memory, so that it touches nothing outside and spends no time on
// lines that are not there. Not part of the installed interface.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <limits>

#include "ole/image/KvSurface.h"

namespace Kv::Image::Walk {

// The bytes behind a picture, as addresses [begin, end).
struct Extent {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
};

// A Surface's holder. A picture of the host's own that is not a Surface has no holder to ask,
// and is trusted whole, as the picture operations themselves do.
inline Extent extentOf(const Base& picture)
{
    const auto* surface = dynamic_cast<const Surface*>(&picture);
    if (!surface) return Extent{0, std::numeric_limits<std::uintptr_t>::max()};
    const MemHolderPtr& holder = surface->getMemHolder();
    if (!holder || !holder->getBuffer()) return Extent{};
    const auto begin = reinterpret_cast<std::uintptr_t>(holder->getBuffer());
    return Extent{begin, begin + holder->getSize()};
}

inline std::uintptr_t address(const unsigned char* p) { return reinterpret_cast<std::uintptr_t>(p); }

// Bytes from `at` to the end of the extent; 0 outside it.
inline std::size_t bytesFrom(const Extent& e, std::uintptr_t at)
{
    return at >= e.begin && at < e.end ? e.end - at : 0;
}

// A pointer for an address that bytesFrom has found inside an extent.
inline unsigned char* pointer(std::uintptr_t at) { return reinterpret_cast<unsigned char*>(at); }

// Rounds y of [lo, hi).
struct Run {
    std::uint64_t lo = 0;
    std::uint64_t hi = 0;
    bool empty() const { return lo >= hi; }
};

inline Run intersect(Run a, Run b) { return Run{std::max(a.lo, b.lo), std::min(a.hi, b.hi)}; }

// One side of a line walk: in round y its line starts at first + y * step (a step may be
// negative, or 0 for a walk that stays on one line).
struct Side {
    Extent extent;
    std::uintptr_t first;
    std::int64_t step;
};

// The rounds of [0, count) in which the side's line starts inside its memory. The start
// positions form one arithmetic run, so they are in memory for one run of rounds.
inline Run inside(const Side& s, std::uint64_t count)
{
    if (s.extent.begin >= s.extent.end || count == 0) return Run{};
    using Wide = __int128;
    const Wide a = Wide(s.first), b = Wide(s.extent.begin), e = Wide(s.extent.end) - 1;
    if (s.step == 0) return a >= b && a <= e ? Run{0, count} : Run{};
    // b <= a + y * step <= e, solved for y.
    auto floorDiv = [](Wide n, Wide d) { return n / d - ((n % d != 0) && ((n < 0) != (d < 0))); };
    auto ceilDiv = [&](Wide n, Wide d) { return -floorDiv(-n, d); };
    const Wide step = s.step;
    Wide lo, hi;  // inclusive
    if (step > 0) {
        lo = ceilDiv(b - a, step);
        hi = floorDiv(e - a, step);
    } else {
        lo = ceilDiv(a - e, -step);
        hi = floorDiv(a - b, -step);
    }
    lo = std::max<Wide>(lo, 0);
    hi = std::min<Wide>(hi, Wide(count) - 1);
    if (lo > hi) return Run{};
    return Run{std::uint64_t(lo), std::uint64_t(hi) + 1};
}

// The rounds of `limit` in which every side of one copy starts inside its memory. A copy
// whose sides all stand still would do the same work in every round; it does it once, in its
// last round.
inline Run copyRun(std::uint64_t count, std::initializer_list<Side> sides,
                   Run limit = Run{0, std::numeric_limits<std::uint64_t>::max()})
{
    Run run = intersect(Run{0, count}, limit);
    bool moves = false;
    for (const Side& s : sides) {
        run = intersect(run, inside(s, count));
        moves = moves || s.step != 0;
    }
    if (!moves && !run.empty()) run.lo = run.hi - 1;
    return run;
}

// Calls visit(y) for every round of the given runs, once each, in increasing order: the
// rounds in which some copy of the walk has something to do.
template <class Visit>
void forEachRound(const Run* runs, std::size_t count, Visit visit)
{
    Run sorted[8];
    std::size_t n = 0;
    for (std::size_t i = 0; i < count && n < 8; ++i)
        if (!runs[i].empty()) sorted[n++] = runs[i];
    std::sort(sorted, sorted + n, [](const Run& a, const Run& b) { return a.lo < b.lo; });
    std::uint64_t next = 0;
    for (std::size_t i = 0; i < n; ++i) {
        for (std::uint64_t y = std::max(next, sorted[i].lo); y < sorted[i].hi; ++y) visit(y);
        next = std::max(next, sorted[i].hi);
    }
}

inline bool within(const Run& r, std::uint64_t y) { return y >= r.lo && y < r.hi; }

// Copies up to `bytes` bytes of one line, as many as both memories hold from the two starts.
inline void copyLine(const Extent& to, std::uintptr_t dst, const Extent& from, std::uintptr_t src,
                     std::size_t bytes)
{
    const std::size_t n = std::min({bytes, bytesFrom(to, dst), bytesFrom(from, src)});
    if (n) std::memmove(pointer(dst), pointer(src), n);
}

// How many items of `itemBytes` fit in `room` bytes when the last item needs only `lastNeeds`
// of its bytes (a sample read for its low byte alone).
inline std::uint64_t itemsIn(std::size_t room, std::size_t itemBytes, std::size_t lastNeeds)
{
    if (room < lastNeeds || itemBytes == 0) return 0;
    return (room - lastNeeds) / itemBytes + 1;
}

// One line copy of a walk: in round y, `bytes` bytes from the line of `from` to the line of
// `to`, in the rounds of `limit`.
struct LineCopy {
    Side to;
    Side from;
    std::size_t bytes;
    Run limit = Run{0, std::numeric_limits<std::uint64_t>::max()};
};

// Runs a walk of `count` rounds whose every round does the given copies in their order. Only
// the rounds in which some copy has a line in memory are visited, so the time a walk takes
// follows the memory that it touches and not the lines its descriptors claim.
inline void copyLines(std::uint64_t count, std::initializer_list<LineCopy> copies)
{
    constexpr std::size_t most = 8;
    Run runs[most];
    const LineCopy* list[most];
    std::size_t n = 0;
    for (const LineCopy& c : copies) {
        if (n == most) break;
        list[n] = &c;
        runs[n++] = c.bytes ? copyRun(count, {c.to, c.from}, c.limit) : Run{};
    }
    forEachRound(runs, n, [&](std::uint64_t y) {
        for (std::size_t i = 0; i < n; ++i) {
            if (!within(runs[i], y)) continue;
            const LineCopy& c = *list[i];
            copyLine(c.to.extent, c.to.first + y * std::uint64_t(c.to.step), c.from.extent,
                     c.from.first + y * std::uint64_t(c.from.step), c.bytes);
        }
    });
}

}  // namespace Kv::Image::Walk
