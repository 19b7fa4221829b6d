#include <cstdio>
#include <filesystem>

#include "bench/direct_exr.h"
#include "bench/rows.h"

using namespace MUtils;

namespace bench {

namespace {

struct RawChoice {
    const char* name;
    Compression compression;
    int level;
};
constexpr RawChoice kRawChoices[] = {{"small", Compression::kSmall, kCompressionLevel},
                                     {"balanced", Compression::kBalanced, kCompressionLevel},
                                     {"zlib 1", Compression::kSmall, 1}};

struct ExrChoice {
    const char* name;
    int compression;  // as ExrFile::setCompressionType has it
};
constexpr ExrChoice kExrChoices[] = {{"none", 1}, {"RLE", 2}, {"ZIPS", 3}, {"ZIP", 4}, {"PIZ", 5}};

double sizeOf(const std::string& path) {
    return static_cast<double>(std::filesystem::file_size(path));
}

void readRaw(const std::string& path) {
    RIFile file;
    DroppingCallback dropping;
    parse(file, path, dropping);
}

// Rows for the picture of bytes against time; the script that draws it knows the names.
class Choices {
  public:
    Choices(Session& session, const Folder& folder, const Frame& frame, const char* suffix)
        : session_(session),
          frame_(frame),
          suffix_(suffix),
          fast_(folder.file("fast.rimg")),
          other_(folder.file("other.file")) {
        whole_.push_back(frame.crop(0, 0, frame.width, frame.height));
    }
    ~Choices() {
        std::remove(fast_.c_str());
        std::remove(other_.c_str());
    }
    Choices(const Choices&) = delete;
    Choices& operator=(const Choices&) = delete;

    void addRaw() {
        writeFast();
        addBytes("fast", sizeOf(fast_));
        for (const RawChoice& choice : kRawChoices) {
            const auto write = [&] {
                writeFrame(frame_, nullptr, other_, 1, choice.level, choice.compression);
            };
            const auto good = [&] { return checksumsRead(other_, 1) == checksumsRead(fast_, 1); };
            add(choice.name, {write, [&] { readRaw(other_); }, good});
        }
    }

    void addExr() {
        const ExrSource source{frame_, whole_};
        for (const ExrChoice& choice : kExrChoices) {
            const ExrLayout layout{ExrFile::kScanline, choice.compression, 32};
            std::remove(other_.c_str());
            writeOurExr(source, layout, other_);
            const DirectExr direct(source, layout, other_);
            add(std::string("OpenEXR ") + choice.name,
                {[&] { direct.write(other_); }, [&] { readExr(other_); },
                 [&] { return direct.holds(other_); }});
        }
    }

  private:
    void writeFast() { writeFrame(frame_, nullptr, fast_, 1, kCompressionLevel, Compression::kFast); }

    // Of the other file; `good` looks whether it has the frame's values.
    struct Ways {
        std::function<void()> write, read;
        std::function<bool()> good;
    };

    void add(const std::string& name, const Ways& ways) {
        double bytes = 0;
        Comparison row{"choice, " + name + suffix_, "fast", {}};
        row.ours = ways.write;
        row.plain = [this] { writeFast(); };
        row.check = [&] {
            require(ways.good(), "the values were not kept");
            bytes = sizeOf(other_);
        };
        row.prepare = [this] {
            std::remove(fast_.c_str());
            std::remove(other_.c_str());
        };
        session_.compare(row);
        addBytes(name, bytes);

        ways.write();
        writeFast();
        Comparison reading{row.name + ", read", "fast", {}};
        reading.ours = ways.read;
        reading.plain = [this] { readRaw(fast_); };
        reading.check = [&] { require(ways.good(), "the values differ"); };
        session_.compare(reading);
    }

    void addBytes(const std::string& name, double bytes) {
        const auto raw = static_cast<double>(frame_.rawBytes());
        session_.bytes("choice, " + name + suffix_ + ", bytes", "the values", raw, 2 * raw,
                       [bytes] { return bytes; });
    }

    Session& session_;
    const Frame& frame_;
    const std::string suffix_;
    const std::string fast_;
    const std::string other_;
    std::vector<Bucket> whole_;
};

}  // namespace

void choiceRows(Session& session, const Folder& folder) {
    ExrPart noisy(folder.demo, true);
    noisy.frame.buckets = std::move(noisy.regions);
    const Frame clean = makeCleanFrame(512);
    for (const auto& [frame, suffix] :
         {std::pair<const Frame&, const char*>{noisy.frame, ", noisy frame"}, {clean, ", clean frame"}}) {
        Choices choices(session, folder, frame, suffix);
        choices.addRaw();
        choices.addExr();
    }
}

}  // namespace bench
