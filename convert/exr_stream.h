#pragma once

#include <OpenEXR/ImfIO.h>

#include <cstdint>
#include <string>

#include "support/pstream.h"

namespace rimg {

// The file under an OpenEXR reader. Unlike OpenEXR's own, it is as good as new after a read that failed, so
// that one hole in a file does not hide what lies behind it; and it knows where reading began.
class ExrStream final : public Imf::IStream {
  public:
    static constexpr std::int64_t kNothingRead = -1;

    // Throws Failure (kUnreadable) when the file cannot be opened.
    explicit ExrStream(const std::string& path);

    // The OpenEXR side. Failures are thrown as OpenEXR's exceptions.
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

}  // namespace rimg
