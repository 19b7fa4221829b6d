#include "cli/convert_output.h"

#include <algorithm>

#include "cli/json_output.h"

namespace rimg {

namespace {

using MUtils::ConvertNote;
using MUtils::ConvertReport;
using MUtils::ConvertState;

constexpr std::ptrdiff_t kMostNames = 10;

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
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
    if (note.kind == "damage" && endsWith(note.text, " more faults"))
        return note.text + "; rimg verify lists them";
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
    const auto isName = [](const ConvertNote& note) { return note.kind == "name"; };
    const auto begin = report.losses.begin() + static_cast<std::ptrdiff_t>(losses_);
    const std::ptrdiff_t names = std::count_if(begin, report.losses.end(), isName);
    std::ptrdiff_t shown = 0;
    for (auto loss = begin; loss != report.losses.end(); ++loss) {
        if (!isName(*loss) || shown++ < kMostNames) show(*loss);
    }
    if (names > kMostNames)
        rimg::report(verb_.input, std::to_string(names - kMostNames) + " more channels get other names");
    losses_ = report.losses.size();
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
