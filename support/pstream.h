#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "../rawimage/export.h"

namespace MUtils {

// A seekable stream of bytes, which writer and readers are built on. Hosts and tests may put their own
// underneath.
//
// Every operation that returns int answers 0 for no error and a positive code (errno) otherwise. One contract
// holds for all streams of this module:
//  - Read at the end of the data returns 0 with a short count, 0 bytes included; a non-zero code means a
//    real error or a closed stream.
//  - Write goes on until everything is written or an error comes; it never returns 0 with a short count by
//    itself.
//  - Seek and Skip past the end succeed; a negative position fails and leaves the position as it was.
//  - IsEOF is true when the position is at or past the length, or when the last read was short.
//  - Open on an open stream returns 0 and rewinds; contents stay.
// A stream is used by one thread at a time.
class RAWIMAGE_EXPORT PStream {
  public:
    virtual ~PStream();

    virtual int Open() = 0;
    virtual int Close() = 0;
    virtual bool IsOpen() const = 0;

    // Reads up to `size` bytes at the position; `bytesRead` receives how many came. `size` is not negative.
    virtual int Read(void* data, int size, int& bytesRead) = 0;
    // Writes `size` bytes at the position; `bytesWritten` receives how many were taken, also on an error.
    virtual int Write(const void* data, int size, int& bytesWritten) = 0;

    // Sets the position, counted from the start.
    virtual int Seek(long position) = 0;
    // Moves the position by `distance` bytes.
    virtual int Skip(long distance) = 0;
    virtual std::int64_t Tell() = 0;
    virtual bool IsEOF() = 0;
    // Cuts the data at the position.
    virtual int Truncate() = 0;
    // Returns when what was written is as safe from a power cut as this stream can make it. Nothing by
    // default.
    virtual int Sync();

    // Bytes in the stream, or -1 when the stream does not know. A reader that knows the length refuses sizes
    // that the stream cannot hold before it allocates; otherwise it reads in growing pieces.
    virtual std::int64_t Length();

    // Copies from the position of `source` to the position of `target` until `source` gives no more bytes,
    // `chunkSize` bytes at a time (at least 1). Returns the first error of either stream, ENOSPC when
    // `target` takes fewer bytes than it was given without saying why.
    static int StreamCopy(PStream& source, PStream& target, int chunkSize = 32768);

  protected:
    PStream() = default;
    PStream(const PStream&) = default;
    PStream& operator=(const PStream&) = default;
};

// A file. Reads are buffered; writes reach the kernel before Write returns, so a process that is killed loses
// nothing of what was reported as written. The first write error is sticky: every later Write, Truncate and
// Close of this opening answers it again and nothing more is written behind a torn record. Only regular files
// and devices open; a directory gives EISDIR, a pipe or socket ESPIPE.
//
// A file that is open for writing is locked against a second writer, in this process or another, unless
// `share` allows one: that one gets EWOULDBLOCK. The lock is advisory, and goes with Close or the process.
// Readers are never held up.
class RAWIMAGE_EXPORT PFileStream : public PStream {
  public:
    // The numbering of `access` and `disposition`.
    static constexpr unsigned kRead = 0x80000000u;
    static constexpr unsigned kWrite = 0x40000000u;  // for files that may not be read
    static constexpr unsigned kReadWrite = 0xC0000000u;
    enum Disposition : unsigned {
        kCreateNew = 1,
        kCreateAlways = 2,
        kOpenExisting = 3,
        kOpenAlways = 4,  // creates a missing file, but only when write access is asked for
        kTruncateExisting = 5
    };

    PFileStream() = default;
    ~PFileStream() override;
    PFileStream(const PFileStream&) = delete;
    PFileStream& operator=(const PFileStream&) = delete;

    // Sets what Open() opens; closes what was open. A null name counts as "". Bit 2 of `share` allows other
    // writers.
    void SetFile(const char* name, unsigned access, unsigned share, unsigned disposition);
    // SetFile and Open in one.
    int Open(const char* name, unsigned access, unsigned share, unsigned disposition);
    // Creates the file, or empties it, and opens it for reading and writing, alone; only for writing where
    // the file may not be read. No `flags` are defined: pass 0.
    int Create(const char* name, unsigned flags);

    const char* name() const { return name_.c_str(); }
    // The first error of a write since the file was opened, which every later one answers too; 0 when none
    // failed. Closing does not change it.
    int writeError() const { return writeError_; }

    int Open() override;
    int Close() override;
    bool IsOpen() const override { return descriptor_ >= 0; }
    int Read(void* data, int size, int& bytesRead) override;
    int Write(const void* data, int size, int& bytesWritten) override;
    int Seek(long position) override;
    int Skip(long distance) override;
    std::int64_t Tell() override { return position_; }
    bool IsEOF() override;
    int Truncate() override;
    int Sync() override;
    std::int64_t Length() override;

