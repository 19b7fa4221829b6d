#pragma once

#include <cstdint>

#include "rawimage/inspect/tag_check.h"
#include "support/byte_buffer.h"
#include "support/pstream.h"

namespace MUtils {
inline namespace v1 {

// Checks single payloads on the calling thread, where the choice between two headers depends on them.
class PayloadProbe {
  public:
    // The stream must outlive the object.
    PayloadProbe(PStream& stream, std::int64_t fileBytes, const TagRules& rules);

    // True when a tag with this header may lie at `offset`, and its payload does not contradict the header.
    // False also when all probes together have read and inflated a large multiple of the file. Throws
    // std::bad_alloc.
    bool agrees(const RIF_TAG& tag, std::int64_t offset);

    // The header in the file; false when it cannot be read.
    bool readHeader(std::int64_t offset, RIF_TAG& tag);

  private:
    PStream& stream_;
    const std::int64_t fileBytes_;
    const TagRules rules_;
    PayloadCheck check_;
    ByteBuffer bytes_;
    std::int64_t budget_;
};

}  // namespace v1
}  // namespace MUtils
