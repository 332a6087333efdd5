#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <cstring>
#include <filesystem>

#include "CommandLine.h"
#include "ImageFiles.h"
#include "ProgressBar.h"
#include "Verb.h"
#include "ole/image/tgaload.h"
#include "ole/platform/text/InputStream.h"
#include "ole/platform/text/KvText.h"
#include "tests/support/TestSupport.h"

using namespace KvCli;

namespace {

int noRun(const Invocation&)
{
    return ExitOk;
}

const Option testOptions[] = {
    {"output", 'o', "FILE", "where to write"},
    {"verbose", 'v', nullptr, "say more"},
    {"size", 0, "WxH", "picture size"},
};
const Verb twoFiles{"convert", "test verb", "<in> <out>", nullptr, testOptions, 2, 2, noRun};
const Verb anyFiles{"info", "test verb", "<file>...", nullptr, testOptions, 0, -1, noRun};

struct Parsed {
    bool ok;
    Invocation invocation;
    std::string error;
};

Parsed parse(const Verb& verb, std::vector<std::string> args)
{
    Parsed result;
    result.ok = CommandLine::parse(verb, args, result.invocation, result.error);
    return result;
}

std::string readAll(std::FILE* file)
{
    std::rewind(file);
    std::string text;
    for (int c; (c = std::fgetc(file)) != EOF;) text += static_cast<char>(c);
    return text;
}

}  // namespace

TEST(KvCliCommandLine, EveryOptionFormGivesTheSameValues)
{
    for (const auto& args : std::vector<std::vector<std::string>>{
             {"--output", "a.dpx", "-v", "in.tga", "out.dpx"},
             {"--output=a.dpx", "--verbose", "in.tga", "out.dpx"},
             {"in.tga", "-oa.dpx", "out.dpx", "-v"},
             {"-o", "a.dpx", "in.tga", "-v", "out.dpx"}}) {
        Parsed p = parse(twoFiles, args);
        ASSERT_TRUE(p.ok) << p.error;
        EXPECT_EQ(p.invocation.value("output"), "a.dpx");
        EXPECT_TRUE(p.invocation.has("verbose"));
        EXPECT_FALSE(p.invocation.has("size"));
        EXPECT_EQ(p.invocation.value("size", "720x576"), "720x576");
        EXPECT_EQ(p.invocation.arguments(), (std::vector<std::string>{"in.tga", "out.dpx"}));
    }
}

TEST(KvCliCommandLine, RepeatsEndOfOptionsAndDashArguments)
{
    Parsed p = parse(anyFiles, {"--size", "1x1", "-", "--size=2x2", "--", "--verbose", "-o"});
    ASSERT_TRUE(p.ok) << p.error;
    EXPECT_EQ(p.invocation.values("size"), (std::vector<std::string>{"1x1", "2x2"}));
    EXPECT_EQ(p.invocation.value("size"), "2x2");  // the last one wins
    EXPECT_FALSE(p.invocation.has("verbose"));
    EXPECT_EQ(p.invocation.arguments(), (std::vector<std::string>{"-", "--verbose", "-o"}));

    // An empty value is still a value.
    p = parse(anyFiles, {"--output="});
    ASSERT_TRUE(p.ok);
    EXPECT_TRUE(p.invocation.has("output"));
    EXPECT_EQ(p.invocation.value("output", "fallback"), "");
}

TEST(KvCliCommandLine, UsageErrorsNameTheCulprit)
{
    const struct {
        const Verb* verb;
        std::vector<std::string> args;
        const char* error;
    } cases[] = {
        {&anyFiles, {"--nope"}, "unknown option '--nope'"},
        {&anyFiles, {"--nope=3"}, "unknown option '--nope'"},
        {&anyFiles, {"-x"}, "unknown option '-x'"},
        {&anyFiles, {"--verbose=yes"}, "option '--verbose' takes no value"},
        {&anyFiles, {"-o"}, "option '-o' needs a value (FILE)"},
        {&anyFiles, {"a", "--size"}, "option '--size' needs a value (WxH)"},
        {&twoFiles, {}, "missing arguments"},
        {&twoFiles, {"a"}, "too few arguments"},
        {&twoFiles, {"a", "b", "c", "d"}, "unexpected argument 'c'"},
    };
    for (const auto& c : cases) {
        Parsed p = parse(*c.verb, c.args);
        EXPECT_FALSE(p.ok) << c.error;
        EXPECT_EQ(p.error, c.error);
    }
}

