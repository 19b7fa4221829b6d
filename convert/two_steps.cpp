#include "convert/two_steps.h"

#include <new>

#include "support/files.h"

namespace MUtils {
inline namespace v1 {

const char* stateName(ConvertState state) {
    switch (state) {
        case ConvertState::kGood: return "good";
        case ConvertState::kIncomplete: return "incomplete";
        case ConvertState::kDamaged: return "damaged";
        case ConvertState::kCannotOpen: return "cannot open";
        case ConvertState::kNotThisFormat: return "not this format";
        case ConvertState::kUnsupported: return "unsupported";
        case ConvertState::kTooLarge: return "too large";
        case ConvertState::kOverscan: return "overscan";
        case ConvertState::kOutsideFrame: return "outside the frame";
        case ConvertState::kBadOption: return "bad option";
        case ConvertState::kLocked: return "locked";
        case ConvertState::kWriteFailed: return "write failed";
        case ConvertState::kStopped: return "stopped";
        case ConvertState::kFailed: break;
    }
    return "failed";
}

bool runStep(ConvertReport& report, const std::function<void()>& step) {
    try {
        step();
        return true;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const ConvertError& error) {
        report.state = error.state();
        report.cause = error.what();
        report.file = error.file();
        report.offset = error.offset();
    } catch (const std::exception& error) {
        report.state = ConvertState::kFailed;
        report.cause = error.what();
    }
    return false;
}

void refuseSameFile(const std::string& output, const std::vector<std::string>& inputs) {
    for (const std::string& input : inputs) {
        if (isSameFile(input.c_str(), output.c_str()))
            throw ConvertError(ConvertState::kWriteFailed, "", "input and output are the same file");
    }
}

ConvertReport runBoth(Conversion& conversion, const std::string& output) {
    if (conversion.prepare()) conversion.run(output);
    return conversion.report();
}

}  // namespace v1
}  // namespace MUtils
