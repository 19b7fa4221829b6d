#include "rawimage/tools/diff_records.h"

#include <algorithm>
#include <cstring>

namespace MUtils {
inline namespace v1 {

namespace {

bool same(const std::string& a, const std::string& b) {
    return a == b;
}
bool same(const RICameraInfo& a, const RICameraInfo& b) {
    static_assert(sizeof(RICameraInfo) == 26 * 4, "no gaps, which would be compared, too");
    return std::memcmp(&a, &b, sizeof a) == 0;
}
bool same(const RIRegionInfo& a, const RIRegionInfo& b) {
    return a.kind == b.kind && a.left == b.left && a.top == b.top && a.width == b.width &&
           a.height == b.height;
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

class RecordComparison {
  public:
    RecordComparison(const std::array<const RawFrame*, 2>& frames, DiffReport& report)
        : frames_(frames), report_(report) {}

    // False when a record cannot be read, which is in the report then.
    bool run(bool throughExr);

  private:
    void add(const char* name, const std::array<bool, 2>& present) {
        report_.records.push_back({name, present});
    }

    template <class Value>
    void compare(const char* name, const std::optional<Value>& a, const std::optional<Value>& b) {
        const bool equal = a && b ? same(*a, *b) : !a && !b;
        if (!equal) add(name, {a.has_value(), b.has_value()});
    }

    // `read` gets a FrameRecord of a frame.
    template <class Read>
    bool compareRead(const char* name, Read read) {
        const auto a = read(*frames_[0]), b = read(*frames_[1]);
        if (a.damage || b.damage) {
            setDamaged(a.damage ? 0 : 1, {a.damage ? *a.damage : *b.damage});
            return false;
        }
        compare(name, a, b);
        return true;
    }

    bool compareText(const char* name, FrameText which) {
        return compareRead(name, [which](const RawFrame& frame) { return frame.text(which); });
    }
    bool compareBlob(const char* name, FrameBlob which) {
        return compareRead(name, [which](const RawFrame& frame) { return frame.blob(which); });
    }
    bool compareScenes(const std::optional<SceneSummary>& a, const std::optional<SceneSummary>& b);

    void setDamaged(int side, const std::vector<FileFault>& damaged) {
        report_.state = DiffState::kDamaged;
        report_.side = side;
        report_.damaged = damaged;
    }

    const std::array<const RawFrame*, 2>& frames_;
    DiffReport& report_;
};

// The name is compared only where the number is the same: a scene is listed once.
bool RecordComparison::compareScenes(const std::optional<SceneSummary>& a,
                                     const std::optional<SceneSummary>& b) {
    if (a && b && a->value == b->value) return compareText("scene", FrameText::kSceneName);
    if (a || b) add("scene", {a.has_value(), b.has_value()});
    return true;
}

bool RecordComparison::run(bool throughExr) {
    const FrameRecords a = frames_[0]->records(), b = frames_[1]->records();
    if (!a.damaged.empty() || !b.damaged.empty()) {
        setDamaged(a.damaged.empty() ? 1 : 0, a.damaged.empty() ? b.damaged : a.damaged);
        return false;
    }
    if (frames_[0]->info()->pixelAspect != frames_[1]->info()->pixelAspect) add("pixel aspect", {true, true});
    compare("camera", a.camera, b.camera);
    const bool read = compareScenes(a.scene, b.scene) && compareText("note", FrameText::kNote) &&
                      compareText("stamp text", FrameText::kStampText);
    if (!read || throughExr) return read;
    compare("render region", a.region, b.region);
    return compareBlob("stamp", FrameBlob::kStamp) &&
           compareBlob("overlay texts", FrameBlob::kOverlayTexts) &&
           compareBlob("settings", FrameBlob::kSettings) &&
           compareRead("preview", [](const RawFrame& frame) { return frame.thumbnail(); });
}

}  // namespace

bool compareRecords(const std::array<const RawFrame*, 2>& frames, bool throughExr, DiffReport& report) {
    return RecordComparison(frames, report).run(throughExr);
}

}  // namespace v1
}  // namespace MUtils
