#include "rawimage/writer.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <utility>

#include "rawimage/open_error.h"
#include "rawimage/packing.h"
#include "rawimage/table_entries.h"
#include "support/bytes.h"
#include "support/scratch_buffer.h"

using namespace MUtils;

RIFileBase::~RIFileBase() = default;

ErrorCode RIFileBase::WTRegions(RegionFeed& feed) {
    for (RegionFeed::Call call; feed.next(true, call); feed.written()) {
        if (ErrorCode error = WTRegion(call.region, call.a, call.b, call.c); !error.empty()) return error;
    }
    return {};
}

// What is written reaches the kernel at once, unless a writer says otherwise.
ErrorCode RIFileBase::flush() {
    return {};
}

RIFile::RIFile() : packing_(std::make_unique<Packing>()) {
    memStream.Open();
}

RIFile::~RIFile() {
    delete ownStream;
    memStream.Close();
}

PFileStream* RIFile::makeOwnStream() {
    auto* file = new PFileStream;
    stream = ownStream = file;
    return file;
}

// What `lastError` means after opening. "creating" is meant: one message for creating and opening.
ErrorCode RIFile::openError(const char* operation, const char* fileName) const {
    if (lastError == 0) return {};
    ErrorCode error(operation, lastError, "Error creating file \"%s\" (%i)",
                    fileName != nullptr ? fileName : "", lastError);
    error.setCause(openCause(lastError));
    return error;
}

ErrorCode RIFile::Create(const char* fileName, PStream* createStream) {
    delete std::exchange(ownStream, nullptr);
    lastError = 0;
    if (createStream != nullptr) {
        stream = createStream;
    } else {
        lastError = makeOwnStream()->Create(fileName, 0);
    }
    writeMode = true;
    mustListFirst_ = false;
    infoTags.Free();
    return openError("Create", fileName);
}

ErrorCode RIFile::Append(const char* fileName, PStream* appendStream) {
    delete std::exchange(ownStream, nullptr);
    if (appendStream != nullptr) {
        stream = appendStream;
    } else {
        makeOwnStream()->SetFile(fileName, PFileStream::kReadWrite, 1, PFileStream::kOpenAlways);
    }
    lastError = stream->Open();
    writeMode = true;
    mustListFirst_ = true;
    return openError("Append", fileName);
}

ErrorCode RIFile::Close() {
    if (stream == nullptr) {
        infoTags.Free();
        return ErrorCode("Close", -1, "No file stream.\n");
    }
    ErrorCode result;
    if (stream->IsOpen()) {
        if (writeMode && !mustListFirst_) result = writeTable();
        if (stream->Close() != 0) {
            ErrorCode closing("Close", -1, "Error closing stream.");
            result.setCause(std::move(closing));
        }
    }
    stream = nullptr;
    infoTags.Free();
    return result;
}

int RIFile::fileError() const {
    const auto* file = dynamic_cast<const PFileStream*>(ownStream);
    return file != nullptr ? file->writeError() : 0;
}

// The tags written so far, as the last tag; then, where the file header keeps it, where that tag begins.
ErrorCode RIFile::writeTable() {
    const std::int64_t position = stream->Tell();
    const int entries = infoTags.Count();
    const std::int64_t size = std::int64_t{entries} * kInfoTagBytes;
    if (size > INT_MAX - kTagHeaderBytes || !reserveTablePiece(rawBuf, entries))
        return ErrorCode("Close", -1, "Error writing info tags buffer.");
    if (ErrorCode error = WriteTagHeader(TAG_INFO_TAGS, static_cast<int>(size), entries); !error.empty())
        return error;
    // Streams of the caller's are the caller's to make safe.
    const bool sync = syncOnClose_ && stream == ownStream;
    if (const char* failure = finishTable(*stream, position, infoTags.GetBuf(), entries, sync, rawBuf))
        return ErrorCode("Close", -1, "%s", failure);
    return {};
}

ErrorCode RIFile::WriteHeader(int /*bitsPerChannel*/) {
    if (stream == nullptr) return ErrorCode("WriteHeader", -1, "No file stream");
    if (mustListFirst_) return ErrorCode("WriteHeader", -1, "Error writing header.");
    header = RIF_HEADER();
    header.magic = RIF_MAGIC;
    header.formatFirst = RIF_FORMAT_FIRST;
    header.formatSecond = RIF_FORMAT_SECOND;
    header.flags = RIF_COMPRESSED;
    unsigned char bytes[kFileHeaderBytes];
    encodeHeader(header, bytes);
    int written = 0;
    // The reverse of the other checks, deliberately: an error that reports nothing written passes, and Close
    // reports it.
    if (stream->Write(bytes, kFileHeaderBytes, written) == 0 && written < kFileHeaderBytes) {
        return ErrorCode("WriteHeader", -1, "Error writing header.");
    }
    return {};
}

