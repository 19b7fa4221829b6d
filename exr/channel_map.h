#pragma once

#include <ImfForward.h>
#include <ImfPixelType.h>

#include <array>

#include "rawimage/records.h"
#include "support/char_string.h"
#include "support/table.h"

namespace MUtils {
inline namespace v1 {

// How the EXR channels of a render channel get their names.
enum class ExrNaming {
    kMain,     // the labels alone; they belong to the main part
    kWhole,    // one EXR channel with the render channel's name
    kSuffixed  // the render channel's name, a dot, and each label
};

// What the EXR writers make of one kind of render channel. EXR channel i holds component i of the values.
struct ExrChannelRule {
    int type;   // a RegionChannelType
    int alias;  // a RegionChannelAlias, or any
    ExrNaming naming;
    int components;  // 32-bit numbers that one value has
    int channels;    // EXR channels
    const char* labels[4];

    int valueBytes() const { return components * 4; }
    bool isInteger() const { return type == RCT_INT; }
    // Half or float as the file has it, UINT for integers.
    Imf::PixelType pixelType(Imf::PixelType floatType) const { return isInteger() ? Imf::UINT : floatType; }
};

// The rule for a channel of that type and alias, null for a channel without EXR channels. With several depth
// channels in a frame none of them is "Z": each keeps its own name.
const ExrChannelRule* findExrChannelRule(int type, int alias, bool severalDepthChannels);

// What a suffixed name is when the render channel's name, or what a part's name leaves of it, is empty.
enum class EmptyBase {
    kLabelAlone,  // "R": scan-line files
    kDotAndLabel  // ".R": tiled files
};

using ExrNames = std::array<CharString, 4>;

// The names of the rule's EXR channels in component order; the rest stays empty.
ExrNames exrChannelNames(const ExrChannelRule& rule, const char* base, EmptyBase emptyBase);

// Adds the EXR channels to a header's list. OpenEXR throws when a name is empty.
void insertExrChannels(Imf::ChannelList& list, const ExrChannelRule& rule, const ExrNames& names,
                       Imf::PixelType floatType);

// False for a null entry and for a channel that the EXR writers skip.
bool isWrittenToExr(RegionChannelCallback* channel);

// True when more than one channel that is written has the depth alias, whatever its type.
bool hasSeveralDepthChannels(const Table<RegionChannelCallback*, 100>& channels);

}  // namespace v1
}  // namespace MUtils
