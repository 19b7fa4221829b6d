#pragma once

#include <OpenEXR/ImfHeader.h>

#include <set>
#include <string>
#include <vector>

#include "convert/from_exr/exr_input.h"
#include "exr/attr_parser.h"

namespace rimg {

// The attributes of an OpenEXR file that a raw image of it has no place for, by name, each once. Those that
// describe the pixels' storage and windows do not count, nor those that go into tags: the camera, texts, a
// render region that is `rendered`.
std::vector<std::string> droppedAttributes(const ExrInput& input, const ExrMetadata& metadata,
                                           const MUtils::PixelBox& rendered);

// True when some part has another screen window than files of raw images get, (0, 0) and 1.
bool hasOwnScreenWindow(const ExrInput& input);

// Copies the attributes of an OpenEXR file into the headers of another, with their types: all but those that
// describe how its pixels are stored and where, and those that stand for tags of a raw image. The first part
// gets those of all parts, of a name that several have that of the part with its own name or else of the
// first; other parts get those of the part with their name.
class AttributesFromFile final : public ExrHeaderEditor {
  public:
    // `taken` are names that are left out. Throws Failure: kUnreadable when the file cannot be opened,
    // kDamaged when its headers make no sense.
    AttributesFromFile(const std::string& path, std::set<std::string> taken);

    void edit(Imf::Header& header, int part) override;

  private:
    void copy(const Imf::Header& from, Imf::Header& to) const;

    std::vector<Imf::Header> sources_;
    std::set<std::string> taken_;
};

// The names of the attributes in a text that checkExtraAttributes() has found right.
std::set<std::string> namesInText(const std::string& attributes);

}  // namespace rimg
