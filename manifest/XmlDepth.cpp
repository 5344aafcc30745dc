#include "manifest/XmlDepth.h"

#include <algorithm>
#include <cstddef>

namespace kvmpd {
namespace {

constexpr std::string_view kSpace = " \t\n\v\f\r";

/// What begins like this is no element and ends with the first such end (XML 1.0, 2.5 to 2.8; a document type with
/// declarations in it is not understood by the XML library either).
struct Markup {
    std::string_view begin;
    std::string_view end;
};
constexpr Markup kMarkups[] = {{"<?", "?>"}, {"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<!", ">"}};

/// The place behind the tag at the front of `xml`; npos when it has no end. Quoted values may hold a ">".
size_t EndOfTag(std::string_view xml) {
    for (size_t at = 1; at < xml.size(); ++at) {
        if (xml[at] == '>') {
            return at + 1;
        }
        if (xml[at] == '"' || xml[at] == '\'') {
            at = xml.find(xml[at], at + 1);
            if (at == xml.npos) {
                break;
            }
        }
    }
    return xml.npos;
}

/// The place behind the markup at the front of `xml`, 0 when an element's tag is there; npos when it has no end.
size_t EndOfMarkup(std::string_view xml) {
    for (const Markup& markup : kMarkups) {
        if (xml.starts_with(markup.begin)) {
            const size_t end = xml.find(markup.end, markup.begin.size());
            return end == xml.npos ? xml.npos : end + markup.end.size();
        }
    }
    return 0;
}

/// Of the elements that are open now: 1 for a tag that opens one, -1 for one that closes one, 0 for an empty one. With
/// a slash at both ends it is taken for an empty one, as the XML library takes it.
int Change(std::string_view tag) {
    if (tag[tag.size() - 2] == '/') {
        return 0;
    }
    return tag[tag.find_first_not_of(kSpace, 1)] == '/' ? -1 : 1;
}

}  // namespace

int XmlDepth(std::string_view xml, int enough) {
    xml = xml.substr(0, xml.find('\0'));  // the XML library reads no further
    int open = 0;
    int deepest = 0;
    for (size_t begin = xml.find('<'); begin != xml.npos && deepest <= enough; begin = xml.find('<')) {
        xml.remove_prefix(begin);
        size_t end = EndOfMarkup(xml);
        if (end == 0) {
            end = EndOfTag(xml);
            if (end == xml.npos) {
                break;
            }
            const int change = Change(xml.substr(0, end));
            // An empty element lies within those that are open, and is one itself.
            deepest = std::max(deepest, change < 0 ? open : open + 1);
            open += change;
        }
        if (end == xml.npos || open < 0) {
            break;
        }
        xml.remove_prefix(end);
    }
    return deepest;
}

}  // namespace kvmpd
