#pragma once

#include <Imath/ImathBox.h>
#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfInputPart.h>
#include <OpenEXR/ImfMultiPartInputFile.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "rawimage/writer.h"
#include "tests/testing/collect.h"

namespace testing_tools {

// What a reader delivers of a raw image, operation by operation.
inline std::map<std::string, std::vector<Event>> parseRaw(const std::string& path) {
    CollectCallback sink;
    RIFile file;
    EXPECT_EQ(file.Open(path.c_str(), nullptr).describe(), "");
    EXPECT_EQ(file.ParseFile(sink), 0);
    std::map<std::string, std::vector<Event>> events;
    for (Event& event : sink.events)
        events[event.call].push_back(std::move(event));
    return events;
}

// The names in an OpenEXR file that the components of a render channel have, from the event "setChannel".
inline std::vector<std::string> componentNames(const Event& channel) {
    const char* const letters[] = {"", "", "RGB", "XY", "", "XYZ", "RGBA"};
    if (channel.numbers[2] == RCA_COLOR) return {"R", "G", "B"};
    if (channel.numbers[2] == RCA_ALPHA) return {"A", "A", "A"};
    if (channel.numbers[2] == RCA_DEPTH) return {"Z"};
    std::vector<std::string> names;
    for (const char* p = letters[channel.numbers[1]]; *p != 0; ++p)
        names.push_back(channel.bytes + '.' + *p);
    return names.empty() ? std::vector{channel.bytes} : names;
}

// One channel as OpenEXR reads it, each value as its bits; seen from the display window's corner.
struct ExrPlane {
    Imath::Box2i window;
    std::vector<std::uint32_t> values;

    bool has(int x, int y) const { return window.intersects(Imath::V2i(x, y)); }
    std::uint32_t& at(int x, int y) {
        const std::int64_t width = window.max.x - window.min.x + 1;
        return values[static_cast<std::size_t>((y - window.min.y) * width + x - window.min.x)];
    }
};

// All of a file's channels, by the names that a raw image gives their parts and them.
inline std::map<std::string, ExrPlane> readPlanes(const std::string& path, Imath::V2i& frame) {
    Imf::MultiPartInputFile file(path.c_str(), 0);
    const Imath::Box2i display = file.header(0).displayWindow();
    frame = display.max - display.min + Imath::V2i(1);
    std::map<std::string, ExrPlane> planes;
    for (int part = 0; part < file.parts(); ++part) {
        const Imf::Header& header = file.header(part);
        const Imath::Box2i window = header.dataWindow();
        const Imath::V2i size = window.max - window.min + Imath::V2i(1);
        const std::string prefix = file.parts() > 1 && header.name() != "other" ? header.name() : "";
        Imf::FrameBuffer buffer;
        for (auto c = header.channels().begin(); c != header.channels().end(); ++c) {
            ExrPlane& plane = planes[prefix.empty() ? c.name() : prefix + '.' + c.name()];
            plane.window = {window.min - display.min, window.max - display.min};
            plane.values.resize(static_cast<std::size_t>(size.x) * static_cast<std::size_t>(size.y));
            const Imf::PixelType type = c.channel().type == Imf::UINT ? Imf::UINT : Imf::FLOAT;
            buffer.insert(c.name(), Imf::Slice::Make(type, plane.values.data(), window));
        }
        Imf::InputPart input(file, part);
        input.setFrameBuffer(buffer);
        input.readPixels(window.min.y, window.max.y);
    }
    return planes;
}

// Holds a raw image against an OpenEXR file: every channel has each pixel that its part has within the frame,
// save those for which `lost` holds, once and bit for bit, and no other; each region lies within one bucket
// of the frame's grid. Returns the number of channels.
inline std::size_t expectSamePixels(
    const std::string& raw, const std::string& exr, int bucket,
    const std::function<bool(int x, int y)>& lost = [](int, int) { return false; }) {
    auto events = parseRaw(raw);
    Imath::V2i frame;
    auto planes = readPlanes(exr, frame);
    EXPECT_EQ(events["setResolution"].at(0).numbers,
              (std::vector<std::int64_t>{frame.x, frame.y, 0x3F800000}));

    std::vector<std::vector<ExrPlane*>> sources;  // of each channel, a plane for each component
    std::vector<std::int64_t> missing;            // pixels still to be seen of each channel
    std::set<std::string> used;
    for (const Event& channel : events["setChannel"]) {
        sources.emplace_back();
        for (const std::string& name : componentNames(channel)) {
            sources.back().push_back(&planes.at(name));
            used.insert(name);
        }
        missing.push_back(0);
        for (int y = 0; y < frame.y; ++y) {
            for (int x = 0; x < frame.x; ++x)
                missing.back() += sources.back()[0]->has(x, y) && !lost(x, y);
        }
    }
    EXPECT_EQ(used.size(), planes.size()) << "channels are left out";

    std::set<std::tuple<std::size_t, int, int>> seen;
    int wrong = 0;
    for (const Event& event : events["setImageData"]) {
        if (event.numbers[7] == MUtils::kChannelWindowMark) continue;
        const auto channel = static_cast<std::size_t>(event.numbers[1]);
        const auto x0 = static_cast<int>(event.numbers[2]), y0 = static_cast<int>(event.numbers[3]);
        const auto x1 = x0 + static_cast<int>(event.numbers[4]), y1 = y0 + static_cast<int>(event.numbers[5]);
        EXPECT_TRUE(x0 / bucket == (x1 - 1) / bucket && y0 / bucket == (y1 - 1) / bucket);
        EXPECT_TRUE(seen.emplace(channel, x0 / bucket, y0 / bucket).second) << "a bucket comes twice";
        const char* at = event.bytes.data();
        for (int i = 0; i < (x1 - x0) * (y1 - y0); ++i) {
            const int x = x0 + i % (x1 - x0), y = y0 + i / (x1 - x0);
            for (ExrPlane* plane : sources[channel]) {
                std::uint32_t value;
                std::memcpy(&value, std::exchange(at, at + 4), 4);
                wrong += !plane->has(x, y) || plane->at(x, y) != value;
            }
            --missing[channel];
        }
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_THAT(missing, testing::Each(0));
    return missing.size();
}

}  // namespace testing_tools
