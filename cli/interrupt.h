#pragma once

#include <csignal>
#include <string>

namespace rimg {

// From here on the first SIGINT, SIGTERM or SIGHUP only asks the program to stop; a second one, of any of
// these kinds, ends it at once. Signals that were ignored when the program started stay ignored. System calls
// are not restarted by the kernel.
void catchSignals();

// True once a signal has come. Verbs ask between two buckets, and before they put their output in its place;
// then they leave nothing and answer ExitCode::kStopped.
bool stopRequested();

// A file to remove when a signal ends the program, besides those named before. There is room for two.
void removeWhenKilled(const std::string& path);
// Takes a file's name back.
void keepWhenKilled(const std::string& path);

// As long as it lives no signal ends the program, in whatever thread it arrives: for the moment between
// making a file and removeWhenKilled().
class SignalsHeld {
  public:
    SignalsHeld();
    ~SignalsHeld();
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

  private:
    sigset_t before_;
};

}  // namespace rimg
