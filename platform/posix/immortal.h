// A global that is never destroyed, so that threads which outlive main() can use it until the process ends.
#ifndef PLATFORM_POSIX_IMMORTAL_H_
#define PLATFORM_POSIX_IMMORTAL_H_

#include <new>

namespace kvmpd::platform {

// To be declared as a function's static variable.
template <typename T>
class Immortal {
  public:
    Immortal() { ::new (static_cast<void*>(m_storage)) T; }
    Immortal(const Immortal&) = delete;
    Immortal& operator=(const Immortal&) = delete;

    T& operator*() { return *std::launder(reinterpret_cast<T*>(m_storage)); }

  private:
    alignas(T) unsigned char m_storage[sizeof(T)];
};

}  // namespace kvmpd::platform

#endif  // PLATFORM_POSIX_IMMORTAL_H_
