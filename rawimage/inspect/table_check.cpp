#include "rawimage/inspect/table_check.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "rawimage/area/tag_box.h"
#include "rawimage/inspect/channel_check.h"
#include "rawimage/inspect/gap_list.h"
#include "rawimage/inspect/tag_check.h"
#include "rawimage/table_entries.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::size_t kMostSettled = 1000;  // each may look at every tag

int wordsThatDiffer(const RIF_TAG& a, const RIF_TAG& b) {
    int count = (a.id != b.id ? 1 : 0) + (a.size != b.size ? 1 : 0);
    const std::int32_t pairs[][2] = {{a.p1, b.p1}, {a.p2, b.p2}, {a.p3, b.p3}, {a.p4, b.p4},
                                     {a.p5, b.p5}, {a.p6, b.p6}, {a.p7, b.p7}, {a.p8, b.p8}};
    for (const auto& [one, other] : pairs)
        count += one != other ? 1 : 0;
    return count;
}

// True for headers of the same pixels of the same channel.
bool samePixels(const RIF_TAG& a, const RIF_TAG& b) {
    return isPixelTag(a.id) && isPixelTag(b.id) && boxOf(a) == boxOf(b) && a.p1 == b.p1 && a.p8 == b.p8;
}

// ": p2 is 1556 in the table, 1558 in the tag", of the first parameter that differs.
std::string differenceText(const RIF_TAG& entry, const RIF_TAG& tag) {
    const std::int32_t listed[] = {entry.p1, entry.p2, entry.p3, entry.p4,
                                   entry.p5, entry.p6, entry.p7, entry.p8};
    const std::int32_t found[] = {tag.p1, tag.p2, tag.p3, tag.p4, tag.p5, tag.p6, tag.p7, tag.p8};
    const auto [here, there] = std::mismatch(std::begin(listed), std::end(listed), std::begin(found));
    if (here == std::end(listed)) return "";
    return ": p" + std::to_string(here - std::begin(listed) + 1) + " is " + std::to_string(*here) +
           " in the table, " + std::to_string(*there) + " in the tag";
}

constexpr const char* kDiffers = "header that differs from its table entry";

}  // namespace

TableCheck::TableCheck(PStream& stream, TagScan& scan, PayloadProbe& probe, FaultList& faults)
    : stream_(stream),
      scan_(scan),
      probe_(probe),
      faults_(faults),
      confirmed_(scan.tags.size()),
      dropped_(scan.tags.size(), nullptr) {}

bool TableCheck::run() {
    if (!findTable()) return false;
    if (match_->failedAt() >= 0) faults_.add(match_->failedAt(), "the table cannot be read");
    believed_.resize(match_->open().size());
    confirmed_ = match_->confirmed();
    settleDifferences();
    judgeUnlisted();
    restoreFromGaps();
    finish();
    nameGaps();
    // Of a table to which the header does not lead, it is not known whether the writer had finished it.
    if (headerLeadsToIt_) reportEntries();
    return true;
}

// A table at the end of the file is believed when the header's offset leads to it, or when it confirms most
// of what it lists.
bool TableCheck::findTable() {
    const std::uint64_t stored = scan_.header.infoTagsOffset;
    const bool tableEnds = !scan_.tags.empty() && scan_.tags.back().id == TAG_INFO_TAGS &&
                           endOf(scan_.tags.back()) == scan_.ownBytes;
    headerLeadsToIt_ = tableEnds && scan_.tags.back().offset == stored;
    if (headerLeadsToIt_) scan_.tableOffset = stored;
    if (!tableEnds && findHeadlessTable(stored)) return true;
    if (!headerLeadsToIt_ && stored != 0) checkOffset(stored, tableEnds);
    if (!tableEnds) return false;
    match_.emplace(stream_, scan_);
    return headerLeadsToIt_ || 2 * match_->confirmedCount() > static_cast<std::size_t>(scan_.tags.back().p1);
}

