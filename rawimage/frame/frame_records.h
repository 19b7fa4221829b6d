#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "../../support/rgb24.h"
#include "../export.h"
#include "../format.h"
#include "../inspect/inspection.h"

// The metadata records of a frame as values.

namespace MUtils {
inline namespace v1 {

// A text of the file, up to its NUL. One of more than kMaxSummaryText bytes is not in it: RawFrame::text()
// reads texts of any length.
struct StoredText {
    std::int64_t bytes = 0;  // as stored, NUL and fill included
    std::string text;        // any bytes but NUL: not necessarily UTF-8, and not fit for a terminal as it is
};
constexpr std::int64_t kMaxSummaryText = 1 << 20;

struct FrameSize {
    int width = 0;  // pixels; as stored, so zero and negative numbers are met
    int height = 0;
};

struct FrameResolution : FrameSize {
    float aspect = 1.0f;  // width of a pixel over its height
};

// What the writer announced, not what the pixel tags have.
struct BucketSize : FrameSize {
    bool varies = false;
};

// The scene as its tag has it; the value means something to the renderer only.
struct SceneSummary {
    int value = 0;
    StoredText name;
};

// The small records, and how large the opaque ones are. Everything is there when the file has the tag, whole;
// of several tags of a kind the last one counts.
struct SmallRecords {
    std::optional<RICameraInfo> camera;
    std::optional<RIRegionInfo> region;
    std::optional<SceneSummary> scene;
    std::optional<StoredText> note;
    std::optional<StoredText> stampText;
    // Payload bytes; RawFrame::blob() reads them.
    std::optional<std::int64_t> stampBytes;
    std::optional<std::int64_t> overlayBytes;
    std::optional<std::int64_t> settingsBytes;
};

struct FrameRecords : SmallRecords {
    // The stored thumbnail's size; RawFrame::thumbnail() reads its pixels.
    std::optional<FrameSize> thumbnail;
    // Records that are in the file and cannot be read, by offset.
    std::vector<FileFault> damaged;
};

// The opaque records.
enum class FrameBlob { kStamp, kOverlayTexts, kSettings };

enum class FrameText { kSceneName, kNote, kStampText };

// A record that is read when it is asked for: a value when the file has it and it can be read.
template <class Value>
struct FrameRecord : std::optional<Value> {
    // Why a record that the file has cannot be read. None when there is a value, or no such record.
    std::optional<FileFault> damage;
};

struct FrameThumbnail : FrameSize {
    std::vector<RGB24> pixels;  // width x height in display values, row after row from the top
};

}  // namespace v1
}  // namespace MUtils
