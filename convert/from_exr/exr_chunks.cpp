#include "convert/from_exr/exr_chunks.h"

#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfPartType.h>
#include <OpenEXR/ImfTileDescription.h>

#include <algorithm>

#include "convert/open_input.h"
#include "exr/header_facts.h"
#include "support/bytes.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::int64_t kEntryBytes = 8;
constexpr int kFirstAttribute = 8;          // after magic and version
constexpr std::int64_t kFramingBytes = 64;  // more than a compressor may save on a block

std::int64_t ceilDivide(std::int64_t a, std::int64_t b) {
    return (a + b - 1) / b;
}

std::int64_t loadInt(const unsigned char* bytes) {
    return static_cast<std::int32_t>(loadU32(bytes));
}

// The fewest bytes that so many bytes of pixels can be compressed to.
std::int64_t leastPacked(Imf::Compression compression, std::int64_t rawBytes) {
    constexpr std::int64_t kDeflate = 1032;
    constexpr std::int64_t kRunLengths = 64;
    std::int64_t ratio = kDeflate;
    switch (compression) {
        case Imf::NO_COMPRESSION: return rawBytes;
        case Imf::RLE_COMPRESSION: ratio = kRunLengths; break;
        case Imf::PXR24_COMPRESSION: ratio = 2 * kDeflate; break;
        // Run lengths, or one number for a block of 64 pixels, and then deflate.
        case Imf::DWAA_COMPRESSION:
        case Imf::DWAB_COMPRESSION: ratio = kRunLengths * kDeflate; break;
        default: break;
    }
    return std::max<std::int64_t>((rawBytes - kFramingBytes) / ratio, rawBytes > 0 ? 1 : 0);
}

}  // namespace

ExrChunks::ExrChunks(const std::string& path, const Imf::MultiPartInputFile& file) : file_(file) {
    openInput(stream_, path);
    length_ = stream_.Length();
    std::int64_t at = endOfHeaders();
    bool severalLevels = false;
    for (int i = 0; i < file.parts(); ++i) {
        const Imf::Header& header = file.header(i);
        const Imath::Box2i& window = header.dataWindow();
        const std::int64_t width = std::int64_t{window.max.x} - window.min.x + 1;
        const std::int64_t height = std::int64_t{window.max.y} - window.min.y + 1;
        Part part;
        part.table = at;
        part.tiled = Imf::isTiled(header.type());
        if (part.tiled) {
            const Imf::TileDescription& tiles = header.tileDescription();
            part.chunks = ceilDivide(width, tiles.xSize) * ceilDivide(height, tiles.ySize);
            severalLevels = severalLevels || tiles.mode != Imf::ONE_LEVEL;
        } else {
            part.chunks = ceilDivide(height, linesPerBlock(header.compression()));
        }
        at += kEntryBytes * (file.parts() > 1 && header.hasChunkCount() ? header.chunkCount() : part.chunks);
        survey(part);
        parts_.push_back(std::move(part));
    }
    const bool complete =
        std::all_of(parts_.begin(), parts_.end(), [](const Part& part) { return part.complete; });
    if (!complete && !severalLevels) walk(at);
}

bool ExrChunks::readAt(std::int64_t offset, void* bytes, int size) {
    int got = 0;
    return offset >= 0 && offset <= length_ - size && stream_.Seek(static_cast<long>(offset)) == 0 &&
           stream_.Read(bytes, size, got) == 0 && got == size;
}

// OpenEXR has read the headers, so they are sound: attributes of a name, a type, a size and as many bytes,
// then a byte 0, and one more after the last header of a file of several parts.
std::int64_t ExrChunks::endOfHeaders() {
    std::int64_t at = kFirstAttribute;
    const auto skipText = [&] {
        for (unsigned char c = 1; c != 0; ++at) {
            if (!readAt(at, &c, 1)) return false;
        }
        return true;
    };
    for (int headers = file_.parts() > 1 ? file_.parts() + 1 : 1; headers > 0;) {
        unsigned char first = 0;
        if (!readAt(at, &first, 1)) return length_;
        if (first == 0) {
            ++at;
            --headers;
            continue;
        }
        unsigned char size[4];
        if (!skipText() || !skipText() || !readAt(at, size, sizeof size)) return length_;
        at += static_cast<std::int64_t>(sizeof size) + std::max<std::int64_t>(loadInt(size), 0);
    }
    return at;
}

