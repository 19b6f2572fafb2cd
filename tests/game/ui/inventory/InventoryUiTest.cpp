// Inventory windows driven by real pointer drags across frames, against a small
// in-test server that applies each reported move (Stone stacks hold 10) and sends
// both inventories back through UpdateInventory, as a content module would.
#include "game/ui/ImGuiFixture.hpp"

#include "game/Inventory.hpp"
#include "game/graphics/ui/InventoryUi.hpp"

#define IMGUI_DEFINE_MATH_OPERATORS
#include <imgui_internal.h>

#include <filesystem>
#include <map>
#include <sstream>
#include <thread>

namespace inventorytest {
namespace {

using game::UniqueId;
using game::graphics::ui::InventoryUi;
using Item = InventoryUi::Item;

constexpr uint64_t kItemTag = 0x4D455449;
UniqueId const kA(0x41, 1), kB(0x42, 2);

void ExpectAt(ImVec2 actual, ImVec2 expected) {
    EXPECT_EQ(actual.x, expected.x);
    EXPECT_EQ(actual.y, expected.y);
}

/// Stone stacks hold at most 10 units.
struct Stone : Item {
    using Item::Item;
    bool CanStack(std::shared_ptr<Item>& other) const override { return StackableOn(other) && stack < 10; }
};

class InventoryTest : public uitest::ImGuiTest {
protected:
    void SetUp() override {
        ImGuiTest::SetUp();
        InventoryUi::ItemCreatorFunctions = {
            {"Stone", [](game::Item const& item, unsigned long long at) { return std::make_shared<Stone>(item, at); }}};
        InventoryUi::OnMoveItem = [&](UniqueId from, UniqueId item, UniqueId to, std::string const& slot, bool) {
            Log("move " + N(item) + " " + N(from) + ">" + N(to) + " " + slot);
            if (!refuse) server[N(to)[0]].items[slot] = Take(item);
            Sync();
        };
        InventoryUi::OnSwapItems = [&](UniqueId from, UniqueId item, UniqueId to, UniqueId other) {
            Log("swap " + N(item) + " " + N(from) + ">" + N(to) + " " + N(other));
            std::swap(*Find(item), *Find(other));
            Sync();
        };
        InventoryUi::OnStackItems = [&](UniqueId from, UniqueId item, UniqueId to, UniqueId onto, bool) {
            Log("stack " + N(item) + " " + N(from) + ">" + N(to) + " " + N(onto));
            uint32_t const moved = std::min(10 - Find(onto)->stack, Find(item)->stack);
            Find(onto)->stack += moved;
            if ((Find(item)->stack -= moved) == 0) Take(item);
            Sync();
            return true;
        };
        InventoryUi::OnSplitItem = [&](UniqueId from, UniqueId item, UniqueId to, std::string const& slot, int count) {
            Log("split " + N(item) + " " + N(from) + ">" + N(to) + " " + slot + " x" + std::to_string(count));
            game::Item part = *Find(item);
            part.id = UniqueId(kItemTag, 100), part.stack = static_cast<uint32_t>(count);
            Find(item)->stack -= static_cast<uint32_t>(count);
            server[N(to)[0]].items[slot] = part;
            Sync();
            return true;
        };
        InventoryUi::OnDropItem = [&](UniqueId from, UniqueId item) {
            Log("drop " + N(from) + " " + N(item));
            Take(item), Sync();
            return true;
        };
        InventoryUi::OnTryQuickTakeItem = [&](UniqueId from) { return from == kA ? kB : UniqueId(); };
        a = Window(kA, "A"), b = Window(kB, "B");
        Frames(1);
        Frame([] { ImGui::SetWindowPos("A", ImVec2(20, 20)), ImGui::SetWindowPos("B", ImVec2(660, 20)); });
        Frames(2);
    }
    void TearDown() override {
        InventoryUi::OnMoveItem = nullptr, InventoryUi::OnSwapItems = nullptr, InventoryUi::OnStackItems = nullptr;
        InventoryUi::OnSplitItem = nullptr, InventoryUi::OnDropItem = nullptr,
        InventoryUi::OnTryQuickTakeItem = nullptr;
        ImGuiTest::TearDown();
    }

