#pragma once
// Web pages on in-game screens. A separate process renders each page off
// screen (the webview program, tools/webview/) and talks to the game through a
// PipeServer: the game sends text commands, the process answers with frames of
// pixels, which the client hands to a texture.
//
// Modules own the threads: one runs RunElectron (it returns when the game
// ends), one calls WriteToPipe in a loop and one calls ReadFromPipe in a loop.
// Game::electronWebview is the one instance.
//
// Game -> process: each message is one text followed by a newline:
//   open NAME URL WIDTH HEIGHT SCALE    a view of WIDTH x HEIGHT pixels, SCALE
//                                       pixels per page pixel ("%f")
//   close NAME
//   ping                                keep-alive, sent when nothing waits
//   input NAME JSON                     an input event, see the calls below
// Names are printable ASCII without blanks; URLs hold no blanks or control
// characters (encode them as %20 and so on). Open refuses others, and the
// other calls send nothing for such a name.
//
// Process -> game: frames, each
//   name length  4 bytes, unsigned, native order
//   data length  4 bytes, unsigned, native order
//   name         the view's name, no terminator
//   data         handed to the view's callback; for a texture, a frame in the
//                format of nerox::graphics::DynamicAsyncTexture::Load
// Name and data must each fit FrameBufferBytes (with a terminator for the
// name). A larger frame is read through and dropped with a message, so a
// misbehaving process cannot overrun the buffer; so is a frame for a view
// that is unknown or closed.
//
// Mouse positions are page pixels: texture pixels divided by the scale.
//
// Threads: _mutex guards _messages, _callbacks and the mouse fields. The event
// calls take it briefly from any thread; WriteToPipe takes the next message
// under it and writes after releasing it, so a stalled process holds up only
// the write thread. ReadFromPipe calls a view's callback under it, so the
// callback must be quick (a texture's Load copies the frame and returns).
// Only one thread may call ReadFromPipe: it owns the frame buffer.
#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace nerox::graphics {
class DynamicAsyncTexture;
}

namespace game {

class PipeServer;

class ElectronWebview {
public:
    /// Bytes of the frame buffer: the longest name (less one) and the longest data.
    static constexpr unsigned long FrameBufferBytes = 1048576;

    ElectronWebview();
    ~ElectronWebview();
    ElectronWebview(ElectronWebview const&) = delete;
    ElectronWebview& operator=(ElectronWebview const&) = delete;

    /// Runs command with the shell (the webview program and its arguments) in
    /// a process group of its own, and waits for it; then waits in steps of
    /// 10 ms while Game::isActive holds. `running` holds meanwhile. The
    /// program ends when the game closes its end of the pipe (the write
    /// thread's CloseWrite); if it has not ended five seconds after the game,
    /// its group is sent SIGTERM, and SIGKILL three seconds later.
    void RunElectron(std::string const& command);
    /// Opens a view of width x height pixels whose frames go nowhere.
    void Open(std::string const& name, std::string const& url, unsigned int width, unsigned int height, double scale);
    /// Opens a view of width x height pixels whose frames go to onFrame (data,
    /// bytes), called on the reading thread under the lock: it must be quick.
    void Open(std::string const& name, std::string const& url, unsigned int width, unsigned int height, double scale,
              std::function<void(char const*, unsigned long)> onFrame);
    /// Opens a view of the texture's size whose frames go to the texture's
    /// Load, for as long as the texture lives (the view holds it weakly).
    void Texture(std::shared_ptr<nerox::graphics::DynamicAsyncTexture> const& texture, std::string const& name,
                 std::string const& url, double scale);
    /// Closes a view; frames of it that come later are dropped. The message
    /// goes out even for a name never opened.
    void Close(std::string const& name);
    /// Forgets every view's callback; sends nothing.
    void ClearCallbacks();

    /// Sends one message: the oldest queued one; else the mouse position if it
    /// moved; else a keep-alive. Prints "Broken pipe with ELECTRON_WEBVIEW in
    /// Write Thread" when the write fails; the message is lost. Returns what
    /// the write returned.
    bool WriteToPipe(PipeServer& pipe);
    /// Receives one frame and hands it to its view's callback. False when the
    /// pipe gave nothing (closed, or the process ended), also part way through
    /// a frame, whose part is dropped.
    bool ReadFromPipe(PipeServer& pipe);
    /// ReadFromPipe's work on any source of bytes: read(into, size) fills up to
    /// size bytes and returns the count, 0 at the end.
    bool ReadFrame(std::function<unsigned long(char*, unsigned long)> const& read);

    /// The mouse is over view name at (x, y). Only the newest position goes
    /// out, when nothing else waits. Moving to another view (or to the empty
    /// name) with the button down releases it on the old one first; the empty
    /// name changes nothing else: keys and the wheel still go to the last view.
    void MouseMove(std::string const& name, double x, double y);
    /// A button (0 left, 1 right) pressed (action 1) or released (0) on view
    /// name at (x, y); other values send nothing.
    void MouseButton(std::string const& name, int button, int action, double x, double y);
    /// Releases the left button on the view under the mouse, if it is down.
    void MouseUp();
    /// Scrolls the view under the mouse by (x, y) wheel steps.
    void MouseWheel(double x, double y);
    /// A key (a GLFW key code) pressed (action 1) or released (0), sent to the
    /// view under the mouse. Keys without a name in the page are dropped.
    void InputKey(int key, int action);
    /// A typed character, sent to the view under the mouse. Control characters
    /// are dropped; bytes of a UTF-8 sequence go one by one and the program
    /// joins them.
    void InputChar(char c);

    /// The page's name for a GLFW key code as the key message carries it (a
    /// backslash escaped), or null for a key it has no name for.
    static char const* KeyName(int key);

    std::atomic<bool> running{false}; ///< RunElectron has not returned: the program or the game still runs.

private:
    void Queue(std::string const& name, char const* json); // under _mutex
    void Release();                                        // under _mutex: MouseUp's work

    std::mutex _mutex;
    std::deque<std::string> _messages;
    std::unordered_map<std::string, std::function<void(char const*, unsigned long)>> _callbacks;
    std::string _mouseName; ///< The view under the mouse; empty for none.
    double _mouseX = 0.0;
    double _mouseY = 0.0;
    bool mouseDown = false;
    bool mouseMoved = false;

    std::vector<char> _frame; ///< The frame buffer, FrameBufferBytes; ReadFromPipe's thread only.
    std::string _frameName;   ///< Name of the frame being read; ReadFromPipe's thread only.
};

} // namespace game
