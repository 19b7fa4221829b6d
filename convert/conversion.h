#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "../rawimage/area/pixel_box.h"
#include "../rawimage/export.h"
#include "../rawimage/inspect/inspection.h"

// What the conversions between OpenEXR files and raw images have in common: their two steps and their report.
// from_exr/from_exr.h and to_exr/to_exr.h make them.

namespace MUtils {
inline namespace v1 {

enum class ConvertState {
    kGood,
    kIncomplete,     // the input was never finished, or lacks pixels that the output should have
    kDamaged,        // part of the input is lost
    kCannotOpen,     // an input; from here on there is no output
    kNotThisFormat,  // an input
    kUnsupported,    // the input has what the output's format cannot carry
    kTooLarge,       // the pixels in work need more memory than the machine has or the conversion may take
    kOverscan,       // pixels lie outside the frame, and FromExrOptions::cropOverscan is off
    kOutsideFrame,   // all pixels lie outside the frame
    kBadOption,      // the cause begins with the option's name
    kLocked,         // another writer has the output open
    kWriteFailed,
    kStopped,  // by the caller's progress
    kFailed    // an error without a state of its own
};

// "good", "incomplete", "damaged", "cannot open", "not this format", "unsupported", "too large", "overscan",
// "outside the frame", "bad option", "locked", "write failed", "stopped", "failed".
RAWIMAGE_EXPORT const char* stateName(ConvertState state);

// A fact about a conversion, for reports.
struct ConvertNote {
    // A word for programs. Losses from OpenEXR: "origin", "display" (the display window), "overscan",
    // "attributes", "screenWindow", "text", "levels", "name"; found on the way: "missing", "damage",
    // "buckets". Losses to OpenEXR: "name", "overscan", "text", "tags", "channels"; found on the way:
    // "damage", "missing". Remarks: "unfinished", "region" (one without pixels), "storage" (a compression
    // that is lossy or unused), "halves" (a compression that takes 16 bits).
    std::string kind;
    std::string file;                      // that the text is about; "" for the output
    std::string text;                      // for people to read
    std::vector<std::string> names{};      // of attributes, texts, tags or channels
    std::optional<std::int64_t> count{};   // of pixels, tags, blocks, buckets or faults
    std::optional<std::int64_t> offset{};  // in the file
};

struct ConvertReport {
    ConvertState state = ConvertState::kGood;
    std::string cause;                     // of a state that left no output; else see the losses
    std::string file;                      // that the cause is about; "" for the output or for none
    std::optional<std::int64_t> offset{};  // in that file, where the cause lies

    // The output is whole. With the states kIncomplete and kDamaged there may be one or none.
    bool written = false;
    // The input's own state, as far as the conversion has seen it.
    FileState inputState = FileState::kGood;

    std::vector<ConvertNote> losses;   // what the output lacks of the input
    std::vector<ConvertNote> remarks;  // that are no loss

    PixelBox frame;            // of the raw image; empty until it is known
    std::int64_t originX = 0;  // of the frame's first pixel in the OpenEXR file
    std::int64_t originY = 0;
    PixelBox window;            // the pixels that the input has of the frame; empty until it is known
    std::int64_t channels = 0;  // that go into the output
    std::int64_t regions = 0;   // that were written: buckets, tiles, or the frame
};

// Returns false to stop. Called on the thread that runs the conversion, with `done` of `total` pieces of
// work; during prepare() both are 0.
using ConvertProgress = std::function<bool(std::int64_t done, std::int64_t total)>;

// One conversion of one file. It is done in two steps, so that the caller can look at the losses before an
// output exists:
//
//     const auto conversion = MUtils::makeToExr("frame.rimg", options);
//     if (conversion->prepare() && conversion->report().losses.empty())
//         conversion->run("frame.exr");
//     if (!conversion->report().written) fail(conversion->report().cause);
//
// One thread at a time uses the object. Both steps throw std::bad_alloc and nothing else.
class RAWIMAGE_EXPORT Conversion {
  public:
    virtual ~Conversion() = default;

    // Opens the input and finds out whether it can be converted and what the output will lack. Writes
    // nothing. True when it can be converted. Memory for pixels may be reserved.
    virtual bool prepare() = 0;

    // Writes the output, after a prepare() that returned true; once. An existing file is replaced, unless it
    // is an input. True when the output is whole; what is left of it otherwise is the caller's to remove.
    // What of the input cannot be read is left out, and is a loss.
    virtual bool run(const std::string& output) = 0;

    // Of what was done so far.
    virtual const ConvertReport& report() const = 0;
};

}  // namespace v1
}  // namespace MUtils
