#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <thread>

#include "rawimage/records.h"
#include "support/pstream.h"

// Does what a sanitizer must report, in the library's own code where it can: canary address|undefined|thread.
// That this program comes to its end means that the library was built without the sanitizer.

namespace {

// A camera record that is cut short, on the heap.
void readBeyondABlock(std::size_t bytes) {
    const auto block = std::make_unique<unsigned char[]>(bytes);
    const auto* camera = reinterpret_cast<const RICameraInfo*>(block.get());
    std::printf("%g\n", static_cast<double>(camera->getCameraTransform().offset[0]));
}

void overflow(int by) {
    std::printf("%d\n", std::numeric_limits<int>::max() + by);
}

// Two threads on one stream.
void race() {
    PMemStream stream;
    stream.Open();
    const auto move = [&stream] {
        for (int i = 0; i < 1000; ++i)
            stream.Skip(1);
    };
    std::thread first(move), second(move);
    first.join();
    second.join();
}

}  // namespace

int main(int argc, char** argv) {
    const char* wanted = argc > 1 ? argv[1] : "";
    if (std::strcmp(wanted, "address") == 0) readBeyondABlock(static_cast<std::size_t>(argc) * 8);
    if (std::strcmp(wanted, "undefined") == 0) overflow(argc);
    if (std::strcmp(wanted, "thread") == 0) race();
    std::puts("no report");
    return 0;
}
