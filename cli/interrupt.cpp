#include "cli/interrupt.h"

#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstring>
#include <ctime>
#include <initializer_list>

namespace rimg {

namespace {

volatile std::sig_atomic_t stopSignal = 0;

// For the handlers, which may not touch a string. Paths of this length or more open no file.
struct Doomed {
    char path[PATH_MAX];
    std::atomic<bool> named;
};
Doomed doomed[2];
std::atomic<bool> held{false};
static_assert(std::atomic<bool>::is_always_lock_free, "signal handlers read them");

// The thread that holds signals back gets none, save those that it raises itself: a bound for these.
void awaitRelease() {
    constexpr int kMostMilliseconds = 1000;
    const timespec millisecond{0, 1000000};
    for (int i = 0; i < kMostMilliseconds && held; ++i)
        ::nanosleep(&millisecond, nullptr);
}

extern "C" void onDeadlySignal(int number) {
    awaitRelease();
    for (const Doomed& file : doomed) {
        if (file.named) ::unlink(file.path);
    }
    // Pending until this handler returns, and then deadly.
    std::signal(number, SIG_DFL);
    std::raise(number);
}

extern "C" void onStopSignal(int number) {
    if (stopSignal != 0) return onDeadlySignal(number);
    stopSignal = number;
}

void handle(std::initializer_list<int> numbers, void (*handler)(int)) {
    for (const int number : numbers) {
        struct sigaction before {};
        sigaction(number, nullptr, &before);
        if (before.sa_handler == SIG_IGN) continue;
        struct sigaction action {};
        action.sa_handler = handler;
        sigemptyset(&action.sa_mask);
        sigaction(number, &action, nullptr);
    }
}

}  // namespace

void catchSignals() {
    std::signal(SIGXFSZ, SIG_IGN);
    handle({SIGINT, SIGTERM, SIGHUP}, onStopSignal);
    handle({SIGQUIT, SIGPIPE, SIGALRM, SIGXCPU, SIGABRT, SIGUSR1, SIGUSR2}, onDeadlySignal);
}

bool stopRequested() {
    return stopSignal != 0;
}

void removeWhenKilled(const std::string& path) {
    for (Doomed& file : doomed) {
        if (file.named || path.size() >= sizeof file.path) continue;
        std::memcpy(file.path, path.c_str(), path.size() + 1);
        file.named = true;
        return;
    }
}

void keepWhenKilled(const std::string& path) {
    for (Doomed& file : doomed) {
        if (file.named && path == file.path) file.named = false;
    }
}

SignalsHeld::SignalsHeld() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before_);
    held = true;
}

SignalsHeld::~SignalsHeld() {
    held = false;
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

}  // namespace rimg
