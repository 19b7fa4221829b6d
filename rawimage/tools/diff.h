#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "../../support/rgb24.h"
#include "../export.h"
#include "../frame/raw_frame.h"

// How two frames differ: size, channels, pixels and, if asked for, records.
//
//     MUtils::RawFrameOptions opening;
//     opening.inspect = MUtils::InspectDepth::kRecords;
//     const MUtils::RawFrame a("a.rimg", opening), b("b.rimg", opening);
//     const MUtils::DiffReport report = MUtils::diffFrames(a, b, {});

namespace MUtils {
inline namespace v1 {

// The first frame is number 0, the second one number 1, in every array of two.
enum class DiffState {
    kGood,       // within the limits of both kinds
    kWarnings,   // beyond those of warnings; or channels differ in index, type or alias; or no pixel could be
                 // compared
    kFailures,   // beyond those of failures; or one frame lacks pixels of the other, or a record differs
    kMismatch,   // other sizes or channels. Channels that both have are compared if the sizes agree
    kNoChannel,  // a pattern fits no channel; from here on there are no numbers
    kUnreadable,  // a frame: no raw image, or without a resolution
    kDamaged,     // a frame
    kTooLarge,    // the frames, for the picture, or because their buckets form too many boxes
    kStopped      // by the caller's progress
};

// "good", "warnings", "failures", "mismatch", "no channel", "unreadable", "damaged", "too large", "stopped".
RAWIMAGE_EXPORT const char* stateName(DiffState state);

// When a comparison fails, or warns.
struct DiffLimits {
    double value = 1e-6;  // a pixel counts that differs by more in any component
    double percent = 0;   // so many of the compared pixels may count
    double hard = std::numeric_limits<double>::infinity();  // no pixel may differ by more
};

struct DiffOptions {
    DiffLimits fail;
    DiffLimits warn;
    std::vector<std::string> channels;  // patterns for names, as of a shell; none for all
    bool records = false;               // compare them, too
    // A frame was converted from OpenEXR, which keeps no index, no alias, no name of the main colour, alpha
    // and depth, and not all records. These three are matched by alias, too; what differs in such ways is
    // listed and does not count.
    bool throughExr = false;
    bool picture = false;   // draw the difference
    bool absolute = false;  // in the picture, of either sign; else negative differences are black
    double scale = 1;       // of differences in the picture
    int threads = 0;        // that decompress; below 1: one for each processor
    // Called now and then, by one thread at a time, with the pixels that are done and all; false stops.
    std::function<bool(std::int64_t done, std::int64_t total)> progress;
};

// Over the values that are numbers. A difference from NaN or between infinities is infinite, but NaN is equal
// to NaN, and infinity to infinity of the same sign.
struct DiffNumbers {
    double maximum = 0;
    double mean = 0;
    double rms = 0;
    double psnr = 0;  // decibels, for a peak of 1; infinite when nothing differs
};

struct DiffPlace {
    std::int64_t x = 0;
    std::int64_t y = 0;
    int component = 0;
    std::array<double, 2> values{};  // ids of floats as their bits
};

// A channel of both frames. Ids are compared bit by bit, count for both limits, and are no numbers: the
// values of integer channels, and of channels with "crypto" in the name every other component of two or four
// floats, and single floats whose name ends in ".r" or ".b", in any case.
struct ChannelDiff {
    std::array<FrameChannel, 2> channels;
    std::vector<std::string> differs;  // of "index", "name", "type", "alias"
    bool comparable = true;            // both have values, and as many components of a kind
    std::int64_t pixels = 0;           // that both have
    std::int64_t differing = 0;        // of these, in any bit that makes a difference
    std::int64_t warnings = 0;
    std::int64_t failures = 0;
    std::optional<DiffNumbers> numbers;  // none of ids, or when there is nothing to compare
    std::optional<DiffPlace> largest;    // the first of the largest differences; ids come before numbers
    std::array<MissingBoxes, 2> lacks;   // pixels that this frame lacks and the other one has
    std::array<std::int64_t, 2> lacksPixels{};
};

struct RecordDiff {
    std::string name;
    std::array<bool, 2> present{};
};

struct DiffReport {
    DiffState state = DiffState::kGood;
    int side = -1;  // the frame that the cause is about, if it is one
    std::string cause;
    std::int64_t causeOffset = -1;
    std::vector<FileFault> damaged;  // what of that frame could not be read, as far as it was met
    std::array<FileState, 2> fileStates{};
    std::array<PixelBox, 2> frames;
    std::vector<ChannelDiff> channels;                // in the order of the first frame
    std::array<std::vector<FrameChannel>, 2> onlyIn;  // channels that the other frame does not have
    std::vector<RecordDiff> records;                  // that differ
    std::int64_t pixels = 0;                          // compared in any channel
    std::int64_t warnings = 0;                        // of these, in any channel
    std::int64_t failures = 0;
    std::string drawn;           // the channel in the picture
    std::vector<RGB24> picture;  // of the size of the frame, row after row; empty if there is none
};

// Compares two frames, which are open with an inspection to the depth of records or deeper: `fileStates` and
// damage are what that found, and what decoding finds. Channels are matched by name, those of one name in
// their order, unlisted ones by index.
//
// The picture shows the main colour, else the first channel: differences from 0 to 1 as dark to bright in
// each component, ids that differ in white, pixels that one frame lacks in magenta.
//
// Memory: kDiffBandBytes for each frame, the picture, and what RawFrame::read() needs. Decodes each bucket
// once where the frames are cut into buckets alike. Numbers do not depend on the number of threads. Throws
// std::bad_alloc.
RAWIMAGE_EXPORT DiffReport diffFrames(const RawFrame& a, const RawFrame& b, const DiffOptions& options);
constexpr std::int64_t kDiffBandBytes = 32 << 20;

}  // namespace v1
}  // namespace MUtils
