#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>

#include "cli/report.h"
#include "cli/verbs.h"
#include "rawimage/format.h"
#include "rawimage/tools/note.h"
#include "rawimage/tools/summary.h"
#include "support/pstream.h"

namespace rimg {

namespace {

using MUtils::FileVerdict;

constexpr std::size_t kLongestNote = kNoteBytes - 1;

struct NoteOptions {
    std::string file;
    std::string text;
    std::string source;
    bool set = false;
    bool setFrom = false;
};

// What is in the file `name`, or as much of it as tells that it is too long.
std::string readText(const std::string& name) {
    std::FILE* in = std::fopen(name.c_str(), "rb");
    if (in == nullptr) throw Failure(ExitCode::kUnreadable, name, "cannot be read: " + systemMessage(errno));
    std::string text(2 * kNoteBytes, '\0');
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
    const bool other =
        summary.verdict == FileVerdict::kCannotOpen || summary.verdict == FileVerdict::kNotThisFormat;
    if (other) throw Failure(ExitCode::kUnreadable, file, summary.cause);
    return summary;
}

ExitCode stateOf(const MUtils::FileSummary& summary) {
    switch (summary.verdict) {
        case FileVerdict::kGood: return ExitCode::kGood;
        case FileVerdict::kUnfinished: return ExitCode::kIncomplete;
        default: return ExitCode::kDamaged;
    }
}

ExitCode printNote(const NoteOptions& options) {
    const MUtils::FileSummary summary = requireRawImage(options.file);
    char note[kNoteBytes + 1] = {};
    readRawNote(options.file.c_str(), note, kNoteBytes);
    if (note[0] != 0) std::printf("%s\n", note);
    if (summary.verdict == FileVerdict::kDamaged) report(options.file, summary.cause, summary.faultOffset);
    return summary.verdict == FileVerdict::kDamaged ? ExitCode::kDamaged : ExitCode::kGood;
}

// Refuses everything that would go wrong half-way, as the file is changed in place.
void checkReplaceable(const NoteOptions& options, const std::string& text,
                      const MUtils::FileSummary& summary) {
    if (text.size() > kLongestNote) {
        throw Failure(ExitCode::kUsage, options.file,
                      "a note has at most 1023 characters, this one has " +
                          (text.size() > kNoteBytes ? "more" : std::to_string(text.size())));
    }
    if (text.find('\0') != std::string::npos)
        throw Failure(ExitCode::kUsage, options.file, "a note cannot hold NUL bytes");
    PFileStream writable;
    const int code =
        writable.Open(options.file.c_str(), PFileStream::kReadWrite, 1, PFileStream::kOpenExisting);
    if (code != 0) throw Failure(ExitCode::kFailure, options.file, outputCause(code));
    writable.Close();
    if (summary.note.has_value() || summary.verdict == FileVerdict::kGood) return;
    // A new note goes behind the last tag, and with it goes a table that makes the file a finished one.
    throw Failure(stateOf(summary), options.file, "has no note yet, and none can be added: " + summary.cause,
                  summary.faultOffset);
}

ExitCode replaceNote(const NoteOptions& options) {
    std::string text = options.setFrom ? readText(options.source) : options.text;
    checkReplaceable(options, text, requireRawImage(options.file));
    replaceRawNote(options.file.c_str(), text.data(), 0, nullptr);
    char stored[kNoteBytes] = {};
    readRawNote(options.file.c_str(), stored, kNoteBytes);
    if (text != std::string(stored, strnlen(stored, kNoteBytes))) {
        throw Failure(ExitCode::kFailure, options.file, "the note could not be written");
    }
    return ExitCode::kGood;
}

}  // namespace

void addNoteVerb(CLI::App& app, ExitCode& result) {
    auto options = std::make_shared<NoteOptions>();
    CLI::App* verb = app.add_subcommand("note", "Print a raw image's note, or replace it in place");
    verb->add_option("FILE", options->file, "The raw image")->required();
    auto* set = verb->add_option("--set", options->text, "The new note, at most 1023 characters");
    auto* setFrom = verb->add_option("--set-from", options->source, "A text file that holds the new note");
    set->excludes(setFrom);
    setFrom->type_name("PATH");
    verb->callback([options, set, setFrom, &result] {
        options->set = set->count() > 0;
        options->setFrom = setFrom->count() > 0;
        result = options->set || options->setFrom ? replaceNote(*options) : printNote(*options);
    });
}

}  // namespace rimg
