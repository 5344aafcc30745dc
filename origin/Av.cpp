#include "origin/Av.h"

#include <array>
#include <new>

#include "origin/LiveOrigin.h"

namespace kvmpd::origin {

FramePtr NewFrame() {
    FramePtr frame(av_frame_alloc());
    if (!frame) {
        throw std::bad_alloc();
    }
    return frame;
}

PacketPtr NewPacket() {
    PacketPtr packet(av_packet_alloc());
    if (!packet) {
        throw std::bad_alloc();
    }
    return packet;
}

std::string AvErrorText(int error) {
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
    av_strerror(error, text.data(), text.size());
    return text.data();
}

int AvCheck(int result, std::string_view what) {
    if (result < 0) {
        throw OriginError(std::string(what) + ": " + AvErrorText(result));
    }
    return result;
}

}  // namespace kvmpd::origin
