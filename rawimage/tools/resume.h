#pragma once

#include "../export.h"
#include "recover.h"

// Continues a raw image file whose render was interrupted.

namespace MUtils {
inline namespace v1 {

// Makes a file ready to be continued with RIFile::Append and ReadInfoTags: cuts a torn tail, or the table of
// a finished file, so that the next tag follows the last whole one. Works under the writers' lock. Refuses
// damage (kNotInPlace), with two exceptions: pixels are not inflated, so damage inside them is not found, and
// a pixel tag of an unfinished file whose place is wrong or in doubt stays where it is, as what is rendered
// again covers it. missingPixels() lists its bucket.
RAWIMAGE_EXPORT RecoverReport prepareResume(const char* fileName);

}  // namespace v1
}  // namespace MUtils
