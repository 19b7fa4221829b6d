#pragma once

#include "../rawimage/export.h"
#include "mbvtable.h"
#include "rgb24.h"

namespace MUtils {

// Turns a colour as it is stored into one as it is shown.
class RAWIMAGE_EXPORT ColCor {
  public:
    virtual ~ColCor();
    // Corrects the colour red, green, blue in place. The result is taken as display values, 0 to 1.
    virtual void correct(float rgb[3]) = 0;
};

// A display value as a byte: floor(clamp(value * 256, 0, 255)), so that 1/256 per step goes both ways. NaN
// gives 0.
RAWIMAGE_EXPORT unsigned char byteFromDisplay(float value);

// The sRGB curve of a linear value, not clamped.
RAWIMAGE_EXPORT float srgbFromLinear(float value);

// Draws what one bucket of a colour channel contributes to a preview: the canvas of canvasWidth x
// canvasHeight pixels is scaled to the outWidth x outHeight pixels of `out`, and each output pixel whose
// centre falls into the bucket becomes the average of the bucket's pixels under its footprint. Of buckets
// that do not overlap, every output pixel belongs to one, so the picture does not depend on their order and
// has no seams and no gaps at any scale.
//
// `data` holds width x height values of three floats in row order, the first at (x, y) of the canvas; the
// bucket may lie partly or wholly outside. Without a corrector the values are scene-linear and go through the
// sRGB curve. NaN counts as black, an infinity shows as white. Data that is too short or of another value
// size draws nothing.
//
// One mode, value type and filter exist: `mode` 1, `valueType` 2 (a colour), `filter` 2 (the area average);
// the numbers, `alias`, `second`, `background` and the last argument are carried for the callers' sake.
// `hasCorrector` of 0 ignores the corrector. Calls with different `out` may run at the same time. Always
// true.
RAWIMAGE_EXPORT bool CreateRDPreview(int mode, int reserved, int valueType, int alias, const MBVTable& data,
                                     const MBVTable* second, int canvasWidth, int canvasHeight, int x, int y,
                                     int width, int height, RGB24* out, int outWidth, int outHeight,
                                     RGB24 background, int filter, ColCor* corrector, int hasCorrector,
                                     int reservedLast);

}  // namespace MUtils

using MUtils::ColCor;
using MUtils::CreateRDPreview;
