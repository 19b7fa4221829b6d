#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "rawimage/inspect/fault_list.h"
#include "rawimage/inspect/header_evidence.h"
#include "rawimage/inspect/moved_tags.h"
#include "rawimage/inspect/payload_probe.h"
#include "rawimage/inspect/table_match.h"

namespace MUtils {
inline namespace v1 {

// What a table contains as a whole.
struct TableSurvey {
    bool allSound = true;
    std::vector<std::size_t> confirmedById;  // from kFirstTagId on
    std::size_t confirmedPixels = 0;
    std::size_t unlistedPixels = 0;
};

// Compares the tags of a file with its table. The witnesses, in the order in which they are believed:
//
//   1. A table entry and a tag that agree confirm each other. Nothing overrules them.
//   2. Where an entry has another header than the tag at its offset, the payload decides when the sizes
//      differ, then the place where each of the two ends; HeaderEvidence decides when the sizes are the same.
//      A tag whose entry is right gets the entry's header when its payload agrees with that, else it is
//      dropped.
//   3. A tag to which no entry leads is dropped when sound entries claim its bytes. It stays when it has
//      moved (MovedTags), or when an unbroken chain of tags leads over it from one confirmed tag to the next
//      and the entries do not fill that stretch. Where no entry claims its bytes, it is dropped only when
//      every entry of the table is sound, pixels only outside such a chain.
//   4. A tag that a sound entry places inside a gap is restored when its payload agrees with the entry: by
//      its checksum, or, for a payload without one, when its header differs from the entry in one word only.
//
// Everything else that does not agree becomes a fault. Damage to the table alone costs no tag.
class TableCheck {
  public:
    // All must outlive the object.
    TableCheck(PStream& stream, TagScan& scan, PayloadProbe& probe, FaultList& faults);

    // Finds the table and sets the scan's `tableOffset`; corrects its tags, gaps, repairs and doubts. False
    // when there is no table that can be believed.
    bool run();

    // By tag, after run(): the table has the same header.
    const std::vector<bool>& confirmed() const { return confirmed_; }

  private:
    using OpenEntry = TableMatch::OpenEntry;

    bool findTable();
    bool findHeadlessTable(std::uint64_t stored);
    std::int64_t countPossibleEntries(std::int64_t table, std::int64_t count);
    void checkOffset(std::uint64_t stored, bool tableEnds);

    void settleDifferences();
    void settle(const OpenEntry& entry, HeaderEvidence& evidence);
    void settleBySize(const OpenEntry& entry);
    void repair(const OpenEntry& entry);

    void judgeUnlisted();
    void judgeStretch(std::size_t from, std::size_t to);
    bool isChain(std::size_t from, std::size_t to) const;
    bool entriesFill(std::int64_t from, std::int64_t to) const;
    const MovedTags& movedTags();
    bool isDeniedByWholeTable(const INFOTAG& tag);
    void surveyTable();
    void reportUnlisted(std::size_t tag);

    void restoreFromGaps();
    bool restores(const OpenEntry& entry);
    const char* causeAt(std::int64_t offset) const;
    void finish();
    void nameGaps();
    void reportEntries();

    std::size_t indexOf(const OpenEntry& entry) const {
        return static_cast<std::size_t>(&entry - match_->open().data());
    }
    bool believed(const OpenEntry& entry) const { return believed_[indexOf(entry)]; }
    void believe(const OpenEntry& entry) { believed_[indexOf(entry)] = true; }

    PStream& stream_;
    TagScan& scan_;
    PayloadProbe& probe_;
    FaultList& faults_;
    bool headerLeadsToIt_ = false;
    std::optional<TableMatch> match_;
    std::vector<bool> confirmed_;
    std::vector<bool> believed_;                     // by open entry: a tag has its header now
    std::vector<const char*> dropped_;               // by tag: why it is no tag, or null
    std::vector<INFOTAG> restored_;                  // by offset
    std::optional<TableSurvey> survey_;              // only where a tag is unlisted
    std::optional<MovedTags> movedTags_;             // likewise
    std::size_t lastUnlisted_ = TableMatch::kNoTag;  // that was reported
};

}  // namespace v1
}  // namespace MUtils
