#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <utility>

#include "rawimage/read/callback.h"
#include "rawimage/read/tag_decoder.h"
#include "rawimage/read/torn_tail.h"
#include "rawimage/table_entries.h"
#include "rawimage/writer.h"
#include "support/bytes.h"

using namespace MUtils;

ErrorCode RIFile::Open(const char* fileName, PStream* openStream) {
    delete std::exchange(ownStream, nullptr);
    lastError = 0;
    if (openStream != nullptr) {
        stream = openStream;
    } else {
        PFileStream* file = makeOwnStream();
        file->SetFile(fileName, PFileStream::kRead, 1, PFileStream::kOpenAlways);
        lastError = file->Open();
    }
    writeMode = false;
    mustListFirst_ = false;
    infoTags.Free();
    return openError("Open", fileName);
}

bool RIFile::isRIFile(const char* name) {
    std::FILE* file = mutils_fopen(name, "rb");
    if (file == nullptr) return false;
    unsigned char bytes[kFileHeaderBytes] = {};
    const bool whole = std::fread(bytes, kFileHeaderBytes, 1, file) == 1;
    std::fclose(file);
    return whole && MUtils::loadU32(bytes) == RIF_MAGIC;
}

int RIFile::SetStream(PStream* replacement) {
    stream = replacement;
    mustListFirst_ = false;
    return 0;
}

int RIFile::readHeader(bool& complete) {
    unsigned char bytes[kFileHeaderBytes] = {};
    int got = 0;
    int code = stream->Seek(0);
    if (code == 0) code = stream->Read(bytes, kFileHeaderBytes, got);
    complete = code == 0 && got == kFileHeaderBytes;
    header = complete ? decodeHeader(bytes) : RIF_HEADER();
    return code;
}

int RIFile::readTagHeader(RIF_TAG& tag, int& got) {
    unsigned char bytes[kTagHeaderBytes] = {};
    got = 0;
    const int code = stream->Read(bytes, kTagHeaderBytes, got);
    tag = decodeTag(bytes);
    return code;
}

int RIFile::ReadInfoTags(int* channelMask) {
    if (stream == nullptr) return -1;
    infoTags.SetEmpty();
    // Until it is known where the next tag belongs: a sound tag may be at the position.
    mustListFirst_ = writeMode;
    bool complete = false;
    if (const int code = readHeader(complete); code != 0) {
        stream->Close();
        return code;
    }
    if (header.magic != RIF_MAGIC) {
        stream->Close();
        return -2;
    }
    const int code = header.infoTagsOffset != 0 ? loadTable(header.infoTagsOffset) : scanTags(channelMask);
    if (code == 0) mustListFirst_ = false;
    return code;
}

// Lists entries from the position on, many at a time, up to `count` of them; those of a piece that cannot be
// read as a whole are left to read one by one. Returns how many it listed.
int RIFile::readEntries(std::int64_t count) {
    MUtils::TableEntries entries(*stream, stream->Tell(), count);
    int listed = 0;
    for (INFOTAG entry; entries.next(entry); ++listed)
        infoTags.Append(entry);
    if (entries.failed()) (void)stream->Seek(static_cast<long>(entries.nextOffset()));
    return listed;
}

// Does not touch the channel mask, which is a by-product of scanning only.
int RIFile::loadTable(std::uint64_t offset) {
    if (offset > LONG_MAX) return EINVAL;
    const long start = static_cast<long>(offset);
    if (const int code = stream->Seek(start); code != 0) return code;
    RIF_TAG table;
    int got = 0;
    if (const int code = readTagHeader(table, got); code != 0) return code;
    if (got != kTagHeaderBytes || table.id != TAG_INFO_TAGS) return -5;

    const std::int64_t length = stream->Length();
    const std::int64_t held =
        length >= 0 ? std::max<std::int64_t>(length - stream->Tell(), 0) / kInfoTagBytes + 1 : 0;
    const std::int64_t reserved = std::min<std::int64_t>(table.p1, held);
    if (reserved > infoTags.Capacity()) infoTags.Realloc(static_cast<int>(reserved));
    // Only of a file of our own is it known that it does not mind how it is read.
    int i = stream == ownStream ? readEntries(std::min<std::int64_t>(table.p1, held - 1)) : 0;
    for (; i < table.p1; ++i) {
        unsigned char bytes[kInfoTagBytes] = {};
        const int code = stream->Read(bytes, kInfoTagBytes, got);
        // The entry whose read failed is still listed, as far as it came: listings show where the table
        // breaks off.
        infoTags.Append(decodeInfoTag(bytes));
        if (code != 0 || got != kInfoTagBytes) break;
    }
    return writeMode ? dropTable(table, start) : 0;
}

// New tags overwrite the old table and Close writes a new one. Until then the header must not lead to what is
// no table any more: a render that dies now leaves a file like any other that was never closed. Where the
// table cannot be cut off, what is appended covers it, and the header leads to it until Close.
int RIFile::dropTable(const RIF_TAG& table, long offset) {
    std::int64_t end = 0;
    if (const int code = findEnd(*stream, offset, end); code != 0) return code;
    // An offset that is damaged may lead into a payload, or to a table that is not the last one.
    if (!isTableAtEnd(*stream, table, offset, end, MUtils::TagRules(header))) return -5;
    bool cut = false;
    if (const int code = cutAt(offset, cut); code != 0 || !cut) return code;
    const unsigned char noTable[8] = {};
    int written = 0;
    if (const int code = stream->Seek(kTableOffsetPosition); code != 0) return code;
    if (const int code = stream->Write(noTable, sizeof noTable, written); code != 0) return code;
    return written == static_cast<int>(sizeof noTable) ? stream->Seek(offset) : ENOSPC;
}

