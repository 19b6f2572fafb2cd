#pragma once
// One duplex connection to a helper process through two named pipes in the
// data folder. The game is the server end: it makes the pipes, and the other
// process opens them by name:
//
//   ../Tessara-data/NAME.s2c   game -> process
//   ../Tessara-data/NAME.c2s   process -> game
//
// Each direction opens on its first use, because opening a named pipe blocks
// until the other end opens it too, and the two directions are used by two
// threads that must not wait for each other.
//
// Errors are results (false, 0), never exceptions or output. A write to a pipe
// whose reader has gone fails with false; it never raises SIGPIPE in the
// process: the signal is held back on the writing thread for the write and a
// signal the write itself raised is taken back, so the process's own handling
// of SIGPIPE is left as it is.
#include <atomic>
#include <string>

namespace game {

class PipeServer {
public:
    /// Makes both pipes (mode 0666) under the data folder; pipes that exist
    /// already are used as they are, and any other file of such a name is
    /// replaced by a pipe. The folder must exist: without it every Write
    /// gives false and every Read 0.
    explicit PipeServer(std::string const& name);
    /// Closes both directions and removes both files.
    ~PipeServer();
    PipeServer(PipeServer const&) = delete;
    PipeServer& operator=(PipeServer const&) = delete;

    /// Writes all size bytes, as they are, to NAME.s2c. Opens it first if it is
    /// closed, waiting until the other process opens it for reading. False if
    /// the open or the write fails (the reader closed, for one). A write of 0
    /// bytes only opens.
    bool Write(char const* data, unsigned long size);
    /// Reads up to size bytes from NAME.c2s, as one read. Opens it first if it
    /// is closed, waiting until the other process opens it for writing. The
    /// count read, or 0 at the end of the stream (the writer closed) and on
    /// any failure.
    unsigned long Read(char* data, unsigned long size);
    /// Closes the write direction, so the reader at the other end sees the end
    /// of its stream. The next Write opens again.
    void CloseWrite();
    /// Closes the read direction. The next Read opens again.
    void CloseRead();
    /// For the end: ends the waits of a Write or Read blocked in opening its
    /// pipe because no process came to the other end (the Write then fails
    /// and the Read gives 0), and makes every later open fail the same way.
    /// Any thread. A Write or Read that is about to open may still be on its
    /// way into the wait: call again until the thread has noticed.
    void Interrupt();

    /// The two paths without their ".s2c" or ".c2s".
    std::string const& Stem() const { return _stem; }

private:
    std::string _stem;
    // Descriptors, -1 while closed. Each is used by one thread; the other
    // threads only close it.
    std::atomic<int> _write{-1};
    std::atomic<int> _read{-1};
    std::atomic<bool> _interrupted{false}; // set by Interrupt: every open gives up
};

} // namespace game
