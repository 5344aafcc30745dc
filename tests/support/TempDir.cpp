#include "tests/support/TempDir.h"

#include <random>
#include <stdexcept>
#include <system_error>

namespace kvmpd::test {

TempDir::TempDir() {
    std::random_device random;
    for (int attempt = 0; attempt < 100; ++attempt) {
        m_path = std::filesystem::temp_directory_path() / ("kvmpd-test-" + std::to_string(random()));
        if (std::filesystem::create_directory(m_path)) {
            return;
        }
    }
    throw std::runtime_error("no temporary folder could be made");
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

}  // namespace kvmpd::test
