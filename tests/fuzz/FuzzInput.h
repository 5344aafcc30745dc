// How the fuzzer's bytes become numbers, texts and choices. Every target that decodes its input decodes it with this,
// so that what a byte means is said once.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace kvmpd::test {

/// Takes values off the front of the input; an input that is used up gives zeros.
class FuzzInput {
  public:
    FuzzInput(const std::uint8_t* data, size_t size) : m_rest(data, size) {}

    bool IsEmpty() const { return m_rest.empty(); }

    std::uint32_t Byte() {
        if (m_rest.empty()) {
            return 0;
        }
        const std::uint8_t byte = m_rest.front();
        m_rest = m_rest.subspan(1);
        return byte;
    }
    /// 16 bits.
    std::uint32_t Short() {
        const std::uint32_t high = Byte();
        return high << 8 | Byte();
    }
    /// 64 bits.
    std::uint64_t Long() {
        std::uint64_t value = 0;
        for (int i = 0; i < 8; ++i) {
            value = value << 8 | Byte();
        }
        return value;
    }
    /// From 0 to `count` - 1.
    std::uint32_t Below(std::uint32_t count) { return Byte() % count; }
    bool Flag() { return Byte() % 2 == 0; }

    /// Around zero mostly, a little below it too; anything after a byte of 255.
    std::int64_t Position() {
        if (Byte() == 255) {
            return static_cast<std::int64_t>(Long());
        }
        return static_cast<std::int64_t>(Short()) - 300;
    }
    template <class Value, size_t Count>
    const Value& OneOf(const std::array<Value, Count>& values) {
        return values[Below(static_cast<std::uint32_t>(Count))];
    }

    /// The next `size` bytes, or what there is.
    std::string_view Take(size_t size) {
        const std::span<const std::uint8_t> taken = m_rest.first(size < m_rest.size() ? size : m_rest.size());
        m_rest = m_rest.subspan(taken.size());
        return {reinterpret_cast<const char*>(taken.data()), taken.size()};
    }
    std::string_view Rest() { return Take(m_rest.size()); }
    /// Up to 39 characters of printable ASCII.
    std::string Text() {
        std::string text;
        for (std::uint32_t length = Below(40); length > 0; --length) {
            text.push_back(static_cast<char>(' ' + Byte() % 95));
        }
        return text;
    }

  private:
    std::span<const std::uint8_t> m_rest;
};

}  // namespace kvmpd::test
