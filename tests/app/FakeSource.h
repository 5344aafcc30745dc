// Two byte tracks in memory, as a pin would give them: what has not been appended yet is "not yet", what has been
// released is gone. One thread, unless a test says otherwise.

#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "app/ByteSource.h"

namespace kvmpd::app::test {

using Bytes = std::vector<std::uint8_t>;

inline Bytes ToBytes(const std::string& text) {
    return {text.begin(), text.end()};
}

inline void Append(Bytes& to, const Bytes& more) {
    to.insert(to.end(), more.begin(), more.end());
}

inline void AppendNumber(Bytes& to, std::uint64_t number, int bits) {
    for (int shift = bits - 8; shift >= 0; shift -= 8) {
        to.push_back(static_cast<std::uint8_t>(number >> shift));
    }
}

inline void AppendType(Bytes& to, const char* type) {
    for (int i = 0; i < 4; ++i) {
        to.push_back(static_cast<std::uint8_t>(type[i]));
    }
}

// A box with a 32-bit size.
inline Bytes MakeBox(const char* type, const Bytes& body) {
    Bytes box;
    AppendNumber(box, 8 + body.size(), 32);
    AppendType(box, type);
    Append(box, body);
    return box;
}

// The same with the size in 64 bits; claimed: the size to write when it is not the true one.
inline Bytes MakeLongBox(const char* type, const Bytes& body, std::optional<std::uint64_t> claimed = {}) {
    Bytes box;
    AppendNumber(box, 1, 32);
    AppendType(box, type);
    AppendNumber(box, claimed.value_or(16 + body.size()), 64);
    Append(box, body);
    return box;
}

class FakeSource : public ByteSource {
  public:
    struct ReadCall {
        std::int64_t position;
        std::size_t length;
    };

    Bytes video;
    Bytes audio;
    std::int64_t released = 0;             // bytes at the start of both tracks that are gone
    std::optional<ReadStatus> nextResult;  // answered once instead of the true one
    std::vector<ReadCall> reads;
    int probes = 0;
    int waits = 0;  // reads of bytes that were not there: each would hold a real reader for ten seconds

    ReadStatus Read(std::int64_t position, std::span<std::uint8_t> bytes) override {
        reads.push_back({position, bytes.size()});
        const ReadStatus status = Look(position, bytes);
        waits += status == ReadStatus::kNotYet ? 1 : 0;
        return status;
    }

    ReadStatus Probe(std::int64_t position) override {
        ++probes;
        Bytes header(8);
        return Look(position, header);
    }

  private:
    ReadStatus Look(std::int64_t position, std::span<std::uint8_t> bytes) {
        if (nextResult) {
            const ReadStatus status = *nextResult;
            nextResult.reset();
            return status;
        }
        const bool isAudio = position >= kAudioPositionBase;
        const Bytes& track = isAudio ? audio : video;
        const std::int64_t offset = isAudio ? position - kAudioPositionBase : position;
        if (offset + static_cast<std::int64_t>(bytes.size()) > static_cast<std::int64_t>(track.size())) {
            return ReadStatus::kNotYet;
        }
        if (offset < released) {
            return ReadStatus::kReleased;
        }
        std::copy_n(track.begin() + offset, bytes.size(), bytes.begin());
        return ReadStatus::kOk;
    }
};

}  // namespace kvmpd::app::test
