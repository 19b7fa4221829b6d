#pragma once

namespace rimg {

// From here on the first SIGINT or SIGTERM only asks the program to stop; a second one, of either kind, ends
// it at once. Signals that were ignored when the program started stay ignored. System calls are not restarted
// by the kernel.
void catchSignals();

// True once a signal has come. Verbs ask between two buckets; then they finish their output so that it can be
// read, and answer ExitCode::kStopped.
bool stopRequested();

}  // namespace rimg
