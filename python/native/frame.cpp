#include <cstring>
#include <memory>
#include <mutex>
#include <utility>

#include "python/native/arrays.h"
#include "python/native/bindings.h"
#include "python/native/report.h"
#include "python/native/work.h"
#include "rawimage/frame/raw_frame.h"

namespace rawimage_python {

namespace {

using MUtils::ChannelTarget;
using MUtils::FrameBlob;
using MUtils::FrameRead;
using MUtils::FrameReadOptions;
using MUtils::FrameText;
using MUtils::PixelBox;
using MUtils::RawFrame;

// The bucket of one tag.
class OneBucket final : public MUtils::BucketVisitor {
  public:
    OneBucket(std::uint64_t offset, const py::array& values)
        : offset_(offset),
          bytes_(static_cast<std::size_t>(values.nbytes())),
          data_(static_cast<unsigned char*>(const_cast<void*>(values.data()))) {}

    bool wants(const INFOTAG& tag) override { return tag.offset == offset_; }
    bool visit(const MUtils::FrameBucket& bucket) override {
        const std::int64_t size = bucket.box.area() * bucket.components * 4;
        if (static_cast<std::size_t>(size) != bytes_) return false;
        std::memcpy(data_, bucket.values, bytes_);
        found_ = true;
        return true;
    }
    void restart() override { found_ = false; }
    bool found() const { return found_; }

  private:
    const std::uint64_t offset_;
    const std::size_t bytes_;
    unsigned char* const data_;
    bool found_ = false;
};

// Nothing that reads is under the interpreter's lock, so a call holds the frame itself: another thread may
// close the file meanwhile.
class Frame {
  public:
    Frame(const std::string& path, const py::object& progress) {
        Work work(progress);
        MUtils::RawFrameOptions options;
        options.progress = work.progress();
        frame_ = work.run([&] { return std::make_shared<RawFrame>(path.c_str(), options); });
        stopped_ = work.stopped();
    }

    void close() { frame_.reset(); }
    bool closed() const { return frame_ == nullptr; }
    // While it was opened: what is known of the file is not complete.
    bool stopped() const { return stopped_; }

    // Calls `get` with the frame, without the interpreter's lock.
    template <class Get>
    auto with(Get get) const {
        const std::shared_ptr<RawFrame> frame = open();
        const py::gil_scoped_release released;
        return get(*frame);
    }

    FrameRead read(const PixelBox& box, const std::vector<std::pair<int, py::array>>& targets, double fill,
                   bool filled, int threads, const py::object& progress) const {
        const std::shared_ptr<RawFrame> frame = open();
        const auto info = frame->info();
        std::vector<ChannelTarget> wanted;
        for (auto [index, values] : targets) {
            const MUtils::FrameChannel* channel = info->findIndex(index);
            if (channel == nullptr) throw py::value_error("the file has no channel " + std::to_string(index));
            wanted.push_back(targetOf(values, "channel " + channel->name, *channel, box));
            wanted.back().fill = fill;
            wanted.back().filled = filled;
        }
        return readWith(progress, threads,
                        [&](const FrameReadOptions& options) { return frame->read(box, wanted, options); });
    }

    std::pair<py::object, FrameRead> bucket(const MUtils::FrameChannel& channel, std::uint64_t offset,
                                            const PixelBox& box, const py::object& progress) const {
        const std::shared_ptr<RawFrame> frame = open();
        py::array values(py::dtype(dtypeNameOf(channel.isInteger())),
                         {box.height(), box.width(), std::int64_t{channel.components()}});
        OneBucket wanted(offset, values);
        FrameRead found = readWith(progress, 1, [&](const FrameReadOptions& options) {
            return frame->visit(box, {channel.index}, wanted, options);
        });
        return {wanted.found() ? py::object(values) : py::none(), std::move(found)};
    }

