#include <algorithm>

#include "fuzz/fuzz_input.h"
#include "rawimage/frame/raw_frame.h"

using fuzzing::require;
using MUtils::PixelBox;
using MUtils::RawFrame;

namespace {

constexpr int kEdge = 32;

// Takes its choices from the input, which is the file as well.
class Choices {
  public:
    Choices(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    int next() { return size_ > 0 ? data_[at_++ * 31 % size_] : 0; }

  private:
    const std::uint8_t* data_;
    std::size_t size_, at_ = 0;
};

class Counter final : public MUtils::BucketVisitor {
  public:
    explicit Counter(const RawFrame& frame) : frame_(frame) {}

    bool visit(const MUtils::FrameBucket& bucket) override {
        const auto info = frame_.info();
        require(info->findIndex(bucket.tag.p8)->components() == bucket.components,
                "values of the channel's type");
        const std::int64_t bytes = bucket.box.area() * bucket.components * 4;
        if (bytes > 0) last_ = bucket.values[bytes - 1];
        return true;
    }

  private:
    const RawFrame& frame_;
    unsigned char last_ = 0;
};

void readSome(const RawFrame& frame, Choices& choices) {
    const auto info = frame.info();
    std::vector<unsigned char> memory(kEdge * kEdge * 16 + 1, 0xA5);
    for (std::size_t i = 0; i < std::min<std::size_t>(info->channels.size(), 8); ++i) {
        const PixelBox box = MUtils::boxAt(choices.next() - 64, choices.next() - 64, kEdge, kEdge);
        MUtils::ChannelTarget target(info->channels[i], memory.data());
        if (choices.next() % 3 == 0) target.format = MUtils::ValueFormat::kHalf;
        MUtils::FrameReadOptions options;
        options.takeDoubted = choices.next() % 2 != 0;
        (void)frame.read(box, {target}, options);
        require(memory.back() == 0xA5, "values within the target");
        Counter counter(frame);
        (void)frame.visit(box, {info->channels[i].index}, counter, options);
        const std::int64_t bytes = choices.next() * 64;
        require(!frame.bands(box, {info->channels[i].index}, bytes).empty(), "bands of a box");
        require(frame.bands(info->frame, {info->channels[i].index}, bytes).size() <= MUtils::kMaxFrameBands,
                "few bands of any frame");
    }
}

}  // namespace

// Opens the file, reads some of it, and takes in what is added to it; the end is what opening the whole
// gives.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static fuzzing::MemoryFile file;
    Choices choices(data, size);
    file.fill(data, size * static_cast<std::size_t>(choices.next()) / 256);
    RawFrame frame(file.path());
    readSome(frame, choices);
    file.fill(data, size);
    (void)frame.refresh();
    const RawFrame whole(file.path());
    readSome(frame, choices);
    readSome(whole, choices);
    (void)frame.missing();
    (void)frame.records();
    (void)whole.blob(MUtils::FrameBlob::kSettings);
    (void)whole.text(MUtils::FrameText::kSceneName);
    (void)whole.thumbnail();
    return 0;
}
