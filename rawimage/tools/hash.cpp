#include "rawimage/tools/hash.h"

#include <optional>
#include <utility>

#include "rawimage/format.h"
#include "rawimage/tools/frame_tool.h"
#include "support/bytes.h"
#include "support/digest.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::int32_t kDefinition = 1;

// The digest of each channel, from the digests of its rows.
class ChannelDigests final : public RowSink {
  public:
    ChannelDigests(const std::vector<FrameChannel>& channels, const PixelBox& area) : area_(area) {
        for (const FrameChannel& channel : channels) {
            Digester& digester = channels_.emplace_back().digester;
            digester.addI32(channel.index);
            digester.addI32(channel.type);
            digester.addI32(channel.alias);
            digester.addText(channel.name);
        }
    }

    void begin(std::size_t channel, std::size_t rows) override {
        channels_[channel].rows.assign(rows, std::nullopt);
    }

    void take(std::size_t channel, std::size_t row, const FrameRow& values) override {
        Row& digested = channels_[channel].rows[row].emplace();
        digested.y = static_cast<std::int32_t>(values.y);
        const RowRun& first = values.runs.front();
        if (values.runs.size() == 1 && first.x0 == area_.x0 && first.x1 == area_.x1) {
            const std::int64_t bytes = area_.width() * values.valueBytes;
            digested.digest = digestOf(values.values, static_cast<std::size_t>(bytes));
        } else {
            digestWithGaps(values, digested);
        }
    }

    void end(std::size_t channel) override {
        Channel& one = channels_[channel];
        for (const std::optional<Row>& row : one.rows) {
            if (!row) continue;
            one.digester.addI32(row->y);
            one.digester.addU32(row->gaps);
            one.digester.add(row->digest);
        }
    }

    void finish(std::size_t channel) override { channels_[channel].rows = {}; }

    Digest result(std::size_t channel) const { return channels_[channel].digester.result(); }

  private:
    struct Row {
        std::int32_t y = 0;
        std::uint32_t gaps = 0;
        Digest digest;
    };
    struct Channel {
        Digester digester;
        std::vector<std::optional<Row>> rows;
    };

    void digestWithGaps(const FrameRow& values, Row& digested) const {
        Digester digester;
        for (const RowRun& run : values.runs)
            digester.add(values.at(run.x0), static_cast<std::size_t>((run.x1 - run.x0) * values.valueBytes));
        const auto addGap = [&](std::int64_t x0, std::int64_t x1) {
            if (x0 == x1) return;
            digester.addI32(static_cast<std::int32_t>(x0));
            digester.addI32(static_cast<std::int32_t>(x1 - x0));
            ++digested.gaps;
        };
        std::int64_t x = area_.x0;
        for (const RowRun& run : values.runs) {
            addGap(x, run.x0);
            x = run.x1;
        }
        addGap(x, area_.x1);
        digested.digest = digester.result();
    }

    const PixelBox area_;
    std::vector<Channel> channels_;
};

// Adds the records of a frame by their ids: id, length, bytes.
class RecordDigester {
  public:
    RecordDigester(const RawFrame& frame, Digester& digester)
        : frame_(frame), digester_(digester), records_(frame.records()) {}

    // Null, or the fault of a record that cannot be read: the digest is not of all records.
    const FileFault* add() {
        if (!records_.damaged.empty()) return &records_.damaged.front();
        if (records_.camera) {
            unsigned char bytes[kCameraRecordBytes];
            encodeCamera(*records_.camera, bytes);
            begin(TAG_CAMERA_INFO, sizeof bytes);
            digester_.add(bytes, sizeof bytes);
        }
        const bool all = addThumbnail() && addScene() &&
                         addBytes(TAG_STAMP, frame_.blob(FrameBlob::kStamp)) &&
                         addBytes(TAG_NOTE, frame_.text(FrameText::kNote)) &&
                         addBytes(TAG_STAMP_TEXT, frame_.text(FrameText::kStampText)) &&
                         addBytes(TAG_OVERLAY_TEXTS, frame_.blob(FrameBlob::kOverlayTexts)) &&
                         addBytes(TAG_SETTINGS, frame_.blob(FrameBlob::kSettings));
        return all ? nullptr : &*fault_;
    }