void ExrChunks::survey(Part& part) {
    constexpr std::int64_t kEntriesAtOnce = 512;
    unsigned char entries[kEntriesAtOnce * kEntryBytes];
    for (std::int64_t first = 0; first < part.chunks; first += kEntriesAtOnce) {
        const std::int64_t count = std::min(kEntriesAtOnce, part.chunks - first);
        const bool there =
            readAt(part.table + first * kEntryBytes, entries, static_cast<int>(count * kEntryBytes));
        part.complete = part.complete && there;
        if (!there) return;
        for (std::int64_t i = 0; i < count; ++i) {
            const std::uint64_t offset = loadU64(entries + i * kEntryBytes);
            const bool inFile = offset > 0 && offset < static_cast<std::uint64_t>(length_);
            part.there += inFile ? 1 : 0;
            part.complete = part.complete && inFile;
        }
    }
}

// A chunk begins with its part's number in a file of several parts, then its line or the place and level of
// its tile, then its size.
std::int64_t ExrChunks::leadBytes(const Part& part) const {
    return (file_.parts() > 1 ? 4 : 0) + (part.tiled ? 16 : 4) + 4;
}

// Goes from chunk to chunk through the file, as OpenEXR does where a table is not complete.
void ExrChunks::walk(std::int64_t offset) {
    for (;;) {
        unsigned char lead[24];
        std::size_t number = 0;
        if (parts_.size() > 1) {
            if (!readAt(offset, lead, 4)) return;
            number = static_cast<std::size_t>(loadInt(lead));
            if (number >= parts_.size()) return;
        }
        Part& part = parts_[number];
        const std::int64_t leading = leadBytes(part);
        if (!readAt(offset, lead, static_cast<int>(leading))) return;
        const unsigned char* at = lead + (parts_.size() > 1 ? 4 : 0);
        const Imf::Header& header = file_.header(static_cast<int>(number));
        const Imath::Box2i& window = header.dataWindow();
        std::int64_t index = 0;
        if (part.tiled) {
            const Imf::TileDescription& tiles = header.tileDescription();
            const std::int64_t width = std::int64_t{window.max.x} - window.min.x + 1;
            index = loadInt(at + 4) * ceilDivide(width, tiles.xSize) + loadInt(at);
        } else {
            index = (loadInt(at) - window.min.y) / linesPerBlock(header.compression());
        }
        const std::int64_t size = loadInt(lead + leading - 4);
        if (size < 0) return;
        if (index >= 0 && index < part.chunks && part.found.emplace(index, size).second) ++part.there;
        offset += leading + size;
    }
}

bool ExrChunks::mayHold(int number, std::int64_t index, std::int64_t rawBytes) {
    const Part& part = parts_[static_cast<std::size_t>(number)];
    const std::int64_t least = leastPacked(file_.header(number).compression(), rawBytes);
    const auto found = part.found.find(index);
    if (found != part.found.end() && found->second < least) return false;
    unsigned char bytes[kEntryBytes];
    if (!readAt(part.table + index * kEntryBytes, bytes, sizeof bytes)) return true;
    const auto offset = static_cast<std::int64_t>(loadU64(bytes));
    if (offset <= 0 || offset >= length_) return true;
    const std::int64_t leading = leadBytes(part);
    if (!readAt(offset + leading - 4, bytes, 4)) return true;
    return loadInt(bytes) >= least;
}

std::int64_t ExrChunks::chunksThere(int part) {
    return parts_[static_cast<std::size_t>(part)].there;
}

}  // namespace v1
}  // namespace MUtils
