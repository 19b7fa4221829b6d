#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace MUtils {
inline namespace v1 {

// An XXH3 hash of 128 bits, most significant byte first.
struct Digest {
    static constexpr std::size_t kBytes = 16;
    std::array<unsigned char, kBytes> bytes{};

    // 32 lower-case hexadecimal digits.
    std::string text() const;
};

// The digest of bytes that are in one place. `data` may be null when `size` is 0.
Digest digestOf(const unsigned char* data, std::size_t size);

// The digest of bytes that come in pieces. Numbers are added as they are stored: little-endian.
class Digester {
  public:
    Digester();
    ~Digester();
    Digester(Digester&& other) noexcept;
    Digester& operator=(Digester&& other) noexcept;

    void add(const unsigned char* data, std::size_t size);
    void add(const Digest& digest) { add(digest.bytes.data(), digest.bytes.size()); }
    void addI32(std::int32_t value);
    void addU32(std::uint32_t value);
    void addU64(std::uint64_t value);
    // The length, as u32, and the letters.
    void addText(const std::string& text);
    // Of all bytes so far.
    Digest result() const;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace v1
}  // namespace MUtils
