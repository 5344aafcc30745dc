// The text in which the host learns the video qualities on offer.
#pragma once

#include <string>

#include "manifest/Mpd.h"

namespace kvmpd {

/// The first video set of the manifest, or null. The choice of the stream looks at the last one; with one video set, as
/// manifests of this kind have, they agree.
const AdaptationSetInfo* FirstVideoSet(const MPD& mpd);

/// The representations of `set` as a dictionary literal, not JSON: keys in single quotes, ids as bare numbers. Hosts
/// parse it in exactly this form:
///   {11:{'height': 720,'width': 1280,'bandwidth': 2500000,'frameRate': 30}, 12:{'height': 1080, ...}}
/// A set without representations gives "{}".
std::wstring QualityText(const AdaptationSetInfo& set);

}  // namespace kvmpd
