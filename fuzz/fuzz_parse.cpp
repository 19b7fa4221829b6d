#include <algorithm>

#include "fuzz/fuzz_input.h"
#include "rawimage/read/mt_reader.h"
#include "tests/testing/collect.h"

using fuzzing::require;
using testing_tools::CollectCallback;
using testing_tools::Event;

namespace {

struct Walk {
    int code = 0;
    std::vector<Event> pixels;  // sorted
    std::vector<Event> others;
};

Walk parse(RIFile& reader, const std::uint8_t* data, std::size_t size, bool lengthKnown) {
    fuzzing::InputStream stream(data, size, lengthKnown);
    CollectCallback seen;
    Walk walk;
    (void)reader.Open(nullptr, &stream);
    walk.code = reader.ParseFile(seen);
    (void)reader.Close();
    for (Event& event : seen.events)
        (event.call == "setImageData" ? walk.pixels : walk.others).push_back(std::move(event));
    std::sort(walk.pixels.begin(), walk.pixels.end());
    return walk;
}

}  // namespace

// Both readers, with and without a known length: codes of their lists, and the same events where both
// accept the file.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    RIFile sequential;
    const Walk walk = parse(sequential, data, size, true);
    require((walk.code <= 0 && walk.code >= -5) || (walk.code <= -13 && walk.code >= -22),
            "a code of the sequential reader's list");
    const Walk blind = parse(sequential, data, size, false);
    require(walk.code != 0 || blind.code != 0 || (blind.pixels == walk.pixels && blind.others == walk.others),
            "the same events without a known length");

    static ThreadManager manager;
    RIFileMT threaded(&manager, 2);
    const Walk mt = parse(threaded, data, size, true);
    require(mt.code <= 0 && mt.code >= -108, "a code of the multi-threaded reader's list");
    if (walk.code == 0 && mt.code == 0) {
        require(walk.others == mt.others, "the same records from both readers");
        require(std::includes(walk.pixels.begin(), walk.pixels.end(), mt.pixels.begin(), mt.pixels.end()),
                "no pixels from the multi-threaded reader that the sequential one does not have");
    }
    return 0;
}
