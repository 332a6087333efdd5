#pragma once
// Labels: the numbers that identify a frame of source material, its timecode or its film key
// number, and the media that carry them.
//
// A label is a kind (its label_t type, its medium and roll, and for film keys the roll's key
// prefix) and a position: the time, in seconds from the label's zero, of the frame it names. A
// label counts in samples, the smallest step of its kind: one frame for timecode, one
// perforation for 35 mm keys. The converter of a label (LabelPoint::cvt) turns samples into
// positions and back at the medium's frame rate, and samples into text and back.
//
// Timecode (types 1 to 8). A sample is a frame; sample 0 is 00:00:00:00, and the count wraps
// after 24 hours. The text is "hh:mm:ss:ff", with ';' before the frames for drop-frame counting.
// The 32-bit word is the one of SMPTE 12M as film-scan files store it, most significant first:
// hours tens (bits 29-28), hours units (27-24), minutes tens (22-20), minutes units (19-16),
// seconds tens (14-12), seconds units (11-8), frames tens (5-4), frames units (3-0), one BCD
// digit a nibble; bit 6 (0x40) is the drop-frame flag. The other flag bits (colour frame,
// binary group flags) are written 0 and ignored when read. Counts above 30 frames a second
// (48, 50, 60) do not fit the frames tens; the word then holds the frame pair (frame / 2) and
// marks the second frame of a pair with bit 15 (0x8000, the top bit of the seconds byte).
// Drop-frame counting (30 and 60 frame counts, for 29.97 and 59.94 pictures) skips the frame
// numbers 0 and 1 (0 to 3 at 60) at the start of each minute, except every tenth minute, so
// that the numbers keep up with the clock.
//
// Film keys (types 10 to 12). The text has 15 places: manufacturer code (0-1), prefix (2-7),
// count (8-11, four digits), '+' (12), offset (13-14, two digits), e.g. "KU1234561234+12". The
// manufacturer and prefix name the roll of stock: they are kept as the label's KeyPrefix and
// play no part in its position. The count and offset make the sample:
//     35 mm 4-perf (academy): a sample is a perforation, 4 to a frame; a key every 64
//                             perforations (a foot, 16 frames); offset 00-63.
//     35 mm 3-perf:           a sample is a perforation, 3 to a frame; a key every 64
//                             perforations (21 1/3 frames); offset 00-63.
//     16 mm:                  a sample is a frame (one perforation); a key every 20 frames
//                             (half a foot); offset 00-19.
// sample = count * interval + offset, and the count wraps after 9999. Film runs at 24 frames a
// second, so an academy perforation lasts 1/96 s, a 3-perf one 1/72 s, a 16 mm frame 1/24 s.
//
// The frame clock of a label is that of its medium (getFrameRatefromMedium): film at 24, video
// at the current project's rate, read when the converter is made.

#include <cstdint>

#include "ole/misc/LightweightString.h"
#include "ole/platform/labels/KvFrameRate.h"
#include "ole/platform/os/KvPlatformExport.h"

// What carries the material a label counts.
enum MediumRollMedium : std::int32_t {
    eMediumNone = 0,
    eMediumVideo = 1,  // tape or file video, at the project's frame rate
    eMediumFilm = 2,   // negative or print, at 24 frames a second
};

// A medium and one roll (tape, reel, camera roll) of it.
class MediumRollIdent {
public:
    MediumRollIdent() noexcept = default;
    MediumRollIdent(MediumRollMedium medium, int roll) noexcept : medium_(medium), roll_(roll) {}

    MediumRollMedium get_medium() const noexcept { return medium_; }
    int get_roll() const noexcept { return roll_; }

    friend bool operator==(MediumRollIdent const&, MediumRollIdent const&) noexcept = default;

private:
    MediumRollMedium medium_ = eMediumNone;
    int roll_ = 0;
};

