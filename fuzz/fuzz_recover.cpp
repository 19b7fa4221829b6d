#include "fuzz/fuzz_input.h"
#include "rawimage/tools/recover.h"
#include "rawimage/tools/verify.h"

using fuzzing::require;
using MUtils::FileState;
using MUtils::RecoverState;

namespace {

FileState verdict(const fuzzing::MemoryFile& file, bool quick) {
    MUtils::VerifyOptions options;
    options.quick = quick;
    options.threads = 1;
    return MUtils::verifyFile(file.path(), options).state;
}

bool isSound(FileState verdict) {
    return verdict == FileState::kGood || verdict == FileState::kIncomplete;
}

}  // namespace

// Whatever comes in, what recovery writes is sound, and recovering that changes nothing. Mending in place
// gives a sound file or leaves it alone.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static fuzzing::MemoryFile input, output, second;
    input.fill(data, size);
    const FileState full = verdict(input, false);
    require(full != FileState::kCannotOpen, "an answer");
    const FileState quick = verdict(input, true);
    require(quick != FileState::kDamaged || full == FileState::kDamaged,
            "no damage that only the quick check sees");

    MUtils::RecoverOptions options;
    options.threads = 1;
    const auto first = MUtils::recoverFile(input.path(), output.path(), options);
    require(first.state == RecoverState::kGood || first.state == RecoverState::kNotThisFormat,
            "a recovery that ends");
    if (first.state == RecoverState::kGood) {
        require(isSound(verdict(output, false)), "what recovery writes is sound");
        require(!isSound(full) || first.lost.empty(), "nothing lost of a sound file");
        const auto again = MUtils::recoverFile(output.path(), second.path(), options);
        require(again.lost.empty() && second.bytes() == output.bytes(), "recovery of a recovered file");
    }

    const auto inPlace = MUtils::recoverInPlace(input.path(), options);
    if (inPlace.state == RecoverState::kGood) {
        require(isSound(verdict(input, false)), "what is mended in place is sound");
    } else {
        require(input.bytes() == std::vector<std::uint8_t>(data, data + size), "a refused file is untouched");
    }
    return 0;
}
