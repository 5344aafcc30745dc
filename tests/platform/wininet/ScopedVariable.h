#pragma once

#include <cstdlib>
#include <string>

namespace kvmpd::test {

/// An environment variable that is set while the object lives; not set before and after.
class ScopedVariable {
  public:
    ScopedVariable(const char* name, const std::string& value) : m_name(name) {
        setenv(name, value.c_str(), /*overwrite=*/1);
    }
    ~ScopedVariable() { unsetenv(m_name); }
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;

  private:
    const char* m_name;
};

}  // namespace kvmpd::test
