#pragma once

#include <memory>
#include <string>
#include <vector>

#include "examples/render_frame/channels.h"
#include "examples/render_frame/tracer.h"
#include "rawimage/output_file.h"

namespace render_frame {

// What an output file is told of the frame besides its pixels.
struct FrameInfo {
    RenderSettings render;
    int bucketWidth = 64;
    int bucketHeight = 64;
    Camera camera;
    std::vector<RGB24> thumbnail;  // row after row from the top; empty for none
    int thumbnailWidth = 0;
    int thumbnailHeight = 0;
};

// Writes a frame to an output file, in the order of calls that the file wants. Every operation gives an empty
// ErrorCode on success; after an error the file is not used any further.
class FrameWriter {
  public:
    explicit FrameWriter(FrameInfo info);

    // Creates the file and writes everything that is known before the first bucket is rendered.
    ErrorCode start(const std::string& path);
    ErrorCode write(const BucketPixels& pixels);
    ErrorCode finish();

  private:
    ErrorCode writeMetadata();
    template <class Operation>
    ErrorCode onRawFile(Operation operation);

    FrameInfo info_;
    FrameChannels channels_;
    std::unique_ptr<RIFileBase> file_;
};

}  // namespace render_frame
