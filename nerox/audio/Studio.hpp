#pragma once
#include <array>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace nerox::audio {

/// The sound studio: banks, events with parameters, bus volumes, global
/// parameters and the listener. This stand-in plays nothing; it keeps every
/// request as state that the host and tests can inspect. Thread-safe.
class Studio {
public:
    /// Shared state of one event instance.
    struct EventState {
        std::string path;                        ///< Event path, e.g. "event:/Ambience".
        bool playing = false;                    ///< Started and not stopped.
        float volume = 1.0f;                     ///< Event volume.
        std::map<std::string, float> parameters; ///< Event parameters by name.
    };

    /// A handle to one event instance. Copies refer to the same instance. A
    /// default-constructed handle is empty and ignores every call.
    class Event {
    public:
        Event() = default;
        /// Starts playback.
        void Start();
        /// Stops playback.
        void Stop();
        /// Sets an event parameter; `ignoreSeekSpeed` is accepted and has no effect here.
        void SetParameter(char const* name, float value, bool ignoreSeekSpeed = false);
        /// Sets the event volume.
        void SetVolume(float volume);
        /// Whether the handle refers to an instance.
        bool IsValid() const { return _state != nullptr; }
        /// A snapshot of the instance's state (default state for an empty handle).
        EventState GetState() const;

    private:
        friend class Studio;
        Event(std::shared_ptr<EventState> state, std::shared_ptr<std::mutex> mutex)
            : _state(std::move(state)), _mutex(std::move(mutex)) { }
        std::shared_ptr<EventState> _state;
        std::shared_ptr<std::mutex> _mutex;
    };

    /// Listener attributes: position, velocity, forward and up, three floats each.
    using ListenerAttributes = std::array<float, 12>;

    Studio();

    /// Loads a bank file (remembered by path, in load order); returns the studio for chaining.
    Studio& LoadBank(char const* path);
    /// Creates an instance of an event.
    Event EventInstance(char const* path);
    /// Sets a global parameter.
    void SetParameter(char const* name, float value, bool ignoreSeekSpeed = false);
    /// Sets the volume of a bus, e.g. SetVolume(0.25f, "bus:/").
    void SetVolume(float volume, char const* bus);
    /// Sets the listener: position, velocity, forward, up (x, y, z each).
    void SetListenerAttributes(float px, float py, float pz, float vx, float vy, float vz, float fx, float fy, float fz,
                               float ux, float uy, float uz);
    /// Advances the studio by one update.
    void Update();

    /// Loaded bank paths, in load order.
    std::vector<std::string> GetBanks() const;
    /// A global parameter, or `fallback` if never set.
    float GetParameter(std::string const& name, float fallback = 0.0f) const;
    /// A bus volume, or `fallback` if never set.
    float GetVolume(std::string const& bus, float fallback = 1.0f) const;
    /// The latest listener attributes (all zero before the first call).
    ListenerAttributes GetListenerAttributes() const;
    /// Number of Update calls so far.
    unsigned long long GetUpdateCount() const;
    /// Snapshots of every event instance created so far, in creation order.
    std::vector<EventState> GetEvents() const;

private:
    std::shared_ptr<std::mutex> _mutex;
    std::vector<std::string> _banks;
    std::map<std::string, float> _parameters;
    std::map<std::string, float> _volumes;
    ListenerAttributes _listener{};
    unsigned long long _updates = 0;
    std::vector<std::shared_ptr<EventState>> _events;
};

} // namespace nerox::audio
