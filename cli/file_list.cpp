#include "cli/file_list.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "cli/interrupt.h"
#include "cli/report.h"

namespace rimg {

namespace {

constexpr std::int64_t kMostFiles = 1'000'000;
constexpr std::size_t kMostBytes = std::size_t{256} << 20;  // of all names together, and of a list

[[noreturn]] void refuseSize() {
    throw Failure(ExitCode::kUsage, "",
                  "more than " + std::to_string(kMostFiles) + " files, or 256 MiB of their names");
}

struct FrameRange {
    std::int64_t first = 0;
    std::int64_t step = 1;
    std::int64_t count = 0;
};

bool readNumber(const char*& at, const char* end, int& number) {
    const auto read = std::from_chars(at, end, number);
    at = read.ptr;
    return read.ec == std::errc();
}

// Parses "FIRST", "FIRST-LAST" or "FIRST-LASTxSTEP"; false when `text` is anything else.
bool parseRange(std::string_view text, FrameRange& range) {
    const char* at = text.data();
    const char* const end = at + text.size();
    int first = 0;
    if (!readNumber(at, end, first)) return false;
    int last = first;
    if (at != end && (*at++ != '-' || !readNumber(at, end, last))) return false;
    int step = 1;
    if (at != end && (*at++ != 'x' || !readNumber(at, end, step))) return false;
    const bool wrongWay = step < 0 && last > first;
    if (at != end || step == 0 || wrongWay) return false;
    range.first = first;
    range.step = last < first && step > 0 ? -std::int64_t{step} : step;
    range.count = (std::int64_t{last} - first) / range.step + 1;
    return true;
}

// Parses a list of ranges; returns what is wrong with it, else "".
std::string parseFrames(const std::string& text, std::vector<FrameRange>& ranges) {
    std::int64_t count = 0;
    for (std::size_t begin = 0, end = 0; end < text.size(); begin = end + 1) {
        end = std::min(text.find(',', begin), text.size());
        FrameRange range;
        if (!parseRange(std::string_view(text).substr(begin, end - begin), range)) {
            return "frames are numbers and ranges such as 1-10 or 1-100x2,120, not \"" +
                   text.substr(begin, end - begin) + '"';
        }
        count += range.count;
        if (count > kMostFiles)
            return "at most " + std::to_string(kMostFiles) + " frames, not \"" + text + '"';
        ranges.push_back(range);
    }
    return ranges.empty() ? "no frames" : "";
}

std::string checkFrames(const std::string& text) {
    std::vector<FrameRange> ranges;
    return parseFrames(text, ranges);
}

// Each frame once, where it is first named.
std::vector<std::int64_t> framesOf(const std::string& text) {
    std::vector<FrameRange> ranges;
    parseFrames(text, ranges);
    std::vector<std::int64_t> frames;
    std::unordered_set<std::int64_t> known;
    for (const FrameRange& range : ranges) {
        for (std::int64_t i = 0; i < range.count; ++i) {
            const std::int64_t frame = range.first + i * range.step;
            if (known.insert(frame).second) frames.push_back(frame);
        }
    }
    return frames;
}

// With zeros up to `width`, the sign included, as printf() does it.
std::string padded(std::int64_t number, std::size_t width) {
    std::string text = std::to_string(number);
    if (text.size() < width) text.insert(number < 0 ? 1 : 0, width - text.size(), '0');
    return text;
}

// A name with places for the number of a frame: a run of # as wide as the number is to be, %d, or %04d of
// whatever width.
class NamePattern {
  public:
    explicit NamePattern(const std::string& name) {
        for (std::size_t at = 0; at < name.size();) {
            if (const auto [length, width] = placeAt(name, at); length > 0) {
                places_.push_back({std::exchange(text_, ""), width});
                at += length;
            } else {
                text_ += name[at++];
            }
        }
    }

    bool hasPlaces() const { return !places_.empty(); }
    std::string nameOf(std::int64_t frame) const {
        std::string name;
        for (const auto& [text, width] : places_)
            name += text + padded(frame, width);
        return name + text_;
    }

