// Where the loader gets manifests from: the parser in the component, a script in tests.
#pragma once

#include <memory>
#include <string>

#include "manifest/Mpd.h"

namespace kvmpd {

class ManifestSource {
  public:
    virtual ~ManifestSource() = default;

    /// Fetches the manifest at `url` and fills `mpd`, which the caller hands over empty. Blocks until done. S_OK, or a
    /// negative code, after which the record may be partly filled and must not be used. E_UNEXPECTED means that the
    /// manifest arrived but lacks the required structure. Called on the loader thread only.
    virtual HRESULT parse(std::wstring url, std::shared_ptr<MPD> mpd) = 0;
};

}  // namespace kvmpd
