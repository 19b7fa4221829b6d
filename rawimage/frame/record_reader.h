#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "rawimage/frame/frame_snapshot.h"

namespace MUtils {
inline namespace v1 {

// Reads the records of a file that are not pixels, as they are now. An object reads once.
class RecordReader {
  public:
    explicit RecordReader(const FrameSnapshot& snapshot) : snapshot_(snapshot) {}

    FrameRecords records();
    FrameRecord<std::vector<unsigned char>> blob(FrameBlob which);
    FrameRecord<std::string> text(FrameText which);
    FrameRecord<FrameThumbnail> thumbnail();

  private:
    using Payload = std::optional<std::vector<unsigned char>>;

    Payload readIfListed(const INFOTAG& tag, std::int64_t size) const;
    Payload read(const INFOTAG& tag, std::int64_t size);
    std::optional<std::string> wholeText(const INFOTAG& tag);
    std::optional<StoredText> shortText(const INFOTAG* tag);
    template <class Value>
    FrameRecord<Value> recordOf(std::optional<Value> value);
    std::optional<std::int64_t> sizeOf(std::uint32_t tagId) const;

    const FrameSnapshot& snapshot_;
    std::vector<FileFault> damaged_;
};

}  // namespace v1
}  // namespace MUtils
