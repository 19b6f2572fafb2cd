#pragma once
// The sound of one event instance: its layers mixed into mono samples, with
// the gains, pitches and cutoffs its parameters give at the start of each
// block. Plain computation, no device: the studio queues what it makes.
#include "nerox/audio/Bank.hpp"

#include <cstdint>
#include <functional>
#include <vector>

namespace nerox::audio {

class Voice {
public:
    /// Looks up a parameter by name (the event's, else the studio's, else 0).
    using Parameters = std::function<float(std::string const&)>;

    Voice(EventDescription const* description, int sampleRate);

    /// Adds frames samples of the mix to out (mono).
    void Mix(float* out, size_t frames, Parameters const& parameters);

private:
    struct LayerState {
        uint32_t noise = 0x9E3779B9u;   // xorshift state
        float low1 = 0.0f, low2 = 0.0f; // the two low-pass stages
        double position = 0.0;          // in the file's samples
        float gain = -1.0f;             // the gain of the last block; -1 before the first
    };

    EventDescription const* _description; // owned by the studio's banks, which outlive voices
    int _sampleRate;
    std::vector<LayerState> _layers;
};

} // namespace nerox::audio