// A table whose beginning is lost, under another file's block for example: from the header's offset to the
// end of the file there is room for a whole number of entries, and most of these are headers of tags
// before it. What the scan found in these bytes is no tag then. A table with an intact header was cut.
bool TableCheck::findHeadlessTable(std::uint64_t stored) {
    const std::int64_t room = scan_.ownBytes - kTagHeaderBytes;
    if (stored < kFileHeaderBytes || stored >= static_cast<std::uint64_t>(std::max<std::int64_t>(room, 0)))
        return false;
    const auto offset = static_cast<std::int64_t>(stored);
    const std::int64_t entries = (room - offset) / kInfoTagBytes;
    if ((room - offset) % kInfoTagBytes != 0 || entries > INT32_MAX / kInfoTagBytes) return false;
    RIF_TAG found;
    if (!probe_.readHeader(offset, found) || found.id == TAG_INFO_TAGS) return false;
    if (2 * countPossibleEntries(offset, entries) <= entries) return false;
    INFOTAG table;
    table.id = TAG_INFO_TAGS;
    table.size = static_cast<std::uint32_t>(scan_.ownBytes - offset);
    table.p1 = static_cast<std::int32_t>(entries);
    table.offset = stored;
    const auto firstInside = static_cast<std::ptrdiff_t>(firstTagFrom(scan_.tags, stored));
    scan_.tags.erase(scan_.tags.begin() + firstInside, scan_.tags.end());
    scan_.tags.push_back(table);
    match_.emplace(stream_, scan_);
    std::vector<TagGap>& gaps = scan_.gaps;
    gaps.erase(std::remove_if(gaps.begin(), gaps.end(),
                              [offset](const TagGap& gap) { return gap.offset >= offset; }),
               gaps.end());
    if (!gaps.empty()) gaps.back().end = std::min(gaps.back().end, offset);
    dropped_.assign(scan_.tags.size(), nullptr);
    headerLeadsToIt_ = true;
    scan_.tableOffset = stored;
    faults_.add(offset, "the beginning of the table is damaged", table);
    return true;
}

std::int64_t TableCheck::countPossibleEntries(std::int64_t table, std::int64_t count) {
    std::int64_t possible = 0;
    TableEntries entries(stream_, table + kTagHeaderBytes, count);
    for (INFOTAG entry; entries.next(entry);) {
        const bool before =
            entry.offset >= kFileHeaderBytes && entry.offset < static_cast<std::uint64_t>(table);
        possible += before && rulesOf(scan_).headerFault(entry, startOf(entry), table) == nullptr ? 1 : 0;
    }
    return possible;
}

// No fault: a tag where the table was, as a writer that appends leaves the offset until it closes the file;
// and an offset past the end, as the file was cut.
void TableCheck::checkOffset(std::uint64_t stored, bool tableEnds) {
    const std::size_t at = firstTagFrom(scan_.tags, stored);
    const bool leadsToTag = at < scan_.tags.size() && scan_.tags[at].offset == stored;
    const std::string leads = "the table offset leads to " + std::to_string(stored);
    if (tableEnds) {
        faults_.add(kTableOffsetPosition,
                    leads + ", the table is at " + std::to_string(scan_.tags.back().offset));
    } else if (!leadsToTag && !isInGap(scan_.gaps, stored) &&
               stored < static_cast<std::uint64_t>(scan_.fileBytes)) {
        faults_.add(kTableOffsetPosition, leads + ", where no tag begins");
    }
}

