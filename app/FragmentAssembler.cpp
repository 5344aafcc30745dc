#include "app/FragmentAssembler.h"

#include <utility>

namespace kvmpd::app {

std::optional<std::vector<std::uint8_t>> FragmentAssembler::Accept(Box&& box) {
    m_nextIsCertain = true;
    switch (box.type) {
        case FourCc("ftyp"):
            m_init = std::move(box.bytes);
            m_haveMoov = false;
            m_fragment.clear();
            return std::nullopt;
        case FourCc("styp"):
        case FourCc("sidx"):
            return std::nullopt;
        case FourCc("moov"):
            if (m_haveMoov) {
                m_init.clear();  // a segment without a file type of its own
            }
            m_init.insert(m_init.end(), box.bytes.begin(), box.bytes.end());
            m_haveMoov = true;
            ++m_segments;
            return std::nullopt;
        case FourCc("moof"):
            m_fragment = std::move(box.bytes);
            return std::nullopt;
        default:
            break;
    }
    m_nextIsCertain = !m_fragment.empty();
    if (box.type != FourCc("mdat") || m_fragment.empty()) {
        return std::nullopt;
    }
    m_nextIsCertain = false;
    std::vector<std::uint8_t> fragment = std::exchange(m_fragment, {});
    if (!m_haveMoov) {
        ++m_orphans;
        return std::nullopt;
    }
    std::vector<std::uint8_t> file;
    file.reserve(m_init.size() + fragment.size() + box.bytes.size());
    file.insert(file.end(), m_init.begin(), m_init.end());
    file.insert(file.end(), fragment.begin(), fragment.end());
    file.insert(file.end(), box.bytes.begin(), box.bytes.end());
    return file;
}

void FragmentAssembler::DropPartial() {
    m_fragment.clear();
    m_nextIsCertain = false;
}

}  // namespace kvmpd::app
