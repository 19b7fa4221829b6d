#pragma once

#include <functional>
#include <string>
#include <vector>

#include "bench/frame.h"

// What our code is held against: the shortest use of zlib and the system for the same job.

namespace bench {

// Runs work(i) for each i below `count` on `threads` threads, the calling one among them; each takes the next
// number that is left.
void onThreads(int threads, std::size_t count, const std::function<void(std::size_t i)>& work);

// A file that is open for reading. Several threads may use it.
class PlainFile {
  public:
    explicit PlainFile(const std::string& path);
    ~PlainFile();
    PlainFile(const PlainFile&) = delete;
    PlainFile& operator=(const PlainFile&) = delete;

    // One read; throws when it does not give everything.
    void read(void* bytes, std::size_t size, std::uint64_t offset) const;
    // Reads the payload of a pixel tag to `zipped` and uncompresses it to `values`, which ends up as long as
    // the values are. Both keep their memory.
    void inflate(const INFOTAG& tag, Bytes& zipped, Bytes& values) const;
    // The plain side of a read: the payloads of these tags, uncompressed and dropped.
    void inflateAll(const std::vector<INFOTAG>& tags, int threads) const;

  private:
    int descriptor_;
};

// Gathers each channel of each bucket of a frame to one buffer and compresses it, in the order in which they
// come in a file. The results are kept in buffers that are there from the start.
class PlainPacking {
  public:
    explicit PlainPacking(const Frame& frame);
    void run(int threads, int level);

    struct Item {
        const MBVTable* values;
        Bytes zipped;
        std::size_t size = 0;
    };
    const std::vector<Item>& items() const { return items_; }

  private:
    std::vector<Item> items_;
};

}  // namespace bench