void TableCheck::settleDifferences() {
    // The tags in dispute, and channel lists that pixels contradict, are no witnesses.
    std::vector<const char*> ignored(scan_.tags.size(), nullptr);
    std::vector<const OpenEntry*> differences;
    for (const OpenEntry& entry : match_->open()) {
        if (entry.tag != TableMatch::kNoTag && entry.sound && differences.size() < kMostSettled)
            differences.push_back(&entry);
    }
    if (differences.empty()) return;
    checkChannels(stream_, scan_.tags, match_->confirmed(), ignored);
    for (std::size_t i = 0; i < ignored.size(); ++i) {
        if (isPixelTag(scan_.tags[i].id)) ignored[i] = nullptr;
    }
    for (const OpenEntry* entry : differences)
        ignored[entry->tag] = "in dispute";
    std::vector<INFOTAG> witnesses;
    for (std::size_t i = 0; i < scan_.tags.size(); ++i) {
        if (ignored[i] == nullptr) witnesses.push_back(scan_.tags[i]);
    }
    FrameFacts facts;
    (void)readFrameFacts(stream_, witnesses, facts);
    HeaderEvidence evidence(scan_.tags, ignored, facts);
    for (const OpenEntry* entry : differences)
        settle(*entry, evidence);
}

void TableCheck::settle(const OpenEntry& entry, HeaderEvidence& evidence) {
    const INFOTAG& tag = scan_.tags[entry.tag];
    if (tag.size != entry.header.size) return settleBySize(entry);
    if (evidence.entryIsRight(entry.tag, entry.header)) {
        if (probe_.agrees(entry.header, startOf(tag))) return repair(entry);
        dropped_[entry.tag] = "header that differs from its table entry and from the other tags";
    } else if (!samePixels(tag, entry.header) && !evidence.tagIsRight(entry.tag, entry.header)) {
        scan_.doubted.push_back(startOf(tag));
    }
}

void TableCheck::settleBySize(const OpenEntry& entry) {
    const INFOTAG& tag = scan_.tags[entry.tag];
    const bool entryAgrees = probe_.agrees(entry.header, startOf(tag));
    const bool tagAgrees = probe_.agrees(tag, startOf(tag));
    if (entryAgrees && !tagAgrees) return repair(entry);
    if (!match_->beginsAt(endOf(entry.header)) || match_->beginsAt(endOf(tag))) return;
    if (entryAgrees) return repair(entry);
    dropped_[entry.tag] = "tag in the place of another one that the table lists";
}

void TableCheck::repair(const OpenEntry& entry) {
    INFOTAG& tag = scan_.tags[entry.tag];
    // A larger tag would take bytes of its neighbours; the repaired one is restored into the gap instead.
    if (tag.size != entry.header.size) {
        dropped_[entry.tag] = kDiffers;
        return;
    }
    scan_.repairs.push_back({startOf(tag), tag, kDiffers});
    tag = entry.header;
    confirmed_[entry.tag] = true;
    believe(entry);
}

void TableCheck::surveyTable() {
    TableSurvey& survey = survey_.emplace();
    survey.confirmedById.resize(kLastTagId - kFirstTagId + 1);
    for (const OpenEntry& entry : match_->open())
        survey.allSound = survey.allSound && entry.sound;
    for (std::size_t i = 0; i < scan_.tags.size(); ++i) {
        const INFOTAG& tag = scan_.tags[i];
        if (match_->confirmed()[i]) ++survey.confirmedById[tag.id - kFirstTagId];
        if (!isPixelTag(tag.id)) continue;
        if (match_->confirmed()[i]) ++survey.confirmedPixels;
        if (!match_->isListed(i)) ++survey.unlistedPixels;
    }
}

// A stretch is the unconfirmed tags between two confirmed ones.
void TableCheck::judgeUnlisted() {
    const std::vector<bool>& confirmed = match_->confirmed();
    for (std::size_t from = 0; from + 1 < scan_.tags.size();) {
        std::size_t to = from;
        while (!confirmed[to])
            ++to;
        if (to > from) judgeStretch(from, to);
        from = to + 1;
    }
}

