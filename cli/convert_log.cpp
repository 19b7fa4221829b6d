#include "cli/convert_log.h"

#include <algorithm>
#include <utility>

#include "cli/json_output.h"

namespace rimg {

namespace {

constexpr std::size_t kMostTold = 10;

Json jsonOf(const ConvertLoss& loss) {
    return {{"kind", loss.kind},
            {"file", loss.file},
            {"text", loss.text},
            {"names", loss.names},
            {"count", loss.count ? Json(*loss.count) : Json()},
            {"offset", loss.offset != Failure::kNoOffset ? Json(loss.offset) : Json()}};
}

}  // namespace

void ConvertLog::lose(ConvertLoss loss) {
    report(loss.file, loss.text, loss.offset);
    losses_.push_back(std::move(loss));
}

void ConvertLog::lose(const std::string& kind, const std::string& file, const std::vector<std::string>& texts,
                      const std::string& more) {
    for (std::size_t i = 0; i < texts.size(); ++i) {
        if (i < kMostTold) report(file, texts[i]);
        losses_.push_back({kind, file, texts[i], {}, {}});
    }
    if (texts.size() > kMostTold) report(file, std::to_string(texts.size() - kMostTold) + ' ' + more);
}

void ConvertLog::remark(const std::string& file, const std::string& text) {
    report(file, text);
    remarks_.push_back(text);
}

void ConvertLog::refuseLosses() const {
    if (!options_.strict || losses_.empty()) return;
    const std::string what = losses_.size() == 1 ? "this loss" : "these losses";
    throw Failure(ExitCode::kMismatch, options_.input,
                  "--strict does not allow " + what + "; nothing was written");
}

void ConvertLog::print(ExitCode code, const Failure* failure) const {
    Json json{{"input", options_.input},
              {"output", options_.output},
              {"to", to_ != nullptr ? Json(to_) : Json()},
              {"exitCode", static_cast<int>(code)},
              {"fault", faultOf(failure)},
              {"frame", nullptr},
              {"origin", nullptr},
              {"window", nullptr},
              {"channels", channels_},
              {"regions", regions_},
              {"losses", Json::array()},
              {"remarks", remarks_}};
    if (frame_) json["frame"] = {{"width", frame_->width()}, {"height", frame_->height()}};
    if (origin_) json["origin"] = {{"x", origin_->x0}, {"y", origin_->y0}};
    if (window_) json["window"] = jsonOf(*window_);
    for (const ConvertLoss& loss : losses_)
        json["losses"].push_back(jsonOf(loss));
    printJson(json);
}

}  // namespace rimg
