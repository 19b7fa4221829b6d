#pragma once

#include <cerrno>
#include <string>
#include <vector>

#include "support/pstream.h"

namespace testing_tools {

enum class Call { kOpen, kClose, kRead, kWrite, kSeek, kSkip, kTruncate, kSync };

// How a call fails. "Short" moves the first half of the bytes, "nothing" none. Calls that move no bytes do
// not know kSilentShort; a Close that fails closes all the same.
enum class Fault { kErrorFull, kErrorShort, kErrorNothing, kSilentShort };

// A stream in memory that writes down what is done to it and fails where it is told to.
class FaultStream : public PStream {
  public:
    static constexpr int kError = EIO;  // what failing calls return

    FaultStream() = default;
    // Holds `contents`; closed, as any new stream.
    explicit FaultStream(const std::vector<unsigned char>& contents) {
        int written = 0;
        memory_.Open();
        memory_.Write(contents.data(), static_cast<int>(contents.size()), written);
        memory_.Close();
    }

    // The `nth` call of that kind from now on (1 is the next) fails; with `forEver` so do all after it.
    // Faults add up.
    void failAt(Call call, int nth, Fault fault = Fault::kErrorNothing, bool forEver = false) {
        rules_.push_back({call, nth, fault, forEver});
    }
    void heal() { rules_.clear(); }
    // Length() answers -1 from now on.
    void hideLength() { lengthKnown_ = false; }

    std::vector<unsigned char> bytes() const { return {memory_.GetBuf(), memory_.GetBuf() + size()}; }
    std::int64_t size() const { return memory_.Length(); }
    // "write 40, seek 12, close": every call so far with its size or target; Tell, IsOpen, IsEOF and Length
    // leave no trace.
    const std::string& log() const { return log_; }
    void clearLog() { log_.clear(); }

    int Open() override { return fails(Call::kOpen, "open") ? kError : memory_.Open(); }
    int Close() override {
        const int code = fails(Call::kClose, "close") ? kError : 0;
        memory_.Close();
        return code;
    }
    bool IsOpen() const override { return memory_.IsOpen(); }
    int Read(void* data, int size, int& got) override {
        return move(Call::kRead, "read", size, [&](int part) { return memory_.Read(data, part, got); });
    }
    int Write(const void* data, int size, int& got) override {
        return move(Call::kWrite, "write", size, [&](int part) { return memory_.Write(data, part, got); });
    }
    int Seek(long to) override { return fails(Call::kSeek, "seek", to) ? kError : memory_.Seek(to); }
    int Skip(long by) override { return fails(Call::kSkip, "skip", by) ? kError : memory_.Skip(by); }
    int Truncate() override { return fails(Call::kTruncate, "truncate") ? kError : memory_.Truncate(); }
    int Sync() override { return fails(Call::kSync, "sync") ? kError : 0; }
    std::int64_t Tell() override { return memory_.Tell(); }
    bool IsEOF() override { return memory_.IsEOF(); }
    std::int64_t Length() override { return lengthKnown_ ? memory_.Length() : -1; }

  private:
    struct Rule {
        Call call;
        int countdown;
        Fault fault;
        bool forEver;
    };

    // The fault that strikes this call, or null.
    const Rule* strike(Call call, const std::string& entry) {
        log_ += (log_.empty() ? "" : ", ") + entry;
        const Rule* struck = nullptr;
        for (Rule& rule : rules_) {
            if (rule.call == call && (--rule.countdown == 0 || (rule.countdown < 0 && rule.forEver)))
                struck = &rule;
        }
        return struck;
    }
    bool fails(Call call, const char* name) { return strike(call, name) != nullptr; }
    bool fails(Call call, const std::string& name, long argument) {
        return strike(call, name + " " + std::to_string(argument)) != nullptr;
    }
    template <class MoveBytes>
    int move(Call call, const std::string& name, int size, MoveBytes moveBytes) {
        const Rule* rule = strike(call, name + " " + std::to_string(size));
        if (rule == nullptr) return moveBytes(size);
        const int part = rule->fault == Fault::kErrorFull      ? size
                         : rule->fault == Fault::kErrorNothing ? 0
                                                               : size / 2;
        const int code = moveBytes(part);
        return rule->fault == Fault::kSilentShort ? code : kError;
    }

    mutable PMemStream memory_;
    std::vector<Rule> rules_;
    std::string log_;
    bool lengthKnown_ = true;
};

}  // namespace testing_tools
