// Labels: timecode and film key numbers, their words, texts and positions.

#include "ole/platform/labels/KvLabel.h"

#include <climits>
#include <cmath>
#include <cstdio>

#include "ole/platform/labels/KvCurrentProject.h"

namespace {

constexpr std::uint32_t dropFrameFlag = 0x40;
// Counts above 30 carry frame pairs; this bit marks the second frame of the pair.
constexpr std::uint32_t secondOfPairFlag = 0x8000;

constexpr int keyCounts = 10000;  // four digits

// How a kind of label counts.
struct Counting {
    int base = 0;      // timecode frames a second; 0 for keys and none
    int dropped = 0;   // numbers skipped at a minute that drop-frame skips
    int perFrame = 1;  // samples a frame
    int interval = 0;  // key samples between two counts; 0 for timecode and none
};

Counting countingOf(label_t type) noexcept
{
    switch (type) {
    case eLabelTimecode24: return {24, 0, 1, 0};
    case eLabelTimecode25: return {25, 0, 1, 0};
    case eLabelTimecode50: return {50, 0, 1, 0};
    case eLabelTimecode60: return {60, 0, 1, 0};
    case eLabelTimecode60DF: return {60, 4, 1, 0};
    case eLabelTimecode30: return {30, 0, 1, 0};
    case eLabelTimecode30DF: return {30, 2, 1, 0};
    case eLabelTimecode48: return {48, 0, 1, 0};
    case eLabelKeykode35mm4Perf: return {0, 0, 4, 64};
    case eLabelKeykode16mm: return {0, 0, 1, 20};
    case eLabelKeykode35mm3Perf: return {0, 0, 3, 64};
    default: return {};
    }
}

// Drop-frame counting is the 30 and 60 frame counts' alone.
int droppedFor(int base) noexcept { return base == 30 ? 2 : base == 60 ? 4 : 0; }

std::int64_t framesPerDay(int base, int dropped) noexcept
{
    return std::int64_t(144) * (base * 600 - 9 * dropped);
}

std::int64_t wrapInto(std::int64_t value, std::int64_t cycle) noexcept
{
    if (cycle <= 0) return value;
    value %= cycle;
    return value < 0 ? value + cycle : value;
}

struct Digits {
    int hours, minutes, seconds, frames;
};

// A frame number of the day as the digits that name it.
Digits digitsOf(std::int64_t n, int base, int dropped) noexcept
{
    n = wrapInto(n, framesPerDay(base, dropped));
    if (dropped) {
        // Put back the numbers that were skipped before n, so that n counts as if none were.
        const std::int64_t perTenMinutes = base * 600 - 9 * dropped;
        const std::int64_t perMinute = base * 60 - dropped;
        const std::int64_t tens = n / perTenMinutes, rest = n % perTenMinutes;
        n += 9 * dropped * tens + (rest >= dropped ? dropped * ((rest - dropped) / perMinute) : 0);
    }
    Digits d;
    d.frames = int(n % base);
    n /= base;
    d.seconds = int(n % 60);
    n /= 60;
    d.minutes = int(n % 60);
    d.hours = int(n / 60);
    return d;
}

std::int64_t frameOf(Digits d, int base, int dropped) noexcept
{
    const std::int64_t minutes = std::int64_t(d.hours) * 60 + d.minutes;
    if (dropped) {
        // A number that the counting skips stands for the first one after it.
        if (d.seconds == 0 && d.frames < dropped && d.minutes % 10 != 0) d.frames = dropped;
    }
    const std::int64_t nominal = (minutes * 60 + d.seconds) * base + d.frames;
    return nominal - (dropped ? dropped * (minutes - minutes / 10) : 0);
}

int saturate(std::int64_t v) noexcept
{
    return v > INT_MAX ? INT_MAX : v < INT_MIN ? INT_MIN : int(v);
}

bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }

// Blanks and the end of the text.
bool onlyBlanksFrom(char const* p) noexcept
{
    while (*p == ' ' || *p == '\t' || *p == '\r' || *p == '\n') ++p;
    return *p == 0;
}

bool readTimecode(char const* text, Digits& d) noexcept
{
    int values[4];
    char const* p = text;
    while (*p == ' ') ++p;
    for (int i = 0; i < 4; ++i) {
        if (i > 0) {
            if (*p != ':' && *p != ';' && *p != '.' && *p != ',') return false;
            ++p;
        }
        if (!isDigit(*p)) return false;
        int v = *p++ - '0';
        if (isDigit(*p)) v = v * 10 + (*p++ - '0');
        values[i] = v;
    }
    if (!onlyBlanksFrom(p)) return false;
    d = {values[0], values[1], values[2], values[3]};
    return true;
}

}  // namespace

bool isTimecodeLabel(label_t type) noexcept { return countingOf(type).base != 0; }

