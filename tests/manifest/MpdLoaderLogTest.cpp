// What the loader logs, in which order and from which level on.
#include <algorithm>

#include "tests/manifest/LoaderHarness.h"

namespace kvmpd::test {
namespace {

using MpdLoaderLog = MpdLoaderTest;

TEST_F(MpdLoaderLog, TellsAFirstCycleInOrder) {
    m_owner.m_events.SetCallback(nullptr);
    m_log.Clear();
    Init();
    News(LiveManifest(100, 2));
    m_loader->CloseThread();
    std::vector<std::string> lines;
    for (std::string& line : m_log.Lines()) {
        if (line.find("MpdLoader::") != std::string::npos && line.find(" wait ") == std::string::npos) {
            lines.push_back(std::move(line));
        }
    }
    // The closing lines come from the test's thread, so the two threads' lines may mix from there on.
    lines.resize(std::min<size_t>(lines.size(), 16));
    EXPECT_EQ(
        lines,
        (std::vector<std::string>{
            " MpdLoader::Init ",
            " MpdLoader::resetStart ",
            " MpdLoader::ThreadProc ",
            " MpdLoader::ThreadProc parse MPD finish. result: 0x00000000, segment count: 2",
            " MpdLoader::ThreadProc parse MPD finish. last segment is 100",
            " MpdLoader::ThreadProc try to find 0 segment from end",
            " MpdLoader::ThreadProc start play from segment 101. The 1 segment from 2 segments",
            " MpdLoader::CallbackQuality ",
            " MpdLoader::CallbackQuality construct video quality info: {11:{'height': 720,'width': 0,'bandwidth': 0,"
            "'frameRate': 0}, 12:{'height': 1080,'width': 0,'bandwidth': 0,'frameRate': 0}}",
            " MpdLoader::ChoiceStream ",
            " MpdLoader::ChoiceStream choice audio quality ID: 1, bandwidth: 0",
            " MpdLoader::ChoiceStream choice video quality: 720 for prefer quality: 720.",
            " MpdLoader::ChoiceStream select video quality ID: 11. Its index is 0",
            " MpdLoader::ThreadProc update last segment to 101",
            " MpdLoader::ThreadProc parse success and send callback. duration: 600000",
            " MpdLoader::CloseThread ",
        }));
}

TEST_F(MpdLoaderLog, AnnouncesTheWaitThenTellsTheHostThenTheOwner) {
    Init();
    News(LiveManifest(100, 2));
    const std::vector<std::string> lines = m_log.Lines();
    const auto place = [&lines](std::string_view start, std::string_view end) {
        const auto found = std::ranges::find_if(
            lines, [=](const std::string& line) { return line.starts_with(start) && line.ends_with(end); });
        EXPECT_NE(found, lines.end()) << start;
        return found - lines.begin();
    };
    const auto wait = place(" MpdLoader::ThreadProc wait ", " millisecond to reload playlist");
    const auto event = place(" MPDEventHandler::OnStreamDwordEvent Call to client event: 0 param1: 0 ", "");
    const auto told = place(" MpdLoader::ThreadProc parse success and send callback. duration: ", "");
    const auto update = place(" FakeOwner::UpdateCacheSegmentInfo ", "");
    EXPECT_LT(wait, event);
    EXPECT_LT(event, told);
    EXPECT_LT(told, update);
}

/// Every line of a run, by the verbosity that shows it.
std::vector<std::string> LinesAtLevel(LONG level) {
    LogCapture log(level);
    RecordingHost host;
    FakeOwner owner;
    FetchScript script;
    auto queue = std::make_shared<SegmentQueue>(0);
    {
        MpdLoader loader(owner, std::make_unique<ScriptedSource>(script));
        LONGLONG start = 0;
        loader.SetPreferSegmentID(5);
        loader.SetPreferDelaySegment(1);
        loader.Init(L"http://origin/", queue);
        script.Await();
        script.Give({.mpd = Timeline(100, {kTenMinutes})});
        EXPECT_TRUE(owner.AwaitUpdates(1));
        loader.resetStart();
        loader.Wake();
        script.Await();
        script.Give({.mpd = LiveManifest(100, 2)});
        EXPECT_TRUE(owner.AwaitUpdates(2));
        loader.SetPreferDelayTime(1, start);
        script.Await();
        script.Give({.result = E_FAIL});
        loader.Wake();
        EXPECT_TRUE(script.AwaitCount(4));
        loader.pauseParse(1);  // The loader is inside the fetch, and skips what it brings.
        script.LetGo();
    }
    std::vector<std::string> lines;
    for (std::string& line : log.Lines()) {
        if (line.find("MpdLoader::") != std::string::npos) {
            lines.push_back(std::move(line));
        }
    }
    return lines;
}

/// `pattern` is a whole line, in which one "*" may stand for anything.
bool Shows(const std::vector<std::string>& lines, std::string_view pattern) {
    const size_t star = pattern.find('*');
    if (star == std::string_view::npos) {
        return std::ranges::find(lines, pattern) != lines.end();
    }
    const std::string_view start = pattern.substr(0, star);
    const std::string_view end = pattern.substr(star + 1);
    return std::ranges::any_of(lines,
                               [=](const std::string& line) { return line.starts_with(start) && line.ends_with(end); });
}

struct LevelCase {
    LONG level;
    const char* pattern;
};

void PrintTo(const LevelCase& line, std::ostream* out) {
    *out << line.level << line.pattern;
}

class MpdLoaderLogLevel : public testing::TestWithParam<LevelCase> {};

TEST_P(MpdLoaderLogLevel, ShowsTheLineFromItsLevelOn) {
    EXPECT_TRUE(Shows(LinesAtLevel(GetParam().level), GetParam().pattern));
    EXPECT_FALSE(Shows(LinesAtLevel(GetParam().level - 1), GetParam().pattern));
}

INSTANTIATE_TEST_SUITE_P(
    Lines, MpdLoaderLogLevel,
    testing::Values(
        LevelCase{4, " MpdLoader::MpdLoader "}, LevelCase{4, " MpdLoader::~MpdLoader "},
        LevelCase{4, " MpdLoader::Init "}, LevelCase{3, " MpdLoader::resetStart "},
        LevelCase{4, " MpdLoader::CloseThread : *"}, LevelCase{4, " MpdLoader::ThreadProc finish."},
        LevelCase{6, " MpdLoader::ThreadProc parse MPD finish. result: *"},
        LevelCase{6, " MpdLoader::ThreadProc parse MPD finish. last segment is *"},
        LevelCase{3, " MpdLoader::ThreadProc start play from segment *"}, LevelCase{3, " MpdLoader::CallbackQuality "},
        LevelCase{6, " MpdLoader::CallbackQuality construct *"}, LevelCase{6, " MpdLoader::ChoiceStream "},
        LevelCase{6, " MpdLoader::ThreadProc update last segment to *"},
        LevelCase{3, " MpdLoader::ThreadProc parse success and send callback. duration: *"},
        LevelCase{4, " MpdLoader::ThreadProc "}, LevelCase{4, " MpdLoader::CloseThread "},
        LevelCase{4, " MpdLoader::ThreadProc wait * millisecond complete. result: 1"},
        LevelCase{4, " MpdLoader::SetPreferDelayTime : 1"}, LevelCase{4, " MpdLoader::SetPreferDelaySegment : 1"},
        LevelCase{4, " MpdLoader::SetPreferSegmentID : 5"},
        LevelCase{6, " MpdLoader::ThreadProc wait * millisecond to reload playlist"},
        LevelCase{6, " MpdLoader::pauseParse : 1"}, LevelCase{6, " MpdLoader::ThreadProc skip MPD parse for pause"},
        LevelCase{3, " MpdLoader::SetPreferDelayTime set new start segment *"},
        LevelCase{3, "[Error] MpdLoader::ThreadProc failed to get mpd for 0x80004005"},
        LevelCase{3, "[Error] MpdLoader::ThreadProc failed to get vidoe and audio segment!"},
        LevelCase{3, "[Error] MpdLoader::CallbackQuality failed to find video quality"}));

}  // namespace
}  // namespace kvmpd::test
