// The planet's ambience on the state-keeping studio: what each call hands the
// event and the studio. The smoothed inputs are shared by all instances, so
// the batches run in one test, in order, from the start of the program.
#include "game/Game.hpp"
#include "game/GameSettings.hpp"
#include "game/audio/EnvironmentAudio.hpp"
#include "support/TempDir.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <optional>

namespace {

using game::audio::EnvironmentAudio;
using game::audio::EnvironmentAudioData;

class EnvironmentAudioTest : public testing::Test {
protected:
    void SetUp() override { Game::audio = &studio; }
    void TearDown() override { Game::audio = nullptr; }

    float Parameter(char const* name) const {
        auto const parameters = studio.GetEvents().back().parameters; // a copy: the list is a temporary
        auto const found = parameters.find(name);
        return found == parameters.end() ? -1.0f : found->second;
    }

    nerox::audio::Studio studio;
};

TEST_F(EnvironmentAudioTest, LoadsItsBanksPlaysOneEventAndStopsItAtTheEnd) {
    {
        EnvironmentAudio ambience;
        EXPECT_EQ(studio.GetBanks(),
                  (std::vector<std::string>{"game/audio/banks/Master.bank", "game/audio/banks/Master.strings.bank",
                                            "game/audio/banks/environment.bank"}));
        ASSERT_EQ(studio.GetEvents().size(), 1u);
        EXPECT_EQ(studio.GetEvents()[0].path, "event:/game/environment/planet surface");
        EXPECT_TRUE(studio.GetEvents()[0].playing);
        EXPECT_FALSE(ambience.underwater);
    }
    EXPECT_FALSE(studio.GetEvents()[0].playing);
    Game::audio = nullptr;
    EnvironmentAudio silent; // no studio: nothing to load or play
    EXPECT_FALSE(silent.event.IsValid());
    silent.SetWindSpeed(3.0f, 1.0f); // ignored
}

TEST_F(EnvironmentAudioTest, BatchesAreSmoothedAFifthAtATimeAndEmptied) {
    EnvironmentAudio ambience;
    EnvironmentAudioData data{};
    data.hydrosphereDistance = 700;
    ambience.underwater = true;
    ambience.UpdateData(&data); // no samples: nothing moves, not even "underwater"
    EXPECT_EQ(Parameter("inside"), -1.0f);
    EXPECT_EQ(studio.GetParameter("underwater", -1.0f), -1.0f);
    EXPECT_EQ(data.hydrosphereDistance, 10000);

    struct Batch {
        EnvironmentAudioData data;
        bool underwater;
        float inside, distance; // expected
    };
    float const first = 0.2f, second = 0.2f + 0.8f * 0.2f, third = 0.8f * second + 0.2f * 0.5f;
    Batch const batches[] = {
        {{0, 0, 10, 0, 500}, true, std::pow(first, 4.0f), 1.0f},
        {{0, 0, 10, 0, 500}, false, std::pow(second, 4.0f), 1.8f},
        {{3, 1, 5, 1, 10000}, false, std::pow(third, 4.0f), 0.8f * 1.8f + 20.0f},
    };
    for (Batch const& batch : batches) {
        data = batch.data;
        ambience.underwater = batch.underwater;
        ambience.UpdateData(&data);
        EXPECT_NEAR(Parameter("inside"), batch.inside, 1e-6f);
        EXPECT_NEAR(Parameter("dist to water"), batch.distance, 1e-5f);
        EXPECT_EQ(studio.GetParameter("underwater"), batch.underwater ? 1.0f : 0.0f);
        EXPECT_EQ(data.missCount + data.terrainCount + data.objectCount + data.hydrosphereCount, 0u);
        EXPECT_EQ(data.hydrosphereDistance, 10000);
    }
}

TEST_F(EnvironmentAudioTest, TheWindSetsItsParametersAndTheVolumeFromTheSettings) {
    testsupport::TempDir scratch;
    Game::settings = std::make_unique<game::GameSettings>(scratch.File("settings.ini"), std::nullopt);
    Game::settings->environment_volume = 0.8f;
    EnvironmentAudio ambience;
    ambience.SetWindSpeed(12.5f, 1.2f);
    EXPECT_EQ(Parameter("wind speed"), 12.5f);
    EXPECT_EQ(Parameter("density"), 1.2f);
    EXPECT_FLOAT_EQ(studio.GetEvents().back().volume, 0.4f);
    Game::settings.reset();
}

// The real banks on a loopback device: the water layer is low noise that
// comes up with the share of water around the listener.
TEST(EnvironmentAudioSound, TheWaterBandRisesWithTheShareOfWaterAndTheAmbienceEndsSilent) {
    nerox::audio::Studio studio(nerox::audio::Studio::Output::Loopback);
    if (!studio.Audible()) GTEST_SKIP() << "OpenAL has no loopback device here";
    Game::audio = &studio;
    struct Unset {
        ~Unset() { Game::audio = nullptr; }
    } const unset;                   // also when an assertion ends the test
    auto level = [&](bool lowBand) { // of the left channel, after what was queued has played
        studio.Render(4096);
        std::vector<float> const mix = studio.Render(24000);
        double low = 0.0, sum = 0.0;
        for (size_t i = 0; i < mix.size(); i += 2) {
            low += 0.04 * (mix[i] - low); // a one-pole low-pass at about 300 Hz
            double const x = lowBand ? low : mix[i];
            sum += x * x;
        }
        return std::sqrt(sum / (mix.size() / 2));
    };
    {
        EnvironmentAudio ambience;
        ASSERT_TRUE(studio.Knows(EnvironmentAudio::eventPath)) << "the banks in game/audio/banks/";
        ambience.SetWindSpeed(2.0f, 1.2f);
        ambience.event.SetParameter("water", 0.0f);
        double const dry = level(true);
        ambience.event.SetParameter("water", 1.0f);
        double const wet = level(true);
        EXPECT_GT(dry, 0.0) << "the wind";
        EXPECT_GT(wet, 2.0 * dry);
    }
    EXPECT_EQ(level(false), 0.0);
}

} // namespace
