#pragma once

#include <cstdint>

namespace kvmpd::origin {

// A number that looks random and depends on nothing but its arguments (the finaliser of SplitMix64).
constexpr std::uint64_t Noise(std::uint64_t seed, std::uint64_t index) {
    std::uint64_t z = seed * 0x9E3779B97F4A7C15u + (index + 1) * 0xD1B54A32D192ED03u;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return z ^ (z >> 31);
}

}  // namespace kvmpd::origin