// Kinds of label. 9 is not given.
enum label_t : std::int32_t {
    eLabelNone = 0,
    eLabelTimecode24 = 1,    // 24-frame count: 24 and 23.976 fps
    eLabelTimecode25 = 2,    // 25 fps
    eLabelTimecode50 = 3,    // 50 fps
    eLabelTimecode60 = 4,    // 60-frame count: 60 and 59.94 fps
    eLabelTimecode60DF = 5,  // 59.94 fps, drop-frame
    eLabelTimecode30 = 6,    // 30-frame count: 30 and 29.97 fps
    eLabelTimecode30DF = 7,  // 29.97 fps, drop-frame
    eLabelTimecode48 = 8,    // 48-frame count: 48 and 47.952 fps
    eLabelKeykode35mm4Perf = 10,  // "academy"
    eLabelKeykode16mm = 11,
    eLabelKeykode35mm3Perf = 12,
};

KV_EXPORT bool isTimecodeLabel(label_t type) noexcept;
KV_EXPORT bool isKeykodeLabel(label_t type) noexcept;

// The manufacturer code and prefix of a film key, 8 characters, blank when not known.
struct KeyPrefix {
    char text[9] = "        ";

    friend bool operator==(KeyPrefix const& a, KeyPrefix const& b) noexcept
    {
        for (int i = 0; i < 8; ++i)
            if (a.text[i] != b.text[i]) return false;
        return true;
    }
};

// Conversions of one kind of label at one frame clock. A value; cheap to copy.
class KV_EXPORT LabelConverter {
public:
    // An unknown clock is taken as the current project's rate.
    LabelConverter(label_t type, Kv::FrameRate frameClock) noexcept;

    label_t get_type() const noexcept { return type_; }
    Kv::FrameRate get_frame_rate() const noexcept { return rate_; }

    // 4 for academy keys, 3 for 3-perf keys, 1 otherwise.
    int samples_per_frame() const noexcept;
    // Frames a timecode second counts (24, 25, 30, 48, 50, 60); 0 for other labels.
    int timecode_base() const noexcept;
    bool is_drop_frame() const noexcept;
    // Samples before the text repeats: a day of timecode, 10000 keys. 0 for eLabelNone.
    int sample_cycle() const noexcept;

    // Seconds a sample lasts.
    double sample_duration() const noexcept;
    double sample_to_posn(int sample) const noexcept;
    // The nearest sample; a position beyond the int range saturates.
    int posn_to_sample(double posn) const noexcept;

    // The text of a sample, wrapped into the cycle (negative samples count back from its end).
    // Keys take their first 8 places from `prefix`. The null string for eLabelNone.
    LightweightString<char> sample_to_string(int sample, KeyPrefix const& prefix = KeyPrefix()) const;
    // Reads text as sample_to_string writes it. Timecode takes ':', ';', '.' or ',' between
    // its four numbers, each of one or two digits. A key needs its 15 places (a NUL among the
    // first 8 ends the text: callers that gather fixed fields should blank them); the prefix
    // goes to `prefix` if that is not null. False, and nothing stored, for text that does not
    // read.
    bool string_to_sample(char const* text, int& sample, KeyPrefix* prefix = nullptr) const;
    // string_to_sample, then sample_to_posn.
    bool string_to_posn(char const* text, double& posn, KeyPrefix* prefix = nullptr) const;

    // The timecode word of a sample, with the drop-frame flag for drop-frame labels. A label
    // that is not timecode counts in the project's timecode (getDefaultLabelTypeForMedium of
    // video).
    std::uint32_t sample_to_smpte(int sample) const noexcept;
    // The sample of a timecode word, and whether the word's drop-frame flag is set. The flag
    // decides the counting, whatever this label's own: a 30 or 60 frame count decodes a flagged
    // word as drop-frame, the other counts only report the flag. A number that drop-frame skips
    // reads as the next one that exists (00:01:00;00 as 00:01:00;02); digits beyond their range
    // carry (frame 27 of a 25-frame count into the next second).
    int smpte_to_sample(std::uint32_t word, bool& dropFrame) const noexcept;

private:
    label_t type_;
    Kv::FrameRate rate_;
};

// A place on a label: the label's kind and a position, which may not have been set (invalid).
class KV_EXPORT LabelPoint {
public:
    LabelPoint() noexcept = default;
    explicit LabelPoint(label_t type) noexcept : type_(type) {}

    // The converter of this label's type at its medium's frame rate.
    LabelConverter cvt() const noexcept;