bool isKeykodeLabel(label_t type) noexcept { return countingOf(type).interval != 0; }

// ---------------------------------------------------------------------------------------------
// LabelConverter

LabelConverter::LabelConverter(label_t type, Kv::FrameRate frameClock) noexcept
    : type_(type),
      rate_(Kv::isKnownFrameRate(frameClock)
                ? frameClock
                : Kv::CurrentProject::getFrameRate(Kv::CurrentProject::eCurrentRevision))
{
}

int LabelConverter::samples_per_frame() const noexcept { return countingOf(type_).perFrame; }

int LabelConverter::timecode_base() const noexcept { return countingOf(type_).base; }

bool LabelConverter::is_drop_frame() const noexcept { return countingOf(type_).dropped != 0; }

int LabelConverter::sample_cycle() const noexcept
{
    const Counting c = countingOf(type_);
    if (c.base) return int(framesPerDay(c.base, c.dropped));
    return c.interval * keyCounts;
}

double LabelConverter::sample_duration() const noexcept
{
    const Kv::FrameRateRatio r = Kv::getFrameRateRatio(rate_);
    return double(r.denominator) / (double(r.numerator) * samples_per_frame());
}

double LabelConverter::sample_to_posn(int sample) const noexcept
{
    const Kv::FrameRateRatio r = Kv::getFrameRateRatio(rate_);
    return double(sample) * r.denominator / (double(r.numerator) * samples_per_frame());
}

int LabelConverter::posn_to_sample(double posn) const noexcept
{
    if (std::isnan(posn)) return 0;
    const Kv::FrameRateRatio r = Kv::getFrameRateRatio(rate_);
    const double samples = posn * (double(r.numerator) * samples_per_frame()) / r.denominator;
    if (samples >= double(INT_MAX)) return INT_MAX;
    if (samples <= double(INT_MIN)) return INT_MIN;
    return int(std::lround(samples));
}

LightweightString<char> LabelConverter::sample_to_string(int sample, KeyPrefix const& prefix) const
{
    const Counting c = countingOf(type_);
    char text[32];
    if (c.base) {
        const Digits d = digitsOf(sample, c.base, c.dropped);
        std::snprintf(text, sizeof text, "%02d:%02d:%02d%c%02d", d.hours, d.minutes, d.seconds,
                      c.dropped ? ';' : ':', d.frames);
        return text;
    }
    if (c.interval) {
        const std::int64_t s = wrapInto(sample, std::int64_t(c.interval) * keyCounts);
        std::snprintf(text, sizeof text, "%.8s%04d+%02d", prefix.text, int(s / c.interval),
                      int(s % c.interval));
        return text;
    }
    return {};
}

bool LabelConverter::string_to_sample(char const* text, int& sample, KeyPrefix* prefix) const
{
    if (!text) return false;
    const Counting c = countingOf(type_);
    if (c.base) {
        Digits d;
        if (!readTimecode(text, d)) return false;
        sample = saturate(frameOf(d, c.base, c.dropped));
        return true;
    }
    if (c.interval) {
        for (int i = 0; i < 8; ++i)
            if (text[i] == 0) return false;
        char const* p = text + 8;
        for (int i = 0; i < 4; ++i)
            if (!isDigit(p[i])) return false;
        if (p[4] != '+' || !isDigit(p[5]) || !isDigit(p[6]) || !onlyBlanksFrom(p + 7)) return false;
        const int count = (p[0] - '0') * 1000 + (p[1] - '0') * 100 + (p[2] - '0') * 10 + (p[3] - '0');
        // An offset past the key interval is taken as it stands and carries into the count.
        const int offset = (p[5] - '0') * 10 + (p[6] - '0');
        sample = count * c.interval + offset;
        if (prefix) {
            for (int i = 0; i < 8; ++i) prefix->text[i] = text[i];
            prefix->text[8] = 0;
        }
        return true;
    }
    return false;
}

bool LabelConverter::string_to_posn(char const* text, double& posn, KeyPrefix* prefix) const
{
    int sample = 0;
    if (!string_to_sample(text, sample, prefix)) return false;
    posn = sample_to_posn(sample);
    return true;
}

namespace {

// The timecode counting of a label; one that is not timecode counts as the project's video.
Counting timecodeCountingOf(label_t type) noexcept
{
    Counting c = countingOf(type);
    if (!c.base) c = countingOf(getDefaultLabelTypeForMedium(eMediumVideo));
    return c;
}

std::uint32_t bcd(int value) noexcept { return std::uint32_t((value / 10) << 4 | (value % 10)); }

int fromBcd(std::uint32_t byte, std::uint32_t tensMask) noexcept
{
    return int((byte >> 4) & tensMask) * 10 + int(byte & 0xF);
}

}  // namespace