  private:
    // The length of the place that begins there, 0 for none, and the width of its number.
    static std::pair<std::size_t, std::size_t> placeAt(const std::string& name, std::size_t at) {
        const std::size_t end = std::min(name.find_first_not_of('#', at), name.size());
        if (end > at) return {end - at, end - at};
        if (name.compare(at, 2, "%d") == 0) return {2, 0};
        int width = 0;
        const char* digits = name.data() + at + 2;
        if (name.compare(at, 2, "%0") != 0 || !readNumber(digits, name.data() + name.size(), width))
            return {};
        const auto length = static_cast<std::size_t>(digits - name.data()) - at;
        // Wider than any name may be it is none.
        if (width < 1 || width > FILENAME_MAX || name.compare(at + length, 1, "d") != 0) return {};
        return {length + 1, static_cast<std::size_t>(width)};
    }

    std::vector<std::pair<std::string, std::size_t>> places_;  // with the text before each
    std::string text_;                                         // behind the last one
};

// Names, as many as memory is to be spent on.
class BoundedNames {
  public:
    void add(std::string name) {
        bytes_ += name.size();
        if (names_.size() == kMostFiles || bytes_ > kMostBytes) refuseSize();
        names_.push_back(std::move(name));
    }
    bool empty() const { return names_.empty(); }
    std::vector<std::string> take() { return std::move(names_); }

  private:
    std::vector<std::string> names_;
    std::size_t bytes_ = 0;
};

struct CloseFile {
    void operator()(std::FILE* file) const {
        if (file != stdin) std::fclose(file);
    }
};

// Adds the names in the file `list`, each with an `ending` behind it, which the last one may lack. Empty
// lines count for nothing.
void readList(const std::string& list, char ending, BoundedNames& names) {
    const std::string shown = list == "-" ? "standard input" : list;
    const std::unique_ptr<std::FILE, CloseFile> file(list == "-" ? stdin : std::fopen(list.c_str(), "rb"));
    const auto unreadable = [&shown](int code) {
        return Failure(ExitCode::kUnreadable, shown, "cannot be read: " + systemMessage(code));
    };
    if (file == nullptr) throw unreadable(errno);
    std::string name;
    const auto finishName = [&] {
        if (ending == '\n' && !name.empty() && name.back() == '\r') name.pop_back();
        if (!name.empty()) names.add(std::exchange(name, ""));
    };
    std::size_t bytes = 0;
    for (int c = 0; (c = ::getc_unlocked(file.get())) != EOF;) {
        if (++bytes > kMostBytes) refuseSize();
        if (c == '\0' && ending != '\0')
            throw Failure(ExitCode::kUsage, shown, "contains NUL bytes: it is no list of names, or needs -0");
        if (c == ending) {
            finishName();
        } else if (name.size() < FILENAME_MAX) {
            name += static_cast<char>(c);
        } else {
            throw Failure(ExitCode::kUsage, shown, "contains a name that is longer than a name may be");
        }
    }
    const int code = errno;
    if (stopRequested()) throw Failure(ExitCode::kStopped, "", "stopped");
    if (std::ferror(file.get()) != 0) throw unreadable(code);
    finishName();
    if (names.empty()) throw Failure(ExitCode::kUsage, shown, "contains no file names");
}

}  // namespace

void FileList::addTo(CLI::App& verb, const std::string& description) {
    CLI::Option* file = verb.add_option("FILE", files_, description)->required();
    verb.add_option(
            "--frames", frames_,
            "Take these frames of each FILE, in whose name # or %04d stands for the number, of as many "
            "digits: 1-10, 1-100x2,120")
        ->type_name("LIST")
        ->check(checkFrames);
    CLI::Option* list = verb.add_option_function<std::string>(
        "--files-from",
        [this, file](const std::string& name) {
            list_ = name;
            file->required(false);
        },
        "Take further names from a file, one on a line; - is standard input");
    list->type_name("PATH");
    verb.add_flag("-0,--null", nullEnds_, "The names of --files-from end with NUL bytes")->needs(list);
}

std::vector<std::string> FileList::names() const {
    BoundedNames given;
    for (const std::string& file : files_)
        given.add(file);
    if (!list_.empty()) readList(list_, nullEnds_ ? '\0' : '\n', given);
    if (frames_.empty()) return given.take();
    const std::vector<std::int64_t> frames = framesOf(frames_);
    BoundedNames numbered;
    for (const std::string& name : given.take()) {
        const NamePattern pattern(name);
        if (!pattern.hasPlaces())
            throw Failure(ExitCode::kUsage, name, "has neither # nor %04d for the number of --frames");
        for (const std::int64_t frame : frames)
            numbered.add(pattern.nameOf(frame));
    }
    return numbered.take();
}

}  // namespace rimg
