// Ids, the inter-module channel, monitors, debug counters, options and presets.
#include "game/DebugInfo.hpp"
#include "game/Game.hpp"
#include "game/GameSettings.hpp"
#include "game/Options.hpp"
#include "game/UniqueId.hpp"
#include "game/entity/Id.hpp"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <stdexcept>
#include <thread>
#include <unordered_set>
#include <vector>

namespace {

using game::UniqueId;

TEST(UniqueId, TextFormRoundTripsAndHoldsTagOwnerAndLittleEndianWords) {
    UniqueId::SetThisOwner(0x01020304u);
    UniqueId const id = UniqueId::Generate("ENTT");
    UniqueId::SetThisOwner(0);
    std::string const text = id;
    ASSERT_EQ(text.size(), 28u);
    EXPECT_EQ(text.substr(0, 12), "ENTT04030201") << "owner bytes in memory order";
    EXPECT_EQ(UniqueId(text), id);
    EXPECT_EQ(id.Tag(), "ENTT");
    EXPECT_EQ(id.Owner(), 0x01020304u);
    EXPECT_EQ(game::entity::Id::Generate().Tag(), "ENTT");
    EXPECT_EQ(std::hash<game::entity::Id>{}(game::entity::Id(UniqueId(0x1234, 0xABCDEF))), 0xABCDEFu);
    for (UniqueId unset : {UniqueId(), UniqueId(0, 5), UniqueId(5, 0)}) {
        EXPECT_EQ(static_cast<std::string>(unset), "");
        EXPECT_FALSE(unset.IsSet());
    }
}

TEST(UniqueId, IdsMadeWithinOneMicrosecondStillDifferAndTheRandomPartIsNeverZero) {
    std::unordered_set<UniqueId> seen;
    std::unordered_set<uint64_t> times;
    for (int i = 0; i < 20000; ++i) {
        UniqueId const id = UniqueId::Generate("TEST");
        ASSERT_GE(id.second >> 50, 1u);
        seen.insert(id);
        times.insert(id.second & ((uint64_t(1) << 50) - 1));
    }
    EXPECT_EQ(seen.size(), 20000u);
    EXPECT_EQ(times.size(), 20000u);
}

TEST(UniqueId, ParsingRejectsBadLengthsAndDigits) {
    EXPECT_EQ(UniqueId(std::string()), UniqueId());
    for (std::string text : {std::string(27, 'A'), std::string(29, 'A'), std::string("ENTT0000000a0000000000000001")}) {
        try {
            (void)UniqueId(text);
            ADD_FAILURE() << text << " accepted";
        } catch (std::exception const& error) {
            EXPECT_STREQ(error.what(), text.size() == 28 ? "not a hex digit" : "UniqueId string length should be 28");
        }
    }
}

class ImcTest : public ::testing::Test {
protected:
    void TearDown() override {
        std::unique_lock lock(Game::_imcMutex);
        Game::_imcData.clear();
    }
};

TEST_F(ImcTest, ValuesAreCutTo4095BytesUnknownKeysCreateNothingAndTextReadsAsItsLeadingNumberOrZero) {
    EXPECT_EQ(std::tuple(Game::GetIMC("imc.unknown", "fallback"), Game::GetNumericIMC("imc.unknown", 4.5)), std::tuple("fallback", 4.5));
    EXPECT_EQ(Game::_imcData.count("imc.unknown"), 0u);
    Game::SetIMC("imc.long", std::string(5000, 'x'));
    EXPECT_EQ(Game::GetIMC("imc.long", ""), std::string(4095, 'x'));
    Game::SetIMC("imc.long", "short");
    EXPECT_EQ(Game::_imcData["imc.long"], (std::array<char, 4096>{'s', 'h', 'o', 'r', 't'})) << "no tail, last byte 0";
    Game::SetIMC("imc.number", 1234.5);
    EXPECT_EQ(std::tuple(Game::GetIMC("imc.number", ""), Game::GetNumericIMC("imc.number", -1.0)), std::tuple("1234.5", 1234.5));
    for (auto [text, number] : {std::pair("abc", 0.0), std::pair("3.25 metres", 3.25)}) {
        Game::SetIMC("imc.text", text);
        EXPECT_EQ(Game::GetNumericIMC("imc.text", 7.0), number) << text;
    }
}

TEST_F(ImcTest, ConcurrentReadersNeverSeeAHalfWrittenValue) {
    std::string const a(3000, 'a'), b(3000, 'b');
    Game::SetIMC("imc.shared", a);
    std::atomic<bool> done{false};
    std::atomic<int> torn{0};
    std::vector<std::thread> readers;
    for (int r = 0; r < 3; ++r)
        readers.emplace_back([&] {
            while (!done) {
                std::string const value = Game::GetIMC("imc.shared", "");
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

TEST(SharedServices, MonitorsDebugCountersOptionsAndPresets) {
    Game::AssignMonitor(7, "Hello");
    Game::AssignMonitor(7, "Hello, world");
    Game::currentMonitorID = 7;
    EXPECT_EQ(Game::GetMonitor(), "Hello, world");
    Game::currentMonitorID = 8;
    EXPECT_EQ(Game::GetMonitor(), "") << "unknown monitor";
    Game::currentMonitorID = 0;
    // Counters are keyed by the name's address.
    static char const* const frames = "frames";
    game::DebugInfo::Set(frames, 10);
    game::DebugInfo::Add(frames);
    game::DebugInfo::Add(frames, 4);
    EXPECT_EQ(game::DebugInfo::Get(frames), 15u);
    EXPECT_EQ(game::DebugInfo::Get("never set"), 0u);
    game::DebugInfo::Clear();
    EXPECT_TRUE(game::DebugInfo::infos.empty());
    game::Options::Set("count", 3);
    EXPECT_THROW(game::Options::Get<double>("count", 0.0), std::bad_any_cast);
    EXPECT_EQ(game::Options::Get<int>("count", 0), 3);
    game::Options::Clear();
    for (int preset : {0, 7}) EXPECT_EQ(game::GameSettings::FindGraphicsPreset(preset), nullptr) << preset;
    EXPECT_NE(game::GameSettings::FindGraphicsPreset(6), nullptr);
}

} // namespace
