#pragma once

#include <functional>
#include <string>
#include <vector>

#include "rawimage/tools/accepting_callback.h"
#include "rawimage/tools/summary.h"
#include "rawimage/tools/verify.h"
#include "rawimage/writer.h"

namespace rimg {

// A raw image opened for conversion: what it says of its frame, and where its pixels are. Damaged and
// unfinished files open too, with what is sound in them: all headers have been held against each other, and
// what contradicts them is passed over.
class RawInput {
  public:
    // Throws Failure: kUnreadable when the file cannot be opened or is no raw image, kStopped after a signal.
    // Headers in doubt are looked into on `threads` threads.
    RawInput(const std::string& path, int threads);

    const std::string& path() const { return path_; }
    // The frame's records from all sound tags. Of pixels, blobs and the file's state it tells nothing.
    const MUtils::FileSummary& records() const { return records_; }
    // The headers of the sound tags of pixels, in file order. Whether their payloads are sound is not known.
    const std::vector<INFOTAG>& pixels() const { return pixels_; }
    // What the headers say of the file: damage, and pixels that no tag has.
    const MUtils::VerifyReport& state() const { return state_; }
    // For the message that something is not there: ": " and what is wrong with the file; "" when nothing is.
    std::string whyNot() const;
    // As the file's pixels are stored, which a damaged one may misstate.
    const RIF_HEADER& header() const { return header_; }

  private:
    void listTags(PStream& file, PMemStream& records);
    void take(PStream& file, const INFOTAG& tag, PMemStream& records);

    const std::string path_;
    MUtils::VerifyReport state_;
    RIF_HEADER header_;
    MUtils::FileSummary records_;
    std::vector<INFOTAG> pixels_;
};

// Decodes tags of pixels, wherever they stand in the file. One object serves one thread.
class PixelDecoder final : private RIFile, private AcceptingCallback {
  public:
    // `input` must live longer. Throws Failure (kUnreadable) when its file does not open again.
    explicit PixelDecoder(const RawInput& input);

    // Decodes one of the input's tags and hands its values over, which live for the call. Null, or why the
    // values cannot be read; `consume` is not called then.
    const char* decode(const INFOTAG& tag, const std::function<void(const MBVTable&)>& consume);

  private:
    bool setImageData(const MBVTable& data, int count, int channel, int x, int y, int width, int height,
                      int w28, int w32) override;

    const std::function<void(const MBVTable&)>* consume_ = nullptr;
};

}  // namespace rimg
