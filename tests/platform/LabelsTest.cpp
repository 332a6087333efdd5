// Labels: frame rates, the project's rate, timecode words and texts, film keys; configb.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "ole/platform/labels/KvCurrentProject.h"
#include "ole/platform/labels/KvLabel.h"
#include "ole/platform/settings/configb.h"
#include "tests/support/TestSupport.h"

namespace {

// Every test leaves the project at the setting it found.
class LabelTest : public ::testing::Test {
protected:
    void TearDown() override { Kv::CurrentProject::resetFrameRate(); }

    static void project(Kv::FrameRate rate) { ASSERT_TRUE(Kv::CurrentProject::setFrameRate(rate)); }
};

std::string text(LightweightString<char> const& s) { return s.c_str(); }

TEST(LabelFrameRate, NearestKnownRateWithinTolerance)
{
    const struct { double fps; Kv::FrameRate rate; } cases[] = {
        {23.976, Kv::eFrameRate23_976}, {23.98, Kv::eFrameRate23_976}, {24.0, Kv::eFrameRate24},
        {25.0, Kv::eFrameRate25},       {29.97, Kv::eFrameRate29_97},  {double(29.97f), Kv::eFrameRate29_97},
        {29.970029, Kv::eFrameRate29_97}, {30.0, Kv::eFrameRate30},    {50.0, Kv::eFrameRate50},
        {59.94, Kv::eFrameRate59_94},   {60.0, Kv::eFrameRate60},      {47.952, Kv::eFrameRate47_952},
        {0.0, Kv::eFrameRateUnknown},   {-25.0, Kv::eFrameRateUnknown}, {26.0, Kv::eFrameRateUnknown},
        {1000.0, Kv::eFrameRateUnknown}, {std::nan(""), Kv::eFrameRateUnknown},
        {std::numeric_limits<double>::infinity(), Kv::eFrameRateUnknown},
    };
    for (const auto& c : cases) EXPECT_EQ(Kv::getEquivalentKvFrameRate(c.fps), c.rate) << c.fps;

    EXPECT_EQ(Kv::getFrameDuration(Kv::eFrameRate29_97), 1001.0 / 30000.0);
    EXPECT_EQ(Kv::getFrameDuration(Kv::eFrameRate25), 0.04);
    EXPECT_EQ(Kv::getFrameDuration(Kv::eFrameRateUnknown), 0.0);
    EXPECT_EQ(Kv::getFrameDuration(Kv::FrameRate(11)), 0.0);
    for (std::int32_t i = 1; i <= Kv::eFrameRateLast; ++i)
        EXPECT_EQ(Kv::getEquivalentKvFrameRate(1.0 / Kv::getFrameDuration(Kv::FrameRate(i))), i);
}

TEST_F(LabelTest, ProjectRateFromSettingOrHost)
{
    ScopedEnv setting("KV_project_frame_rate", "9");
    EXPECT_EQ(Kv::CurrentProject::getFrameRate(Kv::CurrentProject::eCurrentRevision), Kv::eFrameRate59_94);
    EXPECT_EQ(getDefaultLabelTypeForMedium(eMediumVideo), eLabelTimecode60);
    setting.set("11");
    EXPECT_EQ(Kv::CurrentProject::getFrameRate(Kv::CurrentProject::eCurrentRevision), Kv::eFrameRate25);

    EXPECT_FALSE(Kv::CurrentProject::setFrameRate(Kv::eFrameRateUnknown));
    project(Kv::eFrameRate23_976);
    EXPECT_EQ(getFrameRatefromMedium(eMediumVideo), Kv::eFrameRate23_976);
    EXPECT_EQ(getFrameRatefromMedium(eMediumFilm), Kv::eFrameRate24);
    EXPECT_EQ(getDefaultLabelTypeForMedium(eMediumVideo), eLabelTimecode24);
    EXPECT_EQ(getDefaultLabelTypeForMedium(eMediumFilm), eLabelKeykode35mm4Perf);
    EXPECT_EQ(getDefaultLabelTypeForMedium(eMediumNone), eLabelNone);
    Kv::CurrentProject::resetFrameRate();
    EXPECT_EQ(Kv::CurrentProject::getFrameRate(Kv::CurrentProject::eCurrentRevision), Kv::eFrameRate25);
}

// Each frame of the first hour: word and text back to the same frame, words rising one by one.
TEST_F(LabelTest, TimecodeRoundTripsEveryFrameOfAnHour)
{
    const struct { label_t type; Kv::FrameRate rate; int hour; } cases[] = {
        {eLabelTimecode25, Kv::eFrameRate25, 90000},
        {eLabelTimecode30, Kv::eFrameRate30, 108000},
        {eLabelTimecode30DF, Kv::eFrameRate29_97, 107892},
        {eLabelTimecode60DF, Kv::eFrameRate59_94, 215784},
    };
    for (const auto& c : cases) {
        const LabelConverter cvt(c.type, c.rate);
        std::uint64_t previous = 0;
        for (int frame = 0; frame <= c.hour; ++frame) {
            const std::uint32_t word = cvt.sample_to_smpte(frame);
            // The digits, then the second-of-pair mark, as one rising number.
            const std::uint64_t order = std::uint64_t(word & ~0x80C0u) << 1 | (word >> 15 & 1);
            bool df = !cvt.is_drop_frame();
            ASSERT_EQ(cvt.smpte_to_sample(word, df), frame) << c.type;
            ASSERT_EQ(df, cvt.is_drop_frame());
            ASSERT_TRUE(frame == 0 || order > previous) << frame;
            previous = order;
            int back = -1;
            ASSERT_TRUE(cvt.string_to_sample(cvt.sample_to_string(frame).c_str(), back));
            ASSERT_EQ(back, frame);
        }
        EXPECT_EQ(text(cvt.sample_to_string(c.hour)), cvt.is_drop_frame() ? "01:00:00;00" : "01:00:00:00");
    }
}

TEST_F(LabelTest, DropFrameSkipsTwoNumbersAMinuteButEveryTenth)
{
    const LabelConverter df(eLabelTimecode30DF, Kv::eFrameRate29_97);
    EXPECT_EQ(text(df.sample_to_string(1799)), "00:00:59;29");
    EXPECT_EQ(text(df.sample_to_string(1800)), "00:01:00;02");
    EXPECT_EQ(text(df.sample_to_string(17981)), "00:09:59;29");
    EXPECT_EQ(text(df.sample_to_string(17982)), "00:10:00;00");
    EXPECT_EQ(text(df.sample_to_string(17982 + 1800)), "00:11:00;02");
    EXPECT_EQ(df.sample_to_smpte(1800), 0x00010042u);

    bool flag = false;
    EXPECT_EQ(df.smpte_to_sample(0x00010040, flag), 1800) << "a skipped number reads as the next";
    EXPECT_TRUE(flag);
    // The flag, not the label, decides: a non-drop label decodes a flagged word as drop-frame.
    const LabelConverter ndf(eLabelTimecode30, Kv::eFrameRate29_97);
    EXPECT_EQ(ndf.smpte_to_sample(0x00100040, flag), 17982);
    EXPECT_EQ(ndf.smpte_to_sample(0x00100000, flag), 18000);
    EXPECT_FALSE(flag);
    // A day later it starts over; a frame before midnight is the day's last.
    EXPECT_EQ(text(df.sample_to_string(df.sample_cycle())), "00:00:00;00");
    EXPECT_EQ(text(df.sample_to_string(-1)), "23:59:59;29");
}

TEST_F(LabelTest, TimecodeWordNibbles)
{
    const LabelConverter tc25(eLabelTimecode25, Kv::eFrameRate25);
    const int frame = ((12 * 60 + 34) * 60 + 56) * 25 + 23;
    EXPECT_EQ(tc25.sample_to_smpte(frame), 0x12345623u);
    bool flag = true;
    // Colour frame, binary group and field bits are no part of the number.
    EXPECT_EQ(tc25.smpte_to_sample(0x12345623u | 0xC08080C0u, flag), frame);
    EXPECT_TRUE(flag) << "0x40 of the frames byte is the drop-frame flag, which 25 only reports";
    EXPECT_EQ(tc25.smpte_to_sample(0x12345623u, flag), frame);
    EXPECT_FALSE(flag);

    // Above 30 the word holds frame pairs, the second of a pair marked in the seconds byte.
    const LabelConverter tc50(eLabelTimecode50, Kv::eFrameRate50);
    EXPECT_EQ(tc50.sample_to_smpte(50 + 45), 0x00008122u);
    EXPECT_EQ(tc50.smpte_to_sample(0x00008122u, flag), 95);
    EXPECT_EQ(tc50.smpte_to_sample(0x00000122u, flag), 94);
}

// A timecode label as a file reader makes it, then advanced by frames as a writer does.
TEST_F(LabelTest, TimecodeLabelFollowsTheProjectRate)
{
    for (Kv::FrameRate rate : {Kv::eFrameRate25, Kv::eFrameRate29_97, Kv::eFrameRate30}) {
        project(rate);
        EditLabel tc(eLabelNone);
        tc.init(MediumRollIdent(eMediumVideo, 1));
        EXPECT_FALSE(tc.is_valid());
        tc.set_type(getDefaultLabelTypeForMedium(getDefaultEditMediumForProject()));
        tc.set_MediumRoll(MediumRollIdent(eMediumVideo, 2));
        bool df = false;
        const int start = tc.get_samples_from_SMPTETc(0x01000000, df);
        tc.set_posn(tc.cvt().sample_to_posn(start));
        tc.set_valid(true);
        EXPECT_EQ(tc.get_smpte_string(0), 0x01000000u);

        EditLabel copy;
        copy = tc;
        const double frame = Kv::getFrameDuration(getFrameRatefromMedium(eMediumVideo));
        for (int n : {1, 29, 1000, 53999}) {
            const int offset = copy.posn_to_sample(frame * n);
            ASSERT_EQ(offset, n) << rate;
            bool flag = true;
            EXPECT_EQ(copy.get_samples_from_SMPTETc(copy.get_smpte_string(offset), flag), start + n);
        }
    }
}

// The three film keys: text to position and back, advancing by frames, wrapping, refusing.
TEST_F(LabelTest, KeykodeTextAndPosition)
{
    const struct { label_t type; int perFrame; int interval; double perfSeconds; } films[] = {
        {eLabelKeykode35mm4Perf, 4, 64, 1.0 / 96},
        {eLabelKeykode35mm3Perf, 3, 64, 1.0 / 72},
        {eLabelKeykode16mm, 1, 20, 1.0 / 24},
    };
    for (const auto& f : films) {
        EditLabel key;
        key.set_type(f.type);
        key.set_MediumRoll(MediumRollIdent(eMediumFilm, 1));
        ASSERT_TRUE(key.set_string("KU1234561234+12"));
        EXPECT_TRUE(key.is_valid());
        EXPECT_STREQ(key.get_key_prefix().text, "KU123456");
        EXPECT_NEAR(key.get_posn(), (1234 * f.interval + 12) * f.perfSeconds, 1e-9);
        EXPECT_EQ(key.cvt().samples_per_frame(), f.perFrame);
        EXPECT_EQ(text(key.get_string(0)), "KU1234561234+12");

        // One key on, by whole frames where the interval allows.
        const int step = f.interval % f.perFrame == 0 ? f.interval : f.perFrame * 64;
        const char* later = f.interval % f.perFrame == 0 ? "KU1234561235+12" : "KU1234561237+12";
        EXPECT_EQ(text(key.get_string(step)), later) << f.type;

        // Every sample of the first keys and around the wrap reads back to itself.
        const LabelConverter cvt = key.cvt();
        for (int s : {0, 1, f.interval - 1, f.interval, 3 * f.interval + 5, cvt.sample_cycle() - 1}) {
            int back = -1;
            KeyPrefix prefix;
            ASSERT_TRUE(cvt.string_to_sample(cvt.sample_to_string(s, key.get_key_prefix()).c_str(), back, &prefix));
            EXPECT_EQ(back, s);
            EXPECT_EQ(prefix, key.get_key_prefix());
            EXPECT_EQ(cvt.posn_to_sample(cvt.sample_to_posn(s)), s);
        }
        key.set_string("KU1234560000+00");
        EXPECT_EQ(text(key.get_string(-1)), f.interval == 64 ? "KU1234569999+63" : "KU1234569999+19");

        for (const char* bad : {"KU1234561234-12", "KU12345612a4+12", "KU1234561234+1", "KU123", "", "KU1234561234+12x"})
            EXPECT_FALSE(key.set_string(bad)) << bad;
        EXPECT_EQ(text(key.get_string(0)), "KU1234560000+00") << "a refused text changes nothing";
    }
}

TEST(ConfigbStore, SetGetOverwriteRemove)
{
    configb attributes;
    EXPECT_TRUE(attributes.set("reel_id", "A001", nullptr));
    EXPECT_TRUE(attributes.set("creator", "scanner", "the device that wrote the file"));
    EXPECT_FALSE(attributes.set("", "x", nullptr));
    EXPECT_FALSE(attributes.set(nullptr, "x", nullptr));
    EXPECT_EQ(attributes.get("reel_id"), "A001");
    EXPECT_EQ(attributes.get_extra("creator"), "the device that wrote the file");
    EXPECT_TRUE(attributes.get("missing").empty());
    EXPECT_FALSE(attributes.has("Reel_ID")) << "keys are exact";

    const configb before = attributes;
    attributes.set("reel_id", "B002", nullptr);
    attributes.set("creator", nullptr, nullptr);
    EXPECT_EQ(attributes.size(), 2u);
    EXPECT_EQ(attributes.get("reel_id"), "B002");
    EXPECT_TRUE(attributes.has("creator")) << "a null value is empty text, still there";
    EXPECT_TRUE(attributes.get_extra("creator").empty()) << "the note goes with the value";
    EXPECT_EQ(before.get("reel_id"), "A001") << "a copy keeps its own entries";

    EXPECT_TRUE(attributes.remove("creator"));
    EXPECT_FALSE(attributes.remove("creator"));
    attributes.set("a_first", "1", nullptr);
    const auto keys = attributes.keys();
    ASSERT_EQ(keys.size(), 2u);
    EXPECT_EQ(keys[0], "a_first");
    EXPECT_EQ(keys[1], "reel_id");
    EXPECT_FALSE(attributes == before);
    configb same = attributes;
    EXPECT_TRUE(same == attributes);
}

}  // namespace
