#pragma once

#include "support/new_file.h"

namespace rimg {

// From here on the first SIGINT, SIGTERM or SIGHUP only asks the program to stop; a second one, of any of
// these kinds, ends it at once. Signals that were ignored when the program started stay ignored. System calls
// are not restarted by the kernel.
void catchSignals();

// True once a signal has come. Verbs ask between two buckets, and before they put their output in its place;
// then they leave nothing and answer ExitCode::kStopped.
bool stopRequested();

// Has the files of an output removed when a signal ends the program. There is room for two at a time.
MUtils::NewFileCleanup& removedWhenKilled();

}  // namespace rimg
