// Calls through an interface's table by slot number, the way a caller that was built apart does it.
#pragma once

#include "platform/com.h"

namespace kvmpd::test {

template <class Result, class Interface, class... Arguments>
__attribute__((no_sanitize("undefined"))) Result CallSlot(Interface* object, int slot, Arguments... arguments) {
    using Function = Result(STDMETHODCALLTYPE*)(Interface*, Arguments...);
    void** const table = *reinterpret_cast<void***>(object);
    return reinterpret_cast<Function>(table[slot])(object, arguments...);
}

}  // namespace kvmpd::test
