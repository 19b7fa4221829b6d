#pragma once

#include <memory>
#include <string>
#include <vector>

#include "examples/render_frame/channels.h"
#include "examples/render_frame/tracer.h"
#include "rawimage/format.h"
#include "rawimage/output_queue.h"
#include "support/compression.h"

namespace render_frame {

// What an output file receives of the frame besides its pixels.
struct FrameInfo {
    RenderSettings render;
    Bucket area;  // that is rendered
    int bucketWidth = 64;
    int bucketHeight = 64;
    Camera camera;
    std::vector<RGB24> thumbnail;  // row after row from the top; empty for none
    int thumbnailWidth = 0;
    int thumbnailHeight = 0;
};

enum class FileKind {
    kRaw,
    kScanline,   // OpenEXR in one part
    kMultiPart,  // OpenEXR with a part for each layer
    kTiled       // OpenEXR whose tiles are the buckets
};

// A file that the frame goes to.
struct OutputSpec {
    std::string path;
    FileKind kind = FileKind::kRaw;
    // Raw images only.
    MUtils::Compression speed = MUtils::Compression::kSmall;
    int level = MUtils::kCompressionLevel;  // of kSmall
    int threads = 1;                        // that compress
    // OpenEXR only.
    int bits = 32;        // of a value that is no integer
    int compression = 3;  // as ExrFile numbers them
    // Buckets are handed over to a queue that writes them. Files that want the whole frame have none.
    bool queued = true;
};

// Writes a frame to an output file, in the order of calls that the file wants, whichever kind it is. Every
// operation gives an empty ErrorCode on success; after an error the file is not used any further.
class FrameWriter {
  public:
    FrameWriter(FrameInfo info, OutputSpec spec);

    const OutputSpec& spec() const { return spec_; }

    // Creates the file and writes everything that is known before the first bucket is rendered.
    ErrorCode start();
    // Opens a raw image that was begun before, to go on behind its last tag.
    ErrorCode resume();
    // Offers a bucket and the channels of it to write. Files that want the whole frame wait for that. With a
    // queue, an error may be that of an earlier bucket.
    ErrorCode write(const BucketPixels& pixels, ChannelMask channels);
    bool wantsWholeFrame() const {
        return spec_.kind == FileKind::kScanline || spec_.kind == FileKind::kMultiPart;
    }
    // Buckets that were never rendered. A tiled file needs a tile for each all the same: those behind it
    // would be lost with it.
    ErrorCode fillWithBlack(const std::vector<Bucket>& buckets);
    // Finishes the file. The frame is null for files that do not want it.
    ErrorCode finish(WholeFrame* frame);
    // What went wrong, with the system's reason where the error does not have it.
    std::string explain(const ErrorCode& error) const;

  private:
    void setCompression();
    void makeQueue();
    // What is driven: the queue or the file.
    RIFileBase& output() { return queue_ != nullptr ? *queue_ : *file_; }
    ErrorCode writeMetadata();
    ErrorCode writeStampText(const std::string& text);
    std::string extraAttributes(const std::string& note, const std::string& stampText) const;
    template <class Operation>
    ErrorCode onRawFile(Operation operation);

    FrameInfo info_;
    OutputSpec spec_;
    FrameChannels channels_;
    std::unique_ptr<RIFileBase> file_;
    std::unique_ptr<OutputQueue> queue_;  // for file_; null when there is none
};

// All the files of a frame, written at a time. Every operation gives "" on success, else what went wrong,
// with the name of the file.
class FrameOutputs {
  public:
    FrameOutputs(const FrameInfo& info, const std::vector<OutputSpec>& specs);

    std::string start();
    // All of them raw images, instead of start().
    std::string resume();
    std::string write(const BucketPixels& pixels, ChannelMask channels);
    // `missing` are the buckets that were never rendered.
    std::string finish(const std::vector<Bucket>& missing);

  private:
    template <class Step>
    std::string forEach(Step step);

    std::vector<std::unique_ptr<FrameWriter>> writers_;
    std::unique_ptr<WholeFrame> frame_;  // null when no file wants it
};

}  // namespace render_frame
