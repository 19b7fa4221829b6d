#include "rawimage/frame/tag_loader.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "rawimage/area/tag_box.h"
#include "rawimage/read/tag_decoder.h"
#include "support/scratch_buffer.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr const char* kHeaderChanged = "header that differs from the listed one";
constexpr std::int64_t kPieceBytes = 1 << 18;

// One room for all values of a tag, made when it is known that the payload may fill it.
class WholeTag final : public ValueRooms {
  public:
    WholeTag(const INFOTAG& tag, ByteBuffer& room) : left_(pixelBytes(tag)), room_(room) {}

    Room next() override {
        const auto size = static_cast<std::size_t>(std::exchange(left_, 0));
        return {size > 0 ? reserve(room_, size) : nullptr, size};
    }

  private:
    std::int64_t left_;
    ByteBuffer& room_;
};

// The room for a piece, which is handed over when the next one is asked for.
class Pieces final : public ValueRooms {
  public:
    Pieces(const INFOTAG& tag, ByteBuffer& room, const TagLoader::Take& take)
        : box_(boxOf(tag)), valueSize_(findPixelKind(tag.id)->valueSize), room_(room), take_(take) {
        reserve(room_, static_cast<std::size_t>(std::max<std::int64_t>(kPieceBytes, valueSize_)));
        piece_ = {box_.x1, box_.y0, box_.x1, box_.y0};
    }

    Room next() override {
        handOver();
        const std::int64_t values = kPieceBytes / valueSize_;
        const bool rowIsDone = piece_.x1 == box_.x1;
        const std::int64_t x = rowIsDone ? box_.x0 : piece_.x1;
        const std::int64_t y = rowIsDone ? piece_.y1 : piece_.y0;
        if (y == box_.y1) return {};
        const std::int64_t rows =
            x > box_.x0 ? 1 : std::clamp(values / box_.width(), std::int64_t{1}, box_.y1 - y);
        piece_ = {x, y, rows > 1 ? box_.x1 : std::min(x + values, box_.x1), y + rows};
        full_ = true;
        return {room_.data(), static_cast<std::size_t>(piece_.area() * valueSize_)};
    }

    // Hands over the last piece, which is full.
    void handOver() {
        if (full_ && take_) take_(piece_, room_.data());
        full_ = false;
    }

  private:
    const PixelBox box_;
    const std::int64_t valueSize_;
    ByteBuffer& room_;
    const TagLoader::Take& take_;
    PixelBox piece_;
    bool full_ = false;  // piece_ is to be handed over
};

}  // namespace

const char TagLoader::kStale[] = "";

TagLoader::TagLoader(const FrameSnapshot& snapshot, bool mayBeStale)
    : snapshot_(snapshot), mayBeStale_(mayBeStale) {}

TagLoader::~TagLoader() = default;

// Reads header and payload at once, but the payload of large values in pieces: one of noise would double what
// they take.
const char* TagLoader::load(const INFOTAG& tag, const unsigned char*& values) {
    if (pixelBytes(tag) > kMaxBlockBytes) {
        WholeTag whole(tag, room_);
        const char* cause = read(tag, whole);
        values = room_.data();
        return cause;
    }
    reserve(packed_, tag.size);
    if (!snapshot_.source().read(static_cast<std::int64_t>(tag.offset), packed_.data(), tag.size))
        return pixelCodeText(kPixelsCutShort);
    if (const char* cause = checkHeader(tag, packed_.data())) return cause;
    return causeOf(tag, decodeValues(tag, snapshot_.compressed(), packed_.data() + kTagHeaderBytes, inflater_,
                                     room_, values));
}

const char* TagLoader::loadInPieces(const INFOTAG& tag, const Take& take) {
    Pieces pieces(tag, room_, take);
    const char* cause = read(tag, pieces);
    if (cause == nullptr) pieces.handOver();
    return cause;
}

// Reads the values without holding the payload.
const char* TagLoader::read(const INFOTAG& tag, ValueRooms& rooms) {
    unsigned char header[kTagHeaderBytes];
    if (!snapshot_.source().read(static_cast<std::int64_t>(tag.offset), header, kTagHeaderBytes))
        return pixelCodeText(kPixelsCutShort);
    if (const char* cause = checkHeader(tag, header)) return cause;
    if (reader_ == nullptr) {
        stream_ = std::make_unique<PositionedStream>(snapshot_.source(), snapshot_.fileBytes());
        reader_ = std::make_unique<TagReader>(*stream_, snapshot_.compressed());
    }
    return causeOf(tag, reader_->readPixels(tag, rooms));
}

const char* TagLoader::checkHeader(const INFOTAG& tag, const unsigned char* bytes) const {
    unsigned char header[kTagHeaderBytes];
    encodeTag(snapshot_.storedHeader(tag), header);
    if (std::memcmp(header, bytes, kTagHeaderBytes) == 0) return nullptr;
    return mayBeStale_ ? kStale : kHeaderChanged;
}

const char* TagLoader::causeOf(const INFOTAG& tag, int code) const {
    // A file whose header is wrong about how pixels are stored.
    const bool maybeRaw = snapshot_.compressed() && tag.payloadBytes() == pixelBytes(tag);
    if (code == kPixelsNotInflatable && maybeRaw && mayBeStale_) return kStale;
    return pixelCodeText(code);
}

}  // namespace v1
}  // namespace MUtils
