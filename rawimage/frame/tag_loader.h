#pragma once

#include <functional>
#include <memory>

#include "rawimage/frame/frame_snapshot.h"
#include "rawimage/read/tag_reader.h"
#include "support/byte_buffer.h"
#include "support/deflate.h"
#include "support/positioned_stream.h"

namespace MUtils {
inline namespace v1 {

// Reads and decodes single pixel tags of a snapshot, and compares their headers with those that it lists. One
// thread uses an object, which keeps its working memory.
class TagLoader {
  public:
    // Returned, by its address, for a tag that is not what the snapshot lists.
    static const char kStale[];

    // `mayBeStale`: kStale is returned. Else such a tag is damaged.
    TagLoader(const FrameSnapshot& snapshot, bool mayBeStale);
    ~TagLoader();

    // Decodes the values of a tag, which are there until the next call. Returns null, or why there are none.
    const char* load(const INFOTAG& tag, const unsigned char*& values);

    // Decodes them piece by piece, each some rows or a part of one, and hands each to `take`, which may be
    // empty. After a fault some have been handed over. Returns null, or what the fault is.
    using Take = std::function<void(const PixelBox& piece, const unsigned char* values)>;
    const char* loadInPieces(const INFOTAG& tag, const Take& take);

  private:
    const char* read(const INFOTAG& tag, ValueRooms& rooms);
    const char* checkHeader(const INFOTAG& tag, const unsigned char* bytes) const;
    const char* causeOf(const INFOTAG& tag, int code) const;

    const FrameSnapshot& snapshot_;
    const bool mayBeStale_;
    ByteBuffer packed_;
    ByteBuffer room_;
    Inflater inflater_;
    // For values whose payload is not held; made when they are needed.
    std::unique_ptr<PositionedStream> stream_;
    std::unique_ptr<TagReader> reader_;
};

}  // namespace v1
}  // namespace MUtils
