// The mediawire tool as a user types it: help and usage errors, the failures a user meets
// (a missing file, an unknown device), playing a file, a tone and a FIFO another program
// writes, signals arriving while it plays or waits, and the WAV file the file output writes.
#include <fcntl.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/apps/ToolProcess.h"
#include "tests/support/Wait.h"

using mw::test::RunTool;
using mw::test::ToolProcess;
using mw::test::ToolResult;
using mw::test::WaitUntil;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr auto kCeiling = std::chrono::seconds(60);

class Tool : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "mediawire-tool-test-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr) << std::strerror(errno);
        FDir = pattern;
    }
    void TearDown() override {
        std::error_code ec;
        std::filesystem::remove_all(FDir, ec);
    }
    std::string File(const std::string& name) const { return (FDir / name).string(); }

    // The tool's tone written as a WAV file.
    std::string Tone(const std::string& name, const std::string& seconds) {
        const std::string path = File(name);
        const ToolResult r = RunTool({"tone", path, seconds});
        EXPECT_EQ(r.ExitCode, 0) << r.All();
        return path;
    }

    std::filesystem::path FDir;
};

std::string ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

uint32_t Le(const std::string& s, size_t at, int bytes) {
    uint32_t v = 0;
    for (int i = bytes - 1; i >= 0; --i)
        v = v << 8 | static_cast<uint8_t>(s.at(at + i));
    return v;
}

// The chunks of a RIFF WAVE file that matter here.
struct Wav {
    uint16_t Tag = 0, Channels = 0, Bits = 0;
    uint32_t Rate = 0, RiffSize = 0;
    std::string Data;
};

Wav ParseWav(const std::string& bytes) {
    Wav w;
    if (bytes.size() < 12 || bytes.compare(0, 4, "RIFF") || bytes.compare(8, 4, "WAVE")) return w;
    w.RiffSize = Le(bytes, 4, 4);
    size_t at = 12;
    while (at + 8 <= bytes.size()) {
        const std::string id = bytes.substr(at, 4);
        const uint32_t size = Le(bytes, at + 4, 4);
        if (id == "fmt ") {
            w.Tag = static_cast<uint16_t>(Le(bytes, at + 8, 2));
            w.Channels = static_cast<uint16_t>(Le(bytes, at + 10, 2));
            w.Rate = Le(bytes, at + 12, 4);
            w.Bits = static_cast<uint16_t>(Le(bytes, at + 22, 2));
        } else if (id == "data") {
            w.Data = bytes.substr(at + 8, size);
        }
        at += 8 + size + (size & 1);
    }
    return w;
}

// What lies under /tmp with the name a temporary file of the tool would have.
std::set<std::string> ToolTemporaries() {
    std::set<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator("/tmp"))
        if (e.path().filename().string().rfind("mediawire-", 0) == 0 &&
            e.path().filename().string().rfind("mediawire-tool-test-", 0) != 0)
            names.insert(e.path().string());
    return names;
}

// The kernel's name for where the process sleeps ("wait_for_partner" in a FIFO's open).
std::string WaitChannel(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/wchan");
    std::string s;
    std::getline(in, s);
    return s;
}

// ---- help and usage

TEST_F(Tool, HelpListsEveryCommandAndExitsZero) {
    const ToolResult r = RunTool({"--help"});
    EXPECT_EQ(r.ExitCode, 0) << r.All();
    for (const char* command : {"classes", "devices", "play", "tone", "version"})
        EXPECT_THAT(r.Out, HasSubstr(command));
    EXPECT_EQ(r.Err, "");
}

TEST_F(Tool, EachCommandHasItsOwnHelp) {
    const ToolResult play = RunTool({"play", "--help"});
    EXPECT_EQ(play.ExitCode, 0) << play.All();
    for (const char* option : {"--device", "--output", "--tone", "--prefill", "--pump"})
        EXPECT_THAT(play.Out, HasSubstr(option));
    const ToolResult tone = RunTool({"tone", "-h"});
    EXPECT_EQ(tone.ExitCode, 0) << tone.All();
    EXPECT_THAT(tone.Out, HasSubstr("SECONDS"));
    EXPECT_THAT(tone.Out, Not(HasSubstr("--prefill")));
}

TEST_F(Tool, VersionBothWays) {
    const ToolResult flag = RunTool({"--version"});
    const ToolResult command = RunTool({"version"});
    EXPECT_EQ(flag.ExitCode, 0);
    EXPECT_EQ(command.ExitCode, 0);
    EXPECT_THAT(flag.Out, testing::StartsWith("mediawire "));
    EXPECT_EQ(flag.Out, command.Out);
}

