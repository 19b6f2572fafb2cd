#pragma once
// Undo on failure: a constructor or a start routine that builds in steps names
// its clean-up once, and the clean-up runs only when an exception leaves the scope.
//
//     nerox::OnFailure undo([this] { Destroy(); });
//     CreateInstance();   // a throw from here on runs Destroy(), then goes on up
//     CreateDevice();
#include <exception>
#include <utility>

namespace nerox {

template <class Cleanup> class OnFailure {
public:
    explicit OnFailure(Cleanup cleanup) : _cleanup(std::move(cleanup)), _exceptions(std::uncaught_exceptions()) { }
    ~OnFailure() {
        if (std::uncaught_exceptions() > _exceptions) _cleanup();
    }
    OnFailure(OnFailure const&) = delete;
    OnFailure& operator=(OnFailure const&) = delete;

private:
    Cleanup _cleanup;
    int _exceptions;
};

} // namespace nerox
