// Sound banks and the studio's loopback output: what a bank says is what the
// rendered samples hold.
#include "nerox/audio/Bank.hpp"
#include "nerox/audio/Studio.hpp"
#include "support/TempDir.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <stdexcept>

namespace {

using nerox::audio::Bank;
using nerox::audio::Studio;

/// Root mean square of one channel (0 left, 1 right) of interleaved stereo.
double Rms(std::vector<float> const& mix, int channel) {
    double sum = 0.0;
    for (size_t i = channel; i < mix.size(); i += 2) sum += double(mix[i]) * mix[i];
    return mix.empty() ? 0.0 : std::sqrt(sum / (mix.size() / 2));
}

TEST(SoundBank, AFaultyBankIsRefusedWithItsFileAndLine) {
    testsupport::TempDir scratch;
    struct Case {
        char const* text;
        char const* error; // after "PATH"
    };
    Case const cases[] = {
        {"layer wind\n", ":1: a layer outside an event"},
        {"event e\nlayer l\n  gain loud\n", ":3: gain \"loud\" is not a number"},
        {"event e\nlayer l\n  gain -1\n", ":3: gain cannot be below 0"},
        {"event e\nlayer l\n  gain_by \"p\" 1:0 0:1\n", ":3: the points of a curve go up in their parameter"},
        {"event e\nlayer l\n  gain_by \"p 1:0\n", ":3: a quote is not closed"},
        {"event e\nlayer l\n  volume 2\n", ":3: unknown word \"volume\""},
        {"event e\n  gain 2\n", ":2: \"gain\" outside a layer"},
        {"event e\nlayer l\n  source file none.wav\n", ":3: cannot read the sound file "},
    };
    for (Case const& c : cases) {
        std::string const path = scratch.File("faulty.bank");
        std::ofstream(path) << c.text;
        EXPECT_THAT([&] { Bank::Load(path); },
                    testing::ThrowsMessage<std::runtime_error>(testing::StartsWith(path + c.error)))
            << c.text;
    }
    EXPECT_THAT(
        [&] { Bank::Load(scratch.File("missing.bank")); },
        testing::ThrowsMessage<std::runtime_error>(scratch.File("missing.bank") + ": cannot open the bank file"));
    // The studio says so and goes on; the bank's events are silent.
    Studio studio(Studio::Output::Loopback);
    testing::internal::CaptureStderr();
    studio.LoadBank(scratch.File("missing.bank").c_str());
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::HasSubstr("bank not loaded, its events stay silent: " + scratch.File("missing.bank")));
    studio.EventInstance("event:/e").Start();
    EXPECT_EQ(Rms(studio.Render(2000), 0), 0.0);
}

class StudioLoopback : public testing::Test {
protected:
    void SetUp() override {
        std::ofstream(scratch.File("test.bank")) << "event event:/test\nlayer hiss\n  source noise\n  gain 0.5\n"
                                                    "  gain_by \"level\" 0:0 1:1\n";
        studio.LoadBank(scratch.File("test.bank").c_str());
        if (!studio.Audible()) GTEST_SKIP() << "OpenAL has no loopback device here";
    }
    testsupport::TempDir scratch;
    Studio studio{Studio::Output::Loopback};
};

TEST_F(StudioLoopback, AnEventSoundsWhileStartedAsLoudAsItsParametersSay) {
    Studio::Event event = studio.EventInstance("event:/test");
    EXPECT_TRUE(studio.Knows("event:/test"));
    EXPECT_EQ(Rms(studio.Render(4800), 0), 0.0) << "not started";
    event.Start();
    EXPECT_LT(Rms(studio.Render(4800), 0), 1e-4) << "level 0";
    event.SetParameter("level", 1.0f);
    studio.Render(2048); // what was queued at level 0 plays out
    double const loud = Rms(studio.Render(4800), 0);
    EXPECT_GT(loud, 0.1);
    studio.SetParameter("level", 0.0f); // the event's own value wins over the global one
    EXPECT_NEAR(Rms(studio.Render(4800), 0), loud, 0.3 * loud);
    event.SetVolume(0.5f);
    studio.Render(2048);
    EXPECT_NEAR(Rms(studio.Render(4800), 0), 0.5 * loud, 0.2 * loud);
    event.Stop();
    EXPECT_EQ(Rms(studio.Render(4800), 0), 0.0) << "stopped";
}

TEST_F(StudioLoopback, APlacedEventIsHeardFromWhereItIsAsTheListenerMoves) {
    Studio::Event event = studio.EventInstance("event:/test");
    event.SetParameter("level", 1.0f);
    event.Set3DAttributes(3.0f, 0.0f, 0.0f);
    event.Start();
    // Looking down -Z: the event is on the right, then, past it, on the left.
    studio.SetListenerAttributes(0, 0, 0, 0, 0, 0, 0, 0, -1, 0, 1, 0);
    std::vector<float> mix = studio.Render(9600);
    EXPECT_GT(Rms(mix, 1), 2.0 * Rms(mix, 0));
    studio.SetListenerAttributes(6, 0, 0, 0, 0, 0, 0, 0, -1, 0, 1, 0);
    mix = studio.Render(9600);
    EXPECT_GT(Rms(mix, 0), 2.0 * Rms(mix, 1));
}

TEST_F(StudioLoopback, AFileLayerLoopsItsSoundAtThePitchItsParameterSays) {
    // A tenth of a second of a 1 kHz tone, 16-bit mono at 48 kHz.
    std::ofstream wav(scratch.File("tone.wav"), std::ios::binary);
    auto word = [&](uint32_t v, int bytes) {
        for (int i = 0; i < bytes; ++i) wav.put(char((v >> (8 * i)) & 0xFF));
    };
    wav << "RIFF", word(36 + 9600, 4), wav << "WAVEfmt ", word(16, 4), word(1, 2), word(1, 2), word(48000, 4);
    word(96000, 4), word(2, 2), word(16, 2), wav << "data", word(9600, 4);
    for (int i = 0; i < 4800; ++i)
        word(uint16_t(int16_t(std::lround(16000 * std::sin(2 * M_PI * 1000 * i / 48000.0)))), 2);
    wav.close();
    std::ofstream(scratch.File("tone.bank")) << "event event:/tone\nlayer tone\n  source file tone.wav\n"
                                                "  pitch_by \"fast\" 0:0.5 1:1\n";
    studio.LoadBank(scratch.File("tone.bank").c_str());
    Studio::Event tone = studio.EventInstance("event:/tone");
    tone.Start();
    auto crossings = [&] { // rising zero crossings of the left channel in one second
        studio.Render(2048);
        std::vector<float> const mix = studio.Render(48000);
        int count = 0;
        for (size_t i = 2; i < mix.size(); i += 2) count += mix[i - 2] < 0.0f && mix[i] >= 0.0f;
        return count;
    };
    EXPECT_NEAR(crossings(), 500, 10);
    tone.SetParameter("fast", 1.0f);
    EXPECT_NEAR(crossings(), 1000, 10);
}

} // namespace