TEST_F(Tool, UsageErrorsSayWhatWasWrongAndExitTwo) {
    struct Case {
        std::vector<std::string> Args;
        std::string Says;
    };
    const std::string wav = Tone("a.wav", "0.1");
    const std::vector<Case> cases = {
        {{}, "A subcommand is required"},
        {{"bogus"}, "unknown command 'bogus'"},
        {{"play"}, "play needs a FILE or --tone SECONDS"},
        {{"play", wav, "--tone", "1"}, "not both"},
        {{"play", wav, "--prefill", "soon"}, "--prefill"},
        {{"play", wav, "--prefill", "20000"}, "--prefill"},
        {{"play", "--tone", "0"}, "--tone"},
        {{"play", wav, "--volume", "3"}, "--volume"},
        {{"play", wav, "--device", "Virtual Output", "--output", File("o.wav")},
         "does not go with --device"},
        {{"play", wav, "--device", "WAV File Output"}, "name it with --output FILE"},
        {{"tone"}, "FILE is required"},
        {{"devices", "extra"}, "extra"},
    };
    for (const Case& c : cases) {
        const ToolResult r = RunTool(c.Args);
        std::string shown;
        for (const auto& a : c.Args)
            shown += a + " ";
        EXPECT_EQ(r.ExitCode, 2) << shown << "\n" << r.All();
        EXPECT_THAT(r.Err, HasSubstr(c.Says)) << shown;
        EXPECT_THAT(r.Err, HasSubstr("--help")) << shown;
    }
    EXPECT_FALSE(std::filesystem::exists(File("o.wav")));
}

// ---- failures

TEST_F(Tool, MissingFileFailsWithTheReason) {
    const ToolResult r = RunTool({"play", File("none.wav"), "--device", "Virtual Output"});
    EXPECT_EQ(r.ExitCode, 1) << r.All();
    EXPECT_THAT(r.Err,
                HasSubstr("mediawire: cannot open '" + File("none.wav") + "': No such file"));
}

TEST_F(Tool, FileThatIsNoAudioFails) {
    std::ofstream(File("notes.wav")) << std::string(3000, 'x');
    const ToolResult r = RunTool({"play", File("notes.wav"), "--device", "Virtual Output"});
    EXPECT_EQ(r.ExitCode, 1) << r.All();
    EXPECT_THAT(r.Err, HasSubstr("not an audio file FFmpeg can decode"));
}

TEST_F(Tool, UnknownDeviceFailsAndPointsToTheList) {
    const ToolResult r = RunTool({"play", "--tone", "0.1", "--device", "Foo"});
    EXPECT_EQ(r.ExitCode, 1) << r.All();
    EXPECT_THAT(r.Err, HasSubstr("mediawire: unknown device 'Foo' (see mediawire devices)"));
}

TEST_F(Tool, OutputFileThatCannotBeWrittenFailsWithTheReason) {
    const ToolResult r = RunTool({"play", "--tone", "0.1", "--output", File("no/such/dir.wav")});
    EXPECT_EQ(r.ExitCode, 1) << r.All();
    EXPECT_THAT(r.Err, HasSubstr("cannot write '" + File("no/such/dir.wav") +
                                 "': No such file or directory"));
    // No raw error numbers where there are words.
    EXPECT_THAT(r.Err, Not(testing::ContainsRegex(" - [0-9]+ - [0-9a-f]+")));
}

// ---- playing

TEST_F(Tool, ListsTheBuiltInDevices) {
    const ToolResult r = RunTool({"devices"});
    EXPECT_EQ(r.ExitCode, 0) << r.All();
    EXPECT_THAT(r.Out, HasSubstr("Virtual Output"));
    EXPECT_THAT(r.Out, HasSubstr("WAV File Output"));
    EXPECT_THAT(r.Out, HasSubstr("(default)"));
}

TEST_F(Tool, PlaysAFileWithProgressUpToItsDuration) {
    const std::string wav = Tone("half.wav", "0.5");
    const ToolResult r = RunTool({"play", wav, "--device", "Virtual Output"});
    EXPECT_EQ(r.ExitCode, 0) << r.All();
    EXPECT_THAT(r.Out, HasSubstr("Playing '" + wav +
                                 "' (wav/pcm_s16le, 44100 Hz, 2 ch, 16-bit) "
                                 "on \"Virtual Output\""));
    EXPECT_THAT(r.Out, HasSubstr("0:00.5 / 0:00.5"));
}

