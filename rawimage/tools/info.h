#pragma once

#include "../export.h"

// What the preview and note tools report of a file. A plain record: whoever owns it releases the name, with
// delete[].
struct RAWIMAGE_EXPORT RawImageInfo {
    int width = 0;  // of the frame, in pixels
    int height = 0;
    int scene = 0;         // the scene's value
    int hasSettings = 0;   // non-zero when the file carries render settings; only the preview fills it
    char* name = nullptr;  // the scene's name, allocated with array new, or null

    // Replaces the name by a copy of `text`; null gives no name.
    void setName(const char* text);
};
