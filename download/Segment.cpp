#include "download/Segment.h"

#include "common/Log.h"

namespace kvmpd {

Segment::~Segment() {
    if (m_videoSize > 0) {
        Log(6, L" Segment::~Segment delete file: %d", DeleteFileW(m_videoFile.c_str()));
    }
    if (m_audioSize > 0) {
        Log(6, L" Segment::~Segment delete audio file: %d", DeleteFileW(m_audioFile.c_str()));
    }
}

}  // namespace kvmpd
