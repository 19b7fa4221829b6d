#include <gtest/gtest.h>

#include <map>
#include <set>

#include "rawimage/tools/merge.h"
#include "rawimage/tools/picture.h"
#include "rawimage/tools/recover.h"
#include "rawimage/tools/summary.h"
#include "tests/testing/check.h"
#include "tests/testing/run_program.h"
#include "tests/testing/sanitized.h"

// Every tool and every verb judges a file alike: the inspection gives a file a state, to the depth of records
// and to that of payloads, and one table gives the exit code of each verb for these.

namespace {

using namespace testing_tools;
using namespace MUtils;

using Codes = std::set<int>;

struct VerbCodes {
    // The state to the depth of records decides these,
    Codes info, verifyQuick, missing, note, setNote, merge;
    // and that to the depth of payloads decides these.
    Codes verify, missingDeep, convert, recover, recoverInPlace;
    Codes stats, hash;
    // Has codes of its own, of two frames that are one.
    Codes diff;
    // Looks into the payloads of one channel: either state decides.
    Codes preview;
};

const VerbCodes& codesFor(FileState state) {
    // 6: the pieces of a merge must have a resolution and channels.
    static const std::map<FileState, VerbCodes> kTable{
        {FileState::kGood, {{0}, {0}, {0}, {0}, {0}, {0}, {0}, {0}, {0}, {0}, {0}, {0}, {0}, {0}, {0}}},
        {FileState::kUnfinished,
         {{3}, {3}, {0, 3}, {0}, {0, 3}, {0, 6}, {3}, {0, 3}, {3}, {0, 3}, {0, 3}, {3}, {3}, {0, 1, 4}, {3}}},
        {FileState::kIncomplete,
         {{3}, {3}, {3}, {0}, {0}, {0, 6}, {3}, {3}, {3}, {0, 3}, {0, 3}, {3}, {3}, {0, 1, 4}, {3}}},
        {FileState::kDamaged,
         {{4}, {4}, {4}, {4}, {0, 4}, {4}, {4}, {4}, {4}, {0, 3}, {0, 3, 4}, {4}, {4}, {4}, {4}}},
        {FileState::kNotThisFormat,
         {{5}, {5}, {5}, {5}, {5}, {5}, {5}, {5}, {5}, {0, 3, 5}, {4, 5}, {5}, {5}, {4}, {5}}},
    };
    return kTable.at(state);
}

struct DamagedFile {
    std::string what;
    Contents bytes;
};

class States : public testing::Test {
  protected:
    FileState stateOf(InspectDepth depth) const {
        InspectOptions options;
        options.depth = depth;
        options.threads = 1;
        return inspectFile(input_.path(), options).state;
    }
    void checkTools(const DamagedFile& file);
    void checkVerbs(const DamagedFile& file);
    int statusOf(const std::string& verb) {
        const std::string command = "cd '" + (folder_ / "") + "' && exec '" RIMG_PROGRAM "' " + verb;
        return runProgram("/bin/bash", {"-c", command}).status;
    }