TEST(KvCliCommandLine, HelpIsAcceptedWhateverTheArgumentCount)
{
    for (const auto& args : std::vector<std::vector<std::string>>{{"--help"}, {"-h", "a", "b", "c"}}) {
        Parsed p = parse(twoFiles, args);
        ASSERT_TRUE(p.ok) << p.error;
        EXPECT_TRUE(p.invocation.has("help"));
    }
}

TEST(KvCliVerbs, TableIsComplete)
{
    std::set<std::string> names;
    for (const Verb* verb : allVerbs()) {
        ASSERT_NE(verb->run, nullptr);
        EXPECT_TRUE(names.insert(verb->name).second) << "twice: " << verb->name;
        EXPECT_NE(std::string(verb->summary), "");
        EXPECT_EQ(std::string(verb->summary).find('\n'), std::string::npos) << verb->name;
        EXPECT_EQ(findVerb(verb->name), verb);
        for (const Option& option : verb->options)
            EXPECT_NE(std::string(option.name), "help") << verb->name << " shadows --help";
    }
    EXPECT_TRUE(names.count("help"));
    EXPECT_EQ(findVerb("no-such-verb"), nullptr);
    EXPECT_EQ(findVerb(""), nullptr);
}

TEST(KvCliProgressBar, RendersClampedAndEmptyBatches)
{
    EXPECT_EQ(ProgressBar::render("x", 0, 4, 8), "x [........]  0/4  0%");
    EXPECT_EQ(ProgressBar::render("x", 1, 4, 8), "x [##......]  1/4  25%");
    EXPECT_EQ(ProgressBar::render("x", 4, 4, 8), "x [########]  4/4  100%");
    // More steps than announced: the bar stays full and the count tells the truth.
    EXPECT_EQ(ProgressBar::render("x", 9, 4, 8), "x [########]  9/4  100%");
    EXPECT_EQ(ProgressBar::render("x", 3, 0, 4), "x [....]  3/0  0%");
}

TEST(KvCliProgressBar, DrawsOnlyWhenAskedOrOnATerminal)
{
    std::FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    {
        ProgressBar bar("quiet", 3, ProgressBar::Mode::Auto, file);  // a file is no terminal
        EXPECT_FALSE(bar.drawing());
        bar.advance(3);
    }
    EXPECT_EQ(readAll(file), "");

    std::FILE* shown = std::tmpfile();
    ASSERT_NE(shown, nullptr);
    {
        ProgressBar bar("loud", 2, ProgressBar::Mode::Always, shown);
        bar.advance();
        bar.advance();
        bar.finish();
        bar.finish();  // once only
    }
    const std::string text = readAll(shown);
    EXPECT_EQ(text.front(), '\r');
    EXPECT_EQ(text.back(), '\n');
    EXPECT_EQ(text.find('\n'), text.size() - 1);
    EXPECT_NE(text.rfind("loud [##############################]  2/2  100%\n"), std::string::npos);
    std::fclose(file);
    std::fclose(shown);
}

TEST(KvCliProgressBar, WorkerThreadsCountEveryStep)
{
    std::FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    ProgressBar bar("threads", 4000, ProgressBar::Mode::Always, file);
    std::vector<std::thread> workers;
    for (int t = 0; t < 4; ++t)
        workers.emplace_back([&bar] {
            for (int i = 0; i < 1000; ++i) bar.advance();
        });
    for (auto& worker : workers) worker.join();
    bar.finish();
    EXPECT_EQ(bar.done(), 4000u);
    EXPECT_NE(readAll(file).find("4000/4000  100%\n"), std::string::npos);
    std::fclose(file);
}

