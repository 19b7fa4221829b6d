#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>
#include <sstream>
#include <string>

#include "cli/report.h"
#include "cli/safe_text.h"
#include "cli/verbs.h"
#include "rawimage/format.h"
#include "rawimage/tools/note.h"
#include "rawimage/tools/summary.h"

namespace rimg {

namespace {

using MUtils::FileState;

constexpr std::size_t kLongestNote = MUtils::kNoteBytes - 1;

struct NoteOptions {
    std::string file;
    std::optional<std::string> text;
    std::optional<std::string> source;
};

// What is in the file `name`, or as much of it as shows that it is too long.
std::string readText(const std::string& name) {
    std::FILE* in = std::fopen(name.c_str(), "rb");
    if (in == nullptr) throw Failure(ExitCode::kUnreadable, name, "cannot be read: " + systemMessage(errno));
    std::string text(2 * MUtils::kNoteBytes, '\0');
    errno = 0;
    text.resize(std::fread(text.data(), 1, text.size(), in));
    const int code = std::ferror(in) != 0 ? errno : 0;
    std::fclose(in);
    if (code != 0) throw Failure(ExitCode::kUnreadable, name, "cannot be read: " + systemMessage(code));
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
        text.pop_back();
    return text;
}

MUtils::FileSummary requireRawImage(const std::string& file) {
    MUtils::FileSummary summary = MUtils::summariseFile(file.c_str(), false);
    if (exitCodeOf(summary.state) == ExitCode::kUnreadable)
        throw Failure(ExitCode::kUnreadable, file, summary.cause);
    return summary;
}

// A terminal gets every line as safeText() shows it.
std::string shownNote(const std::string& note) {
    if (::isatty(STDOUT_FILENO) == 0) return note;
    std::istringstream lines(note);
    std::string shown, line;
    while (std::getline(lines, line))
        shown += safeText(line) + '\n';
    return shown.substr(0, shown.size() - 1);
}

ExitCode printNote(const NoteOptions& options) {
    const MUtils::FileSummary summary = requireRawImage(options.file);
    if (summary.note && !summary.note->text.empty())
        std::printf("%s\n", shownNote(summary.note->text).c_str());
    if (summary.state != FileState::kDamaged) return ExitCode::kGood;
    report(options.file, summary.cause, summary.faultOffset);
    return ExitCode::kDamaged;
}

void checkText(const NoteOptions& options, const std::string& text) {
    if (text.size() > kLongestNote) {
        throw Failure(ExitCode::kUsage, options.file,
                      "a note has at most 1023 characters, this one has " +
                          (text.size() > MUtils::kNoteBytes ? "more" : std::to_string(text.size())));
    }
    if (text.find('\0') != std::string::npos)
        throw Failure(ExitCode::kUsage, options.file, "a note cannot hold NUL bytes");
}

// A new note goes behind the last tag, and with it goes a table that makes the file a finished one.
void checkReplaceable(const NoteOptions& options, const MUtils::FileSummary& summary) {
    const bool sound = summary.state == FileState::kGood || summary.state == FileState::kIncomplete;
    if (summary.note.has_value() || sound) return;
    throw Failure(exitCodeOf(summary.state), options.file,
                  "has no note yet, and none can be added: " + summary.cause, summary.faultOffset);
}

[[noreturn]] void fail(const NoteOptions& options, const ErrorCode& error) {
    switch (const int code = error.getError(); code) {
        case MUtils::kNoteFileNotThisFormat:
            throw Failure(ExitCode::kUnreadable, options.file, error.message());
        case MUtils::kNoteFileDamaged: throw Failure(ExitCode::kDamaged, options.file, error.message());
        case MUtils::kNoteFileUnfinished: throw Failure(ExitCode::kIncomplete, options.file, error.message());
        default:
            if (code > 0) throw outputFailure(options.file, code);
            throw Failure(ExitCode::kFailure, options.file, error.message());
    }
}

ExitCode replaceNote(const NoteOptions& options) {
    const std::string text = options.source ? readText(*options.source) : *options.text;
    checkText(options, text);
    checkReplaceable(options, requireRawImage(options.file));
    if (const ErrorCode error = MUtils::writeNote(options.file.c_str(), text.c_str()); !error.empty())
        fail(options, error);
    return ExitCode::kGood;
}

}  // namespace

void addNoteVerb(CLI::App& app, ExitCode& result) {
    auto options = std::make_shared<NoteOptions>();
    CLI::App* verb = app.add_subcommand("note", "Print a raw image's note, or replace it in place");
    verb->add_option("FILE", options->file, "The raw image")->required();
    verb->add_option("--set", options->text, "The new note, at most 1023 characters");
    verb->add_option("--set-from", options->source, "A text file that contains the new note")
        ->type_name("PATH")
        ->excludes("--set");
    verb->callback([options, &result] {
        result = options->text || options->source ? replaceNote(*options) : printNote(*options);
    });
}

}  // namespace rimg
