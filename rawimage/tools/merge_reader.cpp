#include "rawimage/tools/merge_reader.h"

#include <algorithm>
#include <new>

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::int64_t kSmallBytes = 1 << 20;
constexpr std::size_t kBatch = 8;  // files; to wake a thread takes as long as to inspect half a small one
constexpr int kMostThreads = 4;    // bounds the tags in memory: a batch for each thread, and one

// Small files are read in one go.
Inspection inspectOpen(PFileStream& file, std::int64_t size) {
    InspectOptions options;
    options.depth = InspectDepth::kRecords;
    options.threads = 1;
    options.findMissing = false;
    if (size < 0 || size > kSmallBytes) return inspectStream(file, options);
    PBufStream whole(static_cast<int>(size));
    std::size_t got = 0;
    const int code = file.ReadAt(0, whole.GetBuf(), static_cast<std::size_t>(size), got);
    if (code != 0 || got != static_cast<std::size_t>(size) || whole.Open() != 0)
        return inspectStream(file, options);
    return inspectStream(whole, options);
}

void inspect(const std::string& name, bool onlySmall, MergeReader::Found& found) {
    found.stamp = FileStamp(name.c_str());
    PFileStream file;
    found.code = file.Open(name.c_str(), PFileStream::kRead, 1, PFileStream::kOpenExisting);
    const std::int64_t size = found.code == 0 ? file.Length() : 0;
    if (onlySmall && (size < 0 || size > kSmallBytes)) return;
    found.inspected = true;
    if (found.code != 0) return;
    found.file = inspectOpen(file, size);
    const FileState state = found.file.state;
    if (state == FileState::kGood || state == FileState::kUnfinished || state == FileState::kIncomplete)
        found.input.keep(name, found.stamp, found.file);
}

}  // namespace

MergeReader::MergeReader(const std::vector<std::string>& names, int threads) : names_(names) {
    const std::size_t batches = (names.size() + kBatch - 1) / kBatch;
    const int wanted = std::min(threads < 1 ? getNumProcessors() : threads, kMostThreads);
    const std::size_t ahead = std::min(batches, static_cast<std::size_t>(wanted) + 1);
    if (wanted > 1 && batches > 1) startThreads(wanted, static_cast<int>(ahead));
    batches_ = std::vector<Batch>(hasThreads() ? ahead : 1);
    for (std::size_t i = 0; hasThreads() && i < ahead; ++i)
        begin(i);
}

MergeReader::~MergeReader() {
    releaseThreads();
}

MergeReader::Found& MergeReader::next() {
    const std::size_t at = next_++;
    const std::size_t number = at / kBatch;
    if (at > 0) batchOf((at - 1) / kBatch).found.pop_front();
    Batch& batch = batchOf(number);
    if (at % kBatch == 0) {
        // The batch before is empty now: its place goes to the one behind all that are under way.
        if (!hasThreads()) begin(number);
        if (hasThreads() && number > 0) begin(number + batches_.size() - 1);
        waitJobs(&batch.jobs);
        if (batch.outOfMemory) throw std::bad_alloc();
    }
    Found& found = batch.found.front();
    if (!found.inspected) inspect(names_[at], false, found);
    return found;
}

void MergeReader::begin(std::size_t number) {
    if (number * kBatch >= names_.size()) return;
    Batch& batch = batchOf(number);
    batch.number = number;
    if (hasThreads()) {
        enqueueJob(&batch.jobs, acquireJobIndex(), &batch);
    } else {
        inspectAll(batch);
    }
}

void MergeReader::inspectAll(Batch& batch) const {
    const std::size_t end = std::min((batch.number + 1) * kBatch, names_.size());
    for (std::size_t i = batch.number * kBatch; i < end; ++i)
        inspect(names_[i], true, batch.found.emplace_back());
}

int MergeReader::jobProc(int /*threadIndex*/, int /*jobIndex*/, void* data) {
    // An exception would end in the queue.
    Batch& batch = *static_cast<Batch*>(data);
    try {
        inspectAll(batch);
    } catch (const std::bad_alloc&) {
        batch.outOfMemory = true;
    }
    return 0;
}

}  // namespace v1
}  // namespace MUtils
