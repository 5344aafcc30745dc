// Puts the boxes of one elementary stream together into pieces that a demuxer can open by themselves: the
// initialisation (ftyp and moov) of the segment they came in, one moof and its mdat.

#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "app/BoxReader.h"

namespace kvmpd::app {

class FragmentAssembler {
  public:
    // A complete file in memory when the box was the mdat that ends a fragment. Boxes of other kinds are passed over.
    std::optional<std::vector<std::uint8_t>> Accept(Box&& box);

    // Whether the box after the last one accepted is certain to belong to the same segment: the present one cannot be
    // a segment's last. What follows an mdat or a box of another kind may be a segment that does not exist yet.
    bool NextIsCertain() const { return m_nextIsCertain; }

    // How many segments (counted by their moov) have been begun since the last Restart.
    std::int64_t Segments() const { return m_segments; }
    // Fragments that no moov came before.
    std::int64_t Orphans() const { return m_orphans; }

    // Forgets a fragment in part, because its rest cannot be read.
    void DropPartial();
    // The stream begins anew.
    void Restart() { *this = FragmentAssembler(); }

  private:
    std::vector<std::uint8_t> m_init;      // ftyp, then moov
    std::vector<std::uint8_t> m_fragment;  // moof, until its mdat comes
    bool m_haveMoov = false;
    bool m_nextIsCertain = false;
    std::int64_t m_segments = 0;
    std::int64_t m_orphans = 0;
};

}  // namespace kvmpd::app
