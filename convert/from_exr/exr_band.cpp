#include "convert/from_exr/exr_band.h"

#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfPartType.h>
#include <OpenEXR/ImfTileDescription.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "convert/convert_error.h"
#include "exr/header_facts.h"

namespace MUtils {
inline namespace v1 {

namespace {

struct Shape {
    std::int64_t pieceWidth;
    std::int64_t pieceHeight;
    std::int64_t capacity;
    std::int64_t firstColumn, endColumn;  // of pieces
    std::int64_t x0, x1;                  // of these
};

// A band may begin with the last row of a piece and end with the first row of another one.
Shape shapeOf(const Imf::Header& header, const PixelBox& window, const ExrBand::Need& need) {
    Shape shape{};
    if (Imf::isTiled(header.type())) {
        shape.pieceWidth = header.tileDescription().xSize;
        shape.pieceHeight = header.tileDescription().ySize;
    } else {
        shape.pieceWidth = window.width();
        shape.pieceHeight = linesPerBlock(header.compression());
    }
    shape.capacity = std::min(window.height(), need.maxRows + 2 * (shape.pieceHeight - 1));
    shape.firstColumn = (need.pixels.x0 - window.x0) / shape.pieceWidth;
    shape.endColumn = (need.pixels.x1 - 1 - window.x0) / shape.pieceWidth + 1;
    shape.x0 = window.x0 + shape.firstColumn * shape.pieceWidth;
    shape.x1 = std::min(window.x0 + shape.endColumn * shape.pieceWidth, window.x1);
    return shape;
}

// Bytes of a pixel as the file has it uncompressed.
std::int64_t pixelBytes(const Imf::Header& header) {
    std::int64_t bytes = 0;
    for (auto channel = header.channels().begin(); channel != header.channels().end(); ++channel)
        bytes += channel.channel().type == Imf::HALF ? 2 : 4;
    return bytes;
}

// OpenEXR allocates some numbers for each row at once. Of more rows than large images have, half must be in
// the file.
void checkRows(ExrInput& input, int part, const PixelBox& window) {
    constexpr std::int64_t kAlwaysRows = 1 << 22;
    const Imf::Header& header = input.header(part);
    if (Imf::isTiled(header.type()) || window.height() <= kAlwaysRows) return;
    const std::int64_t there = input.chunks().chunksThere(part) * linesPerBlock(header.compression());
    if (window.height() / 2 <= there) return;
    throw ConvertError(ConvertState::kDamaged, input.path(),
                       "claims " + std::to_string(window.height()) + " rows of pixels, and has " +
                           std::to_string(std::min(there, window.height())));
}

}  // namespace

double ExrBand::bytesNeeded(const ExrInput& input, const Need& need) {
    const Shape shape = shapeOf(input.header(need.part), input.window(need.part), need);
    const double values = static_cast<double>(shape.capacity) * static_cast<double>(shape.x1 - shape.x0);
    return values * static_cast<double>(need.channels.size()) * sizeof(std::uint32_t);
}

ExrBand::ExrBand(ExrInput& input, const Need& need)
    : input_(input), part_(need.part), window_(input.window(need.part)) {
    const Imf::Header& header = input.header(part_);
    checkRows(input, part_, window_);
    pixelBytes_ = pixelBytes(header);
    const Shape shape = shapeOf(header, window_, need);
    pieceWidth_ = shape.pieceWidth;
    pieceHeight_ = shape.pieceHeight;
    firstColumn_ = shape.firstColumn;
    endColumn_ = shape.endColumn;
    heldX0_ = shape.x0;
    heldX1_ = shape.x1;
    columns_ = (window_.width() - 1) / pieceWidth_ + 1;
    capacity_ = shape.capacity;
    firstRow_ = endRow_ = window_.y0;
    try {
        if (Imf::isTiled(header.type())) {
            tiles_.emplace(input.file(), part_);
        } else {
            lines_.emplace(input.file(), part_);
        }
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        throw ConvertError(ConvertState::kDamaged, input.path(), error.what());
    }
    // Not cleared: pages that no pixel reaches cost nothing, whatever the header claims.
    for (const int channel : need.channels)
        slots_.emplace(channel, static_cast<std::int64_t>(slots_.size()));
    const std::int64_t values = capacity_ * heldWidth() * static_cast<std::int64_t>(slots_.size());
    values_.reset(new std::uint32_t[static_cast<std::size_t>(values)]);
}

void ExrBand::load(std::int64_t y0, std::int64_t y1) {
    const auto pieceStart = [this](std::int64_t y) { return y - (y - window_.y0) % pieceHeight_; };
    keepRowsFrom(pieceStart(y0));
    const std::int64_t end = std::min(window_.y1, pieceStart(y1 - 1) + pieceHeight_);
    if (end > endRow_) readUpTo(end);
}

void ExrBand::keepRowsFrom(std::int64_t y) {
    const std::int64_t kept = std::max<std::int64_t>(endRow_ - y, 0);
    if (kept > 0 && y > firstRow_) {
        const std::int64_t width = heldWidth();
        for (std::size_t c = 0; c < slots_.size(); ++c) {
            std::uint32_t* rows = values_.get() + static_cast<std::int64_t>(c) * capacity_ * width;
            std::memmove(rows, rows + (y - firstRow_) * width,
                         static_cast<std::size_t>(kept * width) * sizeof *rows);
        }
    }
    const std::size_t dropped = kept > 0 ? pieceIndex(y, 0) : readable_.size();
    readable_.erase(readable_.begin(), readable_.begin() + static_cast<std::ptrdiff_t>(dropped));
    firstRow_ = y;
    endRow_ = y + kept;
}

Imf::FrameBuffer ExrBand::frameBuffer() const {
    const Imath::V2i origin(static_cast<int>(heldX0_ + input_.originX()),
                            static_cast<int>(firstRow_ + input_.originY()));
    const std::size_t rowBytes = static_cast<std::size_t>(heldWidth()) * sizeof(std::uint32_t);
    Imf::FrameBuffer buffer;
    for (const auto& [channel, slot] : slots_) {
        const SourceChannel& source = input_.channels()[static_cast<std::size_t>(channel)];
        const std::uint32_t* rows = values_.get() + slot * capacity_ * heldWidth();
        buffer.insert(source.name.c_str(),
                      Imf::Slice::Make(source.integer ? Imf::UINT : Imf::FLOAT, rows, origin, heldWidth(),
                                       capacity_, sizeof(std::uint32_t), rowBytes));
    }
    return buffer;
}

// Reads all rows at once, and only when that fails piece by piece, to find out which ones are lost.
void ExrBand::readUpTo(std::int64_t end) {
    const std::int64_t begin = endRow_;
    endRow_ = end;
    readable_.resize(pieceIndex(end - 1, columns_ - 1) + 1, true);
    if (lines_) lines_->setFrameBuffer(frameBuffer());
    if (tiles_) tiles_->setFrameBuffer(frameBuffer());
    input_.stream().mark();
    if (dropUnjustified(begin, end)) {
        try {
            tryRead(begin, end, firstColumn_, endColumn_);
            return;
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const std::exception&) {
        }
    }
    // OpenEXR may still hold the first piece, and then does not read it again.
    std::int64_t keptFrom = input_.stream().firstRead();
    for (std::int64_t row = begin; row < end; row += pieceHeight_) {
        for (std::int64_t column = firstColumn_; column < endColumn_; ++column) {
            if (!readable_[pieceIndex(row, column)]) continue;
            input_.stream().mark();
            try {
                tryRead(row, std::min(end, row + pieceHeight_), column, column + 1);
            } catch (const std::bad_alloc&) {
                throw;
            } catch (const std::exception& error) {
                readable_[pieceIndex(row, column)] = false;
                const std::int64_t offset = input_.stream().firstRead();
                noteLoss(row, error.what(), offset != ExrStream::kNothingRead ? offset : keptFrom);
            }
            keptFrom = ExrStream::kNothingRead;
        }
    }
}

// Notes the pieces that are too short for their pixels as lost; they are never read. True when there are
// none.
bool ExrBand::dropUnjustified(std::int64_t begin, std::int64_t end) {
    bool all = true;
    for (std::int64_t row = begin; row < end; row += pieceHeight_) {
        for (std::int64_t column = firstColumn_; column < endColumn_; ++column) {
            const std::int64_t rows = std::min(pieceHeight_, window_.y1 - row);
            const std::int64_t width = std::min(pieceWidth_, window_.width() - column * pieceWidth_);
            const std::int64_t index = (row - window_.y0) / pieceHeight_ * columns_ + column;
            if (input_.chunks().mayHold(part_, index, rows * width * pixelBytes_)) continue;
            readable_[pieceIndex(row, column)] = all = false;
            noteLoss(row, "is too short for its pixels", ExrStream::kNothingRead);
        }
    }
    return all;
}

void ExrBand::tryRead(std::int64_t row, std::int64_t endRow, std::int64_t column, std::int64_t endColumn) {
    if (lines_) {
        const std::int64_t origin = input_.originY();
        lines_->readPixels(static_cast<int>(row + origin), static_cast<int>(endRow - 1 + origin));
    } else {
        const auto tileRow = [this](std::int64_t y) {
            return static_cast<int>((y - window_.y0) / pieceHeight_);
        };
        tiles_->readTiles(static_cast<int>(column), static_cast<int>(endColumn - 1), tileRow(row),
                          tileRow(endRow - 1), 0, 0);
    }
}

void ExrBand::noteLoss(std::int64_t row, const std::string& cause, std::int64_t offset) {
    // OpenEXR throws one kind of exception for everything: only its words show that a block was never
    // written.
    const auto says = [&cause](const char* words) { return cause.find(words) != std::string::npos; };
    const bool missing = !input_.file().partComplete(part_) && (says("missing") || says("end of file"));
    if (loss_.pieces++ == 0) {
        loss_.firstRow = row;
        loss_.cause = cause;
        loss_.offset = offset;
    }
    loss_.lastRow = std::min(window_.y1, row + pieceHeight_) - 1;
    loss_.onlyMissing = loss_.onlyMissing && missing;
}

bool ExrBand::holds(const PixelBox& area) const {
    const std::int64_t firstColumn = (area.x0 - window_.x0) / pieceWidth_;
    const std::int64_t endColumn = (area.x1 - 1 - window_.x0) / pieceWidth_ + 1;
    for (std::int64_t y = area.y0; y < area.y1; ++y) {
        for (std::int64_t column = firstColumn; column < endColumn; ++column) {
            if (!readable_[pieceIndex(y, column)]) return false;
        }
    }
    return true;
}

}  // namespace v1
}  // namespace MUtils
