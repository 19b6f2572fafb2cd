#include "game/DebugInfo.hpp"
#include "game/Game.hpp"
#include "game/GameSettings.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

class ImcTest : public ::testing::Test {
protected:
    void TearDown() override {
        std::unique_lock lock(Game::_imcMutex);
        Game::_imcData.clear();
    }
};

TEST_F(ImcTest, AnUnknownKeyGivesTheDefaultAndCreatesNothing) {
    EXPECT_EQ(Game::GetIMC("imc.unknown", "fallback"), "fallback");
    EXPECT_EQ(Game::GetNumericIMC("imc.unknown", 4.5), 4.5);
    EXPECT_EQ(Game::_imcData.count("imc.unknown"), 0u);
}

TEST_F(ImcTest, ValuesAreCutTo4095BytesAndAShorterValueLeavesNoTail) {
    for (char c : {'x', 'y'}) {
        Game::SetIMC("imc.long", std::string(5000, c));
        EXPECT_EQ(Game::GetIMC("imc.long", ""), std::string(4095, c));
        EXPECT_EQ(Game::_imcData["imc.long"][4095], '\0') << "the last byte stays the terminator";
    }
    Game::SetIMC("imc.long", "short");
    EXPECT_EQ(Game::GetIMC("imc.long", ""), "short");
    auto const& buffer = Game::_imcData["imc.long"];
    for (size_t i = 5; i < buffer.size(); ++i) ASSERT_EQ(buffer[i], '\0') << "byte " << i;
}

TEST_F(ImcTest, NumbersRoundTripAndTextReadsAsItsLeadingNumberOrZero) {
    struct Case {
        char const* text;
        double number;
    };
    Game::SetIMC("imc.number", 1234.5);
    EXPECT_EQ(Game::GetIMC("imc.number", ""), "1234.5");
    EXPECT_EQ(Game::GetNumericIMC("imc.number", -1.0), 1234.5);
    Game::SetIMC("imc.number", -0.001);
    EXPECT_NEAR(Game::GetNumericIMC("imc.number", 0.0), -0.001, 1e-12);
    // Not the default: text that is no number reads as 0.
    for (Case c : {Case{"abc", 0.0}, Case{"3.25 metres", 3.25}}) {
        Game::SetIMC("imc.text", c.text);
        EXPECT_EQ(Game::GetNumericIMC("imc.text", 7.0), c.number) << c.text;
    }
}

TEST_F(ImcTest, ConcurrentReadersNeverSeeAHalfWrittenValue) {
    std::string const a(3000, 'a');
    std::string const b(3000, 'b');
    Game::SetIMC("imc.shared", a);
    std::atomic<bool> done{false};
    std::atomic<int> torn{0};
    std::vector<std::thread> readers;
    for (int r = 0; r < 3; ++r)
        readers.emplace_back([&] {
            while (!done) {
                std::string value = Game::GetIMC("imc.shared", "");
                if (value != a && value != b) ++torn;
                (void)Game::GetNumericIMC("imc.other", 0.0);
            }
        });
    for (int i = 0; i < 2000; ++i) {
        Game::SetIMC("imc.shared", i % 2 ? a : b);
        Game::SetIMC("imc.other", static_cast<double>(i));
        Game::SetIMC("imc.key" + std::to_string(i % 50), "new keys too");
    }
    done = true;
    for (auto& reader : readers) reader.join();
    EXPECT_EQ(torn.load(), 0);
}

TEST(Monitors, TheCurrentMonitorsTextIsReturnedAndAnUnknownIdGivesTheEmptyText) {
    EXPECT_EQ(Game::GetMonitor(), "") << "monitor 0 at the start";
    Game::AssignMonitor(7, "Hello");
    Game::AssignMonitor(7, "Hello, world");
    Game::currentMonitorID = 7;
    EXPECT_EQ(Game::GetMonitor(), "Hello, world");
    Game::currentMonitorID = 8;
    EXPECT_EQ(Game::GetMonitor(), "");
    Game::currentMonitorID = 0;
}

TEST(DebugInfo, CountersAreKeyedByTheNamesAddress) {
    static char const* const frames = "frames";
    game::DebugInfo::Set(frames, 10);
    game::DebugInfo::Add(frames);
    game::DebugInfo::Add(frames, 4);
    EXPECT_EQ(game::DebugInfo::Get(frames), 15u);
    EXPECT_EQ(game::DebugInfo::Get("never set"), 0u);
    game::DebugInfo::Clear();
    EXPECT_TRUE(game::DebugInfo::infos.empty());
}

TEST(GraphicsPresets, OnlyPresetsOneToSixExist) {
    for (int preset : {-1, 0, 7}) EXPECT_EQ(game::GameSettings::FindGraphicsPreset(preset), nullptr) << preset;
    for (int preset = 1; preset <= 6; ++preset) EXPECT_NE(game::GameSettings::FindGraphicsPreset(preset), nullptr);
}

} // namespace
