#include "platform/posix/handles.h"

#include <cstdint>
#include <new>
#include <utility>
#include <vector>

#include "platform/posix/annotated_lock.h"
#include "platform/posix/immortal.h"
#include "platform/posix/win32_api.h"

namespace kvmpd::platform {
namespace {

// A handle's bits, from the lowest: two zeros (Windows' handles are multiples of four, and callers may rely on odd
// values never being handles), the place plus one, the generation.
constexpr unsigned kPlaceShift = 2;
constexpr unsigned kPlaceBits = 20;
constexpr unsigned kGenerationShift = kPlaceShift + kPlaceBits;
constexpr std::uintptr_t kPlaceMask = (std::uintptr_t{1} << kPlaceBits) - 1;
// One bit fewer than there is room for, so that no handle has the sign bit set like INVALID_HANDLE_VALUE and the
// predefined registry keys.
constexpr std::uintptr_t kGenerationMask = (UINTPTR_MAX >> kGenerationShift) >> 1;

class HandleTable {
  public:
    HANDLE Insert(std::shared_ptr<KernelObject> object);
    std::shared_ptr<KernelObject> Find(HANDLE handle);
    std::shared_ptr<KernelObject> Remove(HANDLE handle, bool (*isWanted)(const KernelObject*));

  private:
    static constexpr std::size_t kNoPlace = SIZE_MAX;

    struct Place {
        std::shared_ptr<KernelObject> object;
        std::uintptr_t generation = 0;
        std::size_t nextFree = kNoPlace;  // while it holds no object
    };

    Place* PlaceOf(HANDLE handle) PLATFORM_REQUIRES(m_lock);

    Lock m_lock;  // a leaf: no object's destructor runs under it
    std::vector<Place> m_places PLATFORM_GUARDED_BY(m_lock);
    std::size_t m_firstFree PLATFORM_GUARDED_BY(m_lock) = kNoPlace;
};

HANDLE HandleTable::Insert(std::shared_ptr<KernelObject> object) {
    const LockHold hold(m_lock);
    if (m_firstFree == kNoPlace) {
        if (m_places.size() >= kPlaceMask) {
            SetLastError(ERROR_NO_SYSTEM_RESOURCES);
            return nullptr;
        }
        m_places.emplace_back();
        m_firstFree = m_places.size() - 1;
    }
    const std::size_t index = m_firstFree;
    Place& place = m_places[index];
    m_firstFree = place.nextFree;
    place.object = std::move(object);
    return reinterpret_cast<HANDLE>((place.generation << kGenerationShift) | ((index + 1) << kPlaceShift));
}

HandleTable::Place* HandleTable::PlaceOf(HANDLE handle) {
    const auto bits = reinterpret_cast<std::uintptr_t>(handle);
    const std::uintptr_t number = (bits >> kPlaceShift) & kPlaceMask;
    if ((bits & 3) != 0 || number == 0 || number > m_places.size()) {
        return nullptr;
    }
    Place& place = m_places[number - 1];
    return place.object && place.generation == bits >> kGenerationShift ? &place : nullptr;
}

std::shared_ptr<KernelObject> HandleTable::Find(HANDLE handle) {
    const LockHold hold(m_lock);
    const Place* place = PlaceOf(handle);
    return place ? place->object : nullptr;
}

std::shared_ptr<KernelObject> HandleTable::Remove(HANDLE handle, bool (*isWanted)(const KernelObject*)) {
    const LockHold hold(m_lock);
    Place* place = PlaceOf(handle);
    if (!place || !isWanted(place->object.get())) {
        return nullptr;
    }
    place->generation = (place->generation + 1) & kGenerationMask;
    place->nextFree = std::exchange(m_firstFree, static_cast<std::size_t>(place - m_places.data()));
    return std::exchange(place->object, nullptr);
}

HandleTable& Table() {
    static Immortal<HandleTable> table;
    return *table;
}

}  // namespace

HANDLE OpenHandle(std::shared_ptr<KernelObject> object) {
    try {
        return Table().Insert(std::move(object));
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
}

std::shared_ptr<KernelObject> ObjectOf(HANDLE handle) {
    std::shared_ptr<KernelObject> object = Table().Find(handle);
    if (!object) {
        detail::SetInvalidHandle();
    }
    return object;
}

namespace detail {

bool Take(HANDLE handle, bool (*isWanted)(const KernelObject*)) {
    const std::shared_ptr<KernelObject> object = Table().Remove(handle, isWanted);
    if (!object) {
        SetInvalidHandle();
        return false;
    }
    return true;
}

void SetInvalidHandle() {
    SetLastError(ERROR_INVALID_HANDLE);
}

}  // namespace detail
}  // namespace kvmpd::platform

BOOL CloseHandle(HANDLE handle) {
    return kvmpd::platform::CloseHandleOf<kvmpd::platform::KernelObject>(handle) ? TRUE : FALSE;
}
