#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <mutex>
#include <ostream>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "rawimage/read/callback.h"
#include "support/bytes.h"

namespace testing_tools {

// One call of a callback operation as a value: its numbers in order (floats as their bits) and the bytes it
// was handed. Besides the operations' names: "askNote" is setNote(nullptr).
struct Event {
    std::string call;
    std::vector<std::int64_t> numbers;
    std::string bytes;

    auto key() const { return std::tie(call, numbers, bytes); }
    friend bool operator==(const Event& a, const Event& b) { return a.key() == b.key(); }
    friend bool operator<(const Event& a, const Event& b) { return a.key() < b.key(); }
    friend std::ostream& operator<<(std::ostream& out, const Event& event) {
        out << event.call << '(';
        for (const std::int64_t number : event.numbers)
            out << number << ' ';
        return out << event.bytes.size() << " bytes, hash " << std::hash<std::string>()(event.bytes) << ')';
    }
};

template <class T>
std::string bytesOf(const T& record) {
    return std::string(reinterpret_cast<const char*>(&record), sizeof record);
}

inline std::string bytesOf(const MBVTable& table) {
    std::string bytes(static_cast<std::size_t>(table.count) * static_cast<std::size_t>(table.itemSize), '\0');
    table.storeToBuffer(bytes.data(), 0, table.count);
    return bytes;
}

// Keeps everything that a reader delivers. Safe under the multi-threaded reader, where image data between two
// other events comes in any order: sort before comparing.
class CollectCallback : public RIFileCallback {
  public:
    std::vector<RIF_TAG> tags;  // as parseTag was asked, before `edit`
    std::vector<Event> events;  // everything else

    std::map<std::uint32_t, int> verdicts;  // parseTag's answer by tag id, 1 for the rest
    std::function<void(RIF_TAG&)> edit;     // what parseTag does to the tag
    std::set<std::string> refused;          // operations that answer false; "askNote" too
    const char* replacementNote = nullptr;  // getNote's answer

    int parseTag(RIF_TAG& tag) override {
        const std::lock_guard<std::mutex> lock(mutex_);
        tags.push_back(tag);
        const auto verdict = verdicts.find(tag.id);
        if (edit) edit(tag);
        return verdict != verdicts.end() ? verdict->second : 1;
    }
    bool setResolution(int width, int height, float aspect) override {
        return keep({"setResolution", {width, height, MUtils::bitsFromFloat(aspect)}, {}});
    }
    bool setNumChannels(int count) override { return keep({"setNumChannels", {count}, {}}); }
    bool setChannel(int index, RegionChannelType type, RegionChannelAlias alias, const char* name) override {
        return keep({"setChannel", {index, type, alias}, name});
    }
    bool setImageData(const MBVTable& data, int count, int channel, int x, int y, int width, int height,
                      int w28, int w32) override {
        return keep({"setImageData", {count, channel, x, y, width, height, w28, w32}, bytesOf(data)});
    }
    bool setCameraInfo(const RICameraInfo& info) override {
        return keep({"setCameraInfo", {}, bytesOf(info)});
    }
    bool setRenderRegion(const RIRegionInfo& region) override {
        return keep(
            {"setRenderRegion", {region.kind, region.left, region.top, region.width, region.height}, {}});
    }
    bool setPreview(MBVTable& pixels, int count, int width, int height) override {
        return keep({"setPreview", {count, width, height}, bytesOf(pixels)});
    }
    bool setSceneInfo(RISceneInfo info) override {
        return keep({"setSceneInfo", {info.value}, info.name != nullptr ? info.name : "(null)"});
    }
    bool setStampData(PBufStream* data) override { return keepBlob("setStampData", *data); }
    bool setNote(const char* text) override {
        return keep(text != nullptr ? Event{"setNote", {}, text} : Event{"askNote", {}, {}});
    }
    const char* getNote() override {
        keep({"getNote", {}, {}});
        return replacementNote;
    }
    bool setOverlayTextData(PBufStream* data) override { return keepBlob("setOverlayTextData", *data); }
    bool setMirtSettings(PBufStream* data) override { return keepBlob("setMirtSettings", *data); }

    std::ptrdiff_t count(const std::string& call) const {
        return std::count_if(events.begin(), events.end(),
                             [&](const Event& event) { return event.call == call; });
    }

  private:
    bool keepBlob(const char* call, PBufStream& data) {
        std::string bytes(static_cast<std::size_t>(data.Size()), '\0');
        int got = 0;
        const int code = data.Read(bytes.data(), data.Size(), got);
        return keep({call, {code, got}, bytes});
    }
    bool keep(Event event) {
        const std::lock_guard<std::mutex> lock(mutex_);
        events.push_back(std::move(event));
        return refused.count(events.back().call) == 0;
    }

    std::mutex mutex_;
};

}  // namespace testing_tools
