#include "cli/convert_output.h"

#include <algorithm>
#include <iterator>
#include <map>

#include "cli/json_output.h"

namespace rimg {

namespace {

using MUtils::ConvertNote;
using MUtils::ConvertReport;
using MUtils::ConvertState;

// Of losses of these kinds there may be many: the first ones get a line each, the others one together.
constexpr std::int64_t kMostShown = 10;
constexpr struct {
    const char* kind;
    const char* more;
} kListed[] = {{"name", " more channels get other names"},
               {"damage", " more faults; rimg verify lists them"}};

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

bool isListed(const std::string& kind) {
    return std::any_of(std::begin(kListed), std::end(kListed),
                       [&kind](const auto& listed) { return kind == listed.kind; });
}

// The text with what the command line has to offer.
std::string textOf(const ConvertNote& note, const ConvertReport& report) {
    const std::string origin =
        "; --origin " + std::to_string(report.originX) + ',' + std::to_string(report.originY);
    if (note.kind == "origin") return note.text + origin + " gives it back";
    if (note.kind == "display") return note.text + origin + " gives the frame its place again";
    if (note.kind == "halves") return note.text + "; --bits 16 would pack it";
    if (note.kind == "missing" && endsWith(note.text, " and more"))
        return note.text + "; rimg missing lists them";
    if (note.kind == "attributes") {
        std::string text = note.text;
        return text.insert(text.find(':'), " (--attributes-from copies them from here)");
    }
    return note.text;
}

Json jsonOf(const ConvertNote& note, const ConvertVerb& verb, const ConvertReport& report) {
    return {{"kind", note.kind},
            {"file", note.file.empty() ? verb.output : note.file},
            {"text", textOf(note, report)},
            {"names", note.names},
            {"count", note.count ? Json(*note.count) : Json()},
            {"offset", note.offset ? Json(*note.offset) : Json()}};
}

}  // namespace

std::string hintFor(const ConvertVerb& verb, const ConvertReport& report) {
    const bool fromExr = verb.from == ImageFormat::kExr;
    switch (report.state) {
        case ConvertState::kOverscan:
            return "; --frame data or --frame union keeps them, --crop-overscan leaves them out";
        case ConvertState::kOutsideFrame: return "; --frame data or --frame union keeps them";
        case ConvertState::kTooLarge:
            return fromExr ? "; a smaller --bucket takes less"
                           : "; fewer --channels, or --kind tiled, may fit";
        case ConvertState::kStopped: return "; nothing was written";
        default: return "";
    }
}

void NotePrinter::print(const ConvertReport& report) {
    const auto show = [&](const ConvertNote& note) {
        rimg::report(note.file.empty() ? verb_.output : note.file, textOf(note, report),
                     note.offset.value_or(Failure::kNoOffset));
    };
    std::map<std::string, std::int64_t> shown, hidden;
    for (; losses_ < report.losses.size(); ++losses_) {
        const ConvertNote& loss = report.losses[losses_];
        if (!isListed(loss.kind) || ++shown[loss.kind] <= kMostShown) {
            show(loss);
        } else {
            hidden[loss.kind] += loss.count.value_or(1);
        }
    }
    for (const auto& [kind, more] : kListed) {
        if (hidden[kind] > 0) rimg::report(verb_.input, std::to_string(hidden[kind]) + more);
    }
    for (; remarks_ < report.remarks.size(); ++remarks_)
        show(report.remarks[remarks_]);
}

void printConvertJson(const ConvertVerb& verb, const ConvertReport& report, ExitCode code,
                      const Failure* failure) {
    const bool fromExr = verb.from == ImageFormat::kExr;
    Json json{{"input", verb.input},
              {"output", verb.output},
              {"to", verb.from == ImageFormat::kOther ? Json() : Json(fromExr ? "raw" : "exr")},
              {"exitCode", static_cast<int>(code)},
              {"fault", faultOf(failure)},
              {"frame", nullptr},
              {"origin", nullptr},
              {"window", nullptr},
              {"channels", report.channels},
              {"regions", report.regions},
              {"losses", Json::array()},
              {"remarks", Json::array()}};
    if (!report.frame.empty()) {
        json["frame"] = {{"width", report.frame.width()}, {"height", report.frame.height()}};
        json["origin"] = {{"x", report.originX}, {"y", report.originY}};
    }
    if (!report.window.empty()) json["window"] = jsonOf(report.window);
    for (const ConvertNote& loss : report.losses)
        json["losses"].push_back(jsonOf(loss, verb, report));
    for (const ConvertNote& remark : report.remarks)
        json["remarks"].push_back(textOf(remark, report));
    printJson(json);
}

}  // namespace rimg
