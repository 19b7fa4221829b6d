#include "bench/plain.h"

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <atomic>
#include <exception>
#include <thread>

#include "bench/harness.h"

namespace bench {

void onThreads(int threads, std::size_t count, const std::function<void(std::size_t i)>& work) {
    std::atomic<std::size_t> next{0};
    std::atomic<bool> failed{false};
    const auto run = [&] {
        try {
            for (std::size_t i = next++; i < count; i = next++)
                work(i);
        } catch (const std::exception&) {
            failed = true;
        }
    };
    std::vector<std::thread> others;
    for (int i = 1; i < threads; ++i)
        others.emplace_back(run);
    run();
    for (std::thread& thread : others)
        thread.join();
    require(!failed, "a plain loop failed");
}

PlainFile::PlainFile(const std::string& path) : descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    require(descriptor_ >= 0, "cannot open a file");
}

PlainFile::~PlainFile() {
    close(descriptor_);
}

void PlainFile::read(void* bytes, std::size_t size, std::uint64_t offset) const {
    require(pread(descriptor_, bytes, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size),
            "a plain read came back short");
}

void PlainFile::inflate(const INFOTAG& tag, Bytes& zipped, Bytes& values) const {
    const auto size = static_cast<std::size_t>(tag.payloadBytes());
    if (zipped.size() < size) zipped.resize(size);
    values.resize(static_cast<std::size_t>(tag.p4) * static_cast<std::size_t>(tag.p5) *
                  static_cast<std::size_t>(MUtils::findPixelKind(tag.id)->valueSize));
    read(zipped.data(), size, tag.offset + MUtils::kTagHeaderBytes);
    uLongf length = static_cast<uLongf>(values.size());
    require(uncompress(values.data(), &length, zipped.data(), static_cast<uLong>(size)) == Z_OK &&
                length == values.size(),
            "a payload cannot be uncompressed");
}

void PlainFile::inflateAll(const std::vector<INFOTAG>& tags, int threads) const {
    onThreads(threads, tags.size(), [&](std::size_t i) {
        thread_local Bytes zipped, values;
        inflate(tags[i], zipped, values);
    });
}

PlainPacking::PlainPacking(const Frame& frame) {
    for (const Bucket& bucket : frame.buckets) {
        for (std::size_t c = bucket.values.size(); c-- > 0;) {
            const MBVTable& values = *bucket.values[c];
            const auto raw =
                static_cast<std::size_t>(values.count) * static_cast<std::size_t>(values.itemSize);
            items_.push_back({&values, Bytes(compressBound(static_cast<uLong>(raw))), 0});
        }
    }
}

void PlainPacking::run(int threads, int level) {
    onThreads(threads, items_.size(), [this, level](std::size_t i) {
        thread_local Bytes gathered;
        Item& item = items_[i];
        gathered.resize(static_cast<std::size_t>(item.values->count) *
                        static_cast<std::size_t>(item.values->itemSize));
        item.values->storeToBuffer(gathered.data(), 0, item.values->count);
        uLongf length = static_cast<uLongf>(item.zipped.size());
        require(compress2(item.zipped.data(), &length, gathered.data(), static_cast<uLong>(gathered.size()),
                          level) == Z_OK,
                "compress2 failed");
        item.size = length;
    });
}

}  // namespace bench
