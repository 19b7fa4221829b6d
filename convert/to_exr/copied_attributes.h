#pragma once

#include <OpenEXR/ImfHeader.h>

#include <set>
#include <string>
#include <vector>

#include "exr/attr_parser.h"

namespace MUtils {
inline namespace v1 {

// Copies the attributes of an OpenEXR file into the headers of another, with their types: all but those that
// describe how pixels are stored and where, and those that the writers make of tags. The first part gets the
// attributes of all parts; of a name that several parts have it gets that of the part with its own name, or
// else of the first. Other parts get the attributes of the part with their name.
class CopiedAttributes final : public ExrHeaderEditor {
  public:
    // Attributes whose names are in `taken` are left out. Throws ConvertError: kCannotOpen when the file
    // cannot be opened, kDamaged when its headers make no sense.
    CopiedAttributes(const std::string& path, std::set<std::string> taken);

    void edit(Imf::Header& header, int part) override;

  private:
    void copy(const Imf::Header& from, Imf::Header& to) const;

    std::vector<Imf::Header> sources_;
    std::set<std::string> taken_;
};

// The names of the attributes in a text that checkExtraAttributes() accepts.
std::set<std::string> namesInText(const std::string& attributes);

}  // namespace v1
}  // namespace MUtils
