#pragma once

#include <OpenEXR/ImfIO.h>

#include <cstdint>
#include <string>

#include "support/pstream.h"

namespace MUtils {
inline namespace v1 {

// The file under an OpenEXR reader. Unlike OpenEXR's own stream, it goes on after a read that failed, so that
// one hole in a file does not hide the blocks after it; and it knows where reading began.
class ExrStream final : public Imf::IStream {
  public:
    static constexpr std::int64_t kNothingRead = -1;

    // Throws ConvertError (kCannotOpen) when the file cannot be opened.
    explicit ExrStream(const std::string& path);

    // The OpenEXR side. Errors are thrown as OpenEXR's exceptions.
    bool read(char bytes[], int size) override;
    std::uint64_t tellg() override { return static_cast<std::uint64_t>(file_.Tell()); }
    void seekg(std::uint64_t position) override;

    // Where the first read since mark() began, or kNothingRead.
    void mark() { firstRead_ = kNothingRead; }
    std::int64_t firstRead() const { return firstRead_; }

  private:
    PFileStream file_;
    std::int64_t firstRead_ = kNothingRead;
};

}  // namespace v1
}  // namespace MUtils
