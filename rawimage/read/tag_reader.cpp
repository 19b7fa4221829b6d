#include "rawimage/read/tag_reader.h"

#include <climits>

#include "rawimage/read/tag_decoder.h"

namespace MUtils {
inline namespace v1 {

const char* pixelCodeText(int code) {
    switch (code) {
        case 0: return nullptr;
        case kPixelsCutShort: return "pixels are cut short";
        case kPixelsNotInflatable: return "pixels do not inflate";
        case kPixelsWrongLength: return "pixels inflate to less than their region";
        default: return "pixels cannot be read";
    }
}

struct TagReader::State {
    PStream& stream;
    const bool compressed;
    ByteBuffer zipped;
    ByteBuffer raw;
    TagDecoder decoder{zipped, raw};

    State(PStream& source, bool isCompressed) : stream(source), compressed(isCompressed) {}

    bool goToPayload(const INFOTAG& tag) {
        return tag.offset <= LONG_MAX - kTagHeaderBytes &&
               stream.Seek(static_cast<long>(tag.offset) + kTagHeaderBytes) == 0;
    }
};

TagReader::TagReader(PStream& stream, bool compressed)
    : state_(std::make_unique<State>(stream, compressed)) {}

TagReader::~TagReader() = default;

int TagReader::read(const INFOTAG& tag, RIFileCallback& callback) {
    if (!state_->goToPayload(tag)) return -1;
    RIF_TAG header = tag;
    return state_->decoder.decode(state_->stream, header, state_->compressed, callback);
}

int TagReader::readPixels(const INFOTAG& tag, ValueRooms& rooms) {
    if (!state_->goToPayload(tag)) return -1;
    return state_->decoder.readPixels(state_->stream, tag, state_->compressed, rooms);
}

}  // namespace v1
}  // namespace MUtils
