// Writes packets into a Matroska file without transcoding. One thread.

#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "app/AvTypes.h"
#include "app/OutputFile.h"

namespace kvmpd::app {

class MatroskaWriter {
  public:
    explicit MatroskaWriter(OutputFile& output) : m_output(output) {}
    ~MatroskaWriter();
    MatroskaWriter(const MatroskaWriter&) = delete;
    MatroskaWriter& operator=(const MatroskaWriter&) = delete;

    // Writes the header. parameters: by track. frameRate: of the video, 0/1 when unknown.
    bool Begin(const std::array<const AVCodecParameters*, kTracks>& parameters, AVRational frameRate);

    // Packets of one track must come in decoding order. timeBase: of the packet's timestamps. Takes the packet's
    // content; the interleaving of the tracks is done here.
    bool Write(Track track, AVPacket& packet, AVRational timeBase);

    // Everything so far goes to the output.
    bool Flush();

    // Writes what waits and the file's end (cues and duration when the output can seek). Nothing may be written after.
    bool Finish();

    bool Begun() const { return m_begun; }
    // In words, after a false; empty when the output itself failed and knows better.
    const std::string& Error() const { return m_error; }

  private:
    struct Closer {
        void operator()(AVFormatContext* context) const;
    };

    bool Fail(int error);

    OutputFile& m_output;
    std::unique_ptr<AVFormatContext, Closer> m_context;
    bool m_begun = false;
    bool m_finished = false;
    std::string m_error;
};

}  // namespace kvmpd::app
