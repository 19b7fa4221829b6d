#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

namespace testing_tools {

// Builds the bytes that a test expects, field by field and without the code under test. Little-endian, as the
// host is.
class Bytes : public std::vector<unsigned char> {
  public:
    Bytes& raw(const void* data, std::size_t size) {
        const auto* from = static_cast<const unsigned char*>(data);
        insert(end(), from, from + size);
        return *this;
    }
    Bytes& u32(std::uint32_t value) { return raw(&value, 4); }
    Bytes& u64(std::uint64_t value) { return raw(&value, 8); }
    Bytes& f32(float value) { return raw(&value, 4); }
    Bytes& i32s(std::initializer_list<std::int32_t> values) { return raw(values.begin(), values.size() * 4); }
    Bytes& text(const std::string& text) { return raw(text.data(), text.size()); }
    Bytes& zeros(std::size_t count) {
        insert(end(), count, 0);
        return *this;
    }
    // A tag header; parameters that are not given are 0.
    Bytes& tag(std::uint32_t id, std::uint32_t payload, std::initializer_list<std::int32_t> parameters = {}) {
        return u32(id).u32(40 + payload).i32s(parameters).zeros(32 - 4 * parameters.size());
    }
    Bytes& fileHeader(std::uint64_t tableOffset) {
        return text("RIMG").i32s({1, 3}).u64(tableOffset).u32(1).zeros(8);
    }
};

// "" when both are equal, else where they part.
inline std::string difference(const std::vector<unsigned char>& actual,
                              const std::vector<unsigned char>& expected) {
    const std::string sizes = std::to_string(actual.size()) + " bytes for " + std::to_string(expected.size());
    for (std::size_t i = 0; i < actual.size() && i < expected.size(); ++i) {
        if (actual[i] == expected[i]) continue;
        return "byte " + std::to_string(i) + " is " + std::to_string(actual[i]) + ", not " +
               std::to_string(expected[i]) + "; " + sizes;
    }
    return actual.size() == expected.size() ? "" : sizes;
}

}  // namespace testing_tools
