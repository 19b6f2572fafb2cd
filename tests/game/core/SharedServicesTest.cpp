// Ids, the inter-module channel, monitors, debug counters, options and presets.
#include "game/DebugInfo.hpp"
#include "game/Game.hpp"
#include "game/UniqueId.hpp"
#include "game/entity/Id.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
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
    EXPECT_EQ(std::tuple(UniqueId(text), id.Tag(), id.Owner()), std::tuple(id, "ENTT", 0x01020304u));
    EXPECT_EQ(game::entity::Id::Generate().Tag(), "ENTT");
    EXPECT_EQ(std::hash<game::entity::Id>{}(game::entity::Id(UniqueId(0x1234, 0xABCDEF))), 0xABCDEFu);
    for (UniqueId unset : {UniqueId(), UniqueId(0, 5), UniqueId(5, 0)})
        EXPECT_TRUE(static_cast<std::string>(unset).empty() && !unset.IsSet());
}

TEST(UniqueId, IdsMadeWithinOneMicrosecondOnSeveralThreadsStillDifferAndTheRandomPartIsNeverZero) {
    std::vector<UniqueId> ids(20000);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < 4; ++t)
        threads.emplace_back([&ids, t] {
            for (size_t i = t; i < ids.size(); i += 4) ids[i] = UniqueId::Generate("TEST");
        });
    for (std::thread& thread : threads) thread.join();
    std::unordered_set<UniqueId> const seen(ids.begin(), ids.end());
    std::unordered_set<uint64_t> times;
    for (UniqueId const& id : ids) {
        ASSERT_GE(id.second >> 50, 1u);
        times.insert(id.second & ((uint64_t(1) << 50) - 1));
    }
    EXPECT_EQ(std::tuple(seen.size(), times.size()), std::tuple(20000u, 20000u));
}

TEST(UniqueId, ParsingRejectsBadLengthsAndDigits) {
    EXPECT_EQ(UniqueId(std::string()), UniqueId());
    for (std::string text : {std::string(27, 'A'), std::string(29, 'A'), std::string("ENTT0000000a0000000000000001")})
        EXPECT_THAT([&] { (void)UniqueId(text); },
                    ::testing::ThrowsMessage<std::exception>(::testing::StrEq(
                        text.size() == 28 ? "not a hex digit" : "UniqueId string length should be 28")));
}

class ImcTest : public ::testing::Test {
protected:
    void TearDown() override {
        std::unique_lock lock(Game::_imcMutex);
        Game::_imcData.clear();
    }
};

TEST_F(ImcTest, ValuesAreCutTo4095BytesUnknownKeysCreateNothingAndTextReadsAsItsLeadingNumberOrZero) {
    EXPECT_EQ(std::tuple(Game::GetIMC("imc.unknown", "fallback"), Game::GetNumericIMC("imc.unknown", 4.5)),
              std::tuple("fallback", 4.5));
    EXPECT_EQ(Game::_imcData.count("imc.unknown"), 0u);
    Game::SetIMC("imc.long", std::string(5000, 'x'));
    EXPECT_EQ(Game::GetIMC("imc.long", ""), std::string(4095, 'x'));
    Game::SetIMC("imc.long", "short");
    EXPECT_EQ(Game::_imcData["imc.long"], (std::array<char, 4096>{'s', 'h', 'o', 'r', 't'})) << "no tail, last byte 0";
    Game::SetIMC("imc.number", 1234.5);
    EXPECT_EQ(std::tuple(Game::GetIMC("imc.number", ""), Game::GetNumericIMC("imc.number", -1.0)),
              std::tuple("1234.5", 1234.5));
    for (auto [text, number] : {std::pair("abc", 0.0), std::pair("3.25 metres", 3.25)}) {
        Game::SetIMC("imc.text", text);
        EXPECT_EQ(Game::GetNumericIMC("imc.text", 7.0), number) << text;
    }
}

TEST(SharedServices, MonitorsAndDebugCounters) {
    Game::AssignMonitor(7, "Hello, world");
    Game::currentMonitorID = 8;
    std::string const none = Game::GetMonitor();
    Game::currentMonitorID = 7;
    EXPECT_EQ(std::tuple(Game::GetMonitor(), none), std::tuple("Hello, world", ""));
    Game::currentMonitorID = 0;
    static char const* const frames = "frames"; // counters are keyed by the name's address
    game::DebugInfo::Set(frames, 10);
    game::DebugInfo::Add(frames);
    game::DebugInfo::Add(frames, 4);
    EXPECT_EQ(std::tuple(game::DebugInfo::Get(frames), game::DebugInfo::Get("never set")), std::tuple(15u, 0u));
    game::DebugInfo::Clear();
    EXPECT_TRUE(game::DebugInfo::infos.empty());
}

} // namespace
