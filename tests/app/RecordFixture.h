// `kvmpd record` as people run it: a child process against a live origin in this one.

#pragma once

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "origin/LiveOrigin.h"
#include "origin/TestCard.h"
#include "tests/app/ChildProcess.h"
#include "tests/app/TestMedia.h"
#include "tests/support/TempDir.h"

#ifndef KVMPD_PROGRAM
#error "the build says where the program is"
#endif

namespace kvmpd::app::test {

namespace fs = std::filesystem;

inline constexpr std::size_t kWindowSegments = 12;

inline std::string FileText(const fs::path& path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

// The value of a key in a JSON line, as it stands there.
inline std::string JsonValue(const std::string& line, const std::string& key) {
    const std::string name = "\"" + key + "\":";
    const std::size_t at = line.find(name);
    if (at == std::string::npos) {
        return "";
    }
    const std::size_t from = at + name.size();
    return line.substr(from, line.find_first_of(",}", from) - from);
}

class RecordCommandLine : public testing::Test {
  protected:
    void SetUp() override {
        fs::create_directory(Temporary());
        fs::create_directory(Results());
        StartOrigin(/*port=*/0, kWindowSegments);
    }

    // A clock and a beep; another beginning shows other pictures at the same media times.
    static origin::TestCardOptions Card(std::chrono::seconds beginning = {}) {
        origin::TestCardOptions card;
        card.qualities = {origin::QualityOfHeight(144), origin::QualityOfHeight(240)};
        card.availabilityStart += beginning;
        return card;
    }

    void StartOrigin(int port, std::size_t publishedSegments) {
        origin::OriginOptions options;
        options.port = port;
        options.timeline.durationsMs = {1000};
        options.timeline.windowMs = 1000 * static_cast<std::int64_t>(kWindowSegments);
        m_origin = std::make_unique<origin::LiveOrigin>(options, std::make_shared<origin::TestCard>(Card()));
        m_origin->Advance(publishedSegments);
        m_origin->Start();
    }

    // Another origin takes the port of the first one over, as a server that was restarted.
    void RestartOrigin(std::size_t publishedSegments) {
        const int port = m_origin->Port();
        m_origin->Stop();
        StartOrigin(port, publishedSegments);
    }

    // What the child may leave behind shows here.
    fs::path Temporary() const { return m_dir.Path() / "tmp"; }
    fs::path Results() const { return m_dir.Path() / "out"; }
    fs::path Output() const { return Results() / "show.mkv"; }
    std::string Errors() const { return FileText(m_dir.Path() / "stderr"); }

    std::unique_ptr<ChildProcess> Start(const std::string& url, const std::vector<std::string>& more,
                                        ChildProcess::Options options = {}) {
        options.arguments = {KVMPD_PROGRAM, "record", url};
        options.arguments.insert(options.arguments.end(), more.begin(), more.end());
        AddEnvironment(options);
        options.standardError = m_dir.Path() / "stderr";
        return std::make_unique<ChildProcess>(options);
    }

    void AddEnvironment(ChildProcess::Options& options) const {
        options.environment.push_back("TMPDIR=" + Temporary().string());
        // The program leaves on purpose without joining threads that are held up in a transfer.
        const char* sanitizer = std::getenv("TSAN_OPTIONS");
        options.environment.push_back(std::string("TSAN_OPTIONS=") + (sanitizer != nullptr ? sanitizer : "") +
                                      ":report_thread_leaks=0");
    }

    // Starts at the window's first segment: all media is there at once, and nothing waits for a clock.
    std::unique_ptr<ChildProcess> StartRecording(std::vector<std::string> more, ChildProcess::Options options = {}) {
        more.insert(more.end(), {"-o", Output().string(), "--json", "--delay-segments", "11"});
        return Start(m_origin->ManifestUrl(), more, std::move(options));
    }

    // Reads the child's lines to their end; the summary is kept.
    int Finish(ChildProcess& child) {
        while (const auto line = child.ReadLine()) {
            m_lines.push_back(*line);
            if (line->find("\"type\":\"summary\"") != std::string::npos) {
                m_summary = *line;
            }
        }
        return child.Wait();
    }

    // Reads on, keeping the lines, until one holds the text.
    bool KeepUntil(ChildProcess& child, const std::string& text) {
        while (const auto line = child.ReadLine()) {
            m_lines.push_back(*line);
            if (line->find(text) != std::string::npos) {
                return true;
            }
        }
        return false;
    }

    // The lines of this type, as they came.
    std::vector<std::string> LinesOf(const std::string& type) const {
        std::vector<std::string> lines;
        for (const std::string& line : m_lines) {
            if (line.find("\"type\":\"" + type + "\"") != std::string::npos) {
                lines.push_back(line);
            }
        }
        return lines;
    }

    bool SaidOnStdout(const std::string& text) const {
        return std::any_of(m_lines.begin(), m_lines.end(),
                           [&](const std::string& line) { return line.find(text) != std::string::npos; });
    }

    void ExpectNothingLeftBehind() const {
        EXPECT_TRUE(fs::is_empty(Temporary())) << "the cache folder is still there";
        EXPECT_TRUE(fs::is_empty(Results())) << "an output file was left";
    }

    // One sentence, which says this.
    void ExpectError(const std::string& text) const {
        const std::string errors = Errors();
        EXPECT_EQ(errors.rfind("kvmpd: ", 0), 0u) << errors;
        EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
        EXPECT_NE(errors.find(text), std::string::npos) << errors;
    }

    void ExpectSummaryAgreesWith(const FileFacts& facts) const {
        ASSERT_TRUE(facts.opened);
        ASSERT_FALSE(m_summary.empty());
        EXPECT_EQ(JsonValue(m_summary, "video_packets"), std::to_string(facts.videoPackets));
        EXPECT_EQ(JsonValue(m_summary, "audio_packets"), std::to_string(facts.audioPackets));
        EXPECT_NEAR(std::stod(JsonValue(m_summary, "duration")), facts.duration, 0.0015);
        EXPECT_EQ(JsonValue(m_summary, "width"), std::to_string(facts.width));
        EXPECT_EQ(JsonValue(m_summary, "bytes"), std::to_string(fs::file_size(Output())));
    }

    // Of eight seconds, one segment of one second.
    void ExpectOneSegmentMissing() const {
        EXPECT_EQ(JsonValue(m_summary, "video_gaps"), "1");
        EXPECT_EQ(JsonValue(m_summary, "video_missing"), "1.000");
        EXPECT_EQ(JsonValue(m_summary, "audio_gaps"), "1");
        const auto facts = Inspect(Output().string());
        EXPECT_EQ(facts.videoPackets, 7 * 25);
        EXPECT_NEAR(facts.duration, 8, 0.15);
    }

    kvmpd::test::TempDir m_dir;
    std::unique_ptr<origin::LiveOrigin> m_origin;
    std::vector<std::string> m_lines;
    std::string m_summary;
};

}  // namespace kvmpd::app::test
