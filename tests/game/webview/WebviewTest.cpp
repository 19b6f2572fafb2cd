// The pipe transport and the webview client, with the other process played by
// a thread of the test that opens the pipes by name as the webview program does.
#include "game/ElectronWebview.hpp"
#include "game/PipeServer.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <future>
#include <string>
#include <vector>

namespace {

using game::ElectronWebview;
using game::PipeServer;
using namespace std::chrono_literals;

/// A pipe name of its own for each use.
std::string FreshName() {
    static int counter = 0;
    std::filesystem::create_directories("../Tessara-data");
    return "webview_test_" + std::to_string(::getpid()) + "_" + std::to_string(counter++);
}

/// The other process's side: opens path with flags and reads all it can, or
/// writes bytes; on a thread of its own, since each open waits for the game's.
std::future<std::string> ReadAll(std::string const& path) {
    return std::async(std::launch::async, [path] {
        std::string got;
        int const fd = ::open(path.c_str(), O_RDONLY);
        char buffer[4096];
        for (ssize_t n; fd != -1 && (n = ::read(fd, buffer, sizeof buffer)) > 0;) got.append(buffer, size_t(n));
        if (fd != -1) ::close(fd);
        return got;
    });
}

std::future<void> WriteAll(std::string const& path, std::string bytes) {
    return std::async(std::launch::async, [path, bytes = std::move(bytes)] {
        int const fd = ::open(path.c_str(), O_WRONLY);
        for (size_t done = 0; fd != -1 && done < bytes.size();) {
            ssize_t const n = ::write(fd, bytes.data() + done, bytes.size() - done);
            if (n <= 0) break;
            done += size_t(n);
        }
        if (fd != -1) ::close(fd);
    });
}

bool IsPipe(std::string const& path) {
    struct stat info { };
    return ::stat(path.c_str(), &info) == 0 && S_ISFIFO(info.st_mode);
}

bool SigpipePending() {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
}

TEST(PipeServer, OpensEachDirectionOnFirstUseCarriesBytesAsTheyAreAndRemovesItsFiles) {
    std::string stem;
    {
        PipeServer pipe(FreshName()); // opens nothing: no process at the other end, and no wait
        stem = pipe.Stem();
        EXPECT_THAT(stem, testing::StartsWith("../Tessara-data/webview_test_"));
        ASSERT_TRUE(IsPipe(stem + ".s2c") && IsPipe(stem + ".c2s"));
        PipeServer again(stem.substr(16)); // pipes that exist are no error
        auto peer = ReadAll(stem + ".s2c");
        EXPECT_TRUE(pipe.Write(nullptr, 0)); // only opens
        EXPECT_TRUE(pipe.Write("open a\n", 7));
        EXPECT_TRUE(pipe.Write("ping \n", 6));
        pipe.CloseWrite(); // the reader sees the end
        EXPECT_EQ(peer.get(), "open a\nping \n");

        auto writer = WriteAll(stem + ".c2s", "xyz");
        char buffer[16];
        EXPECT_EQ(pipe.Read(buffer, sizeof buffer), 3u);
        EXPECT_EQ(std::string(buffer, 3), "xyz");
        writer.get();
        EXPECT_EQ(pipe.Read(buffer, sizeof buffer), 0u); // the writer closed

        peer = ReadAll(stem + ".s2c"); // opens again after a close
        EXPECT_TRUE(pipe.Write("close a\n", 8));
        pipe.CloseWrite();
        EXPECT_EQ(peer.get(), "close a\n");
    }
    EXPECT_FALSE(std::filesystem::exists(stem + ".s2c"));
    EXPECT_FALSE(std::filesystem::exists(stem + ".c2s"));
}

TEST(PipeServer, AReaderThatLeftMakesWritesFailWithoutASignal) {
    PipeServer pipe(FreshName());
    std::promise<void> opened, leave;
    auto peer = std::async(std::launch::async, [&] {
        int const fd = ::open((pipe.Stem() + ".s2c").c_str(), O_RDONLY);
        opened.set_value();
        leave.get_future().wait();
        ::close(fd);
    });
    ElectronWebview webview;
    EXPECT_TRUE(webview.WriteToPipe(pipe)); // the reader is there
    opened.get_future().wait();
    leave.set_value();
    peer.get();
    // SIGPIPE's default would end the test program here.
    testing::internal::CaptureStderr();
    EXPECT_FALSE(webview.WriteToPipe(pipe));
    EXPECT_FALSE(pipe.Write("x", 1));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Broken pipe with ELECTRON_WEBVIEW in Write Thread\n");
    EXPECT_FALSE(SigpipePending());
}

TEST(PipeServer, InterruptEndsTheWaitsForAProcessThatNeverCame) {
    PipeServer pipe(FreshName());
    auto write = std::async(std::launch::async, [&] { return pipe.Write("ping \n", 6); });
    auto read = std::async(std::launch::async, [&] {
        char byte;
        return pipe.Read(&byte, 1);
    });
    auto const deadline = std::chrono::steady_clock::now() + 10s;
    while ((write.wait_for(0s) != std::future_status::ready || read.wait_for(0s) != std::future_status::ready) &&
           std::chrono::steady_clock::now() < deadline) {
        pipe.Interrupt(); // again until both have noticed: one may not have reached its open yet
        std::this_thread::sleep_for(5ms);
    }
    ASSERT_EQ(write.wait_for(0s), std::future_status::ready);
    ASSERT_EQ(read.wait_for(0s), std::future_status::ready);
    EXPECT_FALSE(write.get());
    EXPECT_EQ(read.get(), 0u);
    EXPECT_FALSE(pipe.Write("ping \n", 6)) << "and later opens give up at once";
    EXPECT_FALSE(SigpipePending());
}

/// A pipe whose reading end is a thread that keeps every line the game sends.
class WebviewMessages : public testing::Test {
protected:
    WebviewMessages() : pipe(FreshName()), peer(ReadAll(pipe.Stem() + ".s2c")) { }
    ~WebviewMessages() override {
        pipe.Write(nullptr, 0); // the peer waits in its open for this
        pipe.CloseWrite();
        peer.wait();
    }
    /// Calls WriteToPipe count times and returns the lines the peer got, in order.
    std::vector<std::string> Send(ElectronWebview& webview, int count) {
        std::vector<std::string> lines;
        for (int i = 0; i < count; ++i) EXPECT_TRUE(webview.WriteToPipe(pipe));
        pipe.CloseWrite(); // the peer's read ends; the next Send opens again
        std::string const got = peer.get();
        peer = ReadAll(pipe.Stem() + ".s2c");
        for (size_t start = 0, end; (end = got.find('\n', start)) != std::string::npos; start = end + 1)
            lines.push_back(got.substr(start, end - start));
        return lines;
    }