std::uint32_t LabelConverter::sample_to_smpte(int sample) const noexcept
{
    const Counting c = timecodeCountingOf(type_);
    const Digits d = digitsOf(sample, c.base, c.dropped);
    const bool pairs = c.base > 30;
    std::uint32_t word = bcd(d.hours) << 24 | bcd(d.minutes) << 16 | bcd(d.seconds) << 8 |
                         bcd(pairs ? d.frames / 2 : d.frames);
    if (pairs && (d.frames & 1)) word |= secondOfPairFlag;
    if (c.dropped) word |= dropFrameFlag;
    return word;
}

int LabelConverter::smpte_to_sample(std::uint32_t word, bool& dropFrame) const noexcept
{
    const Counting c = timecodeCountingOf(type_);
    dropFrame = (word & dropFrameFlag) != 0;
    Digits d;
    d.hours = fromBcd(word >> 24, 0x3);
    d.minutes = fromBcd(word >> 16, 0x7);
    d.seconds = fromBcd(word >> 8, 0x7);
    d.frames = fromBcd(word, 0x3);
    if (c.base > 30) d.frames = d.frames * 2 + ((word & secondOfPairFlag) ? 1 : 0);
    return saturate(frameOf(d, c.base, dropFrame ? droppedFor(c.base) : 0));
}

// ---------------------------------------------------------------------------------------------
// LabelPoint, Label, EditLabel

LabelConverter LabelPoint::cvt() const noexcept
{
    return LabelConverter(type_, getFrameRatefromMedium(mediumRoll_.get_medium()));
}

int Label::get_sample() const noexcept { return valid_ ? cvt().posn_to_sample(posn_) : 0; }

namespace {

// The label's own sample moved on by `offset`, kept within the text's cycle.
int movedSample(LabelConverter const& c, int own, int offset) noexcept
{
    return saturate(wrapInto(std::int64_t(own) + offset, c.sample_cycle()));
}

}  // namespace

LightweightString<char> Label::get_string(int sample) const
{
    const LabelConverter c = cvt();
    return c.sample_to_string(movedSample(c, get_sample(), sample), prefix_);
}

std::uint32_t Label::get_smpte_string(int sample) const noexcept
{
    const LabelConverter c = cvt();
    return c.sample_to_smpte(saturate(std::int64_t(get_sample()) + sample));
}

int Label::posn_to_sample(double posn) const noexcept { return cvt().posn_to_sample(posn); }

double Label::sample_to_posn(int sample) const noexcept { return cvt().sample_to_posn(sample); }

int Label::get_samples_from_SMPTETc(unsigned int word, bool& dropFrame) const noexcept
{
    return cvt().smpte_to_sample(word, dropFrame);
}

EditLabel& EditLabel::operator=(Label const& label) noexcept
{
    static_cast<Label&>(*this) = label;
    return *this;
}

void EditLabel::init(MediumRollIdent const& mediumRoll) noexcept
{
    mediumRoll_ = mediumRoll;
    prefix_ = KeyPrefix();
    posn_ = 0.0;
    valid_ = false;
}

void EditLabel::set_sample(int sample) noexcept
{
    posn_ = cvt().sample_to_posn(sample);
    valid_ = true;
}

bool EditLabel::set_string(char const* text) noexcept
{
    const LabelConverter c = cvt();
    int sample = 0;
    KeyPrefix prefix = prefix_;
    if (!c.string_to_sample(text, sample, &prefix)) return false;
    posn_ = c.sample_to_posn(sample);
    prefix_ = prefix;
    valid_ = true;
    return true;
}

// ---------------------------------------------------------------------------------------------
// Media

MediumRollMedium getDefaultEditMediumForProject() noexcept { return eMediumVideo; }

label_t getDefaultLabelTypeForMedium(MediumRollMedium medium) noexcept
{
    if (medium == eMediumFilm) return eLabelKeykode35mm4Perf;
    if (medium != eMediumVideo) return eLabelNone;
    switch (Kv::CurrentProject::getFrameRate(Kv::CurrentProject::eCurrentRevision)) {
    case Kv::eFrameRate24:
    case Kv::eFrameRate23_976: return eLabelTimecode24;
    case Kv::eFrameRate30:
    case Kv::eFrameRate29_97: return eLabelTimecode30;
    case Kv::eFrameRate48:
    case Kv::eFrameRate47_952: return eLabelTimecode48;
    case Kv::eFrameRate50: return eLabelTimecode50;
    case Kv::eFrameRate59_94:
    case Kv::eFrameRate60: return eLabelTimecode60;
    default: return eLabelTimecode25;
    }
}

Kv::FrameRate getFrameRatefromMedium(MediumRollMedium medium) noexcept
{
    if (medium == eMediumFilm) return Kv::eFrameRate24;
    return Kv::CurrentProject::getFrameRate(Kv::CurrentProject::eCurrentRevision);
}
