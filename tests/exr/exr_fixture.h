#pragma once

#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfInputPart.h>
#include <ImfMultiPartInputFile.h>
#include <gtest/gtest.h>
#include <half.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "exr/exr_file.h"

namespace testing_tools {

enum class Values { kThere, kMissing, kTooFew, kWrongSize };

// A render channel as a test wants it; type -1 is a null entry in the renderer's table.
struct Chan {
    int type;
    const char* name;
    int alias = 0;
    int flags = 0;
    Values values = Values::kThere;

    int components() const { return type == 3 ? 2 : type == 6 ? 4 : type == 2 || type == 5 ? 3 : 1; }
};
using Chans = std::vector<Chan>;

// Component of an alpha channel that stands for its mean.
constexpr int kMean = -1;

// Component `c` of a channel's value at a pixel: exact as a half, save for the mean. Integers have all 32
// bits.
inline float sample(int channel, int c, int x, int y) {
    if (c == kMean)
        return (sample(channel, 1, x, y) + sample(channel, 0, x, y) + sample(channel, 2, x, y)) * 0.33333334f;
    return static_cast<float>((channel * 37 + c * 131 + x * 3 + y * 29) % 2000) / 8.0f;
}
inline unsigned intSample(int channel, int x, int y) {
    return 0x80000000u + static_cast<unsigned>(channel * 1000003 + x + y * 4096);
}

struct Source final : MUtils::RegionChannelCallback {
    explicit Source(const Chan& from) : chan(from) {}
    RegionChannelType getType() override { return static_cast<RegionChannelType>(chan.type); }
    RegionChannelAlias getAlias() override { return static_cast<RegionChannelAlias>(chan.alias); }
    const char* getName() override { return chan.name; }
    int getFlags() override { return chan.flags; }
    Chan chan;
};

// A box of the image with the samples of all channels, in blocks of `blockBytes`.
struct Region : MUtils::MRRegionData {
    Region(const Chans& chans, int left, int top, int right, int bottom, int blockBytes = 1 << 27) {
        x0 = left, y0 = top, x1 = right, y1 = bottom, width = right - left, height = bottom - top;
        for (const Chan& chan : chans)
            add(chan, blockBytes);
    }
    // The value at pixel (x, y) of the image.
    float* at(int channel, int x, int y) {
        return reinterpret_cast<float*>(channels[channel].data->item((y - y0) * width + x - x0));
    }
    std::vector<std::unique_ptr<MBVTable>> tables;

  private:
    void add(const Chan& chan, int blockBytes) {
        const int index = channels.Count();
        MUtils::RegionChannel entry;
        entry.type = static_cast<RegionChannelType>(chan.type);
        entry.alias = static_cast<RegionChannelAlias>(chan.alias);
        entry.flags = chan.flags;
        if (chan.name != nullptr) std::memcpy(entry.name, chan.name, std::strlen(chan.name));
        if (chan.values != Values::kMissing) {
            const int itemSize = chan.components() * 4 - (chan.values == Values::kWrongSize ? 1 : 0);
            tables.push_back(std::make_unique<MBVTable>(itemSize, blockBytes));
            entry.data = tables.back().get();
            entry.data->setCount(width * height - (chan.values == Values::kTooFew ? 1 : 0));
        }
        channels.Add(entry);
        if (chan.values != Values::kThere) return;
        for (int i = 0; i < width * height; ++i) {
            const int x = x0 + i % width, y = y0 + i / width;
            const unsigned bits = intSample(index, x, y);
            if (chan.type == 4) std::memcpy(at(index, x, y), &bits, 4);
            for (int c = 0; chan.type != 4 && c < chan.components(); ++c)
                at(index, x, y)[c] = sample(index, c, x, y);
        }
    }
};

// A name that no file has, and none has at the test's end.
struct TempFile {
    TempFile() {
        static int count = 0;
        path =
            testing::TempDir() + "exr_" + std::to_string(getpid()) + "_" + std::to_string(++count) + ".exr";
        std::remove(path.c_str());
    }
    ~TempFile() { std::remove(path.c_str()); }
    bool exists() const { return access(path.c_str(), F_OK) == 0; }
    std::string path;
};

// "operation code message" of an error and `depth` - 1 of its causes, "" for success.
inline std::string text(const ErrorCode& error, int depth = 1) {
    std::string all;
    for (int i = 0; i < depth && *error.operation(i) != 0; ++i) {
        all += (i > 0 ? " < " : "") + std::string(error.operation(i)) + " " +
               std::to_string(error.getError(i)) + " " + error.message(i);
    }
    return all;
}

// The texts of several, in the order of the calls.
inline std::string texts(std::initializer_list<ErrorCode> errors) {
    std::string all;
    for (const ErrorCode& error : errors)
        all += text(error);
    return all;
}

// An ExrFile that is told about `chans` for a frame of w x h pixels. Tiled: buckets of `bucket` pixels.
struct Writer : ExrFile {
    Writer(int kind, const std::string& name, int w, int h, const Chans& channels, int bits = 32,
           int compression = 3, int bucket = 16)
        : ExrFile(kind), chans(channels) {
        (void)Create(name.c_str(), nullptr);
        (void)WriteHeader(bits);
        (void)WTResolution(w, h, 1.0f);
        (void)WTRegionsInfo(bucket, bucket, 0);
        setCompressionType(compression);
        EXPECT_TRUE(announce().empty());
    }
    ErrorCode announce() {
        sources.clear();
        table.freeData();
        for (const Chan& chan : chans)
            sources.push_back(std::make_unique<Source>(chan));
        for (auto& source : sources)
            table.Add(source->chan.type == -1 ? nullptr : source.get());
        return WTChannelInfo(&table);
    }
    ErrorCode write(Region&& region) { return WTRegion(&region, 0, 0, 0); }
    // The buckets of `box`, the last first, and Close; the first error.
    std::string writeBuckets(const Imath::Box2i& box, int bucket, int blockBytes = 1 << 20) {
        const int right = box.max.x + 1, bottom = box.max.y + 1;
        for (int y = box.min.y + (bottom - 1 - box.min.y) / bucket * bucket; y >= box.min.y; y -= bucket) {
            for (int x = box.min.x + (right - 1 - box.min.x) / bucket * bucket; x >= box.min.x; x -= bucket) {
                const Imath::V2i end(std::min(x + bucket, right), std::min(y + bucket, bottom));
                const std::string error = text(write(Region(chans, x, y, end.x, end.y, blockBytes)));
                if (!error.empty()) return error;
            }
        }
        return text(Close());
    }
    Chans chans;
    std::vector<std::unique_ptr<Source>> sources;
    MUtils::Table<MUtils::RegionChannelCallback*, 100> table;
};

// What OpenEXR itself reads of a part: floats for halves.
struct Part {
    Imf::Header header;
    std::map<std::string, std::vector<float>> floats;
    std::map<std::string, std::vector<unsigned>> ints;

