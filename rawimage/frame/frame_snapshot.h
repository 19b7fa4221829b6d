#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "rawimage/frame/raw_frame.h"
#include "rawimage/frame/tag_segment.h"
#include "rawimage/inspect/quick_scan.h"
#include "support/digest.h"
#include "support/positioned_reader.h"

namespace MUtils {
inline namespace v1 {

// What is known of a file at one moment. Unchanging but for what it computes when it is first asked; any
// number of threads may use it at a time.
class FrameSnapshot {
  public:
    using Pointer = std::shared_ptr<const FrameSnapshot>;
    using Source = std::shared_ptr<PositionedReader>;
    using Progress = std::function<bool(std::int64_t done, std::int64_t total)>;

    static Pointer cannotOpen(std::string cause);
    // By a quick scan, or an inspection where that gives up.
    static Pointer open(const Source& source, const Progress& progress);
    static Pointer inspect(const Source& source, InspectDepth depth, int threads, const Progress& progress);

    enum class Growth { kNone, kMore, kOpenAnew };
    // Looks for what has been added to the file since. With more, `next` and the box around the new pixels
    // are set.
    Growth grow(Pointer& next, PixelBox& box) const;
    // False when the bytes that this knows of the file are no longer there: it has been written anew.
    bool stillHolds() const;

    const PositionedReader& source() const { return *source_; }
    const Source& sharedSource() const { return source_; }
    const std::shared_ptr<const FrameInfo>& info() const { return info_; }
    const FrameFacts& facts() const { return file_.facts; }
    const FileFaults& faults() const { return faults_; }
    bool compressed() const { return file_.compressed; }
    std::int64_t fileBytes() const { return file_.fileBytes; }
    bool inspected() const { return inspected_; }
    // True when the file can be read: it is a raw image.
    bool readable() const {
        return file_.state != FileState::kCannotOpen && file_.state != FileState::kNotThisFormat;
    }
    // With the state and what is missing.
    const Inspection& verdict() const;

    // The tags of a channel with a pixel in `box`, in file order: those in doubt first, if they are wanted.
    std::vector<const INFOTAG*> find(std::int32_t channel, const PixelBox& box, bool withDoubted) const;
    // Of a channel: as listed, else that of its first tag. RCT_NONE when it has neither.
    RegionChannelType typeOf(std::int32_t channel) const;
    // The windows of a channel; null when it has none.
    const std::vector<PixelBox>* windowsOf(std::int32_t channel) const;
    // The tags without pixels, in file order.
    std::vector<INFOTAG> recordTags() const;
    // The last tag of a kind without pixels; null when there is none.
    const INFOTAG* lastOf(std::uint32_t tagId) const;
    // The header of a tag as it is in the file, which differs where the tag has been repaired.
    RIF_TAG storedHeader(const INFOTAG& tag) const;

  private:
    static constexpr std::size_t kAnchorBytes = 64;

    FrameSnapshot() = default;
    FrameSnapshot(const FrameSnapshot& other);
    bool takeScan(PStream& stream, QuickScan& scan);
    void takeInspection(Inspection found);
    void forgetContents();
    void addSegment(std::vector<INFOTAG> tags);
    void listWindows();
    std::size_t anchorSize() const;
    bool readAnchor(PStream& stream);
    template <class Read>
    bool digestFacts(const Read& read, Digest& digest) const;

    Source source_;
    Inspection file_;  // without its tags
    FileFaults faults_;
    bool inspected_ = false;
    bool sound_ = true;  // as far as it was looked at
    std::shared_ptr<const FrameInfo> info_;
    // In file order, each at least twice as large as the next one.
    std::vector<std::shared_ptr<const TagSegment>> segments_;
    std::vector<INFOTAG> others_;   // without pixels, in file order
    std::vector<INFOTAG> doubted_;  // with pixels, in file order
    std::map<std::int32_t, std::vector<PixelBox>> windows_;
    // Where the next scan goes on, the last tag before that, and its first bytes.
    QuickScan::Known known_;
    INFOTAG last_;
    std::array<unsigned char, kAnchorBytes> anchor_{};
    Digest factsDigest_;

    mutable std::once_flag judged_;
    mutable Inspection verdict_;
};

}  // namespace v1
}  // namespace MUtils
