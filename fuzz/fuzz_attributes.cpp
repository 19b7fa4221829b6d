#include <OpenEXR/ImfHeader.h>

#include <exception>

#include "exr/attr_parser.h"
#include "fuzz/fuzz_input.h"

using fuzzing::require;

// Any text gives attributes or an error with its place; what the check accepts goes into a fresh header.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const ErrorCode checked = MUtils::checkExtraAttributes(text.c_str());
    require(checked.getError() <= 0 && checked.getError() >= -5, "a code of the parser's list");

    std::vector<char> own(text.c_str(), text.c_str() + std::char_traits<char>::length(text.c_str()) + 1);
    Imf::Header header;
    try {
        const ErrorCode result = WriteEXRExtraAttributes(header, own.data());
        require(!checked.empty() || text.c_str()[0] == 0 || result.empty(), "what the check accepts");
    } catch (const std::exception&) {
        require(checked.getError() == -5, "a refusal that the check foresaw");
    }
    return 0;
}
