#pragma once

#include <OpenImageIO/imageio.h>

#include <vector>

#include "rawimage/area/pixel_box.h"

namespace rimg_imageio {

// What the caller wants to see in place of pixels that cannot be read ("oiio:missingcolor").
class MissingColor {
  public:
    MissingColor() = default;
    // Takes the hint of `config`, else the global attribute "missingcolor".
    explicit MissingColor(const OIIO::ImageSpec& config);

    // False when the caller has not asked for it.
    bool wanted() const { return !values_.empty(); }
    // Fills the pixels of `part`, which lies in `box`. `pixels` has those of `box` row by row, `pixelBytes`
    // each, and points to the first channel that is to be filled, number `firstChannel` of the image; the
    // next ones follow it, of these types. A first number that is negative asks for diagonal stripes.
    // Channels without a number get the last one.
    void fill(const MUtils::PixelBox& part, const MUtils::PixelBox& box, std::size_t pixelBytes,
              const std::vector<OIIO::TypeDesc>& types, int firstChannel, unsigned char* pixels) const;

  private:
    std::vector<float> values_;
};

}  // namespace rimg_imageio
