#include "app/Console.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <memory>
#include <string>

namespace kvmpd::app {
namespace {

struct Pipe {
    Pipe() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        reader = ends[0];
        writer = ends[1];
    }
    ~Pipe() {
        ::close(reader);
        CloseWriter();
    }
    void CloseWriter() {
        if (writer >= 0) {
            ::close(writer);
            writer = -1;
        }
    }
    std::string ReadAll() {
        CloseWriter();
        return ReadUntil({});
    }
    // Up to and with this text; empty: to the end.
    std::string ReadUntil(const std::string& text) const {
        std::string got;
        char bytes[4096];
        while (text.empty() || got.find(text) == std::string::npos) {
            const ssize_t count = ::read(reader, bytes, sizeof(bytes));
            if (count <= 0) {
                EXPECT_EQ(text, "") << "never came";
                break;
            }
            got.append(bytes, static_cast<std::size_t>(count));
        }
        return got;
    }

    int reader = -1;
    int writer = -1;
};

class Said : public testing::Test {
  protected:
    void SetUp() override { std::signal(SIGPIPE, SIG_IGN); }
    void Open(Console::Options options) {
        options.standardOutput = m_output.writer;
        options.standardError = m_errors.writer;
        m_console = std::make_unique<Console>(options);
    }

    Pipe m_output;
    Pipe m_errors;
    std::unique_ptr<Console> m_console;
};

TEST_F(Said, SentencesGoToStandardOutputAndTheRestToStandardError) {
    Open({});
    m_console->Say("hello");
    m_console->SayJson("{}");
    m_console->Progress("half", /*last=*/false);
    m_console->Progress("too soon for another line", /*last=*/false);
    m_console->Error("it broke");
    m_console->Progress("all", /*last=*/true);
    m_console.reset();
    EXPECT_EQ(m_output.ReadAll(), "hello\n");
    std::string errors = m_errors.ReadAll();
    if (errors.starts_with("half\n")) {
        errors.erase(0, 5);  // it was written before there was something newer
    }
    EXPECT_EQ(errors, "kvmpd: it broke\nall\n");
}

TEST_F(Said, ARecordingOnStandardOutputIsAloneThere) {
    Open({.json = true, .recordingOnStdout = true});
    m_console->Say("hello");
    m_console->SayJson("{}");
    m_console->SayJsonProgress("{1}");
    m_console.reset();
    EXPECT_EQ(m_output.ReadAll(), "");
    EXPECT_EQ(m_errors.ReadAll(), "{}\n{1}\n");
}

TEST_F(Said, AnErrorIsAnObjectWithATimeAsWell) {
    Open({.json = true});
    m_console->Error("it broke");
    m_console.reset();
    const std::string line = m_output.ReadAll();
    EXPECT_EQ(line.rfind("{\"type\":\"error\",\"time\":", 0), 0u) << line;
    EXPECT_NE(line.find(",\"text\":\"it broke\"}\n"), std::string::npos) << line;
    EXPECT_EQ(m_errors.ReadAll(), "kvmpd: it broke\n");
}

TEST_F(Said, AnErrorDoesNotWaitForAReaderOfStandardOutput) {
    Open({});
    m_console->Say(std::string(100'000, 'x'));
    m_console->Error("it broke");
    EXPECT_EQ(m_errors.ReadUntil("\n"), "kvmpd: it broke\n");
    EXPECT_FALSE(m_console->Drain({}, /*patient=*/false));
    ::close(m_output.reader);
    m_output.reader = -1;
}

TEST_F(Said, WhatFoundNoRoomIsOwnedUpTo) {
    Open({.json = true, .mostUnread = 100'000});
    for (int n = 0; n < 1'000; ++n) {
        m_console->SayJson(std::string(999, 'x'));
    }
    m_console->SayJson("{\"n\":1}");  // no room for this one either
    std::string got = m_output.ReadUntil(std::string(999, 'x') + "\n");
    while (got.find("warning") == std::string::npos) {
        m_console->SayJson("{\"n\":2}");
        char bytes[4096];
        const ssize_t count = ::read(m_output.reader, bytes, sizeof(bytes));
        ASSERT_GT(count, 0);
        got.append(bytes, static_cast<std::size_t>(count));
    }
    EXPECT_NE(got.find("\n{\"type\":\"warning\",\"time\":"), std::string::npos) << got;
    ::close(m_output.reader);
    m_output.reader = -1;
}

}  // namespace
}  // namespace kvmpd::app
