#include "InventoryWindows.hpp"
#include "SampleInventory.hpp"

#include "game/Game.hpp"
#include "game/graphics/ui/InventoryUi.hpp"
#include "game/modules/SERVER_Mod.hpp"

#include <cstdio>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace sample::inventory {

namespace {

using game::UniqueId;
using game::graphics::ui::InventoryUi;

/// A stackable item: a stack takes more of its kind only below its limit.
class LimitedStack : public InventoryUi::Item {
public:
    using InventoryUi::Item::Item;
    bool CanStack(std::shared_ptr<InventoryUi::Item>& other) const override {
        return StackableOn(other) && static_cast<uint32_t>(stack) < StackLimit(name);
    }
};

std::shared_ptr<InventoryUi> packWindow;    // main thread
std::shared_ptr<InventoryUi> storageWindow; // main thread

std::mutex answerMutex;                             // guards answer
std::optional<std::vector<game::Inventory>> answer; // the newest state from the server, not yet shown

// Hands a request to the server modules, as a network module would carry it.
void Send(Request const& request) {
    std::vector<unsigned char> const message = request.Encode();
    game::modules::SERVER_Mod::ForEachModule([&message](game::modules::SERVER_Mod::Ptr& mod) {
        if (mod->Server_Receive) mod->Server_Receive(Game::offlineSteamId, message.data(), message.size());
    });
}

std::shared_ptr<InventoryUi> MakeWindow(UniqueId const& id, char const* title, float x, float columns) {
    std::shared_ptr<InventoryUi> window = InventoryUi::Get(id);
    window->title = title;
    window->windowSize = ImVec2(columns * 72.0f + 28.0f, 230.0f);
    window->spawnOffset = ImVec2(x, 0.0f);
    return window;
}

} // namespace

void StartWindows() {
    for (char const* type : {ore, battery})
        InventoryUi::ItemCreatorFunctions[type] = [](game::Item const& item, unsigned long long slot) {
            return std::make_shared<LimitedStack>(item, slot);
        };
    InventoryUi::OnMoveItem = [](UniqueId fromInventory, UniqueId item, UniqueId toInventory, std::string const& slot,
                                 bool) {
        Send({Request::Kind::Move, fromInventory, item, toInventory, {}, slot, 0});
    };
    InventoryUi::OnSwapItems = [](UniqueId fromInventory, UniqueId item, UniqueId toInventory, UniqueId other) {
        Send({Request::Kind::Swap, fromInventory, item, toInventory, other, {}, 0});
    };
    InventoryUi::OnStackItems = [](UniqueId fromInventory, UniqueId item, UniqueId toInventory, UniqueId other, bool) {
        Send({Request::Kind::Stack, fromInventory, item, toInventory, other, {}, 0});
        return true;
    };
    InventoryUi::OnSplitItem = [](UniqueId fromInventory, UniqueId item, UniqueId toInventory, std::string const& slot,
                                  int count) {
        Send({Request::Kind::Split, fromInventory, item, toInventory, {}, slot, count});
        return true;
    };
    InventoryUi::OnDropItem = [](UniqueId fromInventory, UniqueId item) {
        Send({Request::Kind::Drop, fromInventory, item, {}, {}, {}, 0});
        return false;
    };
    InventoryUi::OnTryQuickTakeItem = [](UniqueId inventory) { return inventory == packId ? storageId : packId; };
    // Side by side, 10 pixels apart: 460 and 316 pixels wide.
    packWindow = MakeWindow(packId, "Pack", -163.0f, 6.0f);
    storageWindow = MakeWindow(storageId, "Storage", 235.0f, 4.0f);
    Game::userInventory = packWindow;
}

void Receive(void const* data, size_t size) {
    try {
        std::vector<game::Inventory> inventories = DecodeState(data, size);
        std::lock_guard lock(answerMutex);
        answer = std::move(inventories);
    } catch (std::exception const& failure) {
        std::printf("[sample] a message that is no inventory state: %s\n", failure.what());
    }
}

void UpdateWindows() {
    std::optional<std::vector<game::Inventory>> newest;
    {
        std::lock_guard lock(answerMutex);
        newest.swap(answer);
    }
    if (!newest) return;
    for (game::Inventory const& inventory : *newest) {
        if (inventory.id == packId && packWindow) packWindow->UpdateInventory(inventory);
        if (inventory.id == storageId && storageWindow) storageWindow->UpdateInventory(inventory);
    }
}

bool WindowsShown() {
    return packWindow && packWindow->open;
}

void ToggleWindows() {
    if (!packWindow || !storageWindow) return;
    if (WindowsShown()) {
        packWindow->Hide();
        storageWindow->Hide();
        Game::SetInputMode_Play();
    } else {
        packWindow->Show();
        storageWindow->Show();
        Game::SetInputMode_Ui();
    }
}

void StopWindows() {
    InventoryUi::OnMoveItem = nullptr;
    InventoryUi::OnSwapItems = nullptr;
    InventoryUi::OnStackItems = nullptr;
    InventoryUi::OnSplitItem = nullptr;
    InventoryUi::OnDropItem = nullptr;
    InventoryUi::OnTryQuickTakeItem = nullptr;
    InventoryUi::ItemCreatorFunctions.clear();
    packWindow.reset();
    storageWindow.reset();
    std::lock_guard lock(answerMutex);
    answer.reset();
}

} // namespace sample::inventory
