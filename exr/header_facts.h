#pragma once

#include "../rawimage/export.h"
#include "../rawimage/records.h"

// Facts about OpenEXR files that whoever writes and reads them shares. No type of OpenEXR's is needed here.

namespace MUtils {
inline namespace v1 {

// The header attributes that hold the camera: a 4x4 matrix of floats, an integer, and a float for each field.
constexpr const char* kCameraTransformAttribute = "cameraTransform";
constexpr const char* kCameraProjectionAttribute = "cameraProjection";

struct CameraAttribute {
    const char* name;
    float RICameraInfo::*field;
};
constexpr CameraAttribute kCameraAttributes[] = {
    {"cameraAperture", &RICameraInfo::aperture},
    {"cameraFov", &RICameraInfo::fov},
    {"cameraTargetDistance", &RICameraInfo::targetDistance},
    {"cameraNearRange", &RICameraInfo::nearRange},
    {"cameraFarRange", &RICameraInfo::farRange},
    {"cameraNearClip", &RICameraInfo::nearClip},
    {"cameraFarClip", &RICameraInfo::farClip},
    {"cameraFocalLength", &RICameraInfo::focalLength},
    {"cameraFNumber", &RICameraInfo::fNumber},
};

// True for the name of any of these attributes.
RAWIMAGE_EXPORT bool isCameraAttribute(const char* name);

// The lines that a scan-line file packs together, for a value of Imf::Compression; 1 for one that is not
// known.
RAWIMAGE_EXPORT int linesPerBlock(int compression);

}  // namespace v1
}  // namespace MUtils
