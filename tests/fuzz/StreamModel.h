// What the reads of one byte stream must agree on: each delivers whole files one after the other, in the order in which
// they were fetched, none that failed; and until something moves the stream, a position always holds the same byte.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <string_view>

#include "tests/fuzz/FakeInternet.h"
#include "tests/fuzz/FuzzRequire.h"
#include "tests/fuzz/MediaPattern.h"

namespace kvmpd::test {

class StreamModel {
  public:
    explicit StreamModel(bool isVideo) : m_isVideo(isVideo) {}

    /// From now on positions count anew.
    void Move() { m_files.clear(); }

    /// `bytes` were read at `position` of this stream.
    void Check(std::int64_t position, std::string_view bytes) {
        size_t at = NextGroup(bytes, 0);
        Require(at < kGroupBytes || bytes.size() < kGroupBytes, "bytes of a file");
        Require(position != 0 || at == 0, "the stream begins with a file");
        bool mayBeInside = position != 0;
        for (; bytes.size() - at >= kGroupBytes; mayBeInside = false) {
            const auto place = Recognise(bytes.substr(at));
            if (!place) {  // cut off: the end of a file, or all of a very small one
                at = NextGroup(bytes, at + 1);
                continue;
            }
            Require(place->offset == 0 || mayBeInside, "a file begins with its first byte");
            const size_t size = SizeOf(place->id);
            Require(place->offset < size, "a byte of the file");
            const size_t begin = mayBeInside ? at - std::min(at, place->offset) : at;
            const size_t end = std::min(bytes.size(), at + size - place->offset);
            for (size_t i = begin; i < end; ++i) {
                Require(static_cast<unsigned char>(bytes[i]) == MediaByte(m_isVideo, place->id, place->offset + i - at),
                        "the byte of this place");
            }
            Put(position + static_cast<std::int64_t>(at) - static_cast<std::int64_t>(place->offset), place->id, size);
            at = end;
            Require(at == bytes.size() || BeginsGroup(bytes[at]), "behind a file begins another");
        }
    }

  private:
    static size_t NextGroup(std::string_view bytes, size_t from) {
        const auto found = std::find_if(bytes.begin() + static_cast<std::ptrdiff_t>(std::min(from, bytes.size())),
                                        bytes.end(), BeginsGroup);
        return static_cast<size_t>(found - bytes.begin());
    }
    size_t SizeOf(std::uint32_t id) const {
        const auto file = FakeInternet::Get().Find(id);
        Require(file.has_value(), "a file that was sent");
        Require(file->isVideo == m_isVideo, "a read delivers its own stream");
        Require(!file->isSpoiled, "a file that failed is not delivered");
        return file->size;
    }
    /// File `id` begins at `start`.
    void Put(std::int64_t start, std::uint32_t id, size_t size) {
        const auto [here, isNew] = m_files.emplace(start, File{id, size});
        Require(here->second.id == id, "a position holds the same byte again");
        if (const auto next = std::next(here); isNew && next != m_files.end()) {
            Require(start + static_cast<std::int64_t>(size) <= next->first && id < next->second.id, "files in order");
        }
        if (isNew && here != m_files.begin()) {
            const auto previous = std::prev(here);
            Require(
                previous->first + static_cast<std::int64_t>(previous->second.size) <= start && previous->second.id < id,
                "files in order");
        }
    }

    struct File {
        std::uint32_t id = 0;
        size_t size = 0;
    };
    const bool m_isVideo;
    std::map<std::int64_t, File> m_files;  // by their first byte's position
};

}  // namespace kvmpd::test
