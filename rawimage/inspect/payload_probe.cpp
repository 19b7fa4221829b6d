#include "rawimage/inspect/payload_probe.h"

#include <algorithm>

#include "rawimage/inspect/payload_pool.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::int64_t kBudgetPerByte = 64;
constexpr std::int64_t kLeastBudget = 1 << 25;

}  // namespace

PayloadProbe::PayloadProbe(PStream& stream, std::int64_t fileBytes, const TagRules& rules)
    : stream_(stream),
      fileBytes_(fileBytes),
      rules_(rules),
      check_(rules),
      budget_(std::min(fileBytes, INT64_MAX / (2 * kBudgetPerByte)) * kBudgetPerByte + kLeastBudget) {}

bool PayloadProbe::agrees(const RIF_TAG& tag, std::int64_t offset) {
    if (rules_.headerFault(tag, offset, fileBytes_) != nullptr) return false;
    if (!PayloadCheck::looksAt(tag, rules_)) return true;
    budget_ -= tag.size;
    if (budget_ < 0 || !readPayloadAt(stream_, offset + kTagHeaderBytes, tag.payloadBytes(), bytes_))
        return false;
    const std::int64_t before = check_.inflated();
    const char* fault = check_.fault(tag, bytes_.data(), static_cast<std::size_t>(tag.payloadBytes()));
    budget_ -= check_.inflated() - before;
    return fault == nullptr || fault == PayloadCheck::kBytesBehindPixels;
}

bool PayloadProbe::readHeader(std::int64_t offset, RIF_TAG& tag) {
    if (!readPayloadAt(stream_, offset, kTagHeaderBytes, bytes_)) return false;
    tag = decodeTag(bytes_.data());
    return true;
}

}  // namespace v1
}  // namespace MUtils
