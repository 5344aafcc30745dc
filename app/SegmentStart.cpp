#include "app/SegmentStart.h"

#include <algorithm>
#include <array>

namespace kvmpd::app {
namespace {

constexpr std::size_t kHeader = 8;
constexpr std::size_t kSmallestFileType = 16;  // header, brand, version
constexpr std::size_t kLargestFileType = 512;

bool IsFileType(std::uint32_t type) {
    return type == FourCc("ftyp") || type == FourCc("styp");
}

}  // namespace

bool IsTopLevelType(std::uint32_t type) {
    constexpr std::array types{FourCc("ftyp"), FourCc("styp"), FourCc("moov"), FourCc("moof"), FourCc("mdat"),
                               FourCc("sidx"), FourCc("ssix"), FourCc("emsg"), FourCc("prft"), FourCc("free"),
                               FourCc("skip"), FourCc("uuid"), FourCc("meta"), FourCc("mfra"), FourCc("pdin")};
    return std::find(types.begin(), types.end(), type) != types.end();
}

std::optional<SegmentStart> FindSegmentStart(std::span<const std::uint8_t> bytes, std::size_t from) {
    // What both types end with is looked for; the size stands five bytes before it, the type one.
    constexpr std::array<std::uint8_t, 3> kEnding{'t', 'y', 'p'};
    constexpr std::size_t kBefore = 5;
    for (auto at = bytes.begin() + static_cast<std::ptrdiff_t>(std::min(from, bytes.size()));;) {
        at = std::search(at, bytes.end(), kEnding.begin(), kEnding.end());
        if (at == bytes.end()) {
            return std::nullopt;
        }
        const auto found = static_cast<std::size_t>(at - bytes.begin());
        ++at;
        if (found < from + kBefore || !IsFileType(ReadBig32(&bytes[found - 1]))) {
            continue;
        }
        const std::size_t start = found - kBefore;
        const std::size_t size = ReadBig32(&bytes[start]);
        if (size < kSmallestFileType || size > kLargestFileType || size % 4 != 0) {
            continue;
        }
        if (start + size + kHeader > bytes.size()) {
            return SegmentStart{start, false};
        }
        const std::uint32_t next = ReadBig32(&bytes[start + size]);
        if ((next == 1 || next >= kHeader) && IsTopLevelType(ReadBig32(&bytes[start + size + 4]))) {
            return SegmentStart{start, true};
        }
    }
}

}  // namespace kvmpd::app
