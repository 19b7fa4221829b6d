#include "cli/interrupt.h"

#include <unistd.h>

#include <climits>
#include <cstring>
#include <initializer_list>

namespace rimg {

namespace {

volatile std::sig_atomic_t stopSignal = 0;

// For the handlers, which may not touch a string. Paths of this length or more open no file.
char doomedPath[PATH_MAX];
volatile std::sig_atomic_t doomed = 0;

extern "C" void onDeadlySignal(int number) {
    if (doomed != 0) ::unlink(doomedPath);
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
    doomed = 0;
    if (path.empty() || path.size() >= sizeof doomedPath) return;
    std::memcpy(doomedPath, path.c_str(), path.size() + 1);
    doomed = 1;
}

SignalsHeld::SignalsHeld() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before_);
}

SignalsHeld::~SignalsHeld() {
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

}  // namespace rimg