    std::shared_ptr<InventoryUi> Window(UniqueId id, std::string const& title) {
        auto window = InventoryUi::Get(id);
        window->title = title, window->windowSize = ImVec2(400, 300);
        server[title[0]].size = 10;
        window->UpdateInventory(server[title[0]]);
        window->Show();
        return window;
    }
    /// Fills an inventory from "S5 D1 - R5": Stone, Dirt, red Stone, or nothing, with a count.
    void Fill(char inventory, std::string const& layout) {
        std::istringstream in(layout);
        int slot = 0;
        for (std::string token; in >> token; ++slot) {
            if (token == "-") continue;
            game::Item& item = server[inventory].items[std::to_string(slot)];
            item.id = UniqueId(kItemTag, ++made);
            item.name = token[0] == 'D' ? "Dirt" : "Stone";
            item.stack = static_cast<uint32_t>(std::stoul(token.substr(1)));
            if (token[0] == 'R') item.attributes["colour"] = "red";
        }
        Sync();
    }
    /// The first four slots of a window in the notation of Fill.
    static std::string View(InventoryUi& window) {
        std::string view;
        for (unsigned long i = 0; i < 4; ++i) {
            auto item = window.GetItem(i);
            view += i ? " " : "";
            view += !item ? "-" : (item->name == "Dirt" ? "D" : item->attributes.empty() ? "S" : "R");
            if (item) view += std::to_string(item->stack);
        }
        return view;
    }

    void Sync() { a->UpdateInventory(server['A']), b->UpdateInventory(server['B']); }
    std::string N(UniqueId id) { return id == kA ? "A" : id == kB ? "B" : "i" + std::to_string(id.second); }
    void Log(std::string const& line) { log += (log.empty() ? "" : "; ") + line; }
    game::Item* Find(UniqueId id) {
        for (auto& [name, inventory] : server)
            for (auto& [slot, item] : inventory.items)
                if (item.id == id) return &item;
        return nullptr;
    }
    game::Item Take(UniqueId id) {
        game::Item const taken = *Find(id);
        for (auto& [name, inventory] : server)
            std::erase_if(inventory.items, [&](auto& e) { return e.second.id == id; });
        return taken;
    }

    void Frames(int n) {
        for (int i = 0; i < n; ++i) Frame([] { InventoryUi::UpdateUi(); });
    }
    static ImVec2 Centre(InventoryUi& window, unsigned long slot) {
        return window.windowPos + window.GetSlotPos(slot) + window.slotSize * 0.5f; // UI scaling 1
    }
    /// Presses on `from`, drags to `to` over a few frames and lets go, with left Shift at the release.
    void Drag(ImVec2 from, ImVec2 to, bool shift = false, bool release = true) {
        MouseTo(from.x, from.y), Frames(1), Mouse(0, true), Frames(1);
        MouseTo((from.x + to.x) / 2, (from.y + to.y) / 2), Frames(1), MouseTo(to.x, to.y), Frames(1);
        if (!release) return;
        Key(GLFW_KEY_LEFT_SHIFT, shift), Mouse(0, false), Frames(1), Key(GLFW_KEY_LEFT_SHIFT, false);
        Frames(30);
    }
    /// Every item of both windows rests on its slot.
    void ExpectPlaced() {
        for (InventoryUi* window : {a.get(), b.get()})
            for (unsigned long i = 0; i < 10; ++i)
                if (auto item = window->GetItem(i)) {
                    ImVec2 const slot = window->windowPos + window->GetSlotPos(i);
                    ExpectAt(item->screenPos, slot);
                    EXPECT_FALSE(item->dragging);
                }
    }

