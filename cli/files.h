#pragma once

#include <string>

namespace rimg {

// True when both names lead to one existing file, through links too.
bool sameFile(const std::string& a, const std::string& b);

// Throws Failure (kFailure) when there is no folder that `output` could be made in, before long work.
void requireFolderFor(const std::string& output);

}  // namespace rimg
