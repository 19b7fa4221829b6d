#pragma once

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "rawimage/inspect/inspection.h"
#include "rawimage/tools/verify.h"
#include "support/bytes.h"
#include "tests/testing/memory_file.h"
#include "tests/testing/sample_file.h"

// Files as bytes: taken apart, put together and verified.

namespace testing_tools {

using Contents = std::vector<unsigned char>;

inline MUtils::Inspection inspected(const Contents& bytes,
                                    MUtils::InspectDepth depth = MUtils::InspectDepth::kPayloads) {
    FaultStream stream(bytes);
    stream.Open();
    MUtils::InspectOptions options;
    options.depth = depth;
    options.threads = 1;
    return MUtils::inspectStream(stream, options);
}

inline MUtils::VerifyReport verify(const Contents& bytes, bool quick = false, int threads = 1) {
    FaultStream stream(bytes);
    stream.Open();
    MUtils::VerifyOptions options;
    options.quick = quick;
    options.threads = threads;
    return MUtils::verifyStream(stream, options);
}

inline std::string verdict(const Contents& bytes, bool quick = false) {
    return stateName(verify(bytes, quick).state);
}

// The tags of a sound file with their headers, each as its bytes; the table is the last one of a finished
// file.
inline std::vector<std::string> tagsOf(const Contents& bytes) {
    std::vector<std::string> tags;
    for (std::size_t at = 32; at + 40 <= bytes.size();) {
        const std::uint32_t size = MUtils::loadU32(&bytes[at + 4]);
        if (size < 40 || size > bytes.size() - at) throw std::runtime_error("not a sound file");
        const auto start = bytes.begin() + static_cast<std::ptrdiff_t>(at);
        tags.emplace_back(start, start + size);
        at += size;
    }
    return tags;
}

inline std::string noise(std::size_t size) {
    std::mt19937 random(1);
    std::string bytes(size, '\0');
    std::generate(bytes.begin(), bytes.end(), [&random] { return static_cast<char>(random()); });
    return bytes;
}

inline std::string zipped(const std::string& bytes, int level) {
    uLongf size = compressBound(bytes.size());
    std::string stream(size, '\0');
    compress2(reinterpret_cast<Bytef*>(stream.data()), &size, reinterpret_cast<const Bytef*>(bytes.data()),
              bytes.size(), level);
    stream.resize(size);
    return stream;
}

// x, y, width and height, as records have them.
inline std::array<std::int32_t, 4> placeOf(const MUtils::PixelBox& box) {
    const auto word = [](std::int64_t value) { return static_cast<std::int32_t>(value); };
    return {word(box.x0), word(box.y0), word(box.width()), word(box.height())};
}

// A bucket of integers.
inline void addPixels(Bytes& file, int channel, const MUtils::PixelBox& box, const std::string& payload) {
    const auto [x, y, width, height] = placeOf(box);
    file.tag(TAG_CHAN_INT, static_cast<std::uint32_t>(payload.size()),
             {RCT_INT, x, y, width, height, 0, 0, channel});
    file.text(payload);
}

// The window of a channel of integers.
inline void addWindow(Bytes& file, int channel, const MUtils::PixelBox& box, const std::string& payload,
                      std::int32_t mark = MUtils::kChannelWindowMark) {
    const auto [x, y, width, height] = placeOf(box);
    file.tag(TAG_CHAN_INT, static_cast<std::uint32_t>(payload.size()),
             {RCT_INT, x, y, width, 0, height, mark, channel});
    file.text(payload);
}

// Overwrites bytes of a tag; `from` counts from its header.
inline Contents with(const Contents& file, const Sample& sample, int tag, int from, const Bytes& bytes) {
    Contents edited = file;
    std::copy(bytes.begin(), bytes.end(), edited.begin() + sample.offset(tag) + from);
    return edited;
}

inline std::uint32_t idOf(const std::string& tag) {
    return MUtils::loadU32(reinterpret_cast<const unsigned char*>(tag.data()));
}

// What a renderer makes of its file when it closes it: a table of the tags that belong there, and its offset.
inline Bytes closed(Bytes file) {
    Bytes entries;
    std::uint64_t at = 32;
    for (const std::string& tag : tagsOf(file)) {
        const std::uint32_t id = idOf(tag);
        if (id != TAG_CAMERA_INFO && id != TAG_RENDER_REGION && id != TAG_SCENE_INFO)
            entries.raw(tag.data(), 40).u64(at);
        at += tag.size();
    }
    const auto size = static_cast<std::uint32_t>(entries.size());
    std::memcpy(&file[12], &at, sizeof at);
    return Bytes(file).tag(TAG_INFO_TAGS, size, {static_cast<int>(size / 48)}).raw(entries.data(), size);
}

// The file without the table at its end.
inline Bytes opened(const Contents& file) {
    Bytes open;
    open.raw(file.data(), MUtils::loadU32(&file[12]));
    std::memset(&open[12], 0, 8);
    return open;
}

}  // namespace testing_tools
