#pragma once

#include <optional>
#include <string>

#include "examples/render_frame/tracer.h"

namespace render_frame {

// The render settings as a raw image keeps them, a line for each: everything that the pixels depend on
// besides the scene and the build.
std::string encodeSettings(const RenderSettings& render);
// The settings in a text that encodeSettings() has made; none in any other.
std::optional<RenderSettings> decodeSettings(const std::string& text);

}  // namespace render_frame
