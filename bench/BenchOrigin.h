// A live origin whose segments are recomputable bytes, and a folder for what is measured.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <random>
#include <string>

#include "origin/LiveOrigin.h"
#include "origin/PatternMedia.h"

namespace kvmpd::bench {

class Folder {
  public:
    Folder()
        : m_path(std::filesystem::temp_directory_path() / ("kvmpd-bench-" + std::to_string(std::random_device{}()))) {
        std::filesystem::create_directory(m_path);
    }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    std::string File(const std::string& name) const { return (m_path / name).string(); }
    std::string Path() const { return m_path.string(); }

  private:
    std::filesystem::path m_path;
};

constexpr int kAudio = 1;
constexpr int kVideo = 720;

/// Two-second segments with so many bytes each.
inline std::unique_ptr<origin::LiveOrigin> MakeOrigin(size_t videoBytes, size_t audioBytes) {
    origin::PatternOptions pattern;
    pattern.size = [=](int id, const origin::SegmentTime&) { return id == kAudio ? audioBytes : videoBytes; };
    origin::OriginOptions options;
    options.timeline.windowSegments = 30;
    auto live = std::make_unique<origin::LiveOrigin>(options, std::make_shared<origin::PatternMedia>(pattern));
    live->Advance(1);
    live->Start();
    return live;
}

}  // namespace kvmpd::bench