  private:
    void begin(std::uint32_t id, std::size_t size) {
        digester_.addU32(id);
        digester_.addU64(size);
    }

    // These return false when the record cannot be read.
    bool addThumbnail() {
        const FrameRecord<FrameThumbnail> thumbnail = frame_.thumbnail();
        fault_ = thumbnail.damage;
        if (!thumbnail) return !fault_;
        const std::size_t size = thumbnail->pixels.size() * sizeof(RGB24);
        begin(TAG_PREVIEW, 8 + size);
        digester_.addI32(thumbnail->width);
        digester_.addI32(thumbnail->height);
        digester_.add(reinterpret_cast<const unsigned char*>(thumbnail->pixels.data()), size);
        return true;
    }

    bool addScene() {
        if (!records_.scene) return true;
        const FrameRecord<std::string> name = frame_.text(FrameText::kSceneName);
        fault_ = name.damage;
        if (!name) return !fault_;
        begin(TAG_SCENE_INFO, 4 + name->size());
        digester_.addI32(records_.scene->value);
        digester_.add(reinterpret_cast<const unsigned char*>(name->data()), name->size());
        return true;
    }

    template <class Bytes>
    bool addBytes(std::uint32_t id, const FrameRecord<Bytes>& record) {
        fault_ = record.damage;
        if (!record) return !fault_;
        begin(id, record->size());
        digester_.add(reinterpret_cast<const unsigned char*>(record->data()), record->size());
        return true;
    }

    const RawFrame& frame_;
    Digester& digester_;
    const FrameRecords records_;
    std::optional<FileFault> fault_;
};

class Hashing {
  public:
    Hashing(const HashOptions& options, HashReport& report)
        : options_(options), report_(report), tool_(options, report) {}

    RawFrameOptions opening() { return tool_.opening(); }
    void run(const RawFrame& frame);

  private:
    bool addRecords(const RawFrame& frame, Digester& digester);

    const HashOptions& options_;
    HashReport& report_;
    FrameTool tool_;
};

void Hashing::run(const RawFrame& frame) {
    std::vector<FrameChannel> channels;
    if (!tool_.begin(frame, channels) || report_.state == FileState::kDamaged) return;
    ChannelDigests digests(channels, report_.area);
    if (!tool_.readRows(frame, channels, false, digests) || report_.state == FileState::kDamaged) return;

    Digester digester;
    digester.addI32(kDefinition);
    const PixelBox& area = report_.area;
    for (const std::int64_t number :
         {report_.frame.width(), report_.frame.height(), area.x0, area.y0, area.width(), area.height()})
        digester.addI32(static_cast<std::int32_t>(number));
    digester.addU32(bitsFromFloat(frame.info()->pixelAspect));
    digester.addU32(static_cast<std::uint32_t>(channels.size()));
    for (std::size_t i = 0; i < channels.size(); ++i)
        digester.add(digests.result(i));
    if (options_.metadata && !addRecords(frame, digester)) return;
    report_.hash = digester.result().text();
    for (std::size_t i = 0; i < channels.size(); ++i)
        report_.channels.push_back({channels[i], digests.result(i).text()});
}

bool Hashing::addRecords(const RawFrame& frame, Digester& digester) {
    RecordDigester records(frame, digester);
    const FileFault* fault = records.add();
    if (fault != nullptr) tool_.setDamaged(*fault);
    return fault == nullptr;
}

}  // namespace

HashReport hashFile(const char* fileName, const HashOptions& options) {
    HashReport report;
    Hashing hashing(options, report);
    hashing.run(RawFrame(fileName, hashing.opening()));
    return report;
}

HashReport hashStream(PStream& stream, const HashOptions& options) {
    HashReport report;
    Hashing hashing(options, report);
    hashing.run(RawFrame(stream, hashing.opening()));
    return report;
}

}  // namespace v1
}  // namespace MUtils
