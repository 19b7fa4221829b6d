#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "../support/byte_buffer.h"
#include "../support/compression.h"
#include "../support/job_queue.h"
#include "export.h"
#include "format.h"
#include "output_file.h"

namespace MUtils {
inline namespace v1 {
class RegionPacker;
class TagDecoder;
struct ChannelTag;
}  // namespace v1
}  // namespace MUtils

// A raw image file, written or read.
//
// Writing: every call appends a tag (WTRegion one for each channel, its values a zlib stream); Close
// writes the table of tags and then its offset into the file header. A file that was never closed holds all
// its finished tags and can be read, listed and appended to. Errors carry the operation's name and code -1
// (failures to open: the stream's code).
//
// Reading: Open, then ParseFile for a walk in file order, or ReadInfoTags for the list of tags and ReadTag
// for single ones.
//
// An object is used by one thread at a time. It owns the streams it opens by name and borrows those it is
// given; Close closes either.
class RAWIMAGE_EXPORT RIFile : public RIFileBase {
  public:
    RIFile();
    // Releases what it owns, but does not finish the file: without Close there is no table.
    ~RIFile() override;
    RIFile(const RIFile&) = delete;
    RIFile& operator=(const RIFile&) = delete;

    // A caller's stream is used as it is: open it first.
    ErrorCode Create(const char* fileName, PStream* stream) override;
    // Continues an existing file, which is created when missing. Opens the stream, the caller's too. Call
    // ReadInfoTags next: it loads the tags written so far and goes to where the next one belongs. Until it
    // has returned 0, or SetStream has put another stream in place, every writing operation fails and Close
    // only closes.
    ErrorCode Append(const char* fileName, PStream* stream);
    // Writes the table, then where it is, and closes. Of a file opened by name the tags and the table are on
    // the disk before the offset is written, and that is on the disk when Close returns: a power cut leaves
    // the unfinished file or the finished one. "No file stream.\n" when nothing is open. After a failure the
    // stream is closed all the same.
    ErrorCode Close() override;
    // Off: Close does not wait for the disk. For files that are cheap to make again.
    void setSyncOnClose(bool on) { syncOnClose_ = on; }

    // Why the system refused to write to the file that was opened by name, for whoever has to mend it: an
    // errno code, 0 when it did not or the stream is the caller's. Holds after Close, until another file is
    // opened.
    int fileError() const;

    ErrorCode WriteHeader(int bitsPerChannel) override;
    // One tag header. `payloadSize` bytes of payload are for the caller to write next.
    ErrorCode WriteTagHeader(int id, int payloadSize, int p1 = 0, int p2 = 0, int p3 = 0, int p4 = 0,
                             int p5 = 0, int p6 = 0, int p7 = 0, int p8 = 0);

    ErrorCode WTResolution(int width, int height, float pixelAspect) override;
    ErrorCode WTRegionsInfo(int bucketWidth, int bucketHeight, int variableSize) override;
    ErrorCode WTChannelInfo(MRRegionData* region) override;
    ErrorCode WTChannelInfo(MUtils::Table<MUtils::RegionChannelCallback*, 100>* channels) override;

    // Writes the region's channels that have data, the last one first. `b` and `c` are stored with each; `a`
    // is not used. When a channel fails, the file is closed, with its table, and the channel's error comes
    // back as the cause.
    ErrorCode WTRegion(MRRegionData* region, int a, int b, int c) override;
    // Writes regions as WTRegion does. What setCompressionThreads gave packs the channels of all that the
    // feed has: a thread that is done with one region goes on with the next. Only the calling thread writes.
    ErrorCode WTRegions(RegionFeed& feed) override;
    // One channel of a region of width x height pixels: as many values, of the type's size, at the start of
    // `data`. The second argument, the name and the alias are not used.
    ErrorCode WTChan(MBVTable& data, int unused, int channelIndex, char* name, RegionChannelAlias alias,
                     RegionChannelType type, int x, int y, int width, int height, int p6, int p7);

    // Lets WTRegion and WTRegions compress channels on `threads` threads (below 1: one for each processor; 1,
    // the default: this one) and write them from the calling thread. The file is the same, byte for byte, for
    // any number. The threads, of `manager` or of this object's own when it is null, run until the object
    // goes or this is called again; `threads` channels are in work at a time, others wait compressed.
    void setCompressionThreads(ThreadManager* manager, int threads);
    // The library that compresses: kSmall, the default, is zlib. Readers need not know it.
    void setCompression(MUtils::Compression compression);
    // Of zlib, 1 (fast) to 9 (small, the default). Without effect on the other choices.
    void setCompressionLevel(int level);

    // The direct writers: p4 * p5 values of 4, 4, 8, 12 and 12 bytes, never compressed, whatever the file
    // header gives.
    ErrorCode WTInt(MBVTable& data, int p1, int p2, int p3, int p4, int p5, int p6, int p7, int p8);
    ErrorCode WTFloat(MBVTable& data, int p1, int p2, int p3, int p4, int p5, int p6, int p7, int p8);
    ErrorCode WT2Float(MBVTable& data, int p1, int p2, int p3, int p4, int p5, int p6, int p7, int p8);
    ErrorCode WT3Float(MBVTable& data, int p1, int p2, int p3, int p4, int p5, int p6, int p7, int p8);
    ErrorCode _WT3Float(float* values, int p1, int p2, int p3, int p4, int p5, int p6, int p7, int p8);

