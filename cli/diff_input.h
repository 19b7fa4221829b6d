#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "rawimage/frame/raw_frame.h"

namespace rimg {

struct DiffInputOptions {
    int bucketWidth = 64;  // of OpenEXR files that become raw images
    int bucketHeight = 64;
    int threads = 0;
    std::function<bool(std::int64_t done, std::int64_t total)> progress;
};

// A raw image or an OpenEXR file as a frame. An OpenEXR file is converted as `rimg convert` does, into a file
// without a name in the folder for temporary files (TMPDIR), which goes with the object. Its frame is the
// display window or, when pixels lie outside of that, the union with the data windows.
class DiffInput {
  public:
    // Throws Failure when there is no frame or when the pixels of the OpenEXR file are damaged.
    DiffInput(const std::string& path, const DiffInputOptions& options);
    DiffInput(const DiffInput&) = delete;
    DiffInput& operator=(const DiffInput&) = delete;

    const MUtils::RawFrame& frame() const { return *frame_; }
    bool isExr() const { return exr_; }
    // Of the frame's first pixel in an OpenEXR file.
    std::int64_t originX() const { return originX_; }
    std::int64_t originY() const { return originY_; }
    // Why pixels are missing that should be there; "" when none are.
    std::string incomplete() const { return incomplete_; }

  private:
    // Returns the name of the raw image.
    std::string convert(const std::string& path, const DiffInputOptions& options);

    bool exr_ = false;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_{nullptr, std::fclose};  // the temporary one
    std::int64_t originX_ = 0;
    std::int64_t originY_ = 0;
    std::string incomplete_;
    std::unique_ptr<MUtils::RawFrame> frame_;
};

}  // namespace rimg
