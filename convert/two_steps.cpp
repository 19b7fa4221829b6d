#include "convert/two_steps.h"

#include <new>

#include "support/files.h"

namespace MUtils {
inline namespace v1 {

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
