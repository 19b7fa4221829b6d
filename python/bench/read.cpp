#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>

#include "rawimage/frame/raw_frame.h"

// Prints the processor's seconds of single reads of a whole channel, each into new memory, one on a line:
// what read.py compares with. Usage: bench_python_read FILE CHANNEL TIMES
int main(int argc, char** argv) {
    if (argc != 4) return 2;
    const MUtils::RawFrame file(argv[1]);
    const auto info = file.info();
    const MUtils::FrameChannel* const channel = info->find(std::string(argv[2]));
    if (channel == nullptr) return 1;
    const auto values = static_cast<std::size_t>(info->frame.area() * channel->components());
    for (int i = 0; i < std::atoi(argv[3]); ++i) {
        const std::clock_t start = std::clock();
        const std::unique_ptr<float[]> memory(new float[values]);
        if (!file.read(info->frame, {{*channel, memory.get()}}).complete()) return 1;
        std::printf("%.6f\n", static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC);
    }
}
