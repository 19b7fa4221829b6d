#include "support/digest.h"

// All of the library's code is in its header, so that nothing has to be linked.
#define XXH_INLINE_ALL
#include <xxhash.h>

#include <algorithm>

#include "support/bytes.h"

namespace MUtils {
inline namespace v1 {

namespace {

Digest canonical(XXH128_hash_t hash) {
    XXH128_canonical_t form;
    XXH128_canonicalFromHash(&form, hash);
    Digest digest;
    static_assert(sizeof form.digest == Digest::kBytes, "as many bytes");
    std::copy(form.digest, form.digest + Digest::kBytes, digest.bytes.begin());
    return digest;
}

}  // namespace

std::string Digest::text() const {
    constexpr const char* kDigits = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

Digest digestOf(const unsigned char* data, std::size_t size) {
    return canonical(XXH3_128bits(data, size));
}

struct Digester::State {
    XXH3_state_t xxh;
};

Digester::Digester() : state_(std::make_unique<State>()) {
    XXH3_INITSTATE(&state_->xxh);
    XXH3_128bits_reset(&state_->xxh);
}

Digester::~Digester() = default;
Digester::Digester(Digester&& other) noexcept = default;
Digester& Digester::operator=(Digester&& other) noexcept = default;

void Digester::add(const unsigned char* data, std::size_t size) {
    if (size > 0) XXH3_128bits_update(&state_->xxh, data, size);
}

void Digester::addI32(std::int32_t value) {
    addU32(static_cast<std::uint32_t>(value));
}

void Digester::addU32(std::uint32_t value) {
    unsigned char bytes[4];
    storeU32(bytes, value);
    add(bytes, sizeof bytes);
}

void Digester::addU64(std::uint64_t value) {
    unsigned char bytes[8];
    storeU64(bytes, value);
    add(bytes, sizeof bytes);
}

void Digester::addText(const std::string& text) {
    addU32(static_cast<std::uint32_t>(text.size()));
    add(reinterpret_cast<const unsigned char*>(text.data()), text.size());
}

Digest Digester::result() const {
    return canonical(XXH3_128bits_digest(&state_->xxh));
}

}  // namespace v1
}  // namespace MUtils
