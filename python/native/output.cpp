#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "exr/exr_file.h"
#include "python/native/arrays.h"
#include "python/native/bindings.h"
#include "python/native/output_region.h"
#include "python/native/write_failure.h"
#include "rawimage/output_queue.h"
#include "rawimage/writer.h"
#include "support/compression.h"
#include "support/new_file.h"

namespace rawimage_python {

namespace {

using MUtils::FrameChannel;
using MUtils::PixelBox;

// What both formats are begun with.
struct Layout {
    int width, height;
    double pixelAspect;
    std::pair<int, int> bucket;
    std::optional<PixelBox> region;
};

// A file behind a queue. WTRegion of the queue takes calls from several threads, and so does write(); the
// other operations wait for their turn.
class Output {
  public:
    Output(std::string path, std::unique_ptr<RIFileBase> file, std::vector<FrameChannel> channels)
        : path_(std::move(path)),
          channels_(std::move(channels)),
          open_(std::make_shared<Open>(std::move(file))) {}
    // Writes what waits and leaves the file as it is then: unfinished.
    ~Output() {
        const py::gil_scoped_release released;
        open_.reset();
    }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    // An operation of the file, in its turn.
    template <class Operation>
    void run(Operation operation) const {
        const std::shared_ptr<Open> open = opened();
        check([&] { return open->queue.run([&] { return operation(*open->file); }); });
    }
    void begin(const Layout& layout, int bits, const std::function<void(RIFileBase&)>& set) const;
    void write(int x, int y, const std::vector<std::pair<int, py::array>>& values) const;
    void flush() const {
        const std::shared_ptr<Open> open = opened();
        check([&] { return open->queue.flush(); });
    }
    void close() {
        const std::shared_ptr<Open> open = std::move(open_);
        if (open != nullptr) check([&] { return open->queue.Close(); });
    }
    void abandon() {
        const py::gil_scoped_release released;
        open_.reset();
    }
    bool closed() const { return open_ == nullptr; }
    const std::vector<FrameChannel>& channels() const { return channels_; }

  private:
    struct Open {
        explicit Open(std::unique_ptr<RIFileBase> of) : file(std::move(of)), queue(*file) {}
        std::unique_ptr<RIFileBase> file;
        OutputQueue queue;
    };

    std::shared_ptr<Open> opened() const {
        if (open_ == nullptr) throw py::value_error("the file is closed");
        return open_;
    }
    // The OpenEXR writer lets exceptions of its library through.
    template <class Call>
    void check(Call call) const {
        const ErrorCode error = [&]() -> ErrorCode {
            const py::gil_scoped_release released;
            try {
                return call();
            } catch (const std::bad_alloc&) {
                throw;
            } catch (const std::exception& failure) {
                return ErrorCode("write", -1, "%s", failure.what());
            }
        }();
        if (error) throw WriteFailure(MUtils::outputErrorText(error), path_, error.getError());
    }

