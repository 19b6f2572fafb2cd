#include "nerox/audio/Studio.hpp"

#include "nerox/audio/Bank.hpp"
#include "nerox/audio/Voice.hpp"

#include <AL/al.h>
#include <AL/alc.h>
#include <AL/alext.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <deque>
#include <thread>
#include <stdexcept>

namespace nerox::audio {

namespace {

/// Frames of one queued buffer (about 21 ms).
constexpr size_t BlockFrames = 1024;
/// Frames kept queued ahead on the device (about 85 ms).
constexpr size_t DeviceAhead = 4 * BlockFrames;

} // namespace

/// The OpenAL side: the device, the banks' events and a source per playing event.
struct Studio::Engine {
    struct Playing {
        ALuint source = 0;
        std::unique_ptr<Voice> voice;
        std::deque<std::pair<ALuint, size_t>> buffers; // queued: buffer, frames
        size_t queued = 0;                             // frames not yet played (upper bound)
    };

    ALCdevice* device = nullptr;
    ALCcontext* context = nullptr;
    LPALCRENDERSAMPLESSOFT renderSamples = nullptr; // loopback only
    std::vector<std::unique_ptr<Bank>> banks;
    std::map<std::string, EventDescription const*> events;
    std::map<EventState const*, Playing> playing;
    std::vector<float> block;
    std::thread feeder;                // the device's: keeps the queues filled
    std::atomic<bool> stopping{false}; // ends the feeder

    ~Engine() {
        for (auto& [state, voice] : playing) Release(voice);
        if (context != nullptr) {
            alcMakeContextCurrent(nullptr);
            alcDestroyContext(context);
        }
        if (device != nullptr) alcCloseDevice(device);
    }

