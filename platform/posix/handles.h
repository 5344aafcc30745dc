// Kernel objects and the table that gives them handles.
//
// An object lives as long as a handle or a call in progress refers to it. A handle is an index into the table together
// with the generation of that place, never an address: a closed or invented handle is found out, and a place that is
// used again answers only to its new handle.
#ifndef PLATFORM_POSIX_HANDLES_H_
#define PLATFORM_POSIX_HANDLES_H_

#include <memory>

#include "platform/posix/win32_types.h"

namespace kvmpd::platform {

class KernelObject {
  public:
    KernelObject() = default;
    virtual ~KernelObject() = default;
    KernelObject(const KernelObject&) = delete;
    KernelObject& operator=(const KernelObject&) = delete;
};

// A new handle for the object, or null with ERROR_NOT_ENOUGH_MEMORY or ERROR_NO_SYSTEM_RESOURCES as last error.
HANDLE OpenHandle(std::shared_ptr<KernelObject> object);

// The object of a handle; empty, with ERROR_INVALID_HANDLE as last error, when the handle is not open.
std::shared_ptr<KernelObject> ObjectOf(HANDLE handle);

// The same for one kind of object; a handle of another kind is invalid too.
template <typename Kind>
std::shared_ptr<Kind> ObjectOf(HANDLE handle);

// Takes the handle out of the table; the object ends when nothing else refers to it. False, with ERROR_INVALID_HANDLE
// as last error, when the handle is not open or not of this kind: then nothing is closed.
template <typename Kind>
bool CloseHandleOf(HANDLE handle);

namespace detail {

bool Take(HANDLE handle, bool (*isWanted)(const KernelObject*));
void SetInvalidHandle();

}  // namespace detail

template <typename Kind>
std::shared_ptr<Kind> ObjectOf(HANDLE handle) {
    std::shared_ptr<KernelObject> object = ObjectOf(handle);
    if (!object) {
        return nullptr;
    }
    std::shared_ptr<Kind> wanted = std::dynamic_pointer_cast<Kind>(std::move(object));
    if (!wanted) {
        detail::SetInvalidHandle();
    }
    return wanted;
}

template <typename Kind>
bool CloseHandleOf(HANDLE handle) {
    return detail::Take(handle,
                        [](const KernelObject* object) { return dynamic_cast<const Kind*>(object) != nullptr; });
}

}  // namespace kvmpd::platform

#endif  // PLATFORM_POSIX_HANDLES_H_