    ErrorCode WTCameraInfo(const RICameraInfo& camera) override;
    ErrorCode WTRenderRegion(const RIRegionInfo& region) override;
    ErrorCode WTSceneInfo(RISceneInfo& scene) override;
    // Raw files carry none: success, nothing written.
    ErrorCode WTExtraAttributes(const char* text) override;
    ErrorCode WTStampText(const char* text) override;

    // At most 1023 characters. A note of 512 or more is written, but answered with an error (docs/quirks.md).
    ErrorCode WTNote(const char* note);
    // Writes the same bytes and succeeds with these, too.
    ErrorCode addNote(const char* note);
    // Opaque blobs of `size` bytes.
    ErrorCode WTStamp(void* data, int size);
    ErrorCode WTOverlayTexts(void* data, int size);
    ErrorCode WTMirtSettings(void* data, int size);
    // The stored thumbnail, row after row from the top.
    ErrorCode WTPreview(MUtils::RGB24* pixels, int width, int height);

    // Opens for reading: `stream` as it is, or the file by name.
    ErrorCode Open(const char* fileName, PStream* stream) override;
    // True when the file can be read and begins with the format's magic.
    static bool isRIFile(const char* name);
    // Replaces the stream that is used; what the object owns stays owned. Always 0.
    int SetStream(PStream* replacement);

    // Loads the list of tags: the table of a finished file, else by a scan, which also ORs the p1 words of
    // the pixel tags into `channelMask` (may be null). After Append (or Create) it cuts off the table, whose
    // place the next tag takes, or of an unfinished file the last tag where that is certainly one that its
    // writer did not finish; in every other case the next tag goes to the end. Codes: 0; -1 no stream; -2 not
    // such a file; -3 scan stopped early; -4 a payload could not be skipped; -5 the offset leads to no table,
    // or, after Append, to one behind which there may be tags; else the stream's code.
    int ReadInfoTags(int* channelMask);
    int NumTags();
    // Null when there is no such entry. Valid until the list changes.
    INFOTAG* GetTag(int index);
    // Payload bytes, at most INT_MAX; -1 when there is no such entry. An entry whose size is less than its
    // header's gives what is left of it, a negative number.
    int GetTagDataSize(int index);
    // The first entry with that id at or after `start`; -1 when there is none.
    int FindNextTag(unsigned int id, int start);
    // The first pixel tag after the entry `after`, that entry not included; -1 when there is none.
    int FindNextChanTag(int after);
    // Reads a tag's payload as stored to `buffer`, GetTagDataSize() bytes. 0; -1 no such entry; -2 seek
    // failed; -3 short.
    int ReadTag(int index, void* buffer);

    // Walks the file from its first tag. 0; -1 not open; -2 no header; -3 not such a file; -4 and -5 the walk
    // broke off; else ParseTag's code, at once.
    int ParseFile(RIFileCallback& callback) override;
    // Decodes one tag whose header has just been read and hands it over. See rawimage/read/callback.h for the
    // codes.
    int ParseTag(RIF_TAG& tag, RIFileCallback* callback);

  protected:
    PStream* stream = nullptr;
    PStream* ownStream = nullptr;
    int lastError = 0;
    bool writeMode = false;
    PList<INFOTAG> infoTags{100};
    MUtils::RIF_HEADER header;
    PMemStream memStream{1000};
    MUtils::ByteBuffer zipBuf;
    MUtils::ByteBuffer rawBuf;

    // Reads the file header at offset 0 into `header`; short or failed reads leave `complete` false and the
    // rest zero.
    int readHeader(bool& complete);
    // Reads a tag header; 0 bytes to 40 in `got`, what is missing is zero.
    int readTagHeader(RIF_TAG& tag, int& got);

  private:
    struct Blob;
    struct Record;
    struct Packing;

    static ErrorCode chained(ErrorCode cause, const char* operation, const char* message);

    PFileStream* makeOwnStream();
    ErrorCode openError(const char* operation, const char* fileName) const;
    ErrorCode writeTable();
    bool writeBareHeader(const RIF_TAG& tag);
    bool writeField(const void* bytes, int size);
    bool writeChannelRecord(const MUtils::RIF_CHANNEL& channel);
    ErrorCode writeBlob(const Blob& blob);
    ErrorCode writeRecord(const Record& record);
    ErrorCode writeValues(const char* operation, std::uint32_t id, int valueSize, const MBVTable& data,
                          const std::int32_t (&p)[8]);
    ErrorCode writeRegions(RegionFeed& feed, int channels);
    const std::vector<MUtils::ChannelTag>* nextRegion(RegionFeed& feed);
    MUtils::RegionPacker* startPacking(RegionFeed& feed, int channels);
    ErrorCode writeChannel(const MUtils::ChannelTag& channel, MUtils::RegionPacker* packer,
                           std::size_t index);
    const char* pack(const MUtils::ChannelTag& channel, MUtils::RegionPacker* packer, std::size_t index,
                     const unsigned char*& zipped, std::size_t& zippedSize);

    int loadTable(std::uint64_t offset);
    int readEntries(std::int64_t count);
    int dropTable(const RIF_TAG& table, long offset);
    int goToEnd(std::int64_t walked);
    int cutAt(long offset, bool& cut);
    int scanTags(int* channelMask);

    // After Append, until ReadInfoTags succeeds: the position is anywhere.
    bool mustListFirst_ = false;
    bool syncOnClose_ = true;
    std::unique_ptr<Packing> packing_;
    // Made by the first ParseTag, and released by the function that comes with it: the writer does not know
    // the decoder.
    std::unique_ptr<MUtils::TagDecoder, void (*)(MUtils::TagDecoder*)> decoder_{nullptr, nullptr};
};
