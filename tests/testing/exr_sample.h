#pragma once

#include <Imath/ImathBox.h>
#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfMultiPartOutputFile.h>
#include <OpenEXR/ImfOutputPart.h>
#include <OpenEXR/ImfPartType.h>
#include <OpenEXR/ImfTileDescription.h>
#include <OpenEXR/ImfTiledOutputPart.h>

#include <cstdint>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace testing_tools {

struct ExrSamplePart {
    std::string name;
    // Names with their types behind a colon, "R:h G:f id:u": half, float, unsigned int.
    std::string channels;
    Imath::Box2i window{{0, 0}, {7, 5}};
};

// An OpenEXR file for a test, written with OpenEXR's own classes. Its values are arbitrary bit patterns:
// infinities, denormals and NaNs of all kinds are among them.
struct ExrSample {
    std::vector<ExrSamplePart> parts;
    Imath::Box2i display{{0, 0}, {7, 5}};
    int tile = 0;     // edge of the tiles; 0 for scan lines
    int omitted = 0;  // rows of pixels or tiles at the end that are never written
    Imf::Compression compression = Imf::ZIP_COMPRESSION;
    Imf::LineOrder lineOrder = Imf::INCREASING_Y;
    std::uint32_t bits = ~0u;                  // of each value that vary; few of them can be compressed
    std::function<void(Imf::Header&)> edit{};  // has the last word on each header

    void write(const std::string& path) const {
        std::vector<Imf::Header> headers;
        for (const ExrSamplePart& part : parts)
            headers.push_back(header(part));
        Imf::MultiPartOutputFile file(path.c_str(), headers.data(), static_cast<int>(headers.size()));
        for (std::size_t i = 0; i < parts.size(); ++i)
            writePart(file, static_cast<int>(i), headers[i]);
    }

  private:
    Imf::Header header(const ExrSamplePart& part) const {
        Imf::Header result(display, part.window, 1.0f, {0, 0}, 1.0f, lineOrder, compression);
        if (parts.size() > 1) result.setName(part.name);
        result.setType(tile > 0 ? Imf::TILEDIMAGE : Imf::SCANLINEIMAGE);
        const auto edge = static_cast<unsigned>(tile);
        if (tile > 0) result.setTileDescription({edge, edge, Imf::ONE_LEVEL, Imf::ROUND_DOWN});
        std::istringstream names(part.channels);
        for (std::string entry; names >> entry;) {
            const char type = entry.back();
            result.channels().insert(entry.substr(0, entry.size() - 2),
                                     Imf::Channel(type == 'h'   ? Imf::HALF
                                                  : type == 'f' ? Imf::FLOAT
                                                                : Imf::UINT));
        }
        if (edit) edit(result);
        return result;
    }

    void writePart(Imf::MultiPartOutputFile& file, int number, const Imf::Header& head) const {
        const Imath::Box2i& window = head.dataWindow();
        const std::int64_t width = window.max.x - window.min.x + 1;
        const std::int64_t rows = window.max.y - window.min.y + 1;
        if (omitted >= rows) return;
        std::vector<std::vector<std::uint32_t>> planes;
        Imf::FrameBuffer buffer;
        std::uint32_t state = 0x9E3779B9u * static_cast<std::uint32_t>(number + 1);
        for (auto channel = head.channels().begin(); channel != head.channels().end(); ++channel) {
            std::vector<std::uint32_t>& plane = planes.emplace_back(static_cast<std::size_t>(width * rows));
            for (std::uint32_t& value : plane) {
                state = state * 1664525u + 1013904223u;
                value = (state ^ state >> 15) & bits;
            }
            const Imf::Channel& kind = channel.channel();
            buffer.insert(channel.name(), Imf::Slice::Make(kind.type, plane.data(), window, 4,
                                                           static_cast<std::size_t>(width) * 4,
                                                           kind.xSampling, kind.ySampling));
        }
        if (tile > 0) {
            Imf::TiledOutputPart part(file, number);
            part.setFrameBuffer(buffer);
            part.writeTiles(0, part.numXTiles() - 1, 0, part.numYTiles() - 1 - omitted);
        } else {
            Imf::OutputPart part(file, number);
            part.setFrameBuffer(buffer);
            part.writePixels(static_cast<int>(rows) - omitted);
        }
    }
};

}  // namespace testing_tools
