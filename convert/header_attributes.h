#pragma once

#include <string>

// Groups of OpenEXR header attributes that conversions treat alike, by name.

namespace MUtils {
inline namespace v1 {

// True for an attribute that describes how pixels are stored, and where they are.
bool isStructural(const std::string& name);

// True for an attribute that the OpenEXR writers make of a raw image's tag.
bool standsForTag(const std::string& name);

}  // namespace v1
}  // namespace MUtils