// The tags from `from` on, before the confirmed tag `to`.
void TableCheck::judgeStretch(std::size_t from, std::size_t to) {
    const std::int64_t start = from > 0 ? endOf(scan_.tags[from - 1]) : kFileHeaderBytes;
    const bool isWhole = isChain(from, to);
    const bool chainWins = isWhole && !entriesFill(start, startOf(scan_.tags[to]));
    for (std::size_t i = from; i < to; ++i) {
        const INFOTAG& tag = scan_.tags[i];
        if (match_->isListed(i)) continue;
        const auto entry = match_->soundFrom(startOf(tag));
        const bool claimed = entry != match_->sound().end() && startOf((*entry)->header) < endOf(tag);
        if (claimed && !chainWins && !movedTags().contains(i)) {
            dropped_[i] = "tag in the place of another one that the table lists";
        } else if (isAlwaysListed(tag.id)) {
            // A writer that cannot read the old table lists only the tags that it appends.
            const bool mayBeOlder = isWhole && isPixelTag(tag.id);
            if (!claimed && !mayBeOlder && isDeniedByWholeTable(tag)) {
                dropped_[i] = "tag that the table does not list";
            } else {
                reportUnlisted(i);
            }
        }
    }
}

// True when the tags follow each other without a gap from the tag before `from` up to the tag `to`.
bool TableCheck::isChain(std::size_t from, std::size_t to) const {
    std::int64_t end = from > 0 ? endOf(scan_.tags[from - 1]) : kFileHeaderBytes;
    for (std::size_t i = from; i <= to; ++i) {
        if (startOf(scan_.tags[i]) != end) return false;
        end = endOf(scan_.tags[i]);
    }
    return true;
}

bool TableCheck::entriesFill(std::int64_t from, std::int64_t to) const {
    for (auto entry = match_->soundFrom(from); from < to && entry != match_->sound().end(); ++entry) {
        if (startOf((*entry)->header) != from) return false;
        from = endOf((*entry)->header);
    }
    return from == to;
}

// A table that is not at the header's offset proves that bytes were inserted or lost.
const MovedTags& TableCheck::movedTags() {
    if (!movedTags_) movedTags_.emplace(scan_, *match_, !headerLeadsToIt_);
    return *movedTags_;
}

// Metadata needs another tag of its kind that the table confirms, as other writers may list less.
bool TableCheck::isDeniedByWholeTable(const INFOTAG& tag) {
    if (!survey_) surveyTable();
    if (!survey_->allSound || movedTags().isListed(tag)) return false;
    return isPixelTag(tag.id) ? survey_->confirmedPixels > survey_->unlistedPixels
                              : survey_->confirmedById[tag.id - kFirstTagId] > 0;
}

void TableCheck::reportUnlisted(std::size_t tag) {
    if (!headerLeadsToIt_) return;
    const INFOTAG& unlisted = scan_.tags[tag];
    const bool follows = lastUnlisted_ != TableMatch::kNoTag && lastUnlisted_ + 1 == tag &&
                         isPixelTag(scan_.tags[lastUnlisted_].id) == isPixelTag(unlisted.id);
    lastUnlisted_ = tag;
    if (follows) return faults_.addLikeLast();
    const std::string name = isPixelTag(unlisted.id) ? "pixel" : tagName(unlisted.id);
    if (!survey_) surveyTable();
    const char* of = survey_->allSound ? "the table lacks this " : "the table is damaged, it lacks this ";
    faults_.add(startOf(unlisted), of + name + " tag", unlisted);
}

void TableCheck::restoreFromGaps() {
    for (const OpenEntry* entry : match_->sound()) {
        if (!believed(*entry) && restores(*entry)) {
            restored_.push_back(entry->header);
            believe(*entry);
        }
    }
}

bool TableCheck::restores(const OpenEntry& entry) {
    const INFOTAG& header = entry.header;
    std::size_t tag = firstTagFrom(scan_.tags, header.offset);
    if (tag > 0 && endOf(scan_.tags[tag - 1]) > startOf(header)) --tag;
    for (; startOf(scan_.tags[tag]) < endOf(header); ++tag) {  // the table is behind all
        if (dropped_[tag] == nullptr) return false;
    }
    RIF_TAG found;
    if (!probe_.readHeader(startOf(header), found)) return false;
    const int wrong = wordsThatDiffer(found, header);
    // Of a payload without a checksum a damaged header says that it may be damaged, too.
    const bool proves = rulesOf(scan_).provesItself(header);
    if (!proves && header.payloadBytes() > 0 && wrong != 1) return false;
    if (!probe_.agrees(header, startOf(header))) return false;
    if (wrong > 0) scan_.repairs.push_back({startOf(header), found, causeAt(startOf(header))});
    return true;
}

