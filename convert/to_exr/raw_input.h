#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "cli/exit_codes.h"
#include "rawimage/read/accepting_callback.h"
#include "rawimage/tools/summary.h"
#include "rawimage/tools/verify.h"
#include "rawimage/writer.h"
#include "support/deflate.h"

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
    // The kinds of its sound tags that are neither pixels nor among the records, each once.
    const std::set<std::uint32_t>& otherTags() const { return otherTags_; }
    // The sound tags of texts that are too long to go along.
    const std::vector<INFOTAG>& longTexts() const { return longTexts_; }
    // What a file that lacks its resolution or channel list is: damaged, or not far enough.
    ExitCode codeOfLack() const;
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
    std::set<std::uint32_t> otherTags_;
    std::vector<INFOTAG> longTexts_;
};

// Where the values of a large tag go, piece by piece.
class PixelRooms {
  public:
    using Room = MUtils::InflateFlow::Room;
    // The next place, without size behind the last one.
    virtual Room next() = 0;

  protected:
    ~PixelRooms() = default;
};

// Decodes tags of pixels, wherever they stand in the file. One object serves one thread.
class PixelDecoder final : private RIFile, private AcceptingCallback {
  public:
    // `input` must live longer. Throws Failure (kUnreadable) when its file does not open again.
    explicit PixelDecoder(const RawInput& input);

    // Decodes one of the input's tags and hands its values over, which live for the call. Null, or why the
    // values cannot be read; `consume` is not called then.
    const char* decode(const INFOTAG& tag, const std::function<void(const MBVTable&)>& consume);

    // The same for values that go to `rooms`, which have place for all. After a fault there may be anything
    // in them.
    const char* decode(const INFOTAG& tag, PixelRooms& rooms);

  private:
    bool setImageData(const MBVTable& data, int count, int channel, int x, int y, int width, int height,
                      int w28, int w32) override;

    const std::function<void(const MBVTable&)>* consume_ = nullptr;
    MUtils::Inflater largeInflater_;
};

}  // namespace rimg
