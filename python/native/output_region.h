#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "python/native/arrays.h"
#include "rawimage/records.h"

namespace rawimage_python {

// A channel as an output file asks for it.
class ChannelDescription final : public RegionChannelCallback {
  public:
    explicit ChannelDescription(const MUtils::FrameChannel& channel) : channel_(channel) {}

    RegionChannelType getType() override { return channel_.type; }
    RegionChannelAlias getAlias() override { return channel_.alias; }
    const char* getName() override { return channel_.name.c_str(); }
    int getFlags() override { return channel_.flags; }

  private:
    const MUtils::FrameChannel& channel_;
};

// A bucket of a frame, from arrays of some of its channels.
class OutputRegion final : public MRRegionData {
  public:
    // `values` are places in `channels` and their arrays, which must outlive the object. Throws ValueError
    // and TypeError, which contain what was expected.
    OutputRegion(const std::vector<MUtils::FrameChannel>& channels, int x, int y,
                 const std::vector<std::pair<int, py::array>>& values);

    // Copies the values of the arrays. Needs no lock of the interpreter. Throws std::bad_alloc.
    void load();

  private:
    struct Source {
        ArrayPlane plane;
        int components;
        MBVTable* table;
    };

    void loadOne(const Source& source) const;

    std::vector<std::unique_ptr<MBVTable>> tables_;
    std::vector<Source> sources_;
};

}  // namespace rawimage_python
