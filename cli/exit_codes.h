#pragma once

#include "rawimage/inspect/inspection.h"

namespace rimg {

// What the program answers to its caller. docs/cli.md shows the same table.
enum class ExitCode : int {
    kGood = 0,
    kFailure = 1,  // anything without a row of its own: no memory, an output that cannot be written, content
                   // that the format cannot carry
    kUsage = 2,    // the command line is wrong; nothing was done
    kIncomplete = 3,  // an input was never finished, or lacks pixels; what is in it was used
    kDamaged = 4,     // part of an input is lost
    kUnreadable = 5,  // an input cannot be opened or is of another format, or a file has another writer
    kMismatch = 6,    // the inputs do not fit together, or a conversion would lose what it must not
    kStopped = 75     // stopped by a signal; there is no output, and what was there is as it was
};

// What a verb answers for a file that it has read and used as far as possible.
constexpr ExitCode exitCodeOf(MUtils::FileState state) {
    switch (state) {
        case MUtils::FileState::kGood: return ExitCode::kGood;
        case MUtils::FileState::kUnfinished:
        case MUtils::FileState::kIncomplete: return ExitCode::kIncomplete;
        case MUtils::FileState::kDamaged: return ExitCode::kDamaged;
        case MUtils::FileState::kNotThisFormat:
        case MUtils::FileState::kCannotOpen: break;
    }
    return ExitCode::kUnreadable;
}

// How bad a result is beside others. 3 to 6 grow worse as they count up: from a file that gave all it holds
// to work that could not begin. Failures that are not the inputs' fault come next, and a stop is worst: it
// must not hide behind a file that came before it, as the files after it were never looked at.
constexpr int badness(ExitCode code) {
    switch (code) {
        case ExitCode::kGood: return 0;
        case ExitCode::kFailure: return 10;
        case ExitCode::kUsage: return 11;
        case ExitCode::kStopped: return 12;
        default: return static_cast<int>(code);
    }
}

// The result of two files together.
constexpr ExitCode worse(ExitCode a, ExitCode b) {
    return badness(a) < badness(b) ? b : a;
}

}  // namespace rimg