    std::map<char, game::Inventory> server;
    std::shared_ptr<InventoryUi> a, b;
    std::string log;
    bool refuse = false;
    uint64_t made = 0;
};

struct DragCase {
    char const* name;
    char const *a, *b;
    unsigned long from;
    char window; // 'A', 'B', or 'X' for outside every window
    unsigned long to;
    bool shift, refuse;
    char const *log, *afterA, *afterB;
};

void PrintTo(DragCase const& c, std::ostream* out) {
    *out << c.name;
}

DragCase const kDrags[] = {
    {"ToEmptySlot", "S5", "", 0, 'A', 2, false, false, "move i1 A>A 2", "- - S5 -", "- - - -"},
    {"OwnSlot", "S5", "", 0, 'A', 0, false, false, "", "S5 - - -", "- - - -"},
    {"StacksUpToLimit", "S5 S8", "", 0, 'A', 1, false, false, "stack i1 A>A i2", "S3 S10 - -", "- - - -"},
    {"FullStackSwaps", "S5 S10", "", 0, 'A', 1, false, false, "swap i1 A>A i2", "S10 S5 - -", "- - - -"},
    {"OtherAttributesSwap", "R5 S5", "", 0, 'A', 1, false, false, "swap i1 A>A i2", "S5 R5 - -", "- - - -"},
    {"OtherItemSwaps", "S5 D1", "", 0, 'A', 1, false, false, "swap i1 A>A i2", "D1 S5 - -", "- - - -"},
    {"ShiftSplitsHalf", "S5", "", 0, 'A', 3, true, false, "split i1 A>A 3 x2", "S3 - - S2", "- - - -"},
    {"ShiftSplitsTwoIntoOne", "S2", "", 0, 'B', 1, true, false, "split i1 A>B 1 x1", "S1 - - -", "- S1 - -"},
    {"SingleUnitMovesWhole", "D1", "", 0, 'A', 3, true, false, "move i1 A>A 3", "- - - D1", "- - - -"},
    {"ToOtherWindow", "S5", "", 0, 'B', 1, false, false, "move i1 A>B 1", "- - - -", "- S5 - -"},
    {"SwapAcrossWindows", "S5", "D1", 0, 'B', 0, false, false, "swap i1 A>B i2", "D1 - - -", "S5 - - -"},
    {"OutsideDrops", "S5", "", 0, 'X', 0, false, false, "drop A i1", "- - - -", "- - - -"},
    {"RefusedMoveSnapsBack", "S5", "", 0, 'B', 2, false, true, "move i1 A>B 2", "S5 - - -", "- - - -"},
};

class Drags : public InventoryTest, public ::testing::WithParamInterface<DragCase> { };

TEST_P(Drags, ReportMoveAndSettleOnTheServersState) {
    DragCase const& c = GetParam();
    Fill('A', c.a), Fill('B', c.b);
    refuse = c.refuse;
    ImVec2 const to = c.window == 'X' ? ImVec2(640, 600) : Centre(c.window == 'A' ? *a : *b, c.to);
    Drag(Centre(*a, c.from), to, c.shift);
    EXPECT_EQ(log, c.log);
    EXPECT_EQ(View(*a), c.afterA);
    EXPECT_EQ(View(*b), c.afterB);
    ExpectPlaced();
}

INSTANTIATE_TEST_SUITE_P(InventoryUi, Drags, ::testing::ValuesIn(kDrags),
                         [](auto const& info) { return std::string(info.param.name); });

TEST_F(InventoryTest, HideDuringADragPutsTheItemBackAtOnce) {
    Fill('A', "S5");
    Drag(Centre(*a, 0), Centre(*a, 4), false, false);
    auto item = a->GetItem(0);
    ASSERT_TRUE(item->dragging);
    a->Hide();
    EXPECT_FALSE(item->dragging);
    ExpectAt(item->screenPos, item->targetPos);
    Mouse(0, false), Frames(2), a->Show(), Frames(30);
    EXPECT_EQ(log, "");
    ExpectPlaced();
}

TEST_F(InventoryTest, ShiftRightClickQuickTakesIntoTheNamedInventory) {
    Fill('A', "S5 D1"), Fill('B', "- S3");
    for (unsigned long slot : {1, 0}) {
        ImVec2 const at = Centre(*a, slot);
        MouseTo(at.x, at.y), Frames(1), Key(GLFW_KEY_LEFT_SHIFT, true), Mouse(1, true), Frames(1);
        Mouse(1, false), Key(GLFW_KEY_LEFT_SHIFT, false), Frames(30);
    }
    EXPECT_EQ(log, "move i2 A>B 0; stack i1 A>B i3"); // Dirt to the first free slot, Stone onto the stack
    EXPECT_EQ(View(*a), "- - - -");
    EXPECT_EQ(View(*b), "D1 S8 - -");
    ExpectPlaced();
}

TEST_F(InventoryTest, UpdatesFromAnotherThreadWhileDragging) {
    Fill('A', "S5 D1");
    game::Inventory const copy = server['A'];
    std::thread network([&] {
        for (int i = 0; i < 300; ++i) a->UpdateInventory(copy);
    });
    Drag(Centre(*a, 0), Centre(*a, 2));
    network.join();
    a->UpdateInventory(server['A']), Frames(30);
    EXPECT_EQ(log, "move i1 A>A 2");
    EXPECT_EQ(View(*a), "- D1 S5 -");
    ExpectPlaced();
}

TEST_F(InventoryTest, SlotsSummariesAndSplitCounts) {
    Fill('A', "S5 D1 S3 D1");
    for (auto const& [text, slot] : std::vector<std::pair<std::string, int>>{
             {"3x", 3}, {"2x", 2}, {"1", 1}, {"", -1}, {"x1", -1}, {"-1", -1}, {"99999999999999999999", -1}})
        EXPECT_EQ(a->GetSlot(text), slot < 0 ? nullptr : a->GetItem(static_cast<unsigned long>(slot))) << text;
    EXPECT_EQ(a->Count(), 4u);
    EXPECT_TRUE(a->HasSpace());
    EXPECT_EQ(a->GetSummary(false), "Stone 8, Dirt 2");
    EXPECT_EQ(a->GetConsumableStackSummary(true), "Stone x5\nStone x3");
    server['A'].items["1"].attributes["mass"] = "2.5";
    Sync();
    EXPECT_EQ(a->GetPropertySummary("mass", 2.0, false), "Dirt 5");
    EXPECT_EQ(InventoryUi::SplitCount(7), 1); // without Shift
    auto item = a->GetItem(1);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(a->MoveOrSwapItem(item, Centre(*a, 5) - a->windowPos, true), "ASSERTION FAILED: \\(!split");
}

TEST_F(InventoryTest, FontLoadsOrIsReportedMissingAndHarmless) {
    std::filesystem::path const home = std::filesystem::current_path();
    for (bool const present : {false, true}) {
        std::filesystem::current_path(present ? home : std::filesystem::temp_directory_path());
        testing::internal::CaptureStderr();
        InventoryUi::LoadFonts();
        std::string const error = testing::internal::GetCapturedStderr();
        std::filesystem::current_path(home);
        EXPECT_EQ(error, present ? "" : "Font file does not exist: game/graphics/ui/fonts/OpenSans-SemiBold.ttf\n");
        EXPECT_EQ(game::graphics::ui::_defaultUiFont != nullptr, present);
        ImGui::GetIO().Fonts->Build();
        Fill('A', "S5"), Frames(2);
        ExpectPlaced();
        Frame([] {
            InventoryUi::UpdateUi();
            EXPECT_EQ(ImGui::GetFont(), ImGui::GetIO().Fonts->Fonts[0]); // popped again
        });
    }
    game::graphics::ui::_defaultUiFont = nullptr; // it dies with this test's context
}

} // namespace
} // namespace inventorytest
