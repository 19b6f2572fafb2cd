#pragma once
// Sound banks: text files that describe events as layers of sound.
//
//   # a comment
//   bus bus:/                         a bus (the studio has the one master bus)
//   event event:/game/wind            an event; the rest of the line is its path
//                                     (blanks inside it are kept as one)
//   layer gusts                       a layer of the event above
//     source noise                    white noise, or: source file NAME.wav (a
//                                     sound file beside the bank, looped)
//     gain 0.5                        the layer's gain (1 by default)
//     pitch 1.0                       playback rate of a file (1 by default)
//     cutoff 800                      low-pass cutoff in Hz (none by default)
//     gain_by "wind speed" 0:0 20:1   gain times a curve of a parameter
//     pitch_by "speed" 0:0.8 10:1.2   pitch from a curve of a parameter
//     cutoff_by "speed" 0:200 30:4000 cutoff from a curve of a parameter
//
// A curve is points PARAMETER:VALUE in rising order of the parameter; between
// them the value is linear, beyond the ends it stays at the end's value. A
// parameter is the event's, else the studio's global one of that name, else 0.
// Indentation is free; names with blanks are quoted.
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace nerox::audio {

/// A piecewise-linear function of one parameter.
struct Curve {
    std::string parameter;
    std::vector<std::pair<float, float>> points; ///< (parameter, value), rising.
    float At(float x) const;
};

/// One layer of an event.
struct Layer {
    std::string name;
    bool noise = true;                              ///< White noise; else the file's samples.
    std::string file;                               ///< Path of the sound file (resolved against the bank's folder).
    std::vector<float> samples;                     ///< The file, mono, as read.
    int sampleRate = 48000;                         ///< The file's rate.
    float gain = 1.0f, pitch = 1.0f, cutoff = 0.0f; ///< cutoff 0: no filter
    std::vector<Curve> gainBy;                      ///< Each multiplies the gain.
    std::vector<Curve> pitchBy, cutoffBy;           ///< The first of each replaces the constant.
};

/// An event: its layers.
struct EventDescription {
    std::string path;
    std::vector<Layer> layers;
};

/// A loaded bank.
struct Bank {
    std::string path;
    std::vector<std::string> buses;
    std::map<std::string, EventDescription> events;

    /// Reads a bank file and the sound files it names. Throws
    /// std::runtime_error "PATH:LINE: what is wrong" (or "PATH: ..." for the
    /// file as a whole).
    static Bank Load(std::string const& path);
};

} // namespace nerox::audio