// The picture verbs end to end on files: a frame split into fields and woven back is the
// frame again, odd or even; a conversion to raw UYVY at a new size has the bytes it should.
TEST(KvCliPictureVerbs, FieldsWeaveBackAndConvertReshapes)
{
    using Kv::Image::Surface;
    TempDir dir;
    auto run = [](const Verb& verb, std::vector<std::string> args) {
        Parsed p = parse(verb, std::move(args));
        return p.ok ? verb.run(p.invocation) : -1;
    };
    for (unsigned height : {6u, 7u}) {
        Surface frame(10, height, Kv::Image::ARGB, true, 8, 0, 0);
        for (std::size_t i = 0; i < frame.getImageSize(); ++i) frame.getDataPtr()[i] = static_cast<unsigned char>(i * 7 + 1);
        frame.setIsTopDown(true);
        ASSERT_TRUE(saveTGAImage(frame, fromUTF8(dir.file("frame.tga").c_str()), true));
        ASSERT_EQ(run(fieldsVerb, {dir.file("frame.tga"), dir.file("f1.tga"), dir.file("f2.tga")}), ExitOk);
        ASSERT_EQ(run(weaveVerb, {dir.file("f1.tga"), dir.file("f2.tga"), dir.file("woven.tga")}), ExitOk);
        auto load = [&](const char* leaf) {
            SimpleFileInputStream stream(fromUTF8(dir.file(leaf).c_str()));
            Surface s;
            EXPECT_TRUE(loadTGAImage(&stream, s));
            return s;
        };
        const Surface original = load("frame.tga"), woven = load("woven.tga");
        ASSERT_EQ(woven.getHeight(), height / 2 * 2);
        EXPECT_EQ(std::memcmp(woven.getDataPtr(), original.getDataPtr(), woven.getImageSize()), 0) << height << " lines";
    }
    ASSERT_EQ(run(convertVerb, {dir.file("frame.tga"), dir.file("small.yuv"), "--format", "UYVY", "--size", "4x2"}), ExitOk);
    EXPECT_EQ(std::filesystem::file_size(dir.file("small.yuv")), 4u * 2 * 2);
    EXPECT_EQ(run(convertVerb, {dir.file("frame.tga"), dir.file("x.tga"), "--depth", "12"}), ExitUsage);
    EXPECT_EQ(run(weaveVerb, {dir.file("f1.tga"), dir.file("frame.tga"), dir.file("x.tga")}), ExitFailure);
}

// A picture through DPX and back by the verbs: the labels given on the command line are in the
// file as `info` shows it, and the pixels come back within the code the 10-bit trip may cost.
TEST(KvCliPictureVerbs, DpxKeepsLabelsAndPixels)
{
    using Kv::Image::Surface;
    TempDir dir;
    auto run = [](std::vector<std::string> args) {
        Parsed p = parse(convertVerb, std::move(args));
        return p.ok ? convertVerb.run(p.invocation) : -1;
    };
    Surface picture(24, 10, Kv::Image::ARGB, true, 8, 0, 0);
    for (std::size_t i = 0; i < picture.getImageSize(); ++i) picture.getDataPtr()[i] = i % 4 == 3 ? 255 : static_cast<unsigned char>(i * 5);
    ASSERT_TRUE(saveTGAImage(picture, fromUTF8(dir.file("in.tga").c_str()), false));
    ASSERT_EQ(run({dir.file("in.tga"), dir.file("out.dpx"), "--timecode", "01:00:10:12", "--keykode", "KU1234560042+07", "--film", "16mm"}),
              ExitOk);
    std::vector<std::string> lines;
    std::string error;
    ASSERT_TRUE(describeFile(dir.file("out.dpx"), lines, error)) << error;
    std::string all;
    for (const std::string& line : lines) all += line + "\n";
    EXPECT_NE(all.find("timecode     01:00:10:12"), std::string::npos) << all;
    EXPECT_NE(all.find("keykode      KU1234560042+07 (16 mm)"), std::string::npos) << all;
    EXPECT_NE(all.find("depth        10 bits"), std::string::npos) << all;

    ASSERT_EQ(run({dir.file("out.dpx"), dir.file("back.tga")}), ExitOk);
    SimpleFileInputStream stream(fromUTF8(dir.file("back.tga").c_str()));
    Surface back;
    ASSERT_TRUE(loadTGAImage(&stream, back));
    ASSERT_EQ(back.getImageSize(), picture.getImageSize());
    int worst = 0;
    for (std::size_t i = 0; i < picture.getImageSize(); ++i) worst = std::max(worst, std::abs(back.getDataPtr()[i] - picture.getDataPtr()[i]));
    EXPECT_LE(worst, 1);
    EXPECT_EQ(run({dir.file("in.tga"), dir.file("x.dpx"), "--keykode", "K+1"}), ExitFailure);
}
