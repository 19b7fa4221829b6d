#pragma once

#include <OpenImageIO/imageio.h>

#include <optional>
#include <string>

#include "oiio/extra_record.h"
#include "rawimage/frame/raw_frame.h"
#include "rawimage/records.h"

namespace rimg_imageio {

// Puts the records of a file into the image's attributes: under OpenImageIO's own name where it has one, else
// under the name that the record has in OpenEXR files, else as "rawimage:...".
void addRecords(const MUtils::FrameRecords& records, OIIO::ImageSpec& spec);

// Adds "rawimage:state", with "rawimage:cause" unless it is good, and "rawimage:missing_pixels".
void addState(const MUtils::RawFrame& frame, const MUtils::PixelBox& area, OIIO::ImageSpec& spec);

// The other direction: the tags that an image's attributes become.
struct TagValues {
    float pixelAspect = 1.0f;
    std::optional<RICameraInfo> camera;
    std::optional<std::string> note, stampText, scene;
    int sceneValue = 0;
    ExtraRecord extra;  // all other attributes
};
TagValues tagValues(const OIIO::ImageSpec& spec);

}  // namespace rimg_imageio
