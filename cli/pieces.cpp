#include "rawimage/tools/pieces.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/json_output.h"
#include "cli/option_checks.h"
#include "cli/report.h"
#include "cli/verbs.h"

namespace rimg {

namespace {

using MUtils::FramePiece;
using MUtils::Inspection;
using MUtils::PieceOptions;

struct PiecesVerbOptions {
    std::string size;                       // or a file that has it
    int bucketWidth = 0, bucketHeight = 0;  // 0 when not given
    std::string costs;
    int count = 0;
    bool json = false;
};

// Throws Failure when the file has no frame.
Inspection inspected(const std::string& name) {
    MUtils::InspectOptions options;
    options.depth = MUtils::InspectDepth::kHeaders;
    Inspection found = MUtils::inspectFile(name.c_str(), options);
    const ExitCode code = exitCodeOf(found.state);
    if (code == ExitCode::kUnreadable) throw Failure(code, name, found.cause);
    if (found.facts.frame().empty())
        throw Failure(code == ExitCode::kDamaged ? code : ExitCode::kIncomplete, name,
                      "the resolution is missing");
    return found;
}

// The size of a WxH, else that of a file.
void takeSizes(const PiecesVerbOptions& options, PieceOptions& cutting) {
    if (const PixelSize size = parseSize(options.size); size.width > 0) {
        cutting.width = size.width;
        cutting.height = size.height;
    } else {
        const Inspection file = inspected(options.size);
        cutting.width = file.facts.frame().width();
        cutting.height = file.facts.frame().height();
        const auto& buckets = file.facts.buckets;
        if (buckets && buckets->p1 > 0 && buckets->p2 > 0) {
            cutting.bucketWidth = buckets->p1;
            cutting.bucketHeight = buckets->p2;
        }
    }
    if (options.bucketWidth == 0) return;
    cutting.bucketWidth = options.bucketWidth;
    cutting.bucketHeight = options.bucketHeight;
}

void printPieces(const std::vector<FramePiece>& pieces) {
    for (const FramePiece& piece : pieces) {
        const MUtils::PixelBox& box = piece.box;
        std::printf("%lld,%lld,%lld,%lld\n", static_cast<long long>(box.x0), static_cast<long long>(box.y0),
                    static_cast<long long>(box.x1), static_cast<long long>(box.y1));
    }
}

void printPiecesJson(const PieceOptions& cutting, const std::vector<FramePiece>& pieces) {
    Json json{{"frame", {{"width", cutting.width}, {"height", cutting.height}}},
              {"bucket", {{"width", cutting.bucketWidth}, {"height", cutting.bucketHeight}}},
              {"pieces", Json::array()}};
    for (const FramePiece& piece : pieces) {
        json["pieces"].push_back(jsonOf(piece.box));
        json["pieces"].back()["share"] = piece.share;
    }
    printJson(json);
}

ExitCode runPieces(const PiecesVerbOptions& options) {
    PieceOptions cutting;
    takeSizes(options, cutting);
    cutting.count = options.count;
    std::optional<Inspection> costs;
    if (!options.costs.empty()) cutting.costs = &costs.emplace(inspected(options.costs));
    const std::vector<FramePiece> pieces = MUtils::cutFrame(cutting);
    if (pieces.empty()) throw Failure(ExitCode::kFailure, options.size, "is too large to cut");
    options.json ? printPiecesJson(cutting, pieces) : printPieces(pieces);
    flushOutput();
    if (static_cast<int>(pieces.size()) < options.count) {
        report("", "only " + std::to_string(pieces.size()) + " pieces, not " + std::to_string(options.count) +
                       ": there are no more buckets");
    }
    return ExitCode::kGood;
}

}  // namespace

void addPiecesVerb(CLI::App& app, ExitCode& result) {
    auto options = std::make_shared<PiecesVerbOptions>();
    CLI::App* verb = app.add_subcommand(
        "pieces",
        "Cut a frame into boxes of whole buckets, for machines that render apart: one a line, X0,Y0,X1,Y1, "
        "the last two "
        "being the first pixel that is outside. They tile the frame and cost about the same each");
    verb->add_option("--size", options->size,
                     "The frame in pixels, or a raw image that has it, and the size of its buckets")
        ->type_name("WxH|FILE")
        ->required();
    verb->add_option("--count", options->count,
                     "How many pieces, 1 to 100000; fewer if there are fewer buckets")
        ->type_name("N")
        ->required()
        ->check(wholeNumber(1, static_cast<int>(MUtils::kMostPieces)));
    addSizeOption(*verb, "--bucket", options->bucketWidth, options->bucketHeight,
                  "The size of a bucket. Default: that of the file, else 64x64");
    verb->add_option("--by-cost", options->costs,
                     "An earlier frame, maybe of another size: the bytes of its buckets show what they cost. "
                     "Default: pixels cost the same")
        ->type_name("FILE");
    verb->add_flag("--json", options->json, "Print a JSON object");
    verb->callback([options, &result] { result = runPieces(*options); });
}

}  // namespace rimg
