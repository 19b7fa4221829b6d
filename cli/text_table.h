#pragma once

#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace rimg {

using TableRow = std::vector<std::string>;

// Prints rows of equally many cells in columns; rowAt(0) is the heading. `alignment` has "l" or "r" for each
// column. Rows are made twice rather than kept.
void printTable(std::FILE* out, const std::string& alignment, std::size_t rows,
                const std::function<TableRow(std::size_t)>& rowAt);

}  // namespace rimg