    const std::string path_;
    const std::vector<FrameChannel> channels_;
    std::shared_ptr<Open> open_;
};

void Output::begin(const Layout& layout, int bits, const std::function<void(RIFileBase&)>& set) const {
    std::vector<ChannelDescription> descriptions(channels_.begin(), channels_.end());
    MUtils::Table<RegionChannelCallback*, 100> list;
    for (ChannelDescription& description : descriptions)
        list.Add(&description);
    const auto aspect = static_cast<float>(layout.pixelAspect);
    run([&](RIFileBase& file) {
        if (ErrorCode error = file.Create(path_.c_str(), nullptr)) return error;
        if (ErrorCode error = file.WriteHeader(bits)) return error;
        if (ErrorCode error = file.WTResolution(layout.width, layout.height, aspect)) return error;
        if (ErrorCode error = file.WTRegionsInfo(layout.bucket.first, layout.bucket.second, 0)) return error;
        if (layout.region) {
            const PixelBox& box = *layout.region;
            const RIRegionInfo region{0, static_cast<int>(box.x0), static_cast<int>(box.y0),
                                      static_cast<int>(box.width()), static_cast<int>(box.height())};
            if (ErrorCode error = file.WTRenderRegion(region)) return error;
        }
        set(file);
        return file.WTChannelInfo(&list);
    });
}

void Output::write(int x, int y, const std::vector<std::pair<int, py::array>>& values) const {
    const std::shared_ptr<Open> open = opened();
    OutputRegion region(channels_, x, y, values);
    check([&] {
        region.load();
        return open->queue.WTRegion(&region, 0, 0, 0);
    });
}

std::unique_ptr<RIFile> makeRawFile(int compression, int threads, bool sync) {
    auto file = std::make_unique<RIFile>();
    file->setCompression(static_cast<MUtils::Compression>(compression));
    file->setCompressionThreads(nullptr, threads);
    file->setSyncOnClose(sync);
    return file;
}

std::unique_ptr<Output> createRaw(const std::string& path, const Layout& layout,
                                  std::vector<FrameChannel> channels, int compression, int threads,
                                  bool sync) {
    auto output =
        std::make_unique<Output>(path, makeRawFile(compression, threads, sync), std::move(channels));
    output->begin(layout, 32, [](RIFileBase&) {});
    return output;
}

std::unique_ptr<Output> appendRaw(const std::string& path, std::vector<FrameChannel> channels,
                                  int compression, int threads, bool sync) {
    auto output =
        std::make_unique<Output>(path, makeRawFile(compression, threads, sync), std::move(channels));
    output->run([&path](RIFileBase& base) {
        auto& file = static_cast<RIFile&>(base);
        if (ErrorCode error = file.Append(path.c_str(), nullptr)) return error;
        const int code = file.ReadInfoTags(nullptr);
        return code == 0 ? ErrorCode()
                         : ErrorCode("ReadInfoTags", code, "The tags cannot be listed (%i)", code);
    });
    return output;
}

std::unique_ptr<Output> createExr(const std::string& path, const Layout& layout,
                                  std::vector<FrameChannel> channels, int kind, int bits, int compression,
                                  bool autoDataWindow, std::pair<int, int> origin) {
    auto output = std::make_unique<Output>(path, std::make_unique<ExrFile>(kind), std::move(channels));
    output->begin(layout, bits, [&](RIFileBase& base) {
        auto& file = static_cast<ExrFile&>(base);
        file.setCompressionType(compression);
        file.setAutoDataWindow(autoDataWindow ? 1 : 0);
        file.setOrigin(origin.first, origin.second);
    });
    return output;
}

// Runs an operation that only raw images have; false for any other file.
template <class Operation>
bool runOnRaw(const Output& output, Operation operation) {
    bool isRaw = true;
    output.run([&](RIFileBase& base) {
        auto* const file = dynamic_cast<RIFile*>(&base);
        isRaw = file != nullptr;
        return isRaw ? operation(*file) : ErrorCode();
    });
    return isRaw;
}

using BlobWriter = ErrorCode (RIFile::*)(void* data, int size);

auto blobSetter(BlobWriter write) {
    return [write](const Output& output, const py::bytes& data) {
        const auto view = static_cast<std::string_view>(data);
        std::string copy(view);
        if (copy.size() > INT32_MAX) throw py::value_error("the data must be less than 2 GiB");
        return runOnRaw(
            output, [&](RIFile& file) { return (file.*write)(copy.data(), static_cast<int>(copy.size())); });
    };
}

// The pixels are uint8, [y][x][3], and at least one.
bool setThumbnail(const Output& output, const py::array& pixels) {
    const auto dense = py::array_t<unsigned char, py::array::c_style>::ensure(pixels);
    std::vector<RGB24> copy(static_cast<std::size_t>(dense.size() / 3));
    std::memcpy(copy.data(), dense.data(), static_cast<std::size_t>(dense.size()));
    return runOnRaw(output, [&](RIFile& file) {
        return file.WTPreview(copy.data(), static_cast<int>(dense.shape(1)),
                              static_cast<int>(dense.shape(0)));
    });
}

void setScene(const Output& output, int value, const std::string& name) {
    RISceneInfo scene(value, name.c_str());
    output.run([&](RIFileBase& file) { return file.WTSceneInfo(scene); });
}

void translateFailure(std::exception_ptr thrown) {
    try {
        if (thrown) std::rethrow_exception(thrown);
    } catch (const WriteFailure& failure) {
        const py::object type = py::module_::import("rawimage._errors").attr("WriteError");
        using namespace py::literals;
        const py::object error =
            type(std::string(failure.what()), "path"_a = failure.path, "code"_a = failure.code);
        PyErr_SetObject(type.ptr(), error.ptr());
    }
}

}  // namespace

void bindOutput(py::module_& module) {
    py::register_exception_translator(translateFailure);
    py::class_<Layout>(module, "Layout")
        .def(py::init([](int width, int height, double aspect, std::pair<int, int> bucket,
                         std::optional<PixelBox> region) {
            return Layout{width, height, aspect, bucket, region};
        }));
    py::class_<Output>(module, "Output")
        .def("write", &Output::write)
        .def("flush", &Output::flush)
        .def("close", &Output::close)
        .def("abandon", &Output::abandon)
        .def("closed", &Output::closed)
        .def("channels", &Output::channels)
        .def("set_camera",
             [](const Output& self, const RICameraInfo& camera) {
                 self.run([&](RIFileBase& file) { return file.WTCameraInfo(camera); });
             })
        .def("set_scene", &setScene)
        .def("set_stamp_text",
             [](const Output& self, const std::string& text) {
                 self.run([&](RIFileBase& file) { return file.WTStampText(text.c_str()); });
             })
        .def("set_attributes",
             [](const Output& self, const std::string& text) {
                 self.run([&](RIFileBase& file) { return file.WTExtraAttributes(text.c_str()); });
             })
        .def("set_note",
             [](const Output& self, const std::string& text) {
                 return runOnRaw(self, [&](RIFile& file) { return file.addNote(text.c_str()); });
             })
        .def("set_stamp", blobSetter(&RIFile::WTStamp))
        .def("set_overlay_texts", blobSetter(&RIFile::WTOverlayTexts))
        .def("set_settings", blobSetter(&RIFile::WTMirtSettings))
        .def("set_thumbnail", &setThumbnail);
    module.def("create_raw", &createRaw);
    module.def("append_raw", &appendRaw);
    module.def("create_exr", &createExr);
}

}  // namespace rawimage_python
