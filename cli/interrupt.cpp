#include "cli/interrupt.h"

#include <unistd.h>

#include <atomic>
#include <climits>
#include <csignal>
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

// As long as they are held no signal ends the program, in whatever thread it arrives.
class DoomedFiles final : public MUtils::NewFileCleanup {
  public:
    void hold() override {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, &before_);
        held = true;
    }
    void release() override {
        held = false;
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    void made(const std::string& path) override {
        for (Doomed& file : doomed) {
            if (file.named || path.size() >= sizeof file.path) continue;
            std::memcpy(file.path, path.c_str(), path.size() + 1);
            file.named = true;
            return;
        }
    }
    void gone(const std::string& path) override {
        for (Doomed& file : doomed) {
            if (file.named && path == file.path) file.named = false;
        }
    }

  private:
    sigset_t before_{};
};

}  // namespace

void catchSignals() {
    std::signal(SIGXFSZ, SIG_IGN);
    handle({SIGINT, SIGTERM, SIGHUP}, onStopSignal);
    handle({SIGQUIT, SIGPIPE, SIGALRM, SIGXCPU, SIGABRT, SIGUSR1, SIGUSR2}, onDeadlySignal);
}

bool stopRequested() {
    return stopSignal != 0;
}

MUtils::NewFileCleanup& removedWhenKilled() {
    static DoomedFiles files;
    return files;
}

}  // namespace rimg