// Of a file of our own the reason is worth reporting; a stream of the caller's may be of a fixed size.
int RIFile::cutAt(long offset, bool& cut) {
    if (const int code = stream->Seek(offset); code != 0) return code;
    const int code = stream->Truncate();
    cut = code == 0;
    return cut ? 0 : stream == ownStream ? code : stream->Seek(offset);
}

// Behind a walk up to `walked`. What an interrupted render leaves at the end is half a tag. The next one goes
// over it: behind it, it would never be found. Everything else stays, and the next tag goes to the end.
int RIFile::goToEnd(std::int64_t walked) {
    const int count = infoTags.Count();
    const INFOTAG* tags = infoTags.GetBuf();
    const std::int64_t last = count > 0 ? static_cast<std::int64_t>(tags[count - 1].offset) : 0;
    std::int64_t end = 0;
    if (const int code = findEnd(*stream, count > 0 ? last + kTagHeaderBytes : kFileHeaderBytes, end);
        code != 0) {
        return code;
    }
    if (walked == end || !endsInTornTag(*stream, tags, count, end, MUtils::TagRules(header)))
        return stream->Seek(static_cast<long>(end));
    // Half a header is shorter than what goes over it.
    if (walked < end) return stream->Seek(static_cast<long>(walked));
    infoTags.DropLast();
    bool cut = false;
    return cutAt(static_cast<long>(last), cut);
}

int RIFile::scanTags(int* channelMask) {
    if (channelMask != nullptr) *channelMask = 0;
    std::int64_t offset = kFileHeaderBytes;
    for (;;) {
        RIF_TAG tag;
        int got = 0;
        const int code = readTagHeader(tag, got);
        if (code != 0 || got != kTagHeaderBytes) break;
        INFOTAG entry;
        static_cast<RIF_TAG&>(entry) = tag;
        entry.offset = static_cast<std::uint64_t>(offset);
        infoTags.Append(entry);
        // The words are ORed as they are, not as bit numbers: types 1, 2 and 4 give 7.
        if (channelMask != nullptr && isPixelTag(tag.id)) *channelMask |= tag.p1;
        if (tag.size < kTagHeaderBytes || stream->Skip(tag.payloadBytes()) != 0) {
            stream->Close();
            return -4;
        }
        offset += tag.size;
    }
    if (!stream->IsEOF()) {
        stream->Close();
        return -3;
    }
    return writeMode ? goToEnd(offset) : 0;
}

int RIFile::NumTags() {
    return infoTags.Count();
}

INFOTAG* RIFile::GetTag(int index) {
    return index >= 0 && index < infoTags.Count() ? infoTags.GetBuf() + index : nullptr;
}

int RIFile::GetTagDataSize(int index) {
    const INFOTAG* entry = GetTag(index);
    if (entry == nullptr) return -1;
    return static_cast<int>(std::min<std::int64_t>(entry->payloadBytes(), INT_MAX));
}

int RIFile::FindNextTag(unsigned int id, int start) {
    for (int i = std::max(start, 0); start >= 0 && i < infoTags.Count(); ++i) {
        if (infoTags.GetBuf()[i].id == id) return i;
    }
    return -1;
}

int RIFile::FindNextChanTag(int after) {
    if (after < -1) return -1;
    for (std::int64_t i = std::int64_t{after} + 1; i < infoTags.Count(); ++i) {
        if (isPixelTag(infoTags.GetBuf()[i].id)) return static_cast<int>(i);
    }
    return -1;
}

int RIFile::ReadTag(int index, void* buffer) {
    const INFOTAG* entry = GetTag(index);
    if (entry == nullptr) return -1;
    if (stream == nullptr || entry->offset > LONG_MAX - kTagHeaderBytes) return -2;
    if (stream->Seek(static_cast<long>(entry->offset) + kTagHeaderBytes) != 0) return -2;
    const std::int64_t size = entry->payloadBytes();
    if (size < 0 || size > INT_MAX) return -3;
    return readExactly(*stream, buffer, static_cast<int>(size)) ? 0 : -3;
}

int RIFile::ParseFile(RIFileCallback& callback) {
    if (stream == nullptr || !stream->IsOpen()) return -1;
    bool complete = false;
    if (readHeader(complete) != 0 || !complete) return -2;
    if (header.magic != RIF_MAGIC) return -3;
    for (;;) {
        RIF_TAG tag;
        int got = 0;
        if (readTagHeader(tag, got) != 0 || got != kTagHeaderBytes) return stream->IsEOF() ? 0 : -4;
        const std::int64_t payload = stream->Tell();
        if (const int code = ParseTag(tag, &callback); code != 0) return code;
        // Always to the end of the payload, whatever was read of it. A size below the header's own would go
        // backwards.
        if (tag.size < kTagHeaderBytes || stream->Seek(payload + tag.payloadBytes()) != 0) return -5;
    }
}

int RIFile::ParseTag(RIF_TAG& tag, RIFileCallback* callback) {
    if (decoder_ == nullptr)
        decoder_ = {new TagDecoder(zipBuf, rawBuf), [](TagDecoder* decoder) { delete decoder; }};
    return decoder_->decode(*stream, tag, (header.flags & RIF_COMPRESSED) != 0, *callback);
}