    label_t get_type() const noexcept { return type_; }
    MediumRollIdent const& get_MediumRoll() const noexcept { return mediumRoll_; }
    KeyPrefix const& get_key_prefix() const noexcept { return prefix_; }
    double get_posn() const noexcept { return posn_; }
    bool is_valid() const noexcept { return valid_; }

    friend bool operator==(LabelPoint const&, LabelPoint const&) noexcept = default;

protected:
    label_t type_ = eLabelNone;
    MediumRollIdent mediumRoll_;
    KeyPrefix prefix_;
    double posn_ = 0.0;
    bool valid_ = false;
};

// A label read: its text and timecode word at an offset from its own sample.
class KV_EXPORT Label : public LabelPoint {
public:
    Label() noexcept = default;
    explicit Label(label_t type) noexcept : LabelPoint(type) {}

    // The label's own sample: its position in samples, 0 while it is invalid.
    int get_sample() const noexcept;

    // The text of the frame `sample` samples on from the label's own (so get_string(0) is the
    // label's text, and get_string(n * cvt().samples_per_frame()) that of n frames later).
    LightweightString<char> get_string(int sample) const;
    // The timecode word at the same place.
    std::uint32_t get_smpte_string(int sample) const noexcept;

    // A position or a span in seconds as samples of this label (nearest), and back.
    int posn_to_sample(double posn) const noexcept;
    double sample_to_posn(int sample) const noexcept;

    // The sample (from the label's zero, not from its own) of a timecode word, as
    // LabelConverter::smpte_to_sample.
    int get_samples_from_SMPTETc(unsigned int word, bool& dropFrame) const noexcept;
};

// A label that can be changed.
//
// Setting one from a file, for example:
//     EditLabel tc;  tc.init(MediumRollIdent(eMediumVideo, 2));  tc.set_type(eLabelTimecode25);
//     bool df;  int s = tc.get_samples_from_SMPTETc(word, df);
//     tc.set_posn(tc.cvt().sample_to_posn(s));  tc.set_valid(true);   // or tc.set_sample(s)
//     EditLabel key;  key.set_type(eLabelKeykode35mm4Perf);
//     key.set_MediumRoll(MediumRollIdent(eMediumFilm, 1));
//     key.set_string("KU1234561234+12");  // position, key prefix and validity together
// A key's prefix lives in the label, not in the position, so set_string is the way to take a
// key from text; cvt().string_to_posn alone gives the position only.
class KV_EXPORT EditLabel : public Label {
public:
    EditLabel() noexcept = default;
    explicit EditLabel(label_t type) noexcept : Label(type) {}
    EditLabel(Label const& label) noexcept : Label(label) {}
    EditLabel(EditLabel const&) noexcept = default;
    EditLabel& operator=(EditLabel const&) noexcept = default;
    EditLabel& operator=(Label const& label) noexcept;

    // Starts over on the given medium and roll: position 0, invalid, prefix blank; the type
    // stays.
    void init(MediumRollIdent const& mediumRoll) noexcept;

    // The position stays: the same frame, counted another way.
    void set_type(label_t type) noexcept { type_ = type; }
    void set_MediumRoll(MediumRollIdent const& mediumRoll) noexcept { mediumRoll_ = mediumRoll; }
    void set_key_prefix(KeyPrefix const& prefix) noexcept { prefix_ = prefix; }
    void set_posn(double posn) noexcept { posn_ = posn; }
    void set_valid(bool valid) noexcept { valid_ = valid; }

    // The position of a sample, and valid.
    void set_sample(int sample) noexcept;
    // Reads text through the converter: position, key prefix (for keys), valid. False, and the
    // label unchanged, for text that does not read.
    bool set_string(char const* text) noexcept;
};

// The medium a project edits in: video.
KV_EXPORT MediumRollMedium getDefaultEditMediumForProject() noexcept;
// Video: the timecode of the project's rate (24 for 24 and 23.976, 25, 30 non-drop for 30 and
// 29.97, 48, 50, 60 non-drop for 60 and 59.94). Film: academy keys. Otherwise eLabelNone.
KV_EXPORT label_t getDefaultLabelTypeForMedium(MediumRollMedium medium) noexcept;
// Film: 24. Video, and a medium not known: the current project's rate.
KV_EXPORT Kv::FrameRate getFrameRatefromMedium(MediumRollMedium medium) noexcept;
