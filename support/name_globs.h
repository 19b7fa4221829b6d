#pragma once

#include <fnmatch.h>

#include <algorithm>
#include <string>
#include <vector>

// Choosing things by patterns for their names, with *, ? and [...] as in a shell.

namespace MUtils {
inline namespace v1 {

inline bool fitsGlob(const std::string& glob, const std::string& name) {
    return fnmatch(glob.c_str(), name.c_str(), 0) == 0;
}

// Removes the items that no glob fits; none where there are no globs. `fits(glob, item)` returns whether one
// does.
template <class Item, class Fits>
void keepFitting(const std::vector<std::string>& globs, std::vector<Item>& items, Fits fits) {
    if (globs.empty()) return;
    const auto unwanted = [&](const Item& item) {
        return std::none_of(globs.begin(), globs.end(),
                            [&](const std::string& glob) { return fits(glob, item); });
    };
    items.erase(std::remove_if(items.begin(), items.end(), unwanted), items.end());
}

}  // namespace v1
}  // namespace MUtils
