#include "nerox/audio/Bank.hpp"

#include <sndfile.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace nerox::audio {

float Curve::At(float x) const {
    if (points.empty()) return 1.0f;
    if (!(x > points.front().first)) return points.front().second; // NaN too
    if (x >= points.back().first) return points.back().second;
    for (size_t i = 1; i < points.size(); ++i) {
        auto const& [x1, y1] = points[i];
        if (x > x1) continue;
        auto const& [x0, y0] = points[i - 1];
        return x1 > x0 ? y0 + (y1 - y0) * (x - x0) / (x1 - x0) : y1;
    }
    return points.back().second;
}

namespace {

/// The words of a line: blanks separate, double quotes group.
std::vector<std::string> Words(std::string const& line, std::string& error) {
    std::vector<std::string> words;
    for (size_t i = 0; i < line.size();) {
        if (std::isspace(static_cast<unsigned char>(line[i]))) {
            ++i;
        } else if (line[i] == '#') {
            break;
        } else if (line[i] == '"') {
            size_t const end = line.find('"', i + 1);
            if (end == std::string::npos) {
                error = "a quote is not closed";
                return {};
            }
            words.push_back(line.substr(i + 1, end - i - 1));
            i = end + 1;
        } else {
            size_t end = i;
            while (end < line.size() && !std::isspace(static_cast<unsigned char>(line[end]))) ++end;
            words.push_back(line.substr(i, end - i));
            i = end;
        }
    }
    return words;
}

float Number(std::string const& word, char const* what) {
    try {
        size_t used = 0;
        float const value = std::stof(word, &used);
        if (used == word.size() && std::isfinite(value)) return value;
    } catch (std::exception const&) { }
    throw std::runtime_error(std::string(what) + " \"" + word + "\" is not a number");
}

/// A mono mixdown of a sound file, and its rate.
void ReadSound(Layer& layer) {
    SF_INFO info{};
    SNDFILE* file = sf_open(layer.file.c_str(), SFM_READ, &info);
    if (file == nullptr)
        throw std::runtime_error("cannot read the sound file " + layer.file + ": " + sf_strerror(nullptr));
    std::vector<float> frames(static_cast<size_t>(info.frames) * static_cast<size_t>(std::max(1, info.channels)));
    sf_count_t const read = sf_readf_float(file, frames.data(), info.frames);
    sf_close(file);
    if (read <= 0 || info.channels <= 0) throw std::runtime_error("the sound file " + layer.file + " holds no sound");
    layer.samples.assign(static_cast<size_t>(read), 0.0f);
    for (size_t i = 0; i < layer.samples.size(); ++i) {
        float sum = 0.0f;
        for (int c = 0; c < info.channels; ++c) sum += frames[i * static_cast<size_t>(info.channels) + c];
        layer.samples[i] = sum / static_cast<float>(info.channels);
    }
    layer.sampleRate = info.samplerate;
    layer.noise = false;
}

} // namespace

Bank Bank::Load(std::string const& path) {
    std::ifstream in(path);
    if (!in) throw std::runtime_error(path + ": cannot open the bank file");
    Bank bank;
    bank.path = path;
    std::filesystem::path const folder = std::filesystem::path(path).parent_path();
    EventDescription* event = nullptr;
    Layer* layer = nullptr;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        try {
            std::string error;
            std::vector<std::string> const words = Words(line, error);
            if (!error.empty()) throw std::runtime_error(error);
            if (words.empty()) continue;
            std::string const& key = words[0];
            auto need = [&](size_t count) {
                if (words.size() != count + 1)
                    throw std::runtime_error("\"" + key + "\" takes " + std::to_string(count) + " value" +
                                             (count == 1 ? "" : "s"));
            };
            if (key == "bus") {
                need(1);
                bank.buses.push_back(words[1]);
            } else if (key == "event") {
                if (words.size() < 2) throw std::runtime_error("an event needs a path");
                std::string name = words[1]; // blanks inside a path need no quotes
                for (size_t i = 2; i < words.size(); ++i) name += " " + words[i];
                event = &bank.events[name];
                event->path = name;
                layer = nullptr;
            } else if (key == "layer") {
                need(1);
                if (event == nullptr) throw std::runtime_error("a layer outside an event");
                event->layers.push_back(Layer{});
                layer = &event->layers.back();
                layer->name = words[1];
            } else {
                if (layer == nullptr) throw std::runtime_error("\"" + key + "\" outside a layer");
                if (key == "source") {
                    if (words.size() == 2 && words[1] == "noise") {
                        layer->noise = true;
                    } else if (words.size() == 3 && words[1] == "file") {
                        layer->file = (folder / words[2]).string();
                        ReadSound(*layer);
                    } else {
                        throw std::runtime_error("a source is \"noise\" or \"file NAME\"");
                    }
                } else if (key == "gain" || key == "pitch" || key == "cutoff") {
                    need(1);
                    float const value = Number(words[1], key.c_str());
                    if (value < 0.0f) throw std::runtime_error(key + " cannot be below 0");
                    (key == "gain" ? layer->gain : key == "pitch" ? layer->pitch : layer->cutoff) = value;
                } else if (key == "gain_by" || key == "pitch_by" || key == "cutoff_by") {
                    if (words.size() < 3) throw std::runtime_error(key + " takes a parameter and points X:Y");
                    Curve curve;
                    curve.parameter = words[1];
                    for (size_t i = 2; i < words.size(); ++i) {
                        size_t const colon = words[i].find(':');
                        if (colon == std::string::npos) throw std::runtime_error("a point is X:Y, not " + words[i]);
                        float const x = Number(words[i].substr(0, colon), "a point's parameter");
                        float const y = Number(words[i].substr(colon + 1), "a point's value");
                        if (!curve.points.empty() && x <= curve.points.back().first)
                            throw std::runtime_error("the points of a curve go up in their parameter");
                        curve.points.emplace_back(x, y);
                    }
                    (key == "gain_by"        ? layer->gainBy
                         : key == "pitch_by" ? layer->pitchBy
                                             : layer->cutoffBy)
                        .push_back(std::move(curve));
                } else {
                    throw std::runtime_error("unknown word \"" + key + "\"");
                }
            }
        } catch (std::runtime_error const& failure) {
            throw std::runtime_error(path + ":" + std::to_string(number) + ": " + failure.what());
        }
    }
    return bank;
}

} // namespace nerox::audio