ErrorCode RIFile::WriteTagHeader(int id, int payloadSize, int p1, int p2, int p3, int p4, int p5, int p6,
                                 int p7, int p8) {
    if (stream == nullptr) return ErrorCode("WriteTagHeader", -1, "No file stream");
    // A size below the header's own could not be walked over.
    if (payloadSize < 0) return ErrorCode("WriteTagHeader", -1, "Error writing tag header.");
    INFOTAG entry;
    entry.id = static_cast<std::uint32_t>(id);
    entry.size = static_cast<std::uint32_t>(payloadSize) + kTagHeaderBytes;
    entry.p1 = p1;
    entry.p2 = p2;
    entry.p3 = p3;
    entry.p4 = p4;
    entry.p5 = p5;
    entry.p6 = p6;
    entry.p7 = p7;
    entry.p8 = p8;
    entry.offset = static_cast<std::uint64_t>(stream->Tell());
    if (!infoTags.PrepareAppend() || !writeBareHeader(entry))
        return ErrorCode("WriteTagHeader", -1, "Error writing tag header.");
    infoTags.Append(entry);
    return {};
}

// A header without an entry in the table. A count of 40 is success, whatever Write returns, and so is a short
// count without an error, deliberately.
bool RIFile::writeBareHeader(const RIF_TAG& tag) {
    if (mustListFirst_) return false;
    unsigned char bytes[kTagHeaderBytes];
    encodeTag(tag, bytes);
    int written = 0;
    return stream->Write(bytes, kTagHeaderBytes, written) == 0 || written == kTagHeaderBytes;
}

ErrorCode RIFile::WTResolution(int width, int height, float pixelAspect) {
    return WriteTagHeader(TAG_RESOLUTION, 0, width, height,
                          static_cast<std::int32_t>(bitsFromFloat(pixelAspect)));
}

ErrorCode RIFile::WTRegionsInfo(int bucketWidth, int bucketHeight, int variableSize) {
    return WriteTagHeader(TAG_REGIONS_INFO, 0, bucketWidth, bucketHeight, variableSize);
}

// Meant for the records below, as for their tag headers: only an error with the wrong count is a failure.
bool RIFile::writeField(const void* bytes, int size) {
    int written = 0;
    return stream->Write(bytes, size, written) == 0 || written == size;
}

ErrorCode RIFile::WTChannelInfo(MRRegionData* region) {
    constexpr const char* kName = "WTChannelInfo";
    if (stream == nullptr) return ErrorCode(kName, -1, "No file stream");
    if (region == nullptr) return ErrorCode(kName, -1, "No region data.");
    const int channels = region->numChannels();
    const std::int64_t size = std::int64_t{channels} * kChannelRecordBytes;
    if (size < 0 || size > INT_MAX - kTagHeaderBytes)
        return ErrorCode(kName, -1, "Error writing tag header.");
    ErrorCode headerError =
        WriteTagHeader(TAG_CHANNEL_INFO, static_cast<int>(size), channels, kChannelRecordBytes);
    if (!headerError.empty()) return chained(std::move(headerError), kName, "Error writing tag header.");
    for (int i = 0; i < channels; ++i) {
        // The payload has a record for each channel that was announced, also past the region's table.
        RIF_CHANNEL channel = makeChannel(i, RCT_NONE, RCA_NONE, 0, nullptr);
        if (i < region->channels.Count()) {
            const RegionChannel& source = region->channels[i];
            channel = makeChannel(i, source.type, source.alias, source.flags, source.name);
        }
        if (!writeChannelRecord(channel))
            return ErrorCode(kName, -1, "Error writing info for channel %i.", i);
    }
    return {};
}

// Leaves no entry in the table, deliberately; readers find this tag by walking.
ErrorCode RIFile::WTChannelInfo(MUtils::Table<MUtils::RegionChannelCallback*, 100>* channels) {
    constexpr const char* kName = "WTChannelInfo";
    if (stream == nullptr) return ErrorCode(kName, -1, "No file stream");
    if (channels == nullptr) return ErrorCode(kName, -1, "No channel list.");
    const int count = channels->Count();
    const std::int64_t size = std::int64_t{count} * kChannelRecordBytes;
    if (size > INT_MAX - kTagHeaderBytes) return ErrorCode(kName, -1, "Error writing tag header.");
    RIF_TAG tag;
    tag.id = TAG_CHANNEL_INFO;
    tag.size = static_cast<std::uint32_t>(size) + kTagHeaderBytes;
    tag.p1 = count;
    tag.p2 = kChannelRecordBytes;
    if (!writeBareHeader(tag)) return ErrorCode(kName, -1, "Error writing tag header.");
    for (int i = 0; i < count; ++i) {
        RIF_CHANNEL channel = makeChannel(i, RCT_NONE, RCA_NONE, 0, nullptr);
        if (RegionChannelCallback* source = (*channels)[i]; source != nullptr) {
            // Asked one by one: a description may count on the order.
            const RegionChannelType type = source->getType();
            const RegionChannelAlias alias = source->getAlias();
            const int flags = source->getFlags();
            channel = makeChannel(i, type, alias, flags, source->getName());
        }
        if (!writeChannelRecord(channel)) return ErrorCode(kName, -1, "Error writing channel %i", i);
    }
    return {};
}

bool RIFile::writeChannelRecord(const RIF_CHANNEL& channel) {
    unsigned char bytes[kChannelRecordBytes];
    encodeChannel(channel, bytes);
    return writeField(bytes, kChannelRecordBytes);
}

ErrorCode RIFile::chained(ErrorCode cause, const char* operation, const char* message) {
    ErrorCode error(operation, -1, "%s", message);
    error.setCause(std::move(cause));
    return error;
}

ErrorCode RIFile::WTExtraAttributes(const char* /*text*/) {
    return {};
}
