#include "rawimage/inspect/cross_check.h"

#include <algorithm>
#include <set>

#include "rawimage/inspect/channel_check.h"
#include "rawimage/inspect/header_evidence.h"
#include "rawimage/table_entries.h"
#include "support/bytes.h"

namespace MUtils {

namespace {

bool sameHeader(const RIF_TAG& a, const RIF_TAG& b) {
    return a.id == b.id && a.size == b.size && a.p1 == b.p1 && a.p2 == b.p2 && a.p3 == b.p3 && a.p4 == b.p4 &&
           a.p5 == b.p5 && a.p6 == b.p6 && a.p7 == b.p7 && a.p8 == b.p8;
}

class CrossCheck {
  public:
    CrossCheck(PStream& stream, TagScan& scan)
        : stream_(stream), scan_(scan), proven_(scan.tags.size()), dropped_(scan.tags.size(), nullptr) {}

    void run();

  private:
    // A table entry that is not the header of the tag it leads to.
    struct Difference {
        std::size_t tag;
        RIF_TAG entry;
        std::int64_t entryOffset;
    };

    bool findTable();
    void checkOffset(std::uint64_t stored, bool tableEnds);
    void readTable();
    void matchEntry(const INFOTAG& entry, std::int64_t entryOffset);
    void settleDifferences();
    void checkUnlisted();
    bool isMisplaced(const RIF_TAG& tag) const;
    bool inGap(std::uint64_t offset) const;
    bool room() const { return scan_.faults.size() < TagScan::kMaxFaults; }
    void addFault(std::int64_t offset, std::string cause, const RIF_TAG& tag = {});
    void dropTags();

