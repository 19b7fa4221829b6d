#pragma once

#include "cli/exit_codes.h"

namespace CLI {
class App;
}

namespace rimg {

// One function for each verb of the program. It adds the verb, its options and its help to `app`; when the
// command line names the verb, it runs while `app` parses and leaves its exit code in `result`. Both must
// outlive the parse. What a verb throws passes through the parse to the program's main.
void addConvertVerb(CLI::App& app, ExitCode& result);
void addInfoVerb(CLI::App& app, ExitCode& result);
void addPreviewVerb(CLI::App& app, ExitCode& result);
void addNoteVerb(CLI::App& app, ExitCode& result);
void addSettingsVerb(CLI::App& app, ExitCode& result);
void addVerifyVerb(CLI::App& app, ExitCode& result);
void addMissingVerb(CLI::App& app, ExitCode& result);
void addStatsVerb(CLI::App& app, ExitCode& result);
void addHashVerb(CLI::App& app, ExitCode& result);
void addRecoverVerb(CLI::App& app, ExitCode& result);
void addMergeVerb(CLI::App& app, ExitCode& result);
void addDiffVerb(CLI::App& app, ExitCode& result);
void addPiecesVerb(CLI::App& app, ExitCode& result);
void addConfigVerb(CLI::App& app, ExitCode& result);

}  // namespace rimg
