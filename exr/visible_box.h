#pragma once

#include "support/mbvtable.h"

// A box of pixels; x1 and y1 are just past its last column and row.
struct PixelWindow {
    int x0 = 0;
    int y0 = 0;
    int x1 = 0;
    int y1 = 0;

    int width() const { return x1 - x0; }
    int height() const { return y1 - y0; }
};

// The smallest box around the visible pixels of a frame of width x height pixels: those where one of the
// three floats of `alpha` is larger than 1e-12 or smaller than -1e-12. An empty box when there is none.
// `alpha` holds at least width x height values of three floats, in row order. Reads only what lies outside
// the box and its border.
PixelWindow findVisibleBox(const MBVTable& alpha, int width, int height);
