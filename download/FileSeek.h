// Files positioned by 64-bit offsets: opening one for a sink, moving in one for a buffer.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/win32.h"

namespace kvmpd {

/// A file that is closed when its last holder lets go of it.
using SharedFile = std::shared_ptr<void>;

/// A holder of `handle` that closes it at the end, unless it is null or INVALID_HANDLE_VALUE.
SharedFile ShareFile(HANDLE handle);

/// Opens the file `path` (absolute; the long-path prefix is put in front of it) and moves to `offset` bytes from its
/// beginning. Empty when the file cannot be opened or not be positioned exactly there; an
/// offset whose low 32 bits are all ones counts as such, because the platform reports failures that way.
SharedFile OpenFileAndSeek(const std::wstring& path, std::int64_t offset, DWORD access, DWORD share, DWORD disposition,
                           DWORD attributes);

/// Moves `file` to `position` bytes from its beginning: 1, or 0 when the platform reports a failure (or a position
/// whose low 32 bits are all ones, which looks the same).
BOOL SeekFilePosition(HANDLE file, std::int64_t position);

}  // namespace kvmpd
