#include "game/ElectronWebview.hpp"

#include "game/Game.hpp"
#include "game/PipeServer.hpp"
#include "nerox/graphics/DynamicAsyncTexture.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <thread>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace game {

namespace {

/// Every formatted event fits this.
constexpr size_t EventBytes = 1024;

/// False, with a message, for a name or URL the line protocol cannot carry:
/// names are printable ASCII; URLs may hold UTF-8 as well.
bool Plain(std::string const& what, std::string const& text) {
    bool ok = !text.empty();
    for (char c : text)
        if (static_cast<unsigned char>(c) <= ' ' || c == 0x7f || (what != "url" && (c & 0x80) != 0)) ok = false;
    if (!ok)
        std::fprintf(stderr, "ELECTRON_WEBVIEW: refused the %s \"%s\": it must be non-empty, without blanks or %s\n",
                     what.c_str(), text.c_str(),
                     what == "url" ? "control characters (encode them: %20)" : "characters outside printable ASCII");
    return ok;
}

/// Names go into the line protocol as they are: they hold printable ASCII
/// and no blanks.
bool PlainName(std::string const& name) {
    for (char c : name)
        if (static_cast<unsigned char>(c) <= ' ' || static_cast<unsigned char>(c) >= 0x7f) return false;
    return true;
}

} // namespace

ElectronWebview::ElectronWebview() = default;
ElectronWebview::~ElectronWebview() = default;

