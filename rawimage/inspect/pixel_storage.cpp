#include "rawimage/inspect/pixel_storage.h"

#include <utility>

namespace MUtils {
inline namespace v1 {

namespace {

bool isSoundUnder(TagSearch& search, const RIF_TAG& tag, std::int64_t offset, std::int64_t fileBytes) {
    return search.rules().headerFault(tag, offset, fileBytes) == nullptr &&
           search.payloadFault(tag, offset) == nullptr;
}

}  // namespace

PixelStorage::PixelStorage(PStream& stream, const TagScan& scan, const InspectOptions& options)
    : scan_(scan),
      stated_(stream, scan, options, TagRules(scan.header)),
      opposite_(stream, scan, options, TagRules(!stated_.rules().compressed())) {}

// The first sound tag before `end` under either assumption; what is believed where they agree.
PixelStorage::Found PixelStorage::findEither(std::int64_t from, std::int64_t end) {
    Found first{end, believed_};
    for (TagSearch* search : {believed_, doubted_}) {
        const std::int64_t found = search->findTag(from, first.offset, scan_.fileBytes);
        if (found < first.offset) first = {found, search};
    }
    return first;
}

std::int64_t PixelStorage::findFirstTag(std::int64_t end) {
    const Found first = findEither(kFileHeaderBytes, end);
    if (first.by != believed_) std::swap(believed_, doubted_);
    return first.offset;
}

// When none of the first pixel tags agrees with the flag, and all that can be reached are what it denies,
// the flag is wrong. In a sound file the first one settles it.
bool PixelStorage::deniedByTags(std::int64_t first) {
    constexpr int kTagsAsked = 16;
    constexpr int kTagsPassed = 1000;
    constexpr int kTimesAstray = 4;
    int asked = 0;
    int denied = 0;
    int astray = 0;
    std::int64_t offset = first;
    for (int i = 0; i < kTagsPassed && asked < kTagsAsked && offset < scan_.fileBytes; ++i) {
        const TagSearch::Place place = believed_->look(offset, scan_.fileBytes);
        bool leadsOn = believed_->isTagOrEnd(place, offset);
        if (place.whole && isPixelTag(place.tag.id)) {
            ++asked;
            // Most tags settle it by their size alone.
            const bool mayDeny = doubted_->rules().headerFault(place.tag, offset, scan_.fileBytes) == nullptr;
            const bool right = mayDeny ? isSoundUnder(*believed_, place.tag, offset, scan_.fileBytes)
                                       : place.fault == nullptr;
            if (!right && mayDeny)
                denied += isSoundUnder(*doubted_, place.tag, offset, scan_.fileBytes) ? 1 : 0;
            // A stream that inflates as it should settles it, too, whatever the size field is.
            if (right ||
                (believed_->rules().compressed() && mayDeny && believed_->hasWholePayload(place.tag, offset)))
                return false;
            leadsOn = leadsOn || mayDeny;
        }
        if (!leadsOn && ++astray > kTimesAstray) break;
        offset = leadsOn ? offset + place.tag.size : findEither(offset + 1, scan_.fileBytes).offset;
    }
    // One tag alone that denies the flag may be the one that is damaged: its size leads astray.
    if (denied == 0 || (astray > 0 && denied < 2)) return false;
    std::swap(believed_, doubted_);
    return true;
}

}  // namespace v1
}  // namespace MUtils
