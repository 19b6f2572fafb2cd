#include "game/audio/EnvironmentAudio.hpp"

#include "game/Game.hpp"
#include "game/GameSettings.hpp"

#include <cmath>
#include <mutex>

namespace game::audio {

EnvironmentAudio::EnvironmentAudio() {
    nerox::audio::Studio* studio = Game::audio;
    if (studio == nullptr) return;
    studio->LoadBank(banks[0]).LoadBank(banks[1]).LoadBank(banks[2]);
    event = studio->EventInstance(eventPath);
    underwater = false;
    event.Start();
}

EnvironmentAudio::~EnvironmentAudio() {
    event.Stop();
    event = nerox::audio::Studio::Event();
}

void EnvironmentAudio::UpdateData(EnvironmentAudioData* data) {
    if (data == nullptr) return;
    // Shared by every call, as there is one ambience.
    static float missFactor = 0.0f;
    static float terrainFactor = 0.0f;
    static float objectFactor = 0.0f;
    static float hydrosphereFactor = 0.0f;
    static float hydrosphereDistance = 0.0f;

    uint32_t const total = data->missCount + data->terrainCount + data->objectCount + data->hydrosphereCount;
    if (total != 0) {
        float const samples = static_cast<float>(total);
        auto smooth = [](float& value, float next) { value = std::fma(next, 0.2f, value * 0.8f); };
        smooth(missFactor, static_cast<float>(data->missCount) / samples);
        smooth(terrainFactor, static_cast<float>(data->terrainCount) / samples);
        smooth(objectFactor, static_cast<float>(data->objectCount) / samples);
        smooth(hydrosphereFactor, static_cast<float>(data->hydrosphereCount) / samples);
        smooth(hydrosphereDistance, static_cast<float>(data->hydrosphereDistance) / 100.0f);
        event.SetParameter("inside", std::pow(objectFactor, 4.0f));
        event.SetParameter("dist to water", hydrosphereDistance);
        if (Game::audio != nullptr) Game::audio->SetParameter("underwater", underwater ? 1.0f : 0.0f);
    }
    *data = EnvironmentAudioData();
}

void EnvironmentAudio::SetWindSpeed(float speed, float density) {
    float volume = 0.5f; // the setting's default
    if (Game::settings) {
        std::lock_guard lock(Game::settings->GetMutex());
        volume = Game::settings->environment_volume;
    }
    event.SetParameter("wind speed", speed);
    event.SetParameter("density", density);
    event.SetVolume(0.5f * volume);
}

} // namespace game::audio
