#include "rawimage/inspect/cross_check.h"

#include <algorithm>

#include "rawimage/inspect/channel_check.h"
#include "rawimage/inspect/fault_list.h"
#include "rawimage/inspect/gap_list.h"
#include "rawimage/inspect/payload_probe.h"
#include "rawimage/inspect/table_check.h"

namespace MUtils {

void crossCheck(PStream& stream, TagScan& scan) {
    PayloadProbe probe(stream, scan.fileBytes, rulesOf(scan));
    FaultList faults(scan);
    TableCheck table(stream, scan, probe, faults);
    table.run();
    std::vector<const char*> dropped(scan.tags.size(), nullptr);
    checkChannels(stream, scan.tags, table.confirmed(), dropped);
    dropTags(scan, dropped);
    std::sort(scan.repairs.begin(), scan.repairs.end(),
              [](const TagScan::Repair& a, const TagScan::Repair& b) { return a.offset < b.offset; });
    std::sort(scan.doubted.begin(), scan.doubted.end());
}

}  // namespace MUtils
