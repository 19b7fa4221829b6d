#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "../../support/rgb24.h"
#include "../export.h"
#include "../inspect/inspection.h"

// A picture of any channel of a raw image file, for people to look at. Where makeRawImagePreview serves the
// renderer's own browser with the colour channel, this shows every kind of channel, shows all that is sound
// in unfinished and damaged files, and reports what is not.

namespace MUtils {
inline namespace v1 {

// How a channel's values are shown. The guess goes by type, alias and name, and for four floats by the
// values:
// - Ids are integers, and two or four floats with "crypto" in the name. So are four floats without a colour's
//   alias whose second and fourth lie between 0 and 1 while the first is no number that is rendered: most of
//   those that are not 0 are beyond 2^24 or below 2^-24, and some are beyond.
// - A float of alias 117 is a depth. One of alias 1 or 126, or whose name is Y, holds "luminance" or ends in
//   ".luma", in any case, is a luminance, shown as a colour. Any other is spread over grey by its range.
// - Vectors and two floats are vectors. Everything else is a colour.
enum class ChannelView {
    kGuess,
    // A colour for each value. Two or four floats that are ids by the rule above are pairs of id and
    // coverage, mixed by the coverage.
    kId,
    kColour,  // scene-linear; one component is grey
    kVector,  // -1 to 1 becomes dark to bright; two floats around the middle by their range
    kDepth    // the first component, near is bright
};

struct PictureRequest {
    // Pixels of the picture; 0 for both takes the stored thumbnail's size, or else the frame's, scaled down
    // to at most kDefaultPictureSize in either direction. Anything else must be positive.
    int width = 0;
    int height = 0;
    // Where width and height are 0: the picture has the frame's size, scaled down to at most this many pixels
    // in either direction, and so the frame's aspect. 0 for no such limit.
    int fit = 0;
    bool keepAspect = true;  // centre the frame on the background instead of stretching it
    // The channel to show; "" for the colour channel, the last one of alias 1 or 126, or else the first
    // channel of all.
    std::string channel;
    ChannelView view = ChannelView::kGuess;
    float exposure = 0.0f;  // stops, for colours and luminance
    RGB24 background{0, 0, 0};
    // Take the stored thumbnail when no channel, view or exposure is asked for and it is what a rendering
    // would be: of the size asked for, within a pixel of the one that fits, or with keepAspect as large as
    // the size allows.
    bool useStored = true;
    int threads = 0;  // that decode and draw; below 1: one for each processor. The picture is the same
    // Called now and then on the calling thread, with the tags that are drawn and all, both 0 before drawing
    // begins; false stops.
    std::function<bool(std::int64_t done, std::int64_t total)> progress;
};
constexpr int kDefaultPictureSize = 1024;
constexpr int kMaxPictureSize = 32768;

enum class PictureState {
    kGood,
    kCannotOpen,
    kNotThisFormat,
    kNoFrame,     // no resolution, or none that can be drawn
    kNoChannel,   // the file has no such channel; `channels` names those it has
    kBadRequest,  // a size out of range
    kStopped      // by the caller's progress
};

struct Picture {
    PictureState state = PictureState::kGood;
    int width = 0;
    int height = 0;
    std::vector<RGB24> pixels;  // row after row from the top; empty unless the state is kGood
    bool stored = false;        // the file's own thumbnail
    std::string channel;        // the one that is shown
    std::vector<std::string> channels;
    // What the inspection of the file found, to the depth of records: the state, its cause, and the file
    // offset where that shows, -1 where it shows nowhere.
    FileState fileState = FileState::kGood;
    std::string cause;
    std::int64_t causeOffset = -1;
    // What the picture lacks because it is damaged, by offset: tags of the shown channel, and the thumbnail
    // where it was wanted and could not be read. What earlier tags drew in that place remains, else the
    // background. Damaged values are found by decompressing them, so the file's state does not count them.
    std::vector<FileFault> damaged;
    // Tags of the shown channel whose place or channel is in doubt, by offset. They are drawn below all
    // others.
    std::vector<FileFault> doubts;
    bool fileHasPixels = false;  // any pixel tag, whatever the state is
};

// Makes a picture of a file. Never fails otherwise than by its state. Throws std::bad_alloc.
//
// Colours are scene-linear and go through the exposure and the sRGB curve. An alpha channel and floats
// between 0 and 1 are shown as grey, other floats spread over grey by their range (near is bright for depth),
// vectors from -1..1 to colour, two floats to red and green around the middle, ids each in a colour of its
// own, 0 in black. Where tags overlap the last one in the file counts; those whose place is in doubt never
// cover others. Only the shown channel is read. Beside the picture and the list of the file's tags, the
// payload and the values of one of the channel's tags for each thread are in memory.
//
// The file may be written to at the same time: the picture shows what was in it at the beginning.
RAWIMAGE_EXPORT Picture makePicture(const char* fileName, const PictureRequest& request);

}  // namespace v1
}  // namespace MUtils
