#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "cli/image_format.h"
#include "cli/report.h"
#include "convert/from_exr/from_exr.h"
#include "convert/to_exr/to_exr.h"

namespace rimg {

// What the command line asks for.
struct ConvertVerb {
    std::string input;
    std::string output;
    ImageFormat to = ImageFormat::kOther;  // by --to
    bool strict = false;
    bool json = false;
    int threads = 0;  // below 1: one for each processor
    std::vector<std::string> channels;
    std::optional<MUtils::PixelBox> crop;
    MUtils::FromExrOptions fromExr;
    MUtils::ToExrOptions toExr;
    ImageFormat from = ImageFormat::kOther;  // the input's format, once it is known
};

// The options that help against the state that a conversion ended in: "; --frame data or ...". Often "".
std::string hintFor(const ConvertVerb& verb, const MUtils::ConvertReport& report);

// Shows a conversion's losses and remarks on standard error, a line for each; of names and faults the first
// ones.
class NotePrinter {
  public:
    explicit NotePrinter(const ConvertVerb& verb) : verb_(verb) {}

    // Shows what has been added to the report since the last call.
    void print(const MUtils::ConvertReport& report);

  private:
    const ConvertVerb& verb_;
    std::size_t losses_ = 0;
    std::size_t remarks_ = 0;
};

// What `rimg convert --json` prints: one object on a line of its own. `failure` is why there is no output,
// null when there is one.
void printConvertJson(const ConvertVerb& verb, const MUtils::ConvertReport& report, ExitCode code,
                      const Failure* failure);

}  // namespace rimg