    PStream& stream_;
    TagScan& scan_;
    // By tag: its table entry says the same; some entry leads to it; why it is dropped, or null.
    std::vector<bool> proven_;
    std::vector<bool> listed_;
    std::vector<const char*> dropped_;
    std::vector<Difference> differences_;
    bool tableDoubted_ = false;  // entries lead to no tag, or twice to one
};

void CrossCheck::run() {
    const bool hasTable = findTable();
    if (hasTable) readTable();
    checkChannels(stream_, scan_.tags, proven_, dropped_);
    if (!differences_.empty()) settleDifferences();
    if (hasTable) checkUnlisted();
    dropTags();
}

void CrossCheck::addFault(std::int64_t offset, std::string cause, const RIF_TAG& tag) {
    if (room()) {
        scan_.faults.push_back({offset, std::move(cause), tag});
    } else {
        ++scan_.furtherFaults;
    }
}

bool CrossCheck::findTable() {
    const std::uint64_t stored = scan_.header.infoTagsOffset;
    if (stored == 0) return false;
    const bool tableEnds =
        !scan_.tags.empty() && scan_.tags.back().id == TAG_INFO_TAGS &&
        scan_.tags.back().offset + scan_.tags.back().size == static_cast<std::uint64_t>(scan_.fileBytes);
    if (tableEnds && scan_.tags.back().offset == stored) {
        scan_.tableOffset = stored;
        return true;
    }
    checkOffset(stored, tableEnds);
    return false;
}

// A tag where the table was: tags were appended, and nobody closed the file. An offset past the end: the file
// was cut.
void CrossCheck::checkOffset(std::uint64_t stored, bool tableEnds) {
    const auto at = std::lower_bound(scan_.tags.begin(), scan_.tags.end(), stored,
                                     [](const INFOTAG& tag, std::uint64_t to) { return tag.offset < to; });
    const bool leadsToTag = at != scan_.tags.end() && at->offset == stored;
    const std::string leads = "the table offset leads to " + std::to_string(stored);
    if (tableEnds) {
        addFault(kTableOffsetPosition,
                 leads + ", the table is at " + std::to_string(scan_.tags.back().offset));
    } else if (!leadsToTag && !inGap(stored) && stored < static_cast<std::uint64_t>(scan_.fileBytes)) {
        addFault(kTableOffsetPosition, leads + ", where no tag begins");
    }
}

bool CrossCheck::inGap(std::uint64_t offset) const {
    const auto position = static_cast<std::int64_t>(std::min<std::uint64_t>(offset, INT64_MAX));
    const auto after = std::upper_bound(scan_.gaps.begin(), scan_.gaps.end(), position,
                                        [](std::int64_t at, const TagGap& gap) { return at < gap.offset; });
    return after != scan_.gaps.begin() && position < (after - 1)->end;
}

void CrossCheck::readTable() {
    listed_.resize(scan_.tags.size());
    const INFOTAG& table = scan_.tags.back();
    TableEntries entries(stream_, static_cast<std::int64_t>(table.offset) + kTagHeaderBytes, table.p1);
    for (INFOTAG entry; entries.next(entry);)
        matchEntry(entry, entries.entryOffset());
    if (entries.failed()) addFault(entries.nextOffset(), "the table cannot be read");
}

void CrossCheck::matchEntry(const INFOTAG& entry, std::int64_t entryOffset) {
    const auto end = scan_.tags.end() - 1;  // the table does not list itself
    const auto at =
        std::lower_bound(scan_.tags.begin(), end, entry.offset,
                         [](const INFOTAG& tag, std::uint64_t offset) { return tag.offset < offset; });
    if (at == end || at->offset != entry.offset) {
        if (inGap(entry.offset)) return;
        addFault(entryOffset, "a table entry leads to no tag", entry);
        tableDoubted_ = true;
        return;
    }
    const auto index = static_cast<std::size_t>(at - scan_.tags.begin());
    const bool same = sameHeader(*at, entry);
    if (listed_[index] && (same || proven_[index])) {
        addFault(entryOffset, "a table entry leads to a listed tag", entry);
        tableDoubted_ = true;
    }
    listed_[index] = true;
    proven_[index] = proven_[index] || same;
    if (same) return;
    if (differences_.size() < TagScan::kMaxFaults) {
        differences_.push_back({index, entry, entryOffset});
    } else {
        ++scan_.furtherFaults;
    }
}

void CrossCheck::settleDifferences() {
    std::vector<INFOTAG> kept;
    for (std::size_t i = 0; i < scan_.tags.size(); ++i) {
        if (dropped_[i] == nullptr) kept.push_back(scan_.tags[i]);
    }
    FrameFacts facts;
    (void)readFrameFacts(stream_, kept, facts);
    // Each is judged by all the others, those that will go included.
    const std::vector<const char*> before = dropped_;
    const TagRules rules = rulesOf(scan_);
    HeaderEvidence evidence(scan_.tags, before, facts);
    for (const Difference& difference : differences_) {
        const INFOTAG& tag = scan_.tags[difference.tag];
        if (dropped_[difference.tag] != nullptr) continue;
        const bool possible = rules.headerFault(difference.entry, static_cast<std::int64_t>(tag.offset),
                                                scan_.fileBytes) == nullptr;
        if (possible && !proven_[difference.tag] && evidence.entryIsRight(difference.tag, difference.entry)) {
            dropped_[difference.tag] = "header that differs from its table entry and from the other tags";
            continue;
        }
        addFault(difference.entryOffset,
                 std::string("a table entry differs from its ") + tagName(tag.id) + " tag at " +
                     std::to_string(tag.offset),
                 tag);
    }
}

// Whether the table has it in the place of another one.
bool CrossCheck::isMisplaced(const RIF_TAG& tag) const {
    return std::any_of(differences_.begin(), differences_.end(),
                       [&tag](const Difference& difference) { return sameHeader(tag, difference.entry); });
}

// A tag that the table should have and does not: when the table is sound and confirms another of its kind, it
// is of one of the kinds that tables lack, mislabelled.
void CrossCheck::checkUnlisted() {
    std::set<std::uint32_t> confirmed;
    for (std::size_t i = 0; i < scan_.tags.size(); ++i) {
        if (proven_[i]) confirmed.insert(scan_.tags[i].id);
    }
    for (std::size_t i = 0; i + 1 < scan_.tags.size(); ++i) {
        const INFOTAG& tag = scan_.tags[i];
        if (listed_[i] || dropped_[i] != nullptr || !isAlwaysListed(tag.id)) continue;
        if (!tableDoubted_ && !isPixelTag(tag.id) && confirmed.count(tag.id) > 0 && !isMisplaced(tag)) {
            dropped_[i] = "header that the table does not have";
        } else {
            addFault(static_cast<std::int64_t>(tag.offset),
                     std::string("the table lacks this ") + tagName(tag.id) + " tag", tag);
        }
    }
}

void CrossCheck::dropTags() {
    std::size_t kept = 0;
    const std::size_t gaps = scan_.gaps.size();
    for (std::size_t i = 0; i < scan_.tags.size(); ++i) {
        const INFOTAG tag = scan_.tags[i];
        if (dropped_[i] != nullptr) {
            const auto offset = static_cast<std::int64_t>(tag.offset);
            scan_.gaps.push_back({offset, offset + tag.size, dropped_[i], tag, false});
        } else {
            scan_.tags[kept++] = tag;
        }
    }
    scan_.tags.resize(kept);
    if (scan_.gaps.size() == gaps) return;
    std::sort(scan_.gaps.begin(), scan_.gaps.end(),
              [](const TagGap& a, const TagGap& b) { return a.offset < b.offset; });
}

}  // namespace

void crossCheck(PStream& stream, TagScan& scan) {
    CrossCheck(stream, scan).run();
}

}  // namespace MUtils
