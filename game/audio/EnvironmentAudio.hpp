#pragma once

namespace game::audio {

/// The planet's ambient sound, created by `Game::Start` and destroyed by
/// `Game::Stop`. It has no behaviour yet: the ambience mixing is added with the
/// environment audio.
class EnvironmentAudio {
public:
    EnvironmentAudio() = default;
    EnvironmentAudio(EnvironmentAudio const&) = delete;
    EnvironmentAudio& operator=(EnvironmentAudio const&) = delete;
    ~EnvironmentAudio() = default;

    bool underwater = false; ///< Set by the caller while the listener is under water.
};

} // namespace game::audio
