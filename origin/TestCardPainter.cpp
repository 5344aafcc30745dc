#include "origin/TestCardPainter.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "origin/BitmapFont.h"
#include "origin/Noise.h"

namespace kvmpd::origin {

namespace {

// 75 % colour bars in studio range, ITU-R BT.601 matrix.
constexpr std::array<Colour, 8> kBars{{{180, 128, 128},
                                       {162, 44, 142},
                                       {131, 156, 44},
                                       {112, 72, 58},
                                       {84, 184, 198},
                                       {65, 100, 212},
                                       {35, 212, 114},
                                       {16, 128, 128}}};
constexpr Colour kWhite{235, 128, 128};
constexpr Colour kPanel{28, 132, 126};
constexpr Colour kText{200, 128, 128};
constexpr Colour kPointer{145, 54, 200};

// The heights of the picture's bands, in thirty-sixths of its own.
constexpr int kBands = 36;
constexpr int kBarsEnd = 12;
constexpr int kClockTop = 14;
constexpr int kTextTop = 23;
constexpr int kTextStep = 4;
constexpr int kScrollTop = 31;
constexpr int kPointerTop = 34;

// Each pixel of grain takes four bits of a random number.
constexpr int kGrainPerNumber = 16;
constexpr std::uint64_t kGrainMask = 15;

constexpr int kClockCells = 11 * (kGlyphWidth + 1);
// The longest line of text is as wide as the clock.
constexpr int kTextCells = 48 * (kGlyphWidth + 1);

struct Box {
    int left;
    int top;
    int width;
    int height;
};

void FillPlane(std::uint8_t* plane, int stride, Box box, std::uint8_t value) {
    for (int row = 0; row < box.height; ++row) {
        std::memset(plane + std::ptrdiff_t{stride} * (box.top + row) + box.left, value,
                    static_cast<std::size_t>(box.width));
    }
}

void Fill(AVFrame& picture, Box box, Colour colour) {
    const int left = std::clamp(box.left & ~1, 0, picture.width);
    const int top = std::clamp(box.top & ~1, 0, picture.height);
    const int width = std::clamp((box.width + 1) & ~1, 0, picture.width - left);
    const int height = std::clamp((box.height + 1) & ~1, 0, picture.height - top);
    FillPlane(picture.data[0], picture.linesize[0], {left, top, width, height}, colour.y);
    const Box half{left / 2, top / 2, width / 2, height / 2};
    FillPlane(picture.data[1], picture.linesize[1], half, colour.u);
    FillPlane(picture.data[2], picture.linesize[2], half, colour.v);
}

// Text is brightness only, so that its dots may be one pixel wide.
void Write(AVFrame& picture, int left, int top, int dot, std::string_view text, std::uint8_t brightness) {
    for (const char character : text) {
        const Glyph& glyph = GlyphOf(character);
        for (int row = 0; row < kGlyphHeight; ++row) {
            for (int column = 0; column < kGlyphWidth; ++column) {
                const Box box{left + column * dot, top + row * dot, dot, dot};
                const bool inside = box.left + dot <= picture.width && box.top + dot <= picture.height;
                if ((glyph[static_cast<std::size_t>(row)] >> (kGlyphWidth - 1 - column) & 1) != 0 && inside) {
                    FillPlane(picture.data[0], picture.linesize[0], box, brightness);
                }
            }
        }
        left += (kGlyphWidth + 1) * dot;
    }
}

template <class... Arguments>
std::string Format(const char* format, Arguments... arguments) {
    std::array<char, 96> text{};
    std::snprintf(text.data(), text.size(), format, arguments...);
    return text.data();
}

}  // namespace

TestCardPainter::TestCardPainter(int width, int height)
    : width_(width), height_(height), cell_(std::max(1, width * 9 / 10 / kClockCells)) {
    texture_.resize(static_cast<std::size_t>(width) * 2);
    for (std::size_t i = 0; i < texture_.size(); ++i) {
        // Blocks of different widths: sharp edges that show dropped and repeated pictures when they jump.
        texture_[i] = static_cast<std::uint8_t>(24 + Noise(7, i / 16) % 192);
    }
}

void TestCardPainter::Paint(AVFrame& picture, const TestCardMoment& moment) const {
    PaintBackground(picture);
    PaintScroll(picture, moment);

    const std::int64_t second = moment.wallMs / 1000;
    const auto part = [second](std::int64_t unit, std::int64_t count) {
        return static_cast<int>(second / unit % count);
    };
    const std::string clock =
        Format("%02d:%02d:%02d.%02d", part(3600, 24), part(60, 60), part(1, 60), moment.frameInSecond);
    const int clockLeft = (width_ - (kClockCells - 1) * cell_) / 2;
    Write(picture, clockLeft, height_ * kClockTop / kBands, cell_, clock, kWhite.y);

    const int dot = std::max(1, kClockCells * cell_ / kTextCells);
    const auto line = [&](int index) { return height_ * (kTextTop + kTextStep * index) / kBands; };
    Write(picture, clockLeft, line(0), dot,
          Format("SEGMENT %lld  FRAME %lld", static_cast<long long>(moment.segment),
                 static_cast<long long>(moment.frame)),
          kText.y);
    Write(picture, clockLeft, line(1), dot,
          Format("%dP  %d X %d  %d FPS  UTC  MEDIA %lld.%03d", height_, width_, height_, moment.framesPerSecond,
                 static_cast<long long>(moment.mediaMs / 1000), static_cast<int>(moment.mediaMs % 1000)),
          kText.y);

    if (moment.flash) {
        Fill(picture, {width_ * 3 / 8, height_ / kBands, width_ / 4, height_ * 10 / kBands}, kWhite);
    }
}

void TestCardPainter::PaintBackground(AVFrame& picture) const {
    const int barsEnd = height_ * kBarsEnd / kBands;
    const int bars = static_cast<int>(kBars.size());
    Fill(picture, {0, 0, width_, height_}, kPanel);
    for (int i = 0; i < bars; ++i) {
        const int left = width_ * i / bars;
        Fill(picture, {left, 0, width_ * (i + 1) / bars - left, barsEnd}, kBars[static_cast<std::size_t>(i)]);
    }
}

// A texture that moves one width in four seconds, under grain that is new in each picture and gives the stream about
// the bit rate of a filmed one; and the pointer that crosses the picture once a second.
void TestCardPainter::PaintScroll(AVFrame& picture, const TestCardMoment& moment) const {
    const auto shift = static_cast<std::size_t>(moment.mediaMs % 4000 * width_ / 4000);
    std::uint64_t index = 0;
    for (int row = height_ * kScrollTop / kBands; row < height_ * kPointerTop / kBands; ++row) {
        std::uint8_t* line = picture.data[0] + std::ptrdiff_t{picture.linesize[0]} * row;
        for (int column = 0; column < width_; column += kGrainPerNumber) {
            std::uint64_t grain = Noise(static_cast<std::uint64_t>(moment.frame), index++);
            const int end = std::min(width_, column + kGrainPerNumber);
            for (int x = column; x < end; ++x, grain >>= 64 / kGrainPerNumber) {
                const std::uint8_t texture = texture_[shift + static_cast<std::size_t>(x)];
                line[x] = static_cast<std::uint8_t>(texture + static_cast<int>(grain & kGrainMask));
            }
        }
    }
    const int pointerWidth = std::max(4, width_ / 40);
    const auto left = static_cast<int>(moment.wallMs % 1000 * (width_ - pointerWidth) / 1000);
    const int top = height_ * kPointerTop / kBands;
    Fill(picture, {left, top, pointerWidth, height_ - top}, kPointer);
}

}  // namespace kvmpd::origin
