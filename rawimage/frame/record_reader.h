#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "rawimage/frame/frame_snapshot.h"

namespace MUtils {
inline namespace v1 {

// Reads the records of a file that are not pixels, as they are now.
class RecordReader {
  public:
    explicit RecordReader(const FrameSnapshot& snapshot) : snapshot_(snapshot) {}

    FrameRecords records();
    std::optional<std::vector<unsigned char>> blob(FrameBlob which) const;
    std::optional<FrameThumbnail> thumbnail() const;

  private:
    using Payload = std::optional<std::vector<unsigned char>>;

    Payload read(const INFOTAG& tag, std::int64_t size) const;
    Payload readOrReport(const INFOTAG& tag, std::int64_t size);
    std::optional<StoredText> text(const INFOTAG* tag, std::int64_t start);
    std::optional<std::int64_t> sizeOf(std::uint32_t tagId) const;

    const FrameSnapshot& snapshot_;
    std::vector<FileFault> damaged_;
};

}  // namespace v1
}  // namespace MUtils
