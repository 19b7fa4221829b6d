#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "rawimage/inspect/inspection.h"
#include "rawimage/inspect/tag_order.h"
#include "rawimage/tag_rules.h"
#include "support/pstream.h"

namespace MUtils {
inline namespace v1 {

// Lists the tags of a file that seems sound: by its table, without reading the headers that the table lists,
// or by the headers of a file without one. Gives up where anything is odd; an inspection judges it then. What
// it has listed may still be damaged in ways that only a comparison of table and headers, or of tags with
// each other, shows.
class QuickScan {
  public:
    using Progress = std::function<bool(std::int64_t done, std::int64_t total)>;

    // `stream` knows its length, and it and `progress`, which may be empty, outlive the object.
    QuickScan(PStream& stream, const Progress& progress) : stream_(stream), progress_(progress) {}

    // Lists all tags. False when anything is odd.
    bool run();
    // What an earlier scan has listed.
    struct Known {
        std::int64_t end = kFileHeaderBytes;  // of the last tag that is not the table
        std::int64_t tags = 0;
        std::int64_t pixelTags = 0;
        TagOrder order;
    };
    // Lists the tags behind the known ones. A table that is being written is not there yet. False when
    // anything is odd.
    bool resume(const Known& known);

    RIF_HEADER header;
    std::int64_t fileBytes = 0;
    std::uint64_t tableOffset = 0;  // of a finished file
    std::vector<INFOTAG> tags;      // in file order, without the table
    std::vector<INFOTAG> others;    // those of `tags` without pixels
    std::optional<TagGap> tornEnd;
    std::int64_t end = 0;  // of the last tag that is not the table
    TagOrder order;
    std::int64_t pixelTags = 0;  // of `tags`
    bool stopped = false;        // by progress: what is listed is not complete

    bool compressed() const { return (header.flags & RIF_COMPRESSED) != 0; }

  private:
    bool readHeader();
    bool takeTable(const Known* known);
    bool listByTable(const RIF_TAG& table);
    bool listHeaders(std::int64_t until);
    bool takeTableInWork(const RIF_TAG& tag);
    bool takeTornEnd(const RIF_TAG& tag, const char* fault);
    void addTornEnd(const RIF_TAG& tag, const char* fault);
    // What is wrong with the header of a tag at `end`, of which the file goes on until `until`; or null.
    const char* headerFault(const RIF_TAG& tag, std::int64_t until);
    bool take(const INFOTAG& tag);
    bool readTag(std::int64_t offset, RIF_TAG& tag);
    bool going();

    PStream& stream_;
    const Progress& progress_;
    TagRules rules_{false};
    // Headers without a fault and the payloads that they may have, by the lower bits of the channel: most
    // tags of a channel differ in place and size only.
    struct Checked {
        RIF_TAG tag;
        PayloadRange payload;
    };
    std::array<Checked, 64> checked_;
    bool resumes_ = false;
    bool hasTable_ = false;  // tags are those of the table, and what it omits
};

}  // namespace v1
}  // namespace MUtils