    // Copies `size` bytes from the position of `source` to the position of this stream, without taking them
    // through the program. Returns how many went over; both positions are behind them then. Fewer than
    // `size`, none included, when the system cannot do that here or has met an error: Read and Write go on
    // from there, or report why not.
    std::int64_t CopyFrom(PFileStream& source, std::int64_t size);

    // Reads up to `size` bytes at `offset`, past the buffer and without moving the position: any number of
    // threads at a time, also while one of them uses the stream otherwise, as long as it stays open. Returns
    // as Read does.
    int ReadAt(std::int64_t offset, void* data, std::size_t size, std::size_t& bytesRead) const;
    // Forgets what was read ahead: for a file that somebody else writes to.
    void DropBuffer() { buffered_ = 0; }
    // False when the name leads to another file than the one that is open, or to none.
    bool IsStillNamed() const;

  private:
    int lockAndEmpty(int descriptor, bool regular) const;
    int refill(unsigned char* rest, int size, int& got);
    int fromBuffer(unsigned char* data, int size);

    std::string name_;
    unsigned access_ = kRead;
    unsigned share_ = 1;
    unsigned disposition_ = kOpenExisting;
    int descriptor_ = -1;
    bool seekable_ = false;      // a regular file: has a length
    bool shortRead_ = false;     // the last read came back short
    int writeError_ = 0;         // the sticky one
    std::int64_t position_ = 0;  // the caller's
    std::int64_t length_ = 0;    // as last asked; -1 for a device

    std::unique_ptr<unsigned char[]> buffer_;
    std::int64_t bufferStart_ = 0;  // file offset of the first buffered byte
    int buffered_ = 0;              // valid bytes in buffer_
    int readAhead_ = 0;  // bytes to fetch beyond what is asked for; grows while reading straight on
};

// A growable block of memory. Close keeps the contents.
class RAWIMAGE_EXPORT PMemStream : public PStream {
  public:
    // Room for `initialSize` bytes is made at once.
    explicit PMemStream(int initialSize = 0);

    // The bytes written so far, Length() of them; valid until the next Write.
    const unsigned char* GetBuf() const { return bytes_.data(); }

    int Open() override;
    int Close() override;
    bool IsOpen() const override { return open_; }
    int Read(void* data, int size, int& bytesRead) override;
    // Past the end the gap is filled with zeros. ENOMEM when there is no more memory.
    int Write(const void* data, int size, int& bytesWritten) override;
    int Seek(long position) override;
    int Skip(long distance) override;
    std::int64_t Tell() override { return position_; }
    bool IsEOF() override { return position_ >= PMemStream::Length() || shortRead_; }
    int Truncate() override;
    std::int64_t Length() override { return static_cast<std::int64_t>(bytes_.size()); }

  private:
    std::vector<unsigned char> bytes_;
    std::int64_t position_ = 0;
    bool open_ = false;
    bool shortRead_ = false;
};

// A block of memory of a fixed size. All of it counts as data, whether written or not. Close keeps the
// contents.
class RAWIMAGE_EXPORT PBufStream : public PStream {
  public:
    PBufStream() = default;
    explicit PBufStream(int size) { Alloc(size); }

    // Drops the contents and holds `size` zero bytes from now on; a negative size counts as 0. Throws
    // std::bad_alloc.
    void Alloc(int size);
    int Size() const { return static_cast<int>(bytes_.size()); }
    unsigned char* GetBuf() { return bytes_.data(); }
    const unsigned char* GetBuf() const { return bytes_.data(); }

    int Open() override;
    int Close() override;
    bool IsOpen() const override { return open_; }
    int Read(void* data, int size, int& bytesRead) override;
    // Past the size: ENOSPC, with what fitted written.
    int Write(const void* data, int size, int& bytesWritten) override;
    int Seek(long position) override;
    int Skip(long distance) override;
    std::int64_t Tell() override { return position_; }
    bool IsEOF() override { return position_ >= Size() || shortRead_; }
    // The size is fixed: succeeds at the end, else ENOTSUP.
    int Truncate() override;
    std::int64_t Length() override { return Size(); }

  private:
    std::vector<unsigned char> bytes_;
    std::int64_t position_ = 0;
    bool open_ = false;
    bool shortRead_ = false;
};

// What a code that Open or Create of a file gave means, in the system's words ("No such file or directory");
// that of the lock, EWOULDBLOCK, is "another writer has the file open".
RAWIMAGE_EXPORT std::string openErrorText(int code);

}  // namespace MUtils

// fopen for names as this module takes them: a null name fails with ENOENT, a directory with EISDIR, a pipe
// with ESPIPE.
RAWIMAGE_EXPORT std::FILE* mutils_fopen(const char* name, const char* mode);

using MUtils::PBufStream;
using MUtils::PFileStream;
using MUtils::PMemStream;
using MUtils::PStream;
