#include "cli/interrupt.h"

#include <csignal>
#include <initializer_list>

namespace rimg {

namespace {

volatile std::sig_atomic_t stopSignal = 0;

extern "C" void onStopSignal(int number) {
    if (stopSignal != 0) {
        // Pending until this handler returns, and then deadly.
        std::signal(number, SIG_DFL);
        std::raise(number);
        return;
    }
    stopSignal = number;
}

}  // namespace

void catchSignals() {
    std::signal(SIGXFSZ, SIG_IGN);
    for (const int number : {SIGINT, SIGTERM}) {
        struct sigaction before {};
        sigaction(number, nullptr, &before);
        if (before.sa_handler == SIG_IGN) continue;
        struct sigaction action {};
        action.sa_handler = onStopSignal;
        sigemptyset(&action.sa_mask);
        sigaction(number, &action, nullptr);
    }
}

bool stopRequested() {
    return stopSignal != 0;
}

}  // namespace rimg