TEST_F(Tool, PlaysPulledByTheOutput) {
    const std::string wav = Tone("half.wav", "0.3");
    const ToolResult r =
        RunTool({"play", wav, "--device", "Virtual Output", "--pump", "--prefill", "100"});
    EXPECT_EQ(r.ExitCode, 0) << r.All();
    EXPECT_THAT(r.Out, HasSubstr("pulled by the output"));
    EXPECT_THAT(r.Out, HasSubstr("0:00.3 / 0:00.3"));
}

TEST_F(Tool, DeviceNamesMatchInAnyCase) {
    for (const char* name : {"VIRTUAL OUTPUT", "virtual output", "DeFaUlT"}) {
        const ToolResult r = RunTool({"play", "--tone", "0.2", "--device", name});
        EXPECT_EQ(r.ExitCode, 0) << name << "\n" << r.All();
        EXPECT_THAT(r.Out, HasSubstr("0:00.2 / 0:00.2")) << name;
    }
    const ToolResult r = RunTool({"play", "--tone", "0.2", "--device", "virtual OUTPUT"});
    EXPECT_THAT(r.Out, HasSubstr("on \"Virtual Output\""));
}

TEST_F(Tool, PlaysTheToneWithoutWritingATemporaryFile) {
    const auto before = ToolTemporaries();
    ToolProcess tool({"play", "--tone", "0.4", "--device", "Virtual Output"});
    ASSERT_TRUE(tool.WaitForOutput("Playing 'test tone'"));
    EXPECT_EQ(ToolTemporaries(), before);
    const ToolResult r = tool.Finish();
    EXPECT_EQ(r.ExitCode, 0) << r.All();
    EXPECT_THAT(r.Out, HasSubstr("0:00.4 / 0:00.4"));
}

TEST_F(Tool, OutputWritesTheWholeStreamToAWavFile) {
    const std::string tone = Tone("tone.wav", "0.5");
    const std::string out = File("out.wav");
    const ToolResult r = RunTool({"play", tone, "--output", out});
    EXPECT_EQ(r.ExitCode, 0) << r.All();
    EXPECT_THAT(r.Out, HasSubstr("Writing '" + out + "'"));
    EXPECT_THAT(r.Out, HasSubstr("on \"WAV File Output\""));

    const Wav written = ParseWav(ReadAll(out));
    const Wav source = ParseWav(ReadAll(tone));
    EXPECT_EQ(written.Rate, 44100u);
    EXPECT_EQ(written.Channels, 2);
    EXPECT_EQ(written.Bits, 16);
    ASSERT_EQ(source.Data.size(), 22050u * 4);
    EXPECT_EQ(written.Data.size(), source.Data.size());
    EXPECT_TRUE(written.Data == source.Data) << "the samples differ";
    EXPECT_EQ(written.RiffSize + 8, std::filesystem::file_size(out));
}

TEST_F(Tool, OutputOfTheToneAlsoNamesTheDeviceByAnyCase) {
    const std::string out = File("tone-out.wav");
    const ToolResult r =
        RunTool({"play", "--tone", "0.25", "--device", "wav file output", "--output", out});
    EXPECT_EQ(r.ExitCode, 0) << r.All();
    EXPECT_EQ(ParseWav(ReadAll(out)).Data.size(), 11025u * 4);
}

// ---- a FIFO