    std::shared_ptr<RawFrame> open() const {
        if (frame_ == nullptr) throw py::value_error("the file is closed");
        return frame_;
    }

  private:
    template <class Read>
    static FrameRead readWith(const py::object& progress, int threads, Read read) {
        Work work(progress);
        FrameReadOptions options;
        options.threads = threads;
        options.progress = work.progress();
        return work.run([&] { return read(options); });
    }

    std::shared_ptr<RawFrame> frame_;
    bool stopped_ = false;
};

std::vector<std::pair<std::uint64_t, PixelBox>> tagsOf(const RawFrame& frame, const PixelBox& box,
                                                       int channel) {
    std::vector<std::pair<std::uint64_t, PixelBox>> tags;
    for (const INFOTAG& tag : frame.tags(box, channel))
        tags.emplace_back(tag.offset, MUtils::boxAt(tag.p2, tag.p3, tag.p4, tag.p5));
    return tags;
}

py::object bytesOf(const std::optional<std::vector<unsigned char>>& value) {
    if (!value) return py::none();
    return py::bytes(reinterpret_cast<const char*>(value->data()), value->size());
}

py::object arrayOf(const std::optional<MUtils::FrameThumbnail>& value) {
    if (!value) return py::none();
    return pictureOf(value->pixels, value->width, value->height);
}

// A record as its value, or None, and the fault of one that cannot be read.
template <class Record, class Convert>
py::tuple recordOf(const Record& record, Convert convert) {
    return py::make_tuple(convert(record), record.damage);
}

const char* nameOf(MUtils::FrameChange::Kind kind) {
    constexpr const char* kNames[] = {"none", "grown", "restarted"};
    return kNames[kind];
}

}  // namespace

void bindFrame(py::module_& module) {
    py::class_<Frame>(module, "Frame")
        .def(py::init<const std::string&, const py::object&>())
        .def("close", &Frame::close)
        .def("closed", &Frame::closed)
        .def("stopped", &Frame::stopped)
        .def(
            "info",
            [](const Frame& self) { return std::const_pointer_cast<MUtils::FrameInfo>(self.open()->info()); })
        .def("state",
             [](const Frame& self) { return self.with([](RawFrame& f) { return stateName(f.state()); }); })
        .def("cause", [](const Frame& self) { return self.with([](RawFrame& f) { return f.cause(); }); })
        .def("cause_offset",
             [](const Frame& self) { return self.with([](RawFrame& f) { return f.causeOffset(); }); })
        .def("missing", [](const Frame& self) { return self.with([](RawFrame& f) { return f.missing(); }); })
        .def("faults",
             [](const Frame& self) { return self.with([](RawFrame& f) { return f.faults().lost; }); })
        .def("records", [](const Frame& self) { return self.with([](RawFrame& f) { return f.records(); }); })
        .def("blob",
             [](const Frame& self, int which) {
                 return recordOf(
                     self.with([&](RawFrame& f) { return f.blob(static_cast<FrameBlob>(which)); }), bytesOf);
             })
        .def("text",
             [](const Frame& self, int which) {
                 return recordOf(
                     self.with([&](RawFrame& f) { return f.text(static_cast<FrameText>(which)); }),
                     [](const std::optional<std::string>& text) { return text; });
             })
        .def("thumbnail",
             [](const Frame& self) {
                 return recordOf(self.with([](RawFrame& f) { return f.thumbnail(); }), arrayOf);
             })
        .def("tags",
             [](const Frame& self, const PixelBox& box, int channel) {
                 return self.with([&](RawFrame& f) { return tagsOf(f, box, channel); });
             })
        .def("read", &Frame::read)
        .def("bucket", &Frame::bucket)
        .def("refresh", [](const Frame& self) {
            const MUtils::FrameChange change = self.with([](RawFrame& f) { return f.refresh(); });
            return std::make_pair(nameOf(change.kind), change.box);
        });
}

}  // namespace rawimage_python