    MemoryFile input_, output_;
    TempFolder folder_;
    std::map<FileState, int> seen_;
};

// Compares the states that the functions of the library report.
void States::checkTools(const DamagedFile& file) {
    input_.fill(file.bytes);
    const char* path = input_.path();
    const FileState quick = stateOf(InspectDepth::kRecords);
    const FileState deep = stateOf(InspectDepth::kPayloads);
    EXPECT_TRUE(quick == deep || deep == FileState::kDamaged);
    EXPECT_TRUE(stateOf(InspectDepth::kHeaders) == quick || quick == FileState::kDamaged);

    VerifyOptions verifying;
    verifying.threads = 1;
    EXPECT_EQ(verifyFile(path, verifying).state, deep);
    verifying.quick = true;
    EXPECT_EQ(verifyFile(path, verifying).state, quick);
    EXPECT_EQ(missingPixels(path).state, quick);
    EXPECT_EQ(missingPixels(path, {true, 1, {}}).state, deep);
    EXPECT_EQ(summariseFile(path, false).state, quick);
    PictureRequest request;
    request.useStored = false;
    const Picture picture = makePicture(path, request);
    EXPECT_EQ(picture.fileState, quick);
    EXPECT_TRUE(picture.damaged.empty() || deep == FileState::kDamaged);

    RecoverOptions recovering;
    recovering.threads = 1;
    const RecoverReport recovered = recoverFile(path, output_.path(), recovering);
    if (recovered.state == RecoverState::kGood) {
        const FileState after = verifyFile(output_.path(), {}).state;
        EXPECT_TRUE(after == FileState::kGood || after == FileState::kIncomplete) << stateName(after);
    } else {
        EXPECT_EQ(quick, FileState::kNotThisFormat);
    }
    EXPECT_FALSE(recovered.lacks && (deep == FileState::kGood || deep == FileState::kIncomplete));
    MergeOptions merging;
    merging.allowHoles = true;
    const MergeState merged = mergeFiles({path}, output_.path(), merging).state;
    EXPECT_EQ(merged == MergeState::kDamaged, quick == FileState::kDamaged);
    EXPECT_EQ(merged == MergeState::kNotThisFormat, quick == FileState::kNotThisFormat);
}

void States::checkVerbs(const DamagedFile& file) {
    input_.fill(file.bytes);
    const FileState quick = stateOf(InspectDepth::kRecords);
    const FileState deep = stateOf(InspectDepth::kPayloads);
    ++seen_[deep];
    SCOPED_TRACE(file.what + ": " + stateName(quick) + ", " + stateName(deep));
    const std::string bytes(file.bytes.begin(), file.bytes.end());
    for (const char* name : {"f.rimg", "noted.rimg", "mended.rimg"})
        writeFile(folder_ / name, bytes);
    const auto expectIn = [this](const Codes& codes, const std::string& verb) {
        const int status = statusOf(verb);
        EXPECT_TRUE(codes.count(status)) << verb << ": " << status;
    };
    const VerbCodes& byRecords = codesFor(quick);
    expectIn(byRecords.info, "info f.rimg");
    expectIn(byRecords.verifyQuick, "verify --quick f.rimg");
    expectIn(byRecords.missing, "missing f.rimg");
    expectIn(byRecords.note, "note f.rimg");
    expectIn(byRecords.setNote, "note --set x noted.rimg");
    expectIn(byRecords.merge, "merge --allow-holes f.rimg -o merged.rimg");
    const VerbCodes& byPayloads = codesFor(deep);
    expectIn(byPayloads.verify, "verify f.rimg");
    expectIn(byPayloads.missingDeep, "missing --deep f.rimg");
    expectIn(byPayloads.convert, "convert f.rimg f.exr");
    expectIn(byPayloads.stats, "stats f.rimg");
    expectIn(byPayloads.hash, "hash f.rimg");
    expectIn(byPayloads.diff, "diff -q f.rimg f.rimg");
    expectIn(byPayloads.recover, "recover f.rimg -o saved.rimg");
    expectIn(byPayloads.recoverInPlace, "recover --in-place mended.rimg");
    Codes preview = byRecords.preview;
    preview.insert(byPayloads.preview.begin(), byPayloads.preview.end());
    expectIn(preview, "preview --no-stored f.rimg -o f.png");
}

// The sample, with an aspect that OpenEXR files have a place for: 0 in place of -0.
Sample convertibleSample(bool isClosed) {
    SampleOptions options;
    options.closed = isClosed;
    Sample sample = makeSample(options);
    constexpr std::size_t kSign = 19;  // of p3, in a tag header
    sample.bytes[32 + kSign] = 0;
    if (isClosed) sample.bytes[static_cast<std::size_t>(sample.offsets.back()) + 40 + kSign] = 0;
    return sample;
}

// The sample cut at every length, and with a bit flipped in every byte.
std::vector<DamagedFile> damagedFiles(bool isClosed, std::size_t step) {
    const Contents sample = convertibleSample(isClosed).bytes;
    const std::string name = isClosed ? "finished, " : "unfinished, ";
    std::vector<DamagedFile> files{{name + "sound", sample}};
    for (std::size_t at = 0; at < sample.size(); at += step) {
        const auto end = sample.begin() + static_cast<std::ptrdiff_t>(at);
        files.push_back({name + "cut at " + std::to_string(at), {sample.begin(), end}});
        files.push_back({name + "flipped at " + std::to_string(at), sample});
        files.back().bytes[at] ^= static_cast<unsigned char>(1 << at % 8);
    }
    return files;
}

// Damage of other kinds.
std::vector<DamagedFile> specialFiles() {
    const Sample sample = convertibleSample(true);
    const Contents open = convertibleSample(false).bytes;
    const int table = sample.tagCount() - 1;
    const auto entry = [&](int index, int from) { return 40 + 48 * index + from; };
    const auto edited = [&](int tag, int from, const Bytes& bytes) {
        return with(sample.bytes, sample, tag, from, bytes);
    };
    const auto joined = [](Contents bytes, const Contents& more) {
        bytes.insert(bytes.end(), more.begin(), more.end());
        return bytes;
    };
    Contents zeroed = sample.bytes;
    std::fill(zeroed.begin() + 1024, zeroed.begin() + 1536, static_cast<unsigned char>(0));
    return {
        {"never closed, 200 zeros behind it", Bytes().raw(open.data(), open.size()).zeros(200)},
        {"an unknown tag", closed(Bytes().raw(open.data(), open.size()).tag(999, 0))},
        {"an unknown tag, never closed", Bytes().raw(open.data(), open.size()).tag(999, 0)},
        {"p1 of a table entry", edited(table, entry(1, 8), Bytes().u32(77))},
        {"p1 of a pixel tag's entry",
         edited(table, entry(sample.find(TAG_CHAN_FLOAT4) - 4, 8), Bytes().u32(9))},
        {"offset of a table entry", edited(table, entry(1, 40), Bytes().u32(73))},
        {"a table entry of zeros", edited(table, entry(2, 0), Bytes().zeros(48))},
        {"the pointer to the table", edited(0, 12 - 32, Bytes().u32(99))},
        {"a tag behind the table", Bytes(sample.bytes).tag(TAG_RESOLUTION, 0, {4, 4})},
        {"zeros behind the table", Bytes(sample.bytes).zeros(100)},
        {"another file behind it", joined(sample.bytes, sample.bytes)},
        {"another file behind an unfinished one", joined(open, sample.bytes)},
        {"a sector of zeros", zeroed},
        {"frame and channels missing", closed(Bytes().fileHeader(0).tag(TAG_NOTE, 1024).zeros(1024))},
        {"empty", {}},
        {"a header only", Contents(open.begin(), open.begin() + 32)},
        {"text", Contents(100, 'x')},
    };
}

TEST_F(States, OfEveryDamagedFileAreOneForAllTools) {
    const std::size_t step = kSanitized ? 31 : 3;
    for (const bool isClosed : {true, false}) {
        for (const DamagedFile& file : damagedFiles(isClosed, step)) {
            checkTools(file);
            ASSERT_FALSE(HasFailure()) << file.what;
        }
    }
    for (const DamagedFile& file : specialFiles()) {
        SCOPED_TRACE(file.what);
        checkTools(file);
    }
}

TEST_F(States, DecideTheExitCodeOfEveryVerb) {
    const std::size_t step = kSanitized ? 997 : 211;
    for (const bool isClosed : {true, false}) {
        for (const DamagedFile& file : damagedFiles(isClosed, step))
            checkVerbs(file);
    }
    for (const DamagedFile& file : specialFiles())
        checkVerbs(file);
    for (const FileState state : {FileState::kGood, FileState::kUnfinished, FileState::kIncomplete,
                                  FileState::kDamaged, FileState::kNotThisFormat})
        EXPECT_GT(seen_[state], 0) << stateName(state);
}

}  // namespace