void ElectronWebview::RunElectron(std::string const& command) {
    using Clock = std::chrono::steady_clock;
    running = true;
    // The shell runs the command in a process group of its own, so that the
    // terminal's Ctrl+C reaches the game and not the program, and the whole
    // group can be ended. (std::system would also ignore Ctrl+C in the game
    // for as long as the program runs.)
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    posix_spawnattr_setpgroup(&attributes, 0);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals); // nothing held back, whatever the spawning thread holds
    for (int signal : {SIGPIPE, SIGINT, SIGTERM, SIGHUP, SIGCHLD}) sigaddset(&signals, signal);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    char const* const arguments[] = {"/bin/sh", "-c", command.c_str(), nullptr};
    pid_t pid = -1;
    int const error = posix_spawn(&pid, "/bin/sh", nullptr, &attributes, const_cast<char* const*>(arguments), environ);
    posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        std::fprintf(stderr, "ELECTRON_WEBVIEW: could not start \"%s\": %s\n", command.c_str(), std::strerror(error));
        pid = -1;
    }
    // The program ends by itself when the game closes its pipe. Once the game
    // has ended, it gets five seconds for that, then a request to end, then no
    // choice.
    std::optional<Clock::time_point> ended;
    bool asked = false, forced = false;
    while (pid > 0) {
        int status = 0;
        pid_t const done = ::waitpid(pid, &status, WNOHANG);
        if (done == pid) {
            if (!(WIFEXITED(status) && WEXITSTATUS(status) == 0) && !asked)
                std::fprintf(stderr, "ELECTRON_WEBVIEW: \"%s\" did not end well (status %d)\n", command.c_str(),
                             status);
            break;
        }
        if (done == -1 && errno != EINTR) break; // not our child any more
        if (!Game::isActive && !ended) ended = Clock::now();
        if (ended && !asked && Clock::now() - *ended > std::chrono::seconds(5)) {
            std::fprintf(stderr, "ELECTRON_WEBVIEW: \"%s\" is still running after the game ended; ending it\n",
                         command.c_str());
            ::kill(-pid, SIGTERM);
            asked = true;
        }
        if (ended && !forced && Clock::now() - *ended > std::chrono::seconds(8)) {
            ::kill(-pid, SIGKILL);
            forced = true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    while (Game::isActive) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    running = false;
}

void ElectronWebview::Open(std::string const& name, std::string const& url, unsigned int width, unsigned int height,
                           double scale) {
    Open(name, url, width, height, scale, [](char const*, unsigned long) {});
}

void ElectronWebview::Open(std::string const& name, std::string const& url, unsigned int width, unsigned int height,
                           double scale, std::function<void(char const*, unsigned long)> onFrame) {
    if (!onFrame || !Plain("view name", name) || !Plain("url", url)) return;
    char numbers[128];
    std::snprintf(numbers, sizeof numbers, " %u %u %f", width, height, scale);
    std::lock_guard lock(_mutex);
    _messages.push_back("open " + name + " " + url + numbers);
    _callbacks[name] = std::move(onFrame);
}

void ElectronWebview::Texture(std::shared_ptr<nerox::graphics::DynamicAsyncTexture> const& texture,
                              std::string const& name, std::string const& url, double scale) {
    if (!texture) return;
    std::weak_ptr<nerox::graphics::DynamicAsyncTexture> weak = texture;
    Open(name, url, texture->Width(), texture->Height(), scale, [weak](char const* data, unsigned long size) {
        if (auto alive = weak.lock()) alive->Load(data, size);
    });
}

void ElectronWebview::Close(std::string const& name) {
    if (!PlainName(name)) return; // never opened
    std::lock_guard lock(_mutex);
    _messages.push_back("close " + name);
    _callbacks.erase(name);
}

void ElectronWebview::ClearCallbacks() {
    std::lock_guard lock(_mutex);
    _callbacks.clear();
}

bool ElectronWebview::WriteToPipe(PipeServer& pipe) {
    std::string message;
    {
        std::lock_guard lock(_mutex);
        if (!_messages.empty()) {
            message = std::move(_messages.front());
            _messages.pop_front();
        } else if (!_mouseName.empty() && mouseMoved) {
            char text[EventBytes];
            std::snprintf(text, sizeof text, "input %s {\"type\":\"mouseMove\",\"x\":%f,\"y\":%f}", _mouseName.c_str(),
                          _mouseX, _mouseY);
            message = text;
            mouseMoved = false;
        } else {
            message = "ping ";
        }
    }
    message += '\n';
    if (pipe.Write(message.data(), message.size())) return true;
    std::fprintf(stderr, "Broken pipe with ELECTRON_WEBVIEW in Write Thread\n");
    return false;
}

bool ElectronWebview::ReadFromPipe(PipeServer& pipe) {
    return ReadFrame([&pipe](char* into, unsigned long size) { return pipe.Read(into, size); });
}

bool ElectronWebview::ReadFrame(std::function<unsigned long(char*, unsigned long)> const& read) {
    if (_frame.empty()) _frame.resize(FrameBufferBytes);
    // Fills size bytes of the buffer; false if the source ends first.
    auto fill = [&](char* into, unsigned long size) {
        for (unsigned long done = 0; done < size;) {
            unsigned long const count = std::min(read(into + done, size - done), size - done);
            if (count == 0) return false;
            done += count;
        }
        return true;
    };
    // Reads size bytes and forgets them.
    auto skip = [&](uint64_t size) {
        while (size > 0) {
            unsigned long const part = static_cast<unsigned long>(std::min<uint64_t>(size, FrameBufferBytes));
            if (!fill(_frame.data(), part)) return false;
            size -= part;
        }
        return true;
    };

    uint32_t lengths[2];
    if (!fill(reinterpret_cast<char*>(lengths), sizeof lengths)) return false;
    uint32_t const nameLength = lengths[0], dataLength = lengths[1];
    if (nameLength >= FrameBufferBytes || dataLength > FrameBufferBytes) {
        std::fprintf(stderr,
                     "ELECTRON_WEBVIEW: dropped a frame with a name of %u bytes and %u bytes of data: more than "
                     "the %lu-byte frame buffer holds\n",
                     nameLength, dataLength, FrameBufferBytes);
        return skip(uint64_t{nameLength} + dataLength);
    }
    if (!fill(_frame.data(), nameLength)) return false;
    _frameName.assign(_frame.data(), nameLength);
    if (!fill(_frame.data(), dataLength)) return false;

    std::lock_guard lock(_mutex);
    auto const found = _callbacks.find(_frameName);
    if (found != _callbacks.end()) found->second(_frame.data(), dataLength);
    return true;
}

void ElectronWebview::Queue(std::string const& name, char const* json) {
    _messages.push_back("input " + name + " " + json);
}

void ElectronWebview::Release() {
    if (_mouseName.empty() || !mouseDown) return;
    char json[EventBytes];
    std::snprintf(json, sizeof json, "{\"type\":\"mouseUp\",\"x\":%f,\"y\":%f,\"button\":\"left\",\"clickCount\":1}",
                  _mouseX, _mouseY);
    Queue(_mouseName, json);
    mouseDown = false;
}

void ElectronWebview::MouseMove(std::string const& name, double x, double y) {
    if (!PlainName(name)) return; // no view of this name
    std::lock_guard lock(_mutex);
    if (mouseDown && name != _mouseName) Release();
    if (name.empty()) return;
    _mouseName = name;
    _mouseX = x;
    _mouseY = y;
    mouseMoved = true;
}

void ElectronWebview::MouseButton(std::string const& name, int button, int action, double x, double y) {
    char const* const buttons[] = {"left", "right"};
    char const* const types[] = {"mouseUp", "mouseDown"};
    if (button < 0 || button > 1 || action < 0 || action > 1 || name.empty() || !PlainName(name)) return;
    std::lock_guard lock(_mutex);
    if (mouseDown && name != _mouseName) Release();
    mouseDown = action == 1;
    _mouseName = name;
    _mouseX = x;
    _mouseY = y;
    char json[EventBytes];
    std::snprintf(json, sizeof json, "{\"type\":\"%s\",\"x\":%f,\"y\":%f,\"button\":\"%s\",\"clickCount\":1}",
                  types[action], x, y, buttons[button]);
    Queue(name, json);
}

void ElectronWebview::MouseUp() {
    std::lock_guard lock(_mutex);
    Release();
}

void ElectronWebview::MouseWheel(double x, double y) {
    std::lock_guard lock(_mutex);
    if (_mouseName.empty()) return;
    char json[EventBytes];
    std::snprintf(json, sizeof json, "{\"type\":\"mouseWheel\",\"x\":0,\"y\":0,\"deltaX\":%f,\"deltaY\":%f}", x * 40.0,
                  y * 40.0);
    Queue(_mouseName, json);
}

char const* ElectronWebview::KeyName(int key) {
    // Letters and digits are their own characters; the rest by this table.
    static char const* const letters[] = {"A", "B", "C", "D", "E", "F", "G", "H", "I", "J", "K", "L", "M",
                                          "N", "O", "P", "Q", "R", "S", "T", "U", "V", "W", "X", "Y", "Z"};
    static char const* const digits[] = {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9"};
    static char const* const numpad[] = {"num0", "num1", "num2", "num3", "num4",
                                         "num5", "num6", "num7", "num8", "num9"};
    if (key >= 65 && key <= 90) return letters[key - 65];
    if (key >= 48 && key <= 57) return digits[key - 48];
    if (key >= 320 && key <= 329) return numpad[key - 320];
    switch (key) {
    case 32: return "Space";
    case 39: return "'";
    case 44: return ",";
    case 45: return "-";
    case 46: return ".";
    case 47: return "/";
    case 59: return ";";
    case 91: return "[";
    case 93: return "]";
    case 96: return "`";
    case 61:
    case 336: return "=";
    case 92: return "\\\\";
    case 257:
    case 335: return "Enter";
    case 258: return "Tab";
    case 259: return "Backspace";
    case 260: return "Insert";
    case 261: return "Delete";
    case 262: return "Right";
    case 263: return "Left";
    case 264: return "Down";
    case 265: return "Up";
    case 266: return "PageUp";
    case 267: return "PageDown";
    case 268: return "Home";
    case 269: return "End";
    case 280: return "Capslock";
    case 281: return "Scrolllock";
    case 282: return "Numlock";
    case 283: return "PrintScreen";
    case 284: return "Pause";
    case 330: return "numdec";
    case 331: return "numdiv";
    case 332: return "nummult";
    case 333: return "numsub";
    case 334: return "numadd";
    case 340:
    case 344: return "Shift";
    case 341:
    case 345: return "Ctrl";
    case 342:
    case 346: return "Alt";
    case 343:
    case 347: return "Super";
    case 348: return "Menu";
    default: return nullptr;
    }
}

void ElectronWebview::InputKey(int key, int action) {
    char const* const name = KeyName(key);
    if (name == nullptr || action < 0 || action > 1) return;
    std::lock_guard lock(_mutex);
    if (_mouseName.empty()) return;
    char json[EventBytes];
    std::snprintf(json, sizeof json, "{\"type\":\"%s\",\"keyCode\":\"%s\"}", action == 1 ? "keyDown" : "keyUp", name);
    Queue(_mouseName, json);
}

void ElectronWebview::InputChar(char c) {
    unsigned char const byte = static_cast<unsigned char>(c);
    if (byte < ' ' || byte == 0x7f) return; // control characters: keys do their work
    std::lock_guard lock(_mutex);
    if (_mouseName.empty()) return;
    char json[EventBytes];
    if (c == '\\' || c == '"') // escaped, so that the text stays JSON
        std::snprintf(json, sizeof json, "{\"type\":\"char\",\"keyCode\":\"%s\"}", c == '\\' ? "\\\\" : "\\\"");
    else
        std::snprintf(json, sizeof json, "{\"type\":\"char\",\"keyCode\":\"%c\"}", c);
    Queue(_mouseName, json);
}

} // namespace game
