#pragma once

#include "../support/mbvtable.h"
#include "../support/rgb24.h"
#include "../support/table.h"
#include "export.h"

// The storage class of a render channel's values. Types 2 and 5 share size and tag; the EXR writers name the
// components of a colour R, G, B and those of a vector X, Y, Z.
enum RegionChannelType : int {
    RCT_NONE = 0,    // no values
    RCT_FLOAT = 1,   // one float
    RCT_COLOR = 2,   // three floats, a colour
    RCT_FLOAT2 = 3,  // two floats
    RCT_INT = 4,     // one 32-bit integer
    RCT_VECTOR = 5,  // three floats, a vector
    RCT_FLOAT4 = 6   // four floats
};

// What a channel is to the renderer. Any number is stored and passed on; these have a meaning here.
enum RegionChannelAlias : int {
    RCA_NONE = 0,
    RCA_IMAGE = 1,    // accepted as the colour of a preview
    RCA_DEPTH = 117,  // "Z" in EXR files
    RCA_ALPHA = 125,  // "A" in EXR files
    RCA_COLOR = 126   // the main colour: "R", "G", "B" in EXR files, and the colour of a preview
};

namespace MUtils {

using ::RegionChannelAlias;
using ::RegionChannelType;

// Three axis vectors.
struct RAWIMAGE_EXPORT Matrix {
    float axis[3][3];

    Matrix() = default;
    // 1 makes the identity, 0 the zero matrix; any other value leaves the matrix uninitialised, deliberately.
    // Converts from int, deliberately: a matrix is made from 1 or 0 where one is asked for.
    Matrix(int kind);
};

// An axis system and its origin.
struct Transform {
    Matrix matrix;
    float offset[3];
};

// Bit of a channel's flags word: the EXR writers give the channel no EXR channel.
constexpr int kChannelSkippedInExr = 2;

// One channel of a region.
struct RegionChannel {
    RegionChannelType type = RCT_NONE;
    char name[64] = {};  // up to its NUL, or all 64 characters
    RegionChannelAlias alias = RCA_NONE;
    MBVTable* data = nullptr;  // width * height values in row order; null when the channel has no data
    int flags = 0;
};

// A finished region of the image with the values of its channels. The writers read it during the call only
// and own nothing of it.
class RAWIMAGE_EXPORT MRRegionData {
  public:
    virtual ~MRRegionData();

    // Channels of the frame. Those at and past channels.Count() have no data in this region.
    virtual int numChannels() const { return channels.Count(); }

    Table<RegionChannel, 100> channels;
    int x0 = 0;  // first pixel
    int x1 = 0;  // just past the last pixel
    int y0 = 0;
    int y1 = 0;
    int width = 0;  // in pixels
    int height = 0;
};

// The renderer's description of one channel. The name may be null, which counts as "".
class RAWIMAGE_EXPORT RegionChannelCallback {
  public:
    virtual RegionChannelType getType() = 0;
    virtual RegionChannelAlias getAlias() = 0;
    virtual const char* getName() = 0;
    virtual int getFlags() = 0;

  protected:
    ~RegionChannelCallback() = default;
};

}  // namespace MUtils

using MUtils::MRRegionData;
using MUtils::RegionChannel;
using MUtils::RegionChannelCallback;

// The camera of a frame; every field is stored as it is, none is converted or checked.
struct RAWIMAGE_EXPORT RICameraInfo {
    // 4 x 4, row after row: rows 0 to 2 hold the axis vectors in their first three elements, row 3 the
    // position; element 15 is 1, elements 3, 7 and 11 are 0.
    float transform[16];
    int projection;
    float aperture;
    float fov;
    float targetDistance;
    float nearRange;
    float farRange;
    float nearClip;
    float farClip;
    float focalLength;
    float fNumber;

    // The camera's axes in the renderer's convention, whose second and third axes are swapped, with one sign
    // change, against the stored ones: axis 1 is the negated row 2, axis 2 is row 1.
    MUtils::Transform getCameraTransform() const;
    // The inverse: get after set gives back `t`. Sets all sixteen elements.
    void setCameraTransform(const MUtils::Transform& t);
};

// The part of the image that is rendered. The format carries five integers; the EXR writers take the first
// one as -1 for "no region" and the others as pixels.
struct RIRegionInfo {
    int kind;
    int left;
    int top;
    int width;
    int height;
};

// The scene of a frame: a value whose meaning is the renderer's, and an owned name, which may be null.
struct RAWIMAGE_EXPORT RISceneInfo {
    int value = 0;
    char* name = nullptr;  // allocated with array new

    RISceneInfo() = default;
    // Copies `text`; null stays null.
    RISceneInfo(int sceneValue, const char* text);
    RISceneInfo(const RISceneInfo& other);
    RISceneInfo& operator=(const RISceneInfo& other);
    ~RISceneInfo();

    // Replaces the name by a copy of `text` (null gives no name).
    void setName(const char* text);
};

// Bytes of one value of the pixel tag `tagId`: 12, 8, 4, 4, 16 for the tags 258 to 261 and 270. It takes a
// tag id, not a channel type; every other id gives -1.
RAWIMAGE_EXPORT int getChanSize(int tagId);