TEST_F(Tool, PlaysAFifoThatAnotherProgramWritesIntoWithoutLosingData) {
    const std::string wav = ReadAll(Tone("fifo-source.wav", "0.5"));
    const std::string fifo = File("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0) << std::strerror(errno);
    signal(SIGPIPE, SIG_IGN);  // a lost reader shows as EPIPE in the writer, not a dead test

    // Counts the times a reader let go of the FIFO (inotify folds repeated equal events, but
    // every open of the tool's lies between two of its closes).
    const int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_GE(watch, 0) << std::strerror(errno);
    ASSERT_GE(inotify_add_watch(watch, fifo.c_str(), IN_OPEN | IN_CLOSE_NOWRITE), 0)
        << std::strerror(errno);

    ToolProcess tool({"play", fifo, "--device", "Virtual Output"});
    // The writer: opens as soon as a reader has the FIFO open, then writes it all.
    int fd = -1;
    ASSERT_TRUE(WaitUntil(
        [&] {
            fd = ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
            return fd >= 0;
        },
        kCeiling));
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    size_t written = 0;
    int writeError = 0;
    while (written < wav.size()) {
        const ssize_t n = ::write(fd, wav.data() + written, wav.size() - written);
        if (n < 0) {
            writeError = errno;
            break;
        }
        written += static_cast<size_t>(n);
    }
    ::close(fd);
    EXPECT_EQ(writeError, 0) << std::strerror(writeError);
    EXPECT_EQ(written, wav.size());

    const ToolResult r = tool.Finish();
    EXPECT_EQ(r.ExitCode, 0) << r.All();
    EXPECT_THAT(r.Out, HasSubstr("0:00.5 / 0:00.5"));

    int readerCloses = 0;
    alignas(inotify_event) char events[4096];
    for (ssize_t n; (n = ::read(watch, events, sizeof events)) > 0;)
        for (char* p = events; p < events + n;
             p += sizeof(inotify_event) + reinterpret_cast<inotify_event*>(p)->len)
            readerCloses += (reinterpret_cast<inotify_event*>(p)->mask & IN_CLOSE_NOWRITE) != 0;
    ::close(watch);
    EXPECT_EQ(readerCloses, 1) << "the tool opened the FIFO more than once";
}

TEST_F(Tool, CtrlCWhileAFifoWaitsForItsWriterEndsTheTool) {
    const std::string fifo = File("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0) << std::strerror(errno);
    ToolProcess tool({"play", fifo, "--device", "Virtual Output"});
    ASSERT_TRUE(WaitUntil([&] { return WaitChannel(tool.Pid()) == "wait_for_partner"; }, kCeiling))
        << "the tool never waited in the FIFO's open";
    tool.Signal(SIGINT);
    const ToolResult r = tool.Finish();
    EXPECT_EQ(r.ExitCode, 130) << r.All();
    EXPECT_THAT(r.Err, HasSubstr("mediawire: interrupted"));
}

// ---- signals

TEST_F(Tool, CtrlCStopsPlayingCleanly) {
    ToolProcess tool({"play", "--tone", "600", "--device", "Virtual Output"});
    ASSERT_TRUE(tool.WaitForOutput("/ 10:00.0"));
    tool.Signal(SIGINT);
    const ToolResult r = tool.Finish();
    EXPECT_EQ(r.ExitCode, 130) << r.All();
    EXPECT_THAT(r.Err, HasSubstr("mediawire: interrupted"));
}

TEST_F(Tool, SigtermDuringTheToneLeavesNoFileBehind) {
    const auto before = ToolTemporaries();
    ToolProcess tool({"play", "--tone", "600", "--device", "Virtual Output"});
    ASSERT_TRUE(tool.WaitForOutput("/ 10:00.0"));
    tool.Signal(SIGTERM);
    const ToolResult r = tool.Finish();
    EXPECT_EQ(r.ExitCode, 128 + SIGTERM) << r.All();
    EXPECT_EQ(ToolTemporaries(), before);
}

TEST_F(Tool, SigtermWhileWritingToAFileCompletesTheFile) {
    const std::string out = File("cut.wav");
    ToolProcess tool({"play", "--tone", "600", "--output", out, "--prefill", "0"});
    ASSERT_TRUE(tool.WaitForOutput("Playing 'test tone'"));
    ASSERT_TRUE(WaitUntil(
        [&] {
            std::error_code ec;
            const auto size = std::filesystem::file_size(out, ec);
            return !ec && size > 100000;
        },
        kCeiling));
    tool.Signal(SIGTERM);
    const ToolResult r = tool.Finish();
    EXPECT_EQ(r.ExitCode, 128 + SIGTERM) << r.All();
    // Closed as a whole file: the sizes in the header match what was written.
    const std::string bytes = ReadAll(out);
    const Wav w = ParseWav(bytes);
    EXPECT_EQ(w.RiffSize + 8, bytes.size());
    EXPECT_GT(w.Data.size(), 0u);
    EXPECT_EQ(w.Data.size() % 4, 0u);
}

TEST_F(Tool, InterruptedToneCommandRemovesItsPartialFile) {
    const std::string out = File("long.wav");
    ToolProcess tool({"tone", out, "3600"});
    ASSERT_TRUE(WaitUntil(
        [&] {
            std::error_code ec;
            return std::filesystem::file_size(out, ec) > 0 && !ec;
        },
        kCeiling));
    tool.Signal(SIGINT);
    const ToolResult r = tool.Finish();
    EXPECT_EQ(r.ExitCode, 130) << r.All();
    EXPECT_FALSE(std::filesystem::exists(out));
}

}  // namespace
