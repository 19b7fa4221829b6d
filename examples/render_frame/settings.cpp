#include "examples/render_frame/settings.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace render_frame {

namespace {

// Reads the number behind `name` and '=' off the start of `text`, 0 where there is none.
template <class Number>
void takeLine(std::string_view& text, std::string_view name, Number& number) {
    number = 0;
    text.remove_prefix(std::min(text.size(), name.size() + 1));
    const char* const end = text.data() + text.size();
    text.remove_prefix(static_cast<size_t>(std::from_chars(text.data(), end, number).ptr - text.data()));
    text.remove_prefix(std::min<size_t>(text.size(), 1));
}

}  // namespace

std::string encodeSettings(const RenderSettings& render) {
    return "width=" + std::to_string(render.width) + "\nheight=" + std::to_string(render.height) +
           "\nsamples=" + std::to_string(render.samples) + "\nseed=" + std::to_string(render.seed) +
           "\nframe=" + std::to_string(render.frame) + "\n";
}

std::optional<RenderSettings> decodeSettings(const std::string& text) {
    RenderSettings render;
    std::string_view rest = text;
    takeLine(rest, "width", render.width);
    takeLine(rest, "height", render.height);
    takeLine(rest, "samples", render.samples);
    takeLine(rest, "seed", render.seed);
    takeLine(rest, "frame", render.frame);
    // Whatever was not as it should be shows here.
    return encodeSettings(render) == text ? std::optional(render) : std::nullopt;
}

}  // namespace render_frame
