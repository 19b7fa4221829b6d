#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "../frame/raw_frame.h"

// What the tools that go over all pixels of a frame take and report.

namespace MUtils {
inline namespace v1 {

struct FrameToolOptions {
    // Patterns for the names of channels, with * ? and [...]; none for all channels.
    std::vector<std::string> channels;
    int threads = 0;  // below 1: one for each processor
    // Called now and then, by one thread at a time, with the rows of channels that are done and all; false
    // stops.
    std::function<bool(std::int64_t done, std::int64_t total)> progress;
};

struct FrameReport {
    // Of the file, inspected to the depth of records, and of the pixels that were read. A damaged pixel that
    // no chosen channel has is not found.
    FileState state = FileState::kGood;
    // Of any state but good, and the file offset where it shows, -1 where it shows nowhere.
    std::string cause;
    std::int64_t causeOffset = -1;
    PixelBox frame;
    PixelBox area;                   // whose pixels count: the render region, else the frame
    std::vector<FileFault> damaged;  // tags of pixels that cannot be decoded, by offset
    // Why there is no result although the state allows one; "" when there is.
    std::string refused;
    std::string unmatched;  // a pattern that fits no channel: there is no result
    bool stopped = false;   // by progress: likewise

    // There is a result.
    bool done() const { return !stopped && refused.empty() && unmatched.empty() && !area.empty(); }
};

}  // namespace v1
}  // namespace MUtils