    static void Release(Playing& voice) {
        alSourceStop(voice.source);
        alSourcei(voice.source, AL_BUFFER, 0);
        for (auto& [buffer, frames] : voice.buffers) alDeleteBuffers(1, &buffer);
        alDeleteSources(1, &voice.source);
    }
};

Studio::Studio(Output output) : _mutex(std::make_shared<std::mutex>()), _engine(std::make_unique<Engine>()) {
    if (output == Output::None) return;
    Engine& e = *_engine;
    if (output == Output::Loopback) {
        if (!alcIsExtensionPresent(nullptr, "ALC_SOFT_loopback")) {
            std::fprintf(stderr, "audio: OpenAL has no loopback device here: nothing is rendered\n");
            return;
        }
        auto open =
            reinterpret_cast<LPALCLOOPBACKOPENDEVICESOFT>(alcGetProcAddress(nullptr, "alcLoopbackOpenDeviceSOFT"));
        e.renderSamples = reinterpret_cast<LPALCRENDERSAMPLESSOFT>(alcGetProcAddress(nullptr, "alcRenderSamplesSOFT"));
        e.device = open != nullptr ? open(nullptr) : nullptr;
        ALCint const attributes[] = {ALC_FORMAT_CHANNELS_SOFT,
                                     ALC_STEREO_SOFT,
                                     ALC_FORMAT_TYPE_SOFT,
                                     ALC_FLOAT_SOFT,
                                     ALC_FREQUENCY,
                                     SampleRate,
                                     0};
        if (e.device != nullptr) e.context = alcCreateContext(e.device, attributes);
    } else {
        e.device = alcOpenDevice(nullptr);
        ALCint const attributes[] = {ALC_FREQUENCY, SampleRate, 0};
        if (e.device != nullptr) e.context = alcCreateContext(e.device, attributes);
    }
    if (e.context == nullptr || !alcMakeContextCurrent(e.context) || !alIsExtensionPresent("AL_EXT_FLOAT32")) {
        std::fprintf(stderr, "audio: no %s could be opened: the game runs silent\n",
                     output == Output::Loopback ? "loopback device" : "audio device");
        alcMakeContextCurrent(nullptr);
        if (e.context != nullptr) alcDestroyContext(e.context);
        if (e.device != nullptr) alcCloseDevice(e.device);
        e.context = nullptr;
        e.device = nullptr;
        e.renderSamples = nullptr;
        return;
    }
    alDistanceModel(AL_INVERSE_DISTANCE_CLAMPED);
    if (output == Output::Device) {
        // The device plays on whatever the game's passes do: a thread of its
        // own keeps every queue filled, every 10 ms.
        e.feeder = std::thread([this] {
            while (!_engine->stopping) {
                {
                    std::lock_guard lock(*_mutex);
                    Pump(DeviceAhead);
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
        });
    }
}

Studio::~Studio() {
    _engine->stopping = true;
    if (_engine->feeder.joinable()) _engine->feeder.join();
}

bool Studio::Audible() const {
    std::lock_guard lock(*_mutex);
    return _engine->context != nullptr;
}

bool Studio::Knows(std::string const& path) const {
    std::lock_guard lock(*_mutex);
    return _engine->events.count(path) != 0;
}

void Studio::Pump(size_t frames) {
    Engine& e = *_engine;
    if (e.context == nullptr) return;
    float const master = [&] {
        auto const bus = _volumes.find("bus:/");
        return bus == _volumes.end() ? 1.0f : bus->second;
    }();
    alListenerf(AL_GAIN, master);
    for (std::shared_ptr<EventState> const& state : _events) {
        auto found = e.playing.find(state.get());
        auto const description = e.events.find(state->path);
        if (!state->playing || description == e.events.end()) {
            if (found != e.playing.end()) {
                Engine::Release(found->second);
                e.playing.erase(found);
            }
            continue;
        }
        if (found == e.playing.end()) {
            Engine::Playing voice;
            alGenSources(1, &voice.source);
            voice.voice = std::make_unique<Voice>(description->second, SampleRate);
            found = e.playing.emplace(state.get(), std::move(voice)).first;
        }
        Engine::Playing& voice = found->second;
        // What has been played goes.
        ALint processed = 0;
        alGetSourcei(voice.source, AL_BUFFERS_PROCESSED, &processed);
        for (; processed > 0 && !voice.buffers.empty(); --processed) {
            auto [buffer, count] = voice.buffers.front();
            alSourceUnqueueBuffers(voice.source, 1, &buffer);
            alDeleteBuffers(1, &buffer);
            voice.queued -= std::min(voice.queued, count);
            voice.buffers.pop_front();
        }
        alSourcef(voice.source, AL_GAIN, state->volume);
        alSourcei(voice.source, AL_SOURCE_RELATIVE, state->placed ? AL_FALSE : AL_TRUE);
        if (state->placed)
            alSource3f(voice.source, AL_POSITION, state->position[0], state->position[1], state->position[2]);
        else
            alSource3f(voice.source, AL_POSITION, 0.0f, 0.0f, 0.0f);
        auto parameter = [&](std::string const& name) {
            auto const own = state->parameters.find(name);
            if (own != state->parameters.end()) return own->second;
            auto const global = _parameters.find(name);
            return global != _parameters.end() ? global->second : 0.0f;
        };
        while (voice.queued < frames) {
            e.block.assign(BlockFrames, 0.0f);
            voice.voice->Mix(e.block.data(), BlockFrames, parameter);
            ALuint buffer = 0;
            alGenBuffers(1, &buffer);
            alBufferData(buffer, AL_FORMAT_MONO_FLOAT32, e.block.data(),
                         static_cast<ALsizei>(BlockFrames * sizeof(float)), SampleRate);
            alSourceQueueBuffers(voice.source, 1, &buffer);
            voice.buffers.emplace_back(buffer, BlockFrames);
            voice.queued += BlockFrames;
        }
        ALint sourceState = 0;
        alGetSourcei(voice.source, AL_SOURCE_STATE, &sourceState);
        if (sourceState != AL_PLAYING) alSourcePlay(voice.source); // first time, or after running dry
    }
}

std::vector<float> Studio::Render(size_t frames) {
    std::lock_guard lock(*_mutex);
    Engine& e = *_engine;
    if (e.renderSamples == nullptr || e.context == nullptr) return {};
    std::vector<float> out;
    out.reserve(frames * 2);
    // In blocks, so that the queues never run dry between two renders.
    for (size_t done = 0; done < frames;) {
        size_t const count = std::min(BlockFrames, frames - done);
        Pump(count + BlockFrames);
        size_t const start = out.size();
        out.resize(start + count * 2);
        e.renderSamples(e.device, out.data() + start, static_cast<ALCsizei>(count));
        done += count; // the buffers played count again at the next Pump
    }
    return out;
}

void Studio::Event::Start() {
    if (!_state) return;
    std::lock_guard lock(*_mutex);
    _state->playing = true;
}

void Studio::Event::Stop() {
    if (!_state) return;
    std::lock_guard lock(*_mutex);
    _state->playing = false;
}

void Studio::Event::SetParameter(char const* name, float value, bool) {
    if (!_state || !name || !std::isfinite(value)) return;
    std::lock_guard lock(*_mutex);
    _state->parameters[name] = value;
}

void Studio::Event::SetVolume(float volume) {
    if (!_state) return;
    std::lock_guard lock(*_mutex);
    _state->volume = volume;
}

void Studio::Event::Set3DAttributes(float x, float y, float z) {
    if (!_state) return;
    std::lock_guard lock(*_mutex);
    _state->placed = true;
    _state->position = {x, y, z};
}

Studio::EventState Studio::Event::GetState() const {
    if (!_state) return {};
    std::lock_guard lock(*_mutex);
    return *_state;
}

Studio& Studio::LoadBank(char const* path) {
    std::string const file = path ? path : "";
    std::unique_ptr<Bank> bank;
    try {
        bank = std::make_unique<Bank>(Bank::Load(file));
    } catch (std::exception const& failure) {
        std::fprintf(stderr, "audio: bank not loaded, its events stay silent: %s\n", failure.what());
    }
    std::lock_guard lock(*_mutex);
    _banks.push_back(file);
    if (bank) {
        for (auto const& [name, description] : bank->events) _engine->events[name] = &description;
        _engine->banks.push_back(std::move(bank));
    }
    return *this;
}

Studio::Event Studio::EventInstance(char const* path) {
    auto state = std::make_shared<EventState>();
    state->path = path ? path : "";
    std::lock_guard lock(*_mutex);
    _events.push_back(state);
    return Event(state, _mutex);
}

void Studio::SetParameter(char const* name, float value, bool) {
    if (!name || !std::isfinite(value)) return;
    std::lock_guard lock(*_mutex);
    _parameters[name] = value;
}

void Studio::SetVolume(float volume, char const* bus) {
    if (!bus) return;
    std::lock_guard lock(*_mutex);
    _volumes[bus] = volume;
}

void Studio::SetListenerAttributes(float px, float py, float pz, float vx, float vy, float vz, float fx, float fy,
                                   float fz, float ux, float uy, float uz) {
    std::lock_guard lock(*_mutex);
    _listener = {px, py, pz, vx, vy, vz, fx, fy, fz, ux, uy, uz};
    if (_engine->context == nullptr) return;
    alListener3f(AL_POSITION, px, py, pz);
    alListener3f(AL_VELOCITY, vx, vy, vz);
    float const orientation[6] = {fx, fy, fz, ux, uy, uz};
    alListenerfv(AL_ORIENTATION, orientation);
}

void Studio::Update() {
    std::lock_guard lock(*_mutex);
    ++_updates; // the device's feeder and Render (loopback) fill the queues
}

std::vector<std::string> Studio::GetBanks() const {
    std::lock_guard lock(*_mutex);
    return _banks;
}

float Studio::GetParameter(std::string const& name, float fallback) const {
    std::lock_guard lock(*_mutex);
    auto it = _parameters.find(name);
    return it == _parameters.end() ? fallback : it->second;
}

float Studio::GetVolume(std::string const& bus, float fallback) const {
    std::lock_guard lock(*_mutex);
    auto it = _volumes.find(bus);
    return it == _volumes.end() ? fallback : it->second;
}

Studio::ListenerAttributes Studio::GetListenerAttributes() const {
    std::lock_guard lock(*_mutex);
    return _listener;
}

unsigned long long Studio::GetUpdateCount() const {
    std::lock_guard lock(*_mutex);
    return _updates;
}

std::vector<Studio::EventState> Studio::GetEvents() const {
    std::lock_guard lock(*_mutex);
    std::vector<EventState> events;
    events.reserve(_events.size());
    for (auto const& event : _events) events.push_back(*event);
    return events;
}

} // namespace nerox::audio
