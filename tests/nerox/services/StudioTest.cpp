// The audio stand-in keeps what the game asked of it, safely from several threads.
#include "nerox/audio/Studio.hpp"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

using nerox::audio::Studio;

TEST(Studio, KeepsBanksParametersVolumesAndListenerAndIgnoresNullNames) {
    Studio studio;
    studio.LoadBank("game/audio/banks/Master.bank").LoadBank(nullptr);
    studio.SetParameter("underwater", 1.0f);
    studio.SetParameter(nullptr, 2.0f);
    studio.SetVolume(0.25f, "bus:/");
    studio.SetVolume(1.0f, nullptr);
    studio.SetListenerAttributes(1, 2, 3, 0, 0, 0, 0, 0, -1, 0, 1, 0);
    EXPECT_EQ(studio.GetBanks(), (std::vector<std::string>{"game/audio/banks/Master.bank", ""}));
    EXPECT_EQ(studio.GetParameter("underwater"), 1.0f);
    EXPECT_EQ(studio.GetParameter("unknown", -2.0f), -2.0f);
    EXPECT_EQ(studio.GetVolume("bus:/"), 0.25f);
    EXPECT_EQ(studio.GetVolume("bus:/never", 0.75f), 0.75f);
    EXPECT_EQ(studio.GetListenerAttributes(), (Studio::ListenerAttributes{1, 2, 3, 0, 0, 0, 0, 0, -1, 0, 1, 0}));
}

TEST(Studio, EventHandlesShareOneInstanceAndAnEmptyOneIgnoresEveryCall) {
    Studio studio;
    Studio::Event event = studio.EventInstance("event:/Ambience/Wind");
    Studio::Event copy = event;
    copy.Start();
    copy.SetParameter("altitude", 120.0f);
    event.SetVolume(0.3f);
    auto state = event.GetState();
    EXPECT_EQ(state.path, "event:/Ambience/Wind");
    EXPECT_TRUE(state.playing);
    EXPECT_EQ(state.volume, 0.3f);
    EXPECT_EQ(state.parameters.at("altitude"), 120.0f);
    ASSERT_EQ(studio.GetEvents().size(), 1u);
    EXPECT_TRUE(studio.GetEvents()[0].playing);
    event.Stop();
    EXPECT_FALSE(copy.GetState().playing);

    Studio::Event empty;
    EXPECT_FALSE(empty.IsValid());
    empty.Start();
    empty.SetParameter("x", 1.0f);
    empty.SetVolume(0.0f);
    empty.Stop();
    EXPECT_FALSE(empty.GetState().playing);
}

TEST(Studio, ConcurrentCallersAreSafe) {
    Studio studio;
    Studio::Event event = studio.EventInstance("event:/x");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 200; ++i) {
                studio.SetVolume(static_cast<float>(i), "bus:/");
                studio.Update();
                event.SetParameter("p", static_cast<float>(t));
                (void)studio.GetListenerAttributes();
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(studio.GetUpdateCount(), 800u);
}

} // namespace
