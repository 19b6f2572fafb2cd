#include "game/PipeServer.hpp"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

namespace game {

namespace {

void Close(std::atomic<int>& descriptor) {
    int const fd = descriptor.exchange(-1);
    if (fd != -1) ::close(fd);
}

/// Opens path with flags, retrying when a signal ends the wait.
int OpenRetrying(std::string const& path, int flags) {
    int fd;
    do fd = ::open(path.c_str(), flags | O_CLOEXEC);
    while (fd == -1 && errno == EINTR);
    return fd;
}

/// Holds SIGPIPE back on this thread while it lives. A SIGPIPE that a write
/// raised meanwhile is taken back when Swallow is called, unless one was
/// pending from elsewhere before.
class SigpipeGuard {
public:
    SigpipeGuard() {
        sigemptyset(&_pipe);
        sigaddset(&_pipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &_pipe, &_previous);
        sigset_t pending;
        sigpending(&pending);
        _wasPending = sigismember(&pending, SIGPIPE) == 1;
    }
    ~SigpipeGuard() { pthread_sigmask(SIG_SETMASK, &_previous, nullptr); }
    void Swallow() {
        if (_wasPending) return;
        timespec const zero{};
        while (sigtimedwait(&_pipe, nullptr, &zero) == -1 && errno == EINTR) { }
    }

private:
    sigset_t _pipe{};
    sigset_t _previous{};
    bool _wasPending = false;
};

} // namespace

PipeServer::PipeServer(std::string const& name) : _stem("../Tessara-data/" + name) {
    for (char const* suffix : {".s2c", ".c2s"}) {
        std::string const path = _stem + suffix;
        struct stat existing { };
        if (::lstat(path.c_str(), &existing) == 0 && !S_ISFIFO(existing.st_mode)) ::unlink(path.c_str());
        ::mkfifo(path.c_str(), 0666); // EEXIST is fine; other failures show as failed opens
    }
}

PipeServer::~PipeServer() {
    Close(_write);
    ::unlink((_stem + ".s2c").c_str());
    Close(_read);
    ::unlink((_stem + ".c2s").c_str());
}

bool PipeServer::Write(char const* data, unsigned long size) {
    int fd = _write.load();
    if (fd == -1) {
        if (_interrupted) return false;
        fd = OpenRetrying(_stem + ".s2c", O_WRONLY);
        if (fd == -1) return false;
        if (_interrupted) {
            ::close(fd);
            return false;
        }
        _write.store(fd);
    }
    SigpipeGuard guard;
    unsigned long done = 0;
    while (done < size) {
        ssize_t const written = ::write(fd, data + done, size - done);
        if (written < 0) {
            if (errno == EINTR) continue;
            if (errno == EPIPE) guard.Swallow();
            return false;
        }
        done += static_cast<unsigned long>(written);
    }
    return true;
}

unsigned long PipeServer::Read(char* data, unsigned long size) {
    int fd = _read.load();
    if (fd == -1) {
        if (_interrupted) return 0;
        fd = OpenRetrying(_stem + ".c2s", O_RDONLY);
        if (fd == -1) return 0;
        if (_interrupted) {
            ::close(fd);
            return 0;
        }
        _read.store(fd);
    }
    ssize_t count;
    do count = ::read(fd, data, size);
    while (count < 0 && errno == EINTR);
    return count < 0 ? 0 : static_cast<unsigned long>(count);
}

void PipeServer::CloseWrite() {
    Close(_write);
}

void PipeServer::CloseRead() {
    Close(_read);
}

void PipeServer::Interrupt() {
    // Opening a pipe for reading and writing never waits, and it counts as the
    // partner that a blocked open waits for; that open then completes, sees
    // the flag and gives up.
    _interrupted = true;
    for (char const* suffix : {".s2c", ".c2s"}) {
        int const fd = OpenRetrying(_stem + suffix, O_RDWR | O_NONBLOCK);
        if (fd != -1) ::close(fd);
    }
}

} // namespace game
