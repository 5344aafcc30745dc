#pragma once

#include <string_view>

namespace kvmpd {

/// How many elements lie within each other at the deepest place of `xml`, counted without recursion and without
/// memory; counting ends as soon as they are more than `enough`. Of text that is not well-formed only what precedes the
/// mistake counts: the rest is for the XML library to refuse.
int XmlDepth(std::string_view xml, int enough);

}  // namespace kvmpd
