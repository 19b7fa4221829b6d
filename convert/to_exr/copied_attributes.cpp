#include "convert/to_exr/copied_attributes.h"

#include <OpenEXR/ImfMultiPartInputFile.h>

#include <new>
#include <utility>

#include "convert/convert_error.h"
#include "convert/exr_stream.h"
#include "convert/header_attributes.h"

namespace MUtils {
inline namespace v1 {

CopiedAttributes::CopiedAttributes(const std::string& path, std::set<std::string> taken)
    : taken_(std::move(taken)) {
    ExrStream stream(path);
    try {
        const Imf::MultiPartInputFile file(stream, 0, false);
        for (int part = 0; part < file.parts(); ++part)
            sources_.push_back(file.header(part));
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        throw ConvertError(ConvertState::kDamaged, path, error.what());
    }
}

void CopiedAttributes::edit(Imf::Header& header, int part) {
    const auto sameName = [&header](const Imf::Header& source) {
        return source.hasName() && header.hasName() && source.name() == header.name();
    };
    for (const Imf::Header& source : sources_) {
        if (sameName(source)) copy(source, header);
    }
    for (auto source = sources_.begin(); part == 0 && source != sources_.end(); ++source)
        copy(*source, header);
}

// What is there stays: the library does not release an attribute that is erased.
void CopiedAttributes::copy(const Imf::Header& from, Imf::Header& to) const {
    for (auto i = from.begin(); i != from.end(); ++i) {
        const std::string name = i.name();
        if (isStructural(name) || standsForTag(name) || taken_.count(name) > 0) continue;
        if (to.find(name) == to.end()) to.insert(name, i.attribute());
    }
}

std::set<std::string> namesInText(const std::string& attributes) {
    std::set<std::string> names;
    if (attributes.empty()) return names;
    Imf::Header header;
    std::string text = attributes;
    (void)WriteEXRExtraAttributes(header, text.data());
    for (auto i = header.begin(); i != header.end(); ++i)
        names.insert(i.name());
    return names;
}

}  // namespace v1
}  // namespace MUtils
