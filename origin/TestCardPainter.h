#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "origin/Av.h"

namespace kvmpd::origin {

struct Colour {
    std::uint8_t y = 16;
    std::uint8_t u = 128;
    std::uint8_t v = 128;
};

// What one picture of the test card says.
struct TestCardMoment {
    std::int64_t mediaMs = 0;  // since the availability start
    std::int64_t wallMs = 0;   // since 1970, UTC; shown as the clock
    std::int64_t frame = 0;    // counted from media time 0
    int frameInSecond = 0;     // of the clock's second
    int framesPerSecond = 25;  // rounded
    std::int64_t segment = 0;  // number
    bool flash = false;        // the instant of the beep
};

// Paints the test card in one size: colour bars, a clock that fills the width, frame and segment numbers, the size, a
// pointer that crosses the picture once a second, and a white field while the beep sounds. The same moment gives the
// same picture. Paint may be called from several threads.
class TestCardPainter {
  public:
    TestCardPainter(int width, int height);

    void Paint(AVFrame& picture, const TestCardMoment& moment) const;

  private:
    void PaintBackground(AVFrame& picture) const;
    void PaintScroll(AVFrame& picture, const TestCardMoment& moment) const;

    // Constant after construction.
    const int width_;
    const int height_;
    const int cell_;
    std::vector<std::uint8_t> texture_;
};

}  // namespace kvmpd::origin
