#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace testing_tools {

// A file in memory with a name, for what takes names: no disk to wait for. May be filled again and again.
class MemoryFile {
  public:
    MemoryFile() : descriptor_(::memfd_create("rawimage", MFD_CLOEXEC)) {
        if (descriptor_ < 0) throw std::runtime_error("no file in memory");
        path_ = "/proc/self/fd/" + std::to_string(descriptor_);
    }
    ~MemoryFile() { ::close(descriptor_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    const char* path() const { return path_.c_str(); }
    int descriptor() const { return descriptor_; }

    void fill(const unsigned char* data, std::size_t size) {
        const auto expected = static_cast<ssize_t>(size);
        if (::ftruncate(descriptor_, 0) != 0 || ::pwrite(descriptor_, data, size, 0) != expected)
            throw std::runtime_error("no room in memory");
    }
    void fill(const std::vector<unsigned char>& bytes) { fill(bytes.data(), bytes.size()); }
    std::vector<unsigned char> bytes() const {
        std::vector<unsigned char> all(static_cast<std::size_t>(::lseek(descriptor_, 0, SEEK_END)));
        if (::pread(descriptor_, all.data(), all.size(), 0) != static_cast<ssize_t>(all.size()))
            throw std::runtime_error("no bytes from memory");
        return all;
    }

  private:
    int descriptor_;
    std::string path_;
};

}  // namespace testing_tools
