#pragma once
#include <array>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace nerox::audio {

/// The sound studio: banks, events with parameters, bus volumes, global
/// parameters and the listener. It keeps every request as state that the host
/// and tests can inspect, and with an output it plays the events of its banks
/// (Bank.hpp) through OpenAL Soft: on the audio device, or into memory through
/// a loopback device (Render), where a test or `tessara --audio-out` hears it.
/// Without an output, or when the device cannot be opened, it works silently
/// (said once). Thread-safe. One audible studio at a time per process: OpenAL's
/// current context is the process's.
///
/// Each playing event is one OpenAL source fed by a Voice: mono, at the
/// listener unless Set3DAttributes placed it in the world. On the device a
/// thread of the studio keeps its queue of samples filled (about 85 ms ahead,
/// topped up every 10 ms); on a loopback device Render does. Parameters that
/// are not finite are ignored.
class Studio {
public:
    /// Where the sound goes.
    enum class Output { None, Device, Loopback };
    /// Frames a second of every output.
    static constexpr int SampleRate = 48000;

    /// Shared state of one event instance.
    struct EventState {
        std::string path;                        ///< Event path, e.g. "event:/Ambience".
        bool playing = false;                    ///< Started and not stopped.
        float volume = 1.0f;                     ///< Event volume.
        std::map<std::string, float> parameters; ///< Event parameters by name.
        bool placed = false;                     ///< Set3DAttributes was called: a source in the world.
        std::array<float, 3> position{};         ///< Where, world coordinates.
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
        /// Places the event in the world; until then it sounds at the listener.
        void Set3DAttributes(float x, float y, float z);
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

    /// A studio sounding on output. A device that cannot be opened leaves it silent, said once.
    explicit Studio(Output output = Output::None);
    ~Studio();
    Studio(Studio const&) = delete;
    Studio& operator=(Studio const&) = delete;

    /// Loads a bank file (remembered by path, in load order); returns the
    /// studio for chaining. A bank that cannot be read is said on the standard
    /// error stream with the file and the reason, and its events stay silent.
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
    /// Advances the studio by one update (counted).
    void Update();
    /// Loopback only: the next frames of the mix as it stands, stereo
    /// interleaved (left, right), from -1 to 1. Empty without a loopback device.
    std::vector<float> Render(size_t frames);
    /// True while sound goes to a device or a loopback device.
    bool Audible() const;
    /// Whether a loaded bank describes the event.
    bool Knows(std::string const& path) const;

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
    struct Engine;
    void Pump(size_t frames); // under _mutex: each playing event has frames queued

    std::shared_ptr<std::mutex> _mutex; // guards everything below and the events' states
    std::unique_ptr<Engine> _engine;
    std::vector<std::string> _banks;
    std::map<std::string, float> _parameters;
    std::map<std::string, float> _volumes;
    ListenerAttributes _listener{};
    unsigned long long _updates = 0;
    std::vector<std::shared_ptr<EventState>> _events;
};

} // namespace nerox::audio