    PipeServer pipe;
    std::future<std::string> peer;
};

std::string Button(char const* view, char const* type, double x, double y, char const* button) {
    char json[256];
    std::snprintf(json, sizeof json, "{\"type\":\"%s\",\"x\":%f,\"y\":%f,\"button\":\"%s\",\"clickCount\":1}", type, x,
                  y, button);
    return std::string("input ") + view + " " + json;
}

TEST_F(WebviewMessages, EachCallSendsItsTextWordForWord) {
    struct Case {
        char const* what;
        std::function<void(ElectronWebview&)> calls;
        std::vector<std::string> sent; // then a keep-alive
    };
    std::string const move = "input b {\"type\":\"mouseMove\",\"x\":3.000000,\"y\":4.000000}";
    Case const cases[] = {
        {"idle", [](ElectronWebview&) {}, {}},
        {"open",
         [](ElectronWebview& w) { w.Open("page", "file:///x.html?a=1", 480, 320, 1.5); },
         {"open page file:///x.html?a=1 480 320 1.500000"}},
        {"names with blanks are refused",
         [](ElectronWebview& w) {
             w.Open("two words", "u", 1, 1, 1.0);
             w.Open("v", "", 1, 1, 1.0);
         },
         {}},
        {"close of a name never opened", [](ElectronWebview& w) { w.Close("never"); }, {"close never"}},
        {"ten moves, one message with the last place",
         [](ElectronWebview& w) {
             for (int i = 0; i < 10; ++i) w.MouseMove("v", i, 2 * i);
         },
         {"input v {\"type\":\"mouseMove\",\"x\":9.000000,\"y\":18.000000}"}},
        {"a move to another view with the button down releases it first",
         [](ElectronWebview& w) {
             w.MouseButton("a", 0, 1, 1, 2);
             w.MouseMove("b", 3, 4);
         },
         {Button("a", "mouseDown", 1, 2, "left"), Button("a", "mouseUp", 1, 2, "left"), move}},
        {"right button; other buttons and actions send nothing",
         [](ElectronWebview& w) {
             w.MouseButton("a", 1, 0, 5, 6);
             w.MouseButton("a", 2, 1, 5, 6);
             w.MouseButton("a", 0, 2, 5, 6);
             w.MouseButton("", 0, 1, 5, 6);
         },
         {Button("a", "mouseUp", 5, 6, "right")}},
        {"MouseUp releases only a pressed button",
         [](ElectronWebview& w) {
             w.MouseUp();
             w.MouseButton("a", 0, 1, 7, 8);
             w.MouseUp();
             w.MouseUp();
         },
         {Button("a", "mouseDown", 7, 8, "left"), Button("a", "mouseUp", 7, 8, "left")}},
        {"the wheel, forty per step, only over a view",
         [](ElectronWebview& w) {
             w.MouseWheel(1, 1);
             w.MouseMove("v", 0, 0);
             w.MouseWheel(0.5, -1);
         },
         {"input v {\"type\":\"mouseWheel\",\"x\":0,\"y\":0,\"deltaX\":20.000000,\"deltaY\":-40.000000}",
          "input v {\"type\":\"mouseMove\",\"x\":0.000000,\"y\":0.000000}"}},
        {"keys and characters, only over a view",
         [](ElectronWebview& w) {
             w.InputKey(65, 1);
             w.InputChar('a');
             w.MouseMove("v", 0, 0);
             w.InputKey(65, 1);
             w.InputKey(257, 0);
             w.InputKey(65, 2);
             w.InputKey(300, 1);
             w.InputChar('x');
             w.InputChar('\\');
             w.InputChar('"');
             w.InputChar('\n');
         },
         {"input v {\"type\":\"keyDown\",\"keyCode\":\"A\"}", "input v {\"type\":\"keyUp\",\"keyCode\":\"Enter\"}",
          "input v {\"type\":\"char\",\"keyCode\":\"x\"}", "input v {\"type\":\"char\",\"keyCode\":\"\\\\\"}",
          "input v {\"type\":\"char\",\"keyCode\":\"\\\"\"}",
          "input v {\"type\":\"mouseMove\",\"x\":0.000000,\"y\":0.000000}"}},
    };
    for (Case const& c : cases) {
        ElectronWebview webview;
        testing::internal::CaptureStderr();
        c.calls(webview);
        testing::internal::GetCapturedStderr();
        std::vector<std::string> expected = c.sent;
        expected.push_back("ping ");
        EXPECT_EQ(Send(webview, int(expected.size())), expected) << c.what;
    }
}

TEST(ElectronWebview, KeyNames) {
    std::pair<int, char const*> const keys[] = {
        {65, "A"},       {90, "Z"},         {48, "0"},      {57, "9"},      {32, "Space"},  {39, "'"},
        {96, "`"},       {61, "="},         {336, "="},     {92, "\\\\"},   {257, "Enter"}, {335, "Enter"},
        {269, "End"},    {280, "Capslock"}, {284, "Pause"}, {320, "num0"},  {329, "num9"},  {330, "numdec"},
        {334, "numadd"}, {340, "Shift"},    {345, "Ctrl"},  {346, "Alt"},   {347, "Super"}, {348, "Menu"},
        {31, nullptr},   {33, nullptr},     {270, nullptr}, {285, nullptr}, {349, nullptr}, {-1, nullptr},
        {64, nullptr},   {91, "["},         {300, nullptr}, {256, nullptr}, {58, nullptr},  {97, nullptr},
    };
    for (auto const& [key, name] : keys) {
        char const* const got = ElectronWebview::KeyName(key);
        EXPECT_EQ(got == nullptr ? std::string("(none)") : got, name == nullptr ? "(none)" : name) << key;
    }
}

/// A frame as the webview program sends it.
std::string Frame(std::string const& name, std::string const& data, uint32_t nameLength = ~0u,
                  uint32_t dataLength = ~0u) {
    uint32_t lengths[2] = {nameLength == ~0u ? uint32_t(name.size()) : nameLength,
                           dataLength == ~0u ? uint32_t(data.size()) : dataLength};
    return std::string(reinterpret_cast<char const*>(lengths), sizeof lengths) + name + data;
}

TEST(ElectronWebview, FramesReachTheirViewAndTheRestIsReadThroughAndDropped) {
    PipeServer pipe(FreshName());
    ElectronWebview webview;
    std::vector<std::pair<std::string, std::string>> got;
    auto keep = [&got](std::string name) {
        return [&got, name](char const* data, unsigned long size) { got.emplace_back(name, std::string(data, size)); };
    };
    webview.Open("a", "u", 4, 4, 1.0, keep("a"));
    webview.Open("gone", "u", 4, 4, 1.0, keep("gone"));
    webview.Close("gone");
    webview.Open("b", "u", 4, 4, 1.0, keep("b"));
    std::string const big(ElectronWebview::FrameBufferBytes, 'x');
    std::string const stream = Frame("a", "first") + Frame("nobody", "lost") + Frame("gone", "late") +
        Frame(std::string(ElectronWebview::FrameBufferBytes, 'n'), "too long a name") + Frame("b", big + "y") +
        Frame("b", big) + Frame("a", "") + Frame("a", "cut short", 1, 100);
    auto peer = WriteAll(pipe.Stem() + ".c2s", stream);
    testing::internal::CaptureStderr();
    int frames = 0;
    while (webview.ReadFromPipe(pipe)) ++frames;
    std::string const said = testing::internal::GetCapturedStderr();
    peer.get();
    EXPECT_EQ(frames, 7); // the last ends early
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(got[0], std::pair(std::string("a"), std::string("first")));
    EXPECT_EQ(got[1].first, "b");
    EXPECT_EQ(got[1].second.size(), big.size()); // exactly the buffer is still a frame
    EXPECT_EQ(got[2], std::pair(std::string("a"), std::string()));
    EXPECT_THAT(said, testing::HasSubstr("dropped a frame with a name of 1048576 bytes and 15 bytes of data"));
    EXPECT_THAT(said, testing::HasSubstr("dropped a frame with a name of 1 bytes and 1048577 bytes of data"));

    webview.ClearCallbacks(); // every view forgotten
    pipe.CloseRead();         // first: a writer that met the old reader would lose its bytes with it
    peer = WriteAll(pipe.Stem() + ".c2s", Frame("a", "after"));
    EXPECT_TRUE(webview.ReadFromPipe(pipe));
    EXPECT_EQ(got.size(), 3u);
    peer.get();
}

} // namespace
