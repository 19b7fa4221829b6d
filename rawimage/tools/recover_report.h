#pragma once

#include <string>

#include "rawimage/inspect/inspection.h"
#include "rawimage/tools/recover.h"

// How the report of a recovery, in place or not, or of a resumption is filled.

namespace MUtils {
inline namespace v1 {

RecoverReport recoverFailure(RecoverState state, std::string cause);
// For the code with which the input, or the file to be changed, did not open.
RecoverReport cannotOpenForRecovery(int code);
void setWriteFailure(RecoverReport& report, ErrorCode error);

// Takes over what the inspection of the input found. False when there is nothing to go on with: the report
// has the state then.
bool reportInspection(const Inspection& file, RecoverReport& report);

// Reports kNotInPlace and returns false when the file has damage that cutting its end does not mend. With
// `renderedAgain`, pixel tags of an unfinished file whose place is wrong or in doubt are no such damage.
bool isSoundButForItsEnd(const Inspection& file, bool renderedAgain, RecoverReport& report);

}  // namespace v1
}  // namespace MUtils
