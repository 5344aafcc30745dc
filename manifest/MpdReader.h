// Reads the XML tree of a manifest into an MPD record. Internal to the parser.
#pragma once

#include "manifest/Mpd.h"

namespace tinyxml2 {
class XMLDocument;
}

namespace kvmpd {

/// Fills the empty `mpd`. S_OK, E_UNEXPECTED or E_FAIL, as MpdParser::parse documents; every failure is logged.
HRESULT ReadMpd(const tinyxml2::XMLDocument& document, MPD& mpd);

}  // namespace kvmpd
