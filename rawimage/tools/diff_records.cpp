#include "rawimage/tools/diff_records.h"

#include <algorithm>
#include <cstring>

namespace MUtils {
inline namespace v1 {

namespace {

// Texts that are too long to be read may differ.
bool same(const StoredText& a, const StoredText& b) {
    return a.text == b.text && a.bytes <= kMaxSummaryText && b.bytes <= kMaxSummaryText;
}
bool same(const RICameraInfo& a, const RICameraInfo& b) {
    static_assert(sizeof(RICameraInfo) == 26 * 4, "no gaps, which would be compared, too");
    return std::memcmp(&a, &b, sizeof a) == 0;
}
bool same(const RIRegionInfo& a, const RIRegionInfo& b) {
    return a.kind == b.kind && a.left == b.left && a.top == b.top && a.width == b.width &&
           a.height == b.height;
}
bool same(const SceneSummary& a, const SceneSummary& b) {
    return a.value == b.value && same(a.name, b.name);
}
bool same(const std::vector<unsigned char>& a, const std::vector<unsigned char>& b) {
    return a == b;
}
bool same(const FrameThumbnail& a, const FrameThumbnail& b) {
    const auto sameColour = [](const RGB24& x, const RGB24& y) {
        return x.r == y.r && x.g == y.g && x.b == y.b;
    };
    return a.width == b.width && a.height == b.height &&
           std::equal(a.pixels.begin(), a.pixels.end(), b.pixels.begin(), b.pixels.end(), sameColour);
}

// A record that is there and cannot be read is unlike any other.
template <class Value>
void compare(const char* name, const std::array<bool, 2>& present, const std::optional<Value>& a,
             const std::optional<Value>& b, DiffReport& report) {
    const bool equal = present[0] || present[1] ? a && b && same(*a, *b) : true;
    if (!equal) report.records.push_back({name, present});
}

template <class Value>
void compare(const char* name, const std::optional<Value>& a, const std::optional<Value>& b,
             DiffReport& report) {
    compare(name, {a.has_value(), b.has_value()}, a, b, report);
}

}  // namespace

void compareRecords(const std::array<const RawFrame*, 2>& frames, bool throughExr, DiffReport& report) {
    const FrameRecords a = frames[0]->records(), b = frames[1]->records();
    for (const FrameRecords* records : {&a, &b}) {
        if (records->damaged.empty()) continue;
        report.state = DiffState::kDamaged;
        report.side = records == &a ? 0 : 1;
        report.damaged = records->damaged;
        return;
    }
    if (frames[0]->info()->pixelAspect != frames[1]->info()->pixelAspect)
        report.records.push_back({"pixel aspect", {true, true}});
    compare("camera", a.camera, b.camera, report);
    compare("scene", a.scene, b.scene, report);
    compare("note", a.note, b.note, report);
    compare("stamp text", a.stampText, b.stampText, report);
    if (throughExr) return;
    compare("render region", a.region, b.region, report);
    const auto compareBlobs = [&](const char* name, FrameBlob which, bool inA, bool inB) {
        compare(name, {inA, inB}, frames[0]->blob(which), frames[1]->blob(which), report);
    };
    compareBlobs("stamp", FrameBlob::kStamp, a.stampBytes.has_value(), b.stampBytes.has_value());
    compareBlobs("overlay texts", FrameBlob::kOverlayTexts, a.overlayBytes.has_value(),
                 b.overlayBytes.has_value());
    compareBlobs("settings", FrameBlob::kSettings, a.settingsBytes.has_value(), b.settingsBytes.has_value());
    compare("preview", {a.thumbnail.has_value(), b.thumbnail.has_value()}, frames[0]->thumbnail(),
            frames[1]->thumbnail(), report);
}

}  // namespace v1
}  // namespace MUtils
