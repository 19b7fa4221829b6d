#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cli/convert.h"
#include "cli/report.h"
#include "rawimage/area/pixel_box.h"

namespace rimg {

// Something that the output does not have of the input.
struct ConvertLoss {
    std::string kind;  // as docs/cli.md lists them
    std::string file;  // that the text is about
    std::string text;  // for the user to read
    std::vector<std::string> names{};
    std::optional<std::int64_t> count{};
    std::int64_t offset = Failure::kNoOffset;
};

// What a conversion did and what it lost: told line by line as it goes, and printed as JSON in the end.
class ConvertLog {
  public:
    explicit ConvertLog(const ConvertOptions& options) : options_(options) {}

    void lose(ConvertLoss loss);
    // Losses of one kind, one for each text, of which the first ones are told and then, with their number
    // before it, `more`.
    void lose(const std::string& kind, const std::string& file, const std::vector<std::string>& texts,
              const std::string& more);
    // Something to know that is no loss.
    void remark(const std::string& file, const std::string& text);

    // With --strict, throws Failure (kMismatch) when something was lost. To be called before anything is
    // written.
    void refuseLosses() const;

    // For the JSON only; what is never set is null there.
    void setDirection(const char* to) { to_ = to; }
    void setFrame(std::int64_t width, std::int64_t height) { frame_ = {0, 0, width, height}; }
    void setOrigin(std::int64_t x, std::int64_t y) { origin_ = {x, y, x, y}; }
    void setWindow(const MUtils::PixelBox& window) { window_ = window; }
    void setChannels(std::size_t count) { channels_ = count; }
    void countRegion() { ++regions_; }

    // One object on standard output. `failure` is what ended the work, or null.
    void print(ExitCode code, const Failure* failure) const;

  private:
    const ConvertOptions& options_;
    std::vector<ConvertLoss> losses_;
    std::vector<std::string> remarks_;
    const char* to_ = nullptr;
    std::optional<MUtils::PixelBox> frame_;
    std::optional<MUtils::PixelBox> origin_;
    std::optional<MUtils::PixelBox> window_;
    std::size_t channels_ = 0;
    std::int64_t regions_ = 0;
};

}  // namespace rimg