    std::size_t at(int x, int y) const {
        const Imath::Box2i box = header.dataWindow();
        return static_cast<std::size_t>((y - box.min.y) * (box.max.x - box.min.x + 1) + x - box.min.x);
    }
    // Makes room for a channel's pixels and describes it.
    template <class T>
    Imf::Slice plane(Imf::PixelType type, std::vector<T>& pixels) {
        const Imath::Box2i box = header.dataWindow();
        pixels.assign(at(box.max.x, box.max.y) + 1, T(77));
        return Imf::Slice::Make(type, pixels.data(), box, 4);
    }
};

inline std::vector<Part> readExr(const std::string& path) {
    Imf::MultiPartInputFile file(path.c_str());
    std::vector<Part> parts(static_cast<std::size_t>(file.parts()));
    for (int p = 0; p < file.parts(); ++p) {
        Part& part = parts[static_cast<std::size_t>(p)];
        part.header = file.header(p);
        Imf::FrameBuffer frame;
        for (auto it = part.header.channels().begin(); it != part.header.channels().end(); ++it) {
            const bool isInt = it.channel().type == Imf::UINT;
            frame.insert(it.name(), isInt ? part.plane(Imf::UINT, part.ints[it.name()])
                                          : part.plane(Imf::FLOAT, part.floats[it.name()]));
        }
        Imf::InputPart input(file, p);
        input.setFrameBuffer(frame);
        input.readPixels(part.header.dataWindow().min.y, part.header.dataWindow().max.y);
        EXPECT_TRUE(file.partComplete(p)) << path;
    }
    return parts;
}

// "[part] channel:h channel:f channel:u [part] ...": every part's name and channels with their types.
inline std::string layoutOf(const std::vector<Part>& parts) {
    std::string text;
    for (const Part& part : parts) {
        text += (text.empty() ? "[" : " [") + (part.header.hasName() ? part.header.name() : "-") + "]";
        for (auto it = part.header.channels().begin(); it != part.header.channels().end(); ++it) {
            text += std::string(" ") + it.name() + ":" + "uhf"[it.channel().type];
            EXPECT_TRUE(it.channel().xSampling == 1 && it.channel().ySampling == 1 && !it.channel().pLinear);
        }
    }
    return text;
}

// "x0,y0 x1,y1", all inclusive.
inline std::string text(const Imath::Box2i& box) {
    return std::to_string(box.min.x) + "," + std::to_string(box.min.y) + " " + std::to_string(box.max.x) +
           "," + std::to_string(box.max.y);
}

// The mean error of an EXR channel's pixels over their mean: 0 when every pixel is as it should be.
inline double errorOf(const Part& part, const std::string& name, int channel, int component) {
    double error = 0, total = 0;
    const Imath::Box2i box = part.header.dataWindow();
    const Imf::PixelType type = part.header.channels()[name].type;
    const unsigned* ints = type == Imf::UINT ? part.ints.at(name).data() : nullptr;
    const float* floats = ints == nullptr ? part.floats.at(name).data() : nullptr;
    for (int y = box.min.y; y <= box.max.y; ++y) {
        for (int x = box.min.x; x <= box.max.x; ++x) {
            const float value = sample(channel, component, x, y);
            double right = type == Imf::HALF ? static_cast<float>(half(value)) : value;
            if (ints != nullptr) right = intSample(channel, x, y);
            error += std::fabs((ints != nullptr ? *ints++ : static_cast<double>(*floats++)) - right);
            total += right;
        }
    }
    return error / total;
}

}  // namespace testing_tools
