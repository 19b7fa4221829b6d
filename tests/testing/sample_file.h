#pragma once

#include "rawimage/writer.h"
#include "tests/testing/bytes.h"
#include "tests/testing/collect.h"
#include "tests/testing/fault_stream.h"

namespace testing_tools {

struct SampleOptions {
    bool closed = true;
    bool compressed = true;
    bool metadata = true;
    int buckets = 2;  // side by side
    int bucketWidth = 5;
    int bucketHeight = 3;
    int blockBytes = 64;  // of the tables that are written: a bucket's values lie in several blocks
};

// A small file with every kind of tag and a channel of every type, and what a reader must make of it.
struct Sample {
    Bytes bytes;
    std::vector<std::int64_t> offsets;  // of each tag's header in file order, the table's too
    std::vector<Event> events;          // what a walk that takes everything delivers, parseTag aside

    int tagCount() const { return static_cast<int>(offsets.size()); }
    std::int64_t offset(int index) const { return offsets[static_cast<std::size_t>(index)]; }
    RIF_TAG tag(int index) const { return MUtils::decodeTag(bytes.data() + offset(index)); }
    // The first tag with that id, -1 when there is none.
    int find(std::uint32_t id) const;
    // How many of the events come from tags before `index`.
    std::ptrdiff_t eventsBefore(int index) const;
    // The events without those of the first tag with that id.
    std::vector<Event> eventsWithout(std::uint32_t id) const;
};

Sample makeSample(const SampleOptions& options = {});

// Writes one bucket with a channel of each of the types 1 to 6 and adds the events that it gives to `events`.
void writeBucket(RIFile& file, int bucket, const SampleOptions& options, std::vector<Event>& events);

// A reader over bytes that a test has spoiled, or a stream that it may spoil.
struct Reading {
    explicit Reading(const std::vector<unsigned char>& bytes) : stream(bytes) {
        stream.Open();
        (void)file.Open(nullptr, &stream);
    }
    int parse() { return file.ParseFile(seen); }
    int list() { return file.ReadInfoTags(&mask); }

    FaultStream stream;
    RIFile file;
    CollectCallback seen;
    int mask = -1;
};

}  // namespace testing_tools
