#pragma once

#include <algorithm>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "examples/render_frame/exit_codes.h"
#include "examples/render_frame/output.h"

namespace render_frame {

struct Size {
    int width = 0;
    int height = 0;
};

// The command line.
struct Options {
    std::vector<std::string> outputs{"out/frame.rimg"};
    std::string resume;  // the raw image to go on with, or perhaps to start, instead of other outputs
    std::string kind;
    int bits = 32;
    std::string compression = "zips";
    std::string compressionSpeed = "small";
    int level = MUtils::kCompressionLevel;
    Size size{640, 360};
    Size bucket{64, 64};
    std::optional<Bucket> region;  // what of the frame to render; all of it when there is none
    int frame = RenderSettings{}.frame;
    int samples = RenderSettings{}.samples;
    int threads = static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1u, 256u));
    bool thumbnail = false;
    bool noQueue = false;
    uint64_t seed = RenderSettings{}.seed;

    std::set<std::string> given;  // the options that the command line has: "--size"

    bool has(const std::string& option) const { return given.count(option) > 0; }
    bool resumes() const { return has("--resume") || has("--resume-or-start"); }
    // The pixels to render.
    Bucket area() const { return region.value_or(Bucket{0, size.width, 0, size.height}); }
};

// Fills the options. After --help and after a mistake, which it reports, it returns the exit code.
std::optional<ExitCode> parseOptions(int argc, char** argv, Options& options);

// What the command line asks to be written.
std::vector<OutputSpec> outputSpecs(const Options& options);

// What is wrong with the frame; empty when this program can render it. The sizes may be any numbers.
std::string faultOfFrame(const Size& size, const Size& bucket, int samples);
// What is wrong with the area to render; empty for one that lies in the frame.
std::string faultOfArea(const Bucket& area, const Size& size);

}  // namespace render_frame
