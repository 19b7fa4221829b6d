#include "cli/text_table.h"

#include <algorithm>

namespace rimg {

void printTable(std::FILE* out, const std::string& alignment, std::size_t rows,
                const std::function<TableRow(std::size_t)>& rowAt) {
    std::vector<std::size_t> widths(alignment.size());
    for (std::size_t i = 0; i < rows; ++i) {
        const TableRow row = rowAt(i);
        for (std::size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], row[column].size());
        }
    }
    for (std::size_t i = 0; i < rows; ++i) {
        const TableRow row = rowAt(i);
        for (std::size_t column = 0; column < row.size(); ++column) {
            const bool left = alignment[column] == 'l';
            const bool last = column + 1 == row.size();
            const int width = left && last ? 0 : static_cast<int>(widths[column]);
            std::fprintf(out, "  %*s%s", left ? -width : width, row[column].c_str(), last ? "\n" : "");
        }
    }
}

}  // namespace rimg
