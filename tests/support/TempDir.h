#pragma once

#include <filesystem>

namespace kvmpd::test {

/// A folder of the test's own, removed with all it holds at the end.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& Path() const { return m_path; }

  private:
    std::filesystem::path m_path;
};

}  // namespace kvmpd::test
