#pragma once
// Kv::splitIf: cuts a string at a separator, in three stages (find the separators, turn
// their indices into regions, build the pieces), for paths and for the numbers of a line.

#include <climits>
#include <type_traits>
#include <vector>

#include "ole/misc/LightweightString.h"
#include "ole/misc/StdAllocator.h"

namespace Kv {

enum SplitFlags : unsigned int {
    SplitMergeRuns = 1,      // a separator directly after a separator is ignored
    SplitHonourQuotes = 2,   // separators between double quotes do not split
    SplitKeepSeparator = 4,  // each piece keeps its closing separator
};

struct StringRegion {
    unsigned int start;
    unsigned int length;
};

template <class T>
struct IsMatchingChar {
    T ch;
    explicit IsMatchingChar(T c) noexcept : ch(c) {}
    bool operator()(T c) const noexcept { return c == ch; }
};

template <class S>
struct StringToVec {
    using VecT = std::vector<S, StdAllocator<S>>;
};

// Appends the text of a region of the source, clipped to the source, to the output.
template <class S>
class SplitOutputBuilder {
public:
    SplitOutputBuilder(const S& source, typename StringToVec<S>::VecT& out) noexcept
        : source_(source), out_(out)
    {
    }

    void operator()(const StringRegion& region)
    {
        const unsigned int length = source_.size();
        if (region.start >= length) {
            out_.push_back(S());
            return;
        }
        unsigned int n = region.length;
        if (n > length - region.start) n = length - region.start;
        out_.push_back(S(source_.c_str() + region.start, n));
    }

private:
    const S& source_;
    typename StringToVec<S>::VecT& out_;
};

// Gathers the indices of the separating characters. A run of separators is recognised only
// after the first stored index, so with flag 1 two leading separators record only the first.
// Indices are ints: a text longer than INT_MAX characters is searched up to there.
template <class S, class Pred>
void findSeparators(const S& text, Pred separator, std::vector<int>& indices, unsigned int flags)
{
    using Char = std::remove_cv_t<std::remove_reference_t<decltype(text.c_str()[0])>>;
    const unsigned int length = text.size();
    if (length == 0) return;
    const Char* s = text.c_str();
    const bool quoteMode = (flags & SplitHonourQuotes) && !separator(Char('"'));
    const int end = length > unsigned(INT_MAX) ? INT_MAX : int(length);
    bool inQuotes = false;
    int last = -1;
    for (int i = 0; i < end; ++i) {
        const Char c = s[i];
        if (separator(c)) {
            if (quoteMode && inQuotes) continue;
            if (!indices.empty() && i == last + 1) {
                last = i;
                if (flags & SplitMergeRuns) continue;
            }
            indices.push_back(i);
            last = i;
        } else if (c == Char('"') && (i == 0 || s[i - 1] != Char('\\'))) {
            inQuotes = !inQuotes;
        }
    }
}

// Turns separator indices into pieces. A leading separator gives no leading empty piece
// (except on a text that is one separator alone), a trailing one no trailing empty piece, and
// two side by side give an empty piece. `keep` (0 or 1) lengthens every piece but the last.
template <class S, class Builder>
void convertIndicesToSubStrings(const S& text, const std::vector<int>& indices, Builder& builder,
                                unsigned int keep)
{
    if (indices.empty()) return;
    const unsigned int length = text.size();
    const std::size_t k = indices.size();
    const unsigned int first = unsigned(indices[0]);
    if (first != 0)
        builder(StringRegion{0, first + keep});
    else if (length == 1)
        builder(StringRegion{0, keep});
    for (std::size_t i = 0; i + 1 < k; ++i) {
        const unsigned int a = unsigned(indices[i]);
        const unsigned int b = unsigned(indices[i + 1]);
        builder(StringRegion{a + 1, b - a - 1 + keep});
    }
    const unsigned int lastIndex = unsigned(indices[k - 1]);
    if (lastIndex != length - 1) builder(StringRegion{lastIndex + 1, length - lastIndex - 1});
}

// Appends the pieces of `text` to `out` and returns out's whole size, earlier contents
// counted. An empty text, or one without separators, gives one piece: a shared copy of it.
template <class S, class Pred>
unsigned int splitIf(const S& text, Pred separator, typename StringToVec<S>::VecT& out,
                     unsigned int flags)
{
    std::vector<int> indices;
    findSeparators(text, separator, indices, flags);
    if (indices.empty()) {
        out.push_back(text);
        return unsigned(out.size());
    }
    SplitOutputBuilder<S> builder(text, out);
    convertIndicesToSubStrings(text, indices, builder, (flags & SplitKeepSeparator) ? 1u : 0u);
    return unsigned(out.size());
}

}  // namespace Kv
