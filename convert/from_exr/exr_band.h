#pragma once

#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfInputPart.h>
#include <OpenEXR/ImfTiledInputPart.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "convert/from_exr/exr_input.h"

namespace MUtils {
inline namespace v1 {

// What of a part could not be read.
struct ExrLoss {
    std::int64_t pieces = 0;  // blocks of scan lines, or tiles
    std::int64_t firstRow = 0;
    std::int64_t lastRow = 0;
    bool onlyMissing = true;  // none of them was ever written to the file; else some are damaged
    std::string cause;        // of the first one
    std::int64_t offset = ExrStream::kNothingRead;  // in the file, of the first one, when it is known
};

// Reads one part from top to bottom, a band of rows at a time. Only the blocks of scan lines, or the tiles,
// that meet the band and are needed are in memory. Every value is 32 bits wide: float values as they are,
// half values as the floats that equal them, UINT as it is.
class ExrBand {
  public:
    // What is needed of a part.
    struct Need {
        int part = 0;
        PixelBox pixels;  // of its window, some
        std::int64_t maxRows = 1;
        std::set<int> channels;  // as ExrInput::channels() counts them
    };

    // `input` must live longer. Bands will be of at most `maxRows` rows. Throws ConvertError (kDamaged) when
    // the part claims rows that the file cannot have, or its first block cannot be prepared for reading.
    ExrBand(ExrInput& input, const Need& need);

    // The bytes of memory of such a reader, so that it can be refused before it is made.
    static double bytesNeeded(const ExrInput& input, const Need& need);

    // Reads the rows y0 .. y1 - 1, which are needed and do not lie above rows loaded earlier. Pixels that
    // cannot be read are a loss.
    void load(std::int64_t y0, std::int64_t y1);

    // True when every pixel of `area`, which lies within the loaded rows, could be read.
    bool holds(const PixelBox& area) const;

    // The value at (x, y) of a channel; the row's next values follow it.
    const std::uint32_t* at(int channel, std::int64_t x, std::int64_t y) const {
        return values_.get() + (slots_.at(channel) * capacity_ + y - firstRow_) * heldWidth() + (x - heldX0_);
    }

    const ExrLoss& loss() const { return loss_; }

  private:
    void keepRowsFrom(std::int64_t y);
    void readUpTo(std::int64_t end);
    bool dropUnjustified(std::int64_t begin, std::int64_t end);
    void tryRead(std::int64_t row, std::int64_t endRow, std::int64_t column, std::int64_t endColumn);
    void noteLoss(std::int64_t row, const std::string& cause, std::int64_t offset);
    Imf::FrameBuffer frameBuffer() const;
    std::int64_t heldWidth() const { return heldX1_ - heldX0_; }
    std::size_t pieceIndex(std::int64_t row, std::int64_t column) const {
        return static_cast<std::size_t>((row - firstRow_) / pieceHeight_ * columns_ + column);
    }

    ExrInput& input_;
    const int part_;
    const PixelBox window_;
    // Pieces are what can be read or lost alone: a tile, or the scan lines that are compressed together.
    std::int64_t pieceWidth_ = 0;
    std::int64_t pieceHeight_ = 0;
    std::int64_t columns_ = 0;                      // pieces beside each other
    std::int64_t firstColumn_ = 0, endColumn_ = 0;  // those that are read
    std::int64_t heldX0_ = 0, heldX1_ = 0;          // their pixels
    std::int64_t capacity_ = 0;                     // rows that fit
    std::int64_t pixelBytes_ = 0;                   // in the file, uncompressed
    std::optional<Imf::InputPart> lines_;
    std::optional<Imf::TiledInputPart> tiles_;

    std::map<int, std::int64_t> slots_;        // the place of each channel that is needed
    std::unique_ptr<std::uint32_t[]> values_;  // channel after channel, capacity_ rows each
    std::int64_t firstRow_ = 0;                // rows held, whole pieces
    std::int64_t endRow_ = 0;
    std::vector<bool> readable_;  // for each piece held, row after row
    ExrLoss loss_;
};

}  // namespace v1
}  // namespace MUtils
