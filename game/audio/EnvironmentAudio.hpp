#pragma once
// The planet's ambient sound: one endless event of the studio whose parameters
// follow what the listener's surroundings are made of. A content module
// samples the surroundings (with rays, say), counts what the samples met and
// hands each batch over with UpdateData; the wind comes through SetWindSpeed.
//
// Game::Start makes the one instance (Game::environmentAudio) and Game::Stop
// destroys it. Without a studio (Game::audio null, as in the headless server)
// every call does nothing.
//
// Threads: the client thread only. The smoothed inputs are shared by all
// instances (there is one).
#include "nerox/audio/Studio.hpp"

#include <cstdint>

namespace game::audio {

/// One batch of samples of the listener's surroundings, filled by the caller.
struct EnvironmentAudioData {
    uint32_t missCount = 0;              ///< Samples that met nothing.
    uint32_t terrainCount = 0;           ///< Samples that met terrain.
    uint32_t objectCount = 0;            ///< Samples that met objects.
    uint32_t hydrosphereCount = 0;       ///< Samples that met water.
    int32_t hydrosphereDistance = 10000; ///< Distance to water, hundredths of a unit; 10000 for none.
};

class EnvironmentAudio {
public:
    /// Bank files, loaded in this order, and the ambient event.
    static constexpr char const* banks[] = {"game/audio/banks/Master.bank", "game/audio/banks/Master.strings.bank",
                                            "game/audio/banks/environment.bank"};
    static constexpr char const* eventPath = "event:/game/environment/planet surface";

    /// Loads the banks into Game::audio and starts the ambient event.
    EnvironmentAudio();
    /// Stops and lets go of the event; the banks stay with the studio.
    ~EnvironmentAudio();
    EnvironmentAudio(EnvironmentAudio const&) = delete;
    EnvironmentAudio& operator=(EnvironmentAudio const&) = delete;

    /// Takes one batch: smooths each share of the samples and the distance to
    /// water (a fifth of the new value, four fifths of the old), sets the
    /// event's "inside" to the object share to the fourth power and "dist to
    /// water" to the smoothed distance, and the studio's "underwater" to 1 or
    /// 0. A batch without samples changes nothing. Either way the record is
    /// emptied for the next batch (distance 10000).
    void UpdateData(EnvironmentAudioData* data);
    /// Sets the event's "wind speed" and "density", and its volume to half the
    /// environment_volume setting.
    void SetWindSpeed(float speed, float density);

    nerox::audio::Studio::Event event; ///< The ambient event; empty without a studio.
    bool underwater = false;           ///< Set by the caller while the listener is under water.
};

} // namespace game::audio
