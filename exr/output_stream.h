#pragma once

#include <ImfIO.h>

#include <cstdint>
#include <memory>
#include <string>

#include "support/error_code.h"
#include "support/pstream.h"

namespace MUtils {
inline namespace v1 {

// The file underneath OpenEXR's file objects. OpenEXR writes its last tables in destructors, which drop every
// error: this stream remembers the first failure, and whoever opened it asks for it with finish() once the
// OpenEXR object is gone.
//
// Small pieces are gathered in a buffer that also takes patches of what it still holds, so a failure may show
// later than the write that caused it, at the latest in finish(). One thread at a time.
class ExrOutputStream : public Imf::OStream {
  public:
    // `name` is what OpenEXR's own messages call the file; null counts as "". Nothing is opened yet.
    explicit ExrOutputStream(const char* name = "");
    // Finishes a file that is still open; what fails then is lost.
    ~ExrOutputStream() override;

    // Opens `name` for writing, and creates it when it is missing. An existing file keeps its contents until
    // the first piece of the buffer reaches it. Fails with the errno as code, ENOENT for a null name.
    // Finishes what was open.
    ErrorCode open(const char* name);
    bool isOpen() const { return file_.IsOpen(); }

    // Hands what is buffered to the system. Any failure since open() comes back, as from finish().
    ErrorCode writeBuffered();

    // Writes what is buffered and closes. An error means that the file is not whole: its code is the errno of
    // the first failure since open(). Asked again, it answers the same.
    ErrorCode finish();

    // Closes without writing more and undoes open() as far as it can: a file that open() created is removed,
    // one that was there keeps its old contents, or is left empty when those have already been written over.
    // Devices are only closed. Does nothing after finish().
    void abandon();

    // These throw an Iex::IoExc once anything has failed, so that OpenEXR stops early; nothing is written any
    // more.
    void write(const char bytes[], int size) override;
    // Past the end is allowed: the gap reads as zeros once something is written behind it.
    void seekp(std::uint64_t position) override;

    // Never throws: OpenEXR's destructors call it unguarded.
    std::uint64_t tellp() noexcept override { return static_cast<std::uint64_t>(position_); }

  private:
    ErrorCode failure(const char* operation) const;
    int gather(const char* bytes, std::int64_t size) noexcept;
    int flush() noexcept;
    int writeThrough(std::int64_t position, const char* bytes, std::int64_t size) noexcept;
    void close() noexcept;
    [[noreturn]] void throwFailure() const;

    PFileStream file_;
    std::string name_;
    int failure_ = 0;            // errno of the first one
    bool created_ = false;       // by open()
    bool regular_ = false;       // a file, not a device
    bool writtenTo_ = false;     // the old contents are gone
    std::int64_t position_ = 0;  // OpenEXR's

    // The bytes from bufferStart_ on that have not been written.
    const std::unique_ptr<char[]> buffer_;
    std::int64_t bufferStart_ = 0;
    std::int64_t buffered_ = 0;
};

}  // namespace v1
}  // namespace MUtils
