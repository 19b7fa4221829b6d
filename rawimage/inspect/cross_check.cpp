#include "rawimage/inspect/cross_check.h"

#include <algorithm>

#include "rawimage/inspect/channel_check.h"
#include "rawimage/inspect/channel_order.h"
#include "rawimage/inspect/fault_list.h"
#include "rawimage/inspect/foreign_end.h"
#include "rawimage/inspect/gap_list.h"
#include "rawimage/inspect/payload_probe.h"
#include "rawimage/inspect/place_check.h"
#include "rawimage/inspect/table_check.h"

namespace MUtils {
inline namespace v1 {

namespace {

// Drops what contradicts the channel list, also from `confirmed`, which has an entry for each tag.
void checkChannelList(PStream& stream, TagScan& scan, std::vector<bool>& confirmed) {
    std::vector<const char*> dropped(scan.tags.size(), nullptr);
    checkChannels(stream, scan.tags, confirmed, dropped);
    std::size_t kept = 0;
    for (std::size_t i = 0; i < dropped.size(); ++i) {
        if (dropped[i] == nullptr) confirmed[kept++] = confirmed[i];
    }
    confirmed.resize(kept);
    dropTags(scan, dropped);
}

// Puts repairs and doubts into their order; a tag that was repaired is not in doubt.
void sortByOffset(TagScan& scan) {
    std::vector<TagScan::Repair>& repairs = scan.repairs;
    std::vector<std::int64_t>& doubted = scan.doubted;
    std::sort(repairs.begin(), repairs.end(),
              [](const TagScan::Repair& a, const TagScan::Repair& b) { return a.offset < b.offset; });
    std::sort(doubted.begin(), doubted.end());
    const auto isRepaired = [&repairs](std::int64_t offset) {
        const auto at = std::lower_bound(
            repairs.begin(), repairs.end(), offset,
            [](const TagScan::Repair& repair, std::int64_t from) { return repair.offset < from; });
        return at != repairs.end() && at->offset == offset;
    };
    doubted.erase(std::unique(doubted.begin(), doubted.end()), doubted.end());
    doubted.erase(std::remove_if(doubted.begin(), doubted.end(), isRepaired), doubted.end());
}

}  // namespace

void crossCheck(PStream& stream, TagScan& scan) {
    PayloadProbe probe(stream, scan.fileBytes, rulesOf(scan));
    FaultList faults(scan);
    TableCheck table(stream, scan, probe, faults);
    if (!table.run()) doubtForeignEnd(stream, scan);
    std::vector<bool> confirmed = table.confirmed();
    repairChannelOrder(stream, scan, confirmed);
    checkChannelList(stream, scan, confirmed);
    PlaceCheck(stream, scan, confirmed, probe).run();
    sortByOffset(scan);
}

}  // namespace v1
}  // namespace MUtils