// Why the tag at `offset` was not found, or was dropped.
const char* TableCheck::causeAt(std::int64_t offset) const {
    const auto gap = std::lower_bound(scan_.gaps.begin(), scan_.gaps.end(), offset,
                                      [](const TagGap& a, std::int64_t at) { return a.offset < at; });
    return gap != scan_.gaps.end() && gap->offset == offset ? gap->cause : kDiffers;
}

void TableCheck::finish() {
    const bool drops =
        std::any_of(dropped_.begin(), dropped_.end(), [](const char* cause) { return cause != nullptr; });
    if (!drops && restored_.empty()) return;
    std::vector<std::uint64_t> sure;
    for (std::size_t i = 0; i < scan_.tags.size(); ++i) {
        if (confirmed_[i]) sure.push_back(scan_.tags[i].offset);
    }
    for (const INFOTAG& tag : restored_)
        sure.push_back(tag.offset);
    std::sort(sure.begin(), sure.end());
    dropTags(scan_, dropped_);
    restoreTags(scan_, restored_);
    confirmed_.assign(scan_.tags.size(), false);
    auto next = sure.begin();
    for (std::size_t i = 0; i < scan_.tags.size() && next != sure.end(); ++i) {
        confirmed_[i] = scan_.tags[i].offset == *next;
        if (confirmed_[i]) ++next;
    }
}

// A gap may have swallowed several listed tags.
void TableCheck::nameGaps() {
    std::vector<INFOTAG> lost;
    for (const OpenEntry* entry : match_->sound()) {
        if (!believed(*entry) && isInGap(scan_.gaps, entry->header.offset)) lost.push_back(entry->header);
    }
    splitGaps(scan_, lost, "tag of the table that is lost");
}

// Entries that follow each other in the table, with the same cause, give one fault.
void TableCheck::reportEntries() {
    std::vector<const OpenEntry*> entries;
    for (const OpenEntry& entry : match_->open()) {
        const bool hasTag = entry.tag != TableMatch::kNoTag && dropped_[entry.tag] == nullptr;
        if (believed(entry) || (!hasTag && isInGap(scan_.gaps, entry.header.offset))) continue;
        entries.push_back(&entry);
    }
    std::sort(entries.begin(), entries.end(),
              [](const OpenEntry* a, const OpenEntry* b) { return a->place < b->place; });
    const auto leadsToTag = [](const OpenEntry& entry) { return entry.tag != TableMatch::kNoTag; };
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const OpenEntry& entry = *entries[i];
        const bool likeLast = i > 0 && entries[i - 1]->place + kInfoTagBytes == entry.place &&
                              entries[i - 1]->repeated == entry.repeated &&
                              leadsToTag(*entries[i - 1]) == leadsToTag(entry);
        if (likeLast) {
            faults_.addLikeLast();
        } else if (entry.repeated) {
            faults_.add(entry.place, "a table entry leads to a listed tag", entry.header);
        } else if (!leadsToTag(entry)) {
            faults_.add(entry.place, "a table entry leads to no tag", entry.header);
        } else {
            RIF_TAG tag;
            (void)probe_.readHeader(startOf(entry.header), tag);
            const std::string name = tagName(tag.id);
            faults_.add(entry.place,
                        "a table entry differs from its " + name + " tag at " +
                            std::to_string(entry.header.offset) + differenceText(entry.header, tag),
                        tag);
        }
    }
}

}  // namespace v1
}  // namespace MUtils
