#include "cli/verb_help.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <vector>

#include "cli/diff_codes.h"
#include "cli/exit_codes.h"
#include "cli/help_layout.h"

namespace rimg {

namespace {

struct CodeRow {
    ExitCode code;
    const char* meaning;
};

struct HelpEnd {
    const char* verb;
    std::vector<const char*> examples;
    std::vector<CodeRow> codes;
};

constexpr CodeRow kFailed{ExitCode::kFailure, "another failure, such as a standard output that is full"};
constexpr CodeRow kWrongUsage{ExitCode::kUsage, "usage: the command line is wrong, nothing was done"};
constexpr CodeRow kNotReadable{ExitCode::kUnreadable, "not readable, or of another format"};
constexpr CodeRow kBySignal{ExitCode::kStopped, "stopped by a signal"};

// Of the program, which comes first, and of each verb.
const std::vector<HelpEnd>& helpEnds() {
    static const std::vector<HelpEnd> ends{
        {"",
         {"rimg VERB --help", "rimg info frame.rimg", "rimg preview frame.rimg -o frame.png"},
         {{ExitCode::kGood, "good"},
          {ExitCode::kFailure, "another failure"},
          kWrongUsage,
          {ExitCode::kIncomplete, "incomplete but recoverable"},
          {ExitCode::kDamaged, "damaged: part of a file is lost"},
          {ExitCode::kUnreadable, "cannot be opened, is not of this format, or another writer has it open"},
          {ExitCode::kMismatch, "the inputs do not fit together, or a loss that is not allowed"},
          kBySignal}},
        {"convert",
         {"rimg convert frame.exr frame.rimg", "rimg convert frame.rimg frame.exr --bits 16 --kind tiled"},
         {{ExitCode::kGood, "converted"},
          {ExitCode::kFailure, "OUT cannot be written"},
          kWrongUsage,
          {ExitCode::kIncomplete, "the input was never finished, or lacks pixels"},
          {ExitCode::kDamaged, "pixels are damaged"},
          kNotReadable,
          {ExitCode::kMismatch, "pixels lie outside the frame, or --strict found a loss"},
          kBySignal}},
        {"info",
         {"rimg info frame.rimg", "rimg info --json --tags shot/*.rimg"},
         {{ExitCode::kGood, "finished and sound"},
          kFailed,
          kWrongUsage,
          {ExitCode::kIncomplete, "unfinished or incomplete"},
          {ExitCode::kDamaged, "damaged"},
          kNotReadable,
          kBySignal}},
        {"preview",
         {"rimg preview frame.rimg -o frame.png",
          "rimg preview frame.rimg -o depth.png --channel depth --size 640x360"},
         {{ExitCode::kGood, "the picture shows the whole file"},
          {ExitCode::kFailure, "no such channel, or the picture cannot be written"},
          kWrongUsage,
          {ExitCode::kIncomplete, "unfinished or incomplete; the picture shows what is there"},
          {ExitCode::kDamaged, "damaged; the picture shows what could be read"},
          kNotReadable,
          kBySignal}},
        {"note",
         {"rimg note frame.rimg", "rimg note frame.rimg --set \"approved, take 3\""},
         {{ExitCode::kGood, "printed or replaced"},
          {ExitCode::kFailure, "the note cannot be written"},
          kWrongUsage,
          {ExitCode::kIncomplete, "an unfinished file without a note takes none"},
          {ExitCode::kDamaged, "damaged; without a note it takes none"},
          kNotReadable}},
        {"settings",
         {"rimg settings frame.rimg -o frame.settings", "rimg settings frame.rimg > frame.settings"},
         {{ExitCode::kGood, "written"},
          {ExitCode::kFailure, "the file has no settings, or they cannot be written"},
          kWrongUsage,
          {ExitCode::kDamaged, "the settings are damaged"},
          kNotReadable,
          kBySignal}},
        {"verify",
         {"rimg verify frame.rimg", "rimg verify --quick --json shot/*.rimg"},
         {{ExitCode::kGood, "good"},
          kFailed,
          kWrongUsage,
          {ExitCode::kIncomplete, "unfinished or incomplete"},
          {ExitCode::kDamaged, "damaged"},
          kNotReadable,
          kBySignal}},
        {"missing",
         {"rimg missing frame.rimg", "rimg missing --deep --buckets frame.rimg"},
         {{ExitCode::kGood, "nothing is missing"},
          kFailed,
          kWrongUsage,
          {ExitCode::kIncomplete, "boxes are missing, or the file ends before its frame"},
          {ExitCode::kDamaged, "damaged"},
          kNotReadable,
          kBySignal}},
        {"stats",
         {"rimg stats frame.rimg", "rimg stats --fail-on nan,inf --channels 'color,diffuse*' shot/*.rimg"},
         {{ExitCode::kGood, "good"},
          {ExitCode::kFailure, "another failure, such as buckets that are too large"},
          kWrongUsage,
          {ExitCode::kIncomplete, "unfinished or incomplete; the numbers are of what is there"},
          {ExitCode::kDamaged, "damaged, or --fail-on found a value; the numbers are of what could be read"},
          kNotReadable,
          kBySignal}},
        {"hash",
         {"rimg hash frame.rimg", "rimg hash --each --metadata shot/*.rimg"},
         {{ExitCode::kGood, "good"},
          {ExitCode::kFailure, "another failure, such as buckets that are too large"},
          kWrongUsage,
          {ExitCode::kIncomplete, "unfinished or incomplete; the hash is marked"},
          {ExitCode::kDamaged, "damaged: there is no hash"},
          kNotReadable,
          kBySignal}},
        {"recover",
         {"rimg recover broken.rimg -o saved.rimg", "rimg recover --in-place unfinished.rimg"},
         {{ExitCode::kGood, "saved; nothing of the input is lost"},
          {ExitCode::kFailure, "the output cannot be written"},
          kWrongUsage,
          {ExitCode::kIncomplete, "saved and sound; what is lost of the input is reported"},
          {ExitCode::kDamaged, "damage that --in-place does not mend: the file is as it was"},
          {ExitCode::kUnreadable, "nothing to recover, SIBLING is not readable, or FILE has another writer"},
          {ExitCode::kMismatch, "SIBLING or the size contradicts the pixels, or SIBLING has lost the same"},
          kBySignal}},
        {"merge",
         {"rimg merge left.rimg right.rimg -o frame.rimg",
          "rimg merge --delete-inputs piece*.rimg -o frame.rimg"},
         {{ExitCode::kGood, "merged"},
          {ExitCode::kFailure, "the output cannot be written, or is not sound"},
          kWrongUsage,
          {ExitCode::kDamaged, "a piece is damaged, and no other one has its area: recover it first"},
          {ExitCode::kUnreadable, "a piece is not readable, of another format, or OUT has another writer"},
          {ExitCode::kMismatch, "the pieces are not of one frame, overlap, or leave holes"},
          kBySignal}},
        {"diff",
         {"rimg diff today.rimg yesterday.rimg",
          "rimg diff --fail 0.01 --failpercent 1 a.rimg b.exr -o d.png"},
         {{exitCodeOf(DiffCode::kGood), "the frames agree"},
          {exitCodeOf(DiffCode::kWarnings), "warnings"},
          {exitCodeOf(DiffCode::kFailures), "failures; or usage: the command line is wrong"},
          {exitCodeOf(DiffCode::kMismatch), "not the same size or channels"},
          {exitCodeOf(DiffCode::kFileError), "a file is damaged or not readable, or OUT cannot be written"},
          kBySignal}},
        {"pieces",
         {"rimg pieces --size 7680x4320 --bucket 64x64 --count 16",
          "rimg pieces --size frame1.rimg --by-cost frame1.rimg --count 16 --json"},
         {{ExitCode::kGood, "cut, maybe into fewer pieces"},
          {ExitCode::kFailure, "another failure, such as a standard output that is full"},
          kWrongUsage,
          {ExitCode::kIncomplete, "FILE lacks its resolution"},
          {ExitCode::kDamaged, "FILE is damaged, and its resolution lost"},
          {ExitCode::kUnreadable, "FILE is not readable, or of another format"}}},
        {"config",
         {"rimg config --prefix", "export OIIO_LIBRARY_PATH=$(rimg config --oiio-plugin-dir)"},
         {{ExitCode::kGood, "printed"},
          {ExitCode::kFailure, "the plugin is not installed, or another failure"},
          kWrongUsage}}};
    return ends;
}

std::string textOf(const HelpEnd& end) {
    std::string text = "Examples:\n";
    for (const char* example : end.examples)
        text += std::string("  ") + example + '\n';
    text += "\nExit codes:";
    for (const CodeRow& row : end.codes) {
        char code[16];
        std::snprintf(code, sizeof code, "\n  %2d  ", static_cast<int>(row.code));
        text += code;
        text += row.meaning;
    }
    return text;
}

}  // namespace

void setHelpLayout(CLI::App& app) {
    app.formatter(std::make_shared<HelpLayout>());
    app.set_help_flag("-h,--help", "Show this help");
}

void addHelpEnds(CLI::App& app) {
    for (const HelpEnd& end : helpEnds()) {
        const bool program = *end.verb == '\0';
        CLI::App& owner = program ? app : *app.get_subcommand(end.verb);
        if (!program) owner.group("Verbs");
        owner.footer(textOf(end));
    }
}

}  // namespace rimg
