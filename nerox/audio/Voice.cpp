#include "nerox/audio/Voice.hpp"

#include <algorithm>
#include <cmath>

namespace nerox::audio {

Voice::Voice(EventDescription const* description, int sampleRate)
    : _description(description), _sampleRate(sampleRate),
      _layers(description != nullptr ? description->layers.size() : 0) {
    for (size_t i = 0; i < _layers.size(); ++i) _layers[i].noise += static_cast<uint32_t>(i) * 0x85EBCA6Bu;
}

void Voice::Mix(float* out, size_t frames, Parameters const& parameters) {
    if (_description == nullptr) return;
    for (size_t l = 0; l < _layers.size(); ++l) {
        Layer const& layer = _description->layers[l];
        LayerState& state = _layers[l];
        float target = layer.gain;
        for (Curve const& curve : layer.gainBy) target *= curve.At(parameters(curve.parameter));
        float const pitch = std::max(
            0.0f, layer.pitchBy.empty() ? layer.pitch : layer.pitchBy[0].At(parameters(layer.pitchBy[0].parameter)));
        // Two one-pole low-pass stages. A constant cutoff of 0, or one past
        // Nyquist, lets all through; a curve always filters, at 20 Hz at least.
        double const nyquist = 0.5 * _sampleRate;
        double cutoff = layer.cutoff;
        if (!layer.cutoffBy.empty())
            cutoff = std::max(20.0, static_cast<double>(layer.cutoffBy[0].At(parameters(layer.cutoffBy[0].parameter))));
        else if (cutoff > 0.0)
            cutoff = std::max(20.0, cutoff);
        float const a = cutoff > 0.0 && cutoff < nyquist
            ? static_cast<float>(1.0 - std::exp(-2.0 * 3.141592653589793 * cutoff / _sampleRate))
            : 1.0f;
        // Filtering noise takes power away; this gives most of it back (up to
        // eight times), so that a noise layer's gain means about the same
        // loudness at any cutoff. A file's sound is left as it is.
        if (layer.noise) target *= std::min(8.0f, std::sqrt((2.0f - a) / a));
        if (!std::isfinite(target)) target = 0.0f;
        // The gain glides over the block from the last one, so that changes do not click.
        float const from = state.gain < 0.0f ? target : state.gain;
        state.gain = target;
        if (from == 0.0f && target == 0.0f) continue;
        double const step = layer.noise ? 0.0 : pitch * layer.sampleRate / static_cast<double>(_sampleRate);
        for (size_t i = 0; i < frames; ++i) {
            float x;
            if (layer.noise) {
                uint32_t& s = state.noise;
                s ^= s << 13, s ^= s >> 17, s ^= s << 5;
                x = static_cast<float>(s) * (2.0f / 4294967296.0f) - 1.0f;
            } else {
                size_t const count = layer.samples.size();
                size_t const i0 = static_cast<size_t>(state.position) % count;
                float const t = static_cast<float>(state.position - std::floor(state.position));
                x = layer.samples[i0] + (layer.samples[(i0 + 1) % count] - layer.samples[i0]) * t;
                state.position = std::fmod(state.position + step, static_cast<double>(count));
            }
            state.low1 += a * (x - state.low1);
            state.low2 += a * (state.low1 - state.low2);
            float const g = from + (target - from) * static_cast<float>(i) / static_cast<float>(frames);
            out[i] += g * state.low2;
        }
    }
}

} // namespace nerox::audio
