#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "ole/misc/KvSplit.h"

namespace {

using S = LightweightString<char>;
using W = LightweightString<wchar_t>;

std::vector<std::string> split(const char* text, char sep, unsigned int flags)
{
    Kv::StringToVec<S>::VecT out;
    Kv::splitIf(S(text), Kv::IsMatchingChar<char>(sep), out, flags);
    std::vector<std::string> pieces;
    for (const S& s : out) pieces.emplace_back(s.c_str());
    return pieces;
}

// An independent reading of the splitter's rules, on std::string: first decide for every
// character whether it separates, then cut.
std::vector<std::string> referenceSplit(const std::string& text, char sep, unsigned int flags)
{
    if (text.empty()) return {""};
    const bool quoteMode = (flags & 2) && sep != '"';
    std::vector<bool> isSep(text.size(), false), seen(text.size(), false);
    bool quoted = false;
    bool anyRecorded = false;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == sep) {
            if (quoteMode && quoted) continue;
            seen[i] = true;  // a separator the scan looked at
            const bool continuesRun = anyRecorded && i > 0 && seen[i - 1];
            if (continuesRun && (flags & 1)) continue;
            isSep[i] = true;
            anyRecorded = true;
        } else if (text[i] == '"' && (i == 0 || text[i - 1] != '\\')) {
            quoted = !quoted;
        }
    }
    std::vector<size_t> cuts;
    for (size_t i = 0; i < text.size(); ++i)
        if (isSep[i]) cuts.push_back(i);
    if (cuts.empty()) return {text};
    const size_t keep = (flags & 4) ? 1 : 0;
    std::vector<std::string> out;
    if (cuts[0] != 0)
        out.push_back(text.substr(0, cuts[0] + keep));
    else if (text.size() == 1)
        out.push_back(text.substr(0, keep));
    for (size_t i = 0; i + 1 < cuts.size(); ++i)
        out.push_back(text.substr(cuts[i] + 1, cuts[i + 1] - cuts[i] - 1 + keep));
    if (cuts.back() != text.size() - 1) out.push_back(text.substr(cuts.back() + 1));
    return out;
}

using Pieces = std::vector<std::string>;

}  // namespace

// Cases worth reading; the generated inputs further down check the rest against the reference.
TEST(Split, CommaCases)
{
    EXPECT_EQ(split("a,,b", ',', 0), (Pieces{"a", "", "b"}));
    EXPECT_EQ(split(",a,", ',', 0), (Pieces{"a"})) << "a separator at either end opens no piece";
    EXPECT_EQ(split(",", ',', 0), (Pieces{""}));
    EXPECT_EQ(split(",", ',', 4), (Pieces{","}));
    // With flag 1 a run's later separators split nothing: they stay at the head of the next
    // piece, which is what number parsing after a run of blanks relies on.
    EXPECT_EQ(split("a,,b", ',', 1), (Pieces{"a", ",b"}));
    EXPECT_EQ(split(",,a", ',', 1), (Pieces{",a"}));  // a run is only seen after the first index
    EXPECT_EQ(split("\"a,b\",c", ',', 2), (Pieces{"\"a,b\"", "c"}));
    EXPECT_EQ(split("\\\"a,b", ',', 2), (Pieces{"\\\"a", "b"}));  // an escaped quote does not open
    EXPECT_EQ(split("a\"b\"c", '"', 2), (Pieces{"a", "b", "c"}));  // the quote as separator
}

TEST(Split, ResultCountsEarlierContentAndCopiesShare)
{
    Kv::StringToVec<W>::VecT out;
    const W path(L"/scans/reel/frame.dpx");
    EXPECT_EQ(Kv::splitIf(path, Kv::IsMatchingChar<wchar_t>(L'/'), out, 1), 3u);
    EXPECT_EQ(Kv::splitIf(path, Kv::IsMatchingChar<wchar_t>(L'/'), out, 1), 6u);
    EXPECT_EQ(out[1], L"reel");
    const W whole(L"no separator");
    Kv::splitIf(whole, Kv::IsMatchingChar<wchar_t>(L'/'), out, 0);
    EXPECT_EQ(out.back().impl(), whole.impl());
}

TEST(Split, BuilderClipsRegionsToTheString)
{
    const S text("abcdef");
    Kv::StringToVec<S>::VecT out;
    Kv::SplitOutputBuilder<S> builder(text, out);
    builder(Kv::StringRegion{4, 100});
    builder(Kv::StringRegion{6, 1});
    builder(Kv::StringRegion{0xFFFFFFFFu, 0xFFFFFFFFu});
    ASSERT_EQ(out.size(), 3u);
    EXPECT_EQ(out[0], "ef");
    EXPECT_TRUE(out[1].empty());
    EXPECT_TRUE(out[2].empty());
}

TEST(Split, AgreesWithTheReferenceOnGeneratedInputs)
{
    std::mt19937 rng(20261121);
    const char alphabet[] = {'a', 'b', ',', ',', '"', '\\', ' '};
    for (int round = 0; round < 4000; ++round) {
        std::string text;
        const int length = int(rng() % 14);
        for (int i = 0; i < length; ++i) text += alphabet[rng() % sizeof(alphabet)];
        for (char sep : {',', '"', ' '}) {
            for (unsigned int flags = 0; flags < 8; ++flags) {
                const Pieces expected = referenceSplit(text, sep, flags);
                ASSERT_EQ(split(text.c_str(), sep, flags), expected)
                    << "text [" << text << "] sep [" << sep << "] flags " << flags;
                // The wide instantiation follows the same rules.
                std::wstring wide(text.begin(), text.end());
                Kv::StringToVec<W>::VecT out;
                Kv::splitIf(W(wide.c_str()), Kv::IsMatchingChar<wchar_t>(wchar_t(sep)), out, flags);
                ASSERT_EQ(out.size(), expected.size()) << text;
                for (size_t i = 0; i < out.size(); ++i)
                    ASSERT_EQ(std::wstring(out[i].c_str()),
                              std::wstring(expected[i].begin(), expected[i].end()));
            }
        }
    }
}
