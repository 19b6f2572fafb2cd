#pragma once
// Inventory windows: one ImGui window per shown inventory, a grid of slots, and
// items that the player drags between the open windows. A window only changes
// its own view of the items; each move is reported through the static callbacks,
// which a content module forwards to the server, and UpdateInventory later brings
// the view in line with what the server holds.
//
// Threads and locks. Draw, UpdateUi, Show, Hide and the drag handling run on the UI
// thread; UpdateInventory may come from any thread. `items` and `capacity` of an
// instance, and what its items hold, are guarded by its `mutex`. Lock order:
// `_inventoriesMutex` first, then an instance's `mutex`; whoever holds two instance
// mutexes at once holds `_inventoriesMutex` too and takes them in address order. No
// callback is called with a lock held, so a callback may call UpdateInventory at once.
#include "game/UniqueId.hpp"
#include "nerox/modular/ModuleID.hpp"

#include <imgui.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace game {
struct Item;
struct Inventory;
} // namespace game

namespace game::graphics::ui {

/// Font of the inventory windows; null until InventoryUi::LoadFonts found its file.
extern ImFont* _defaultUiFont;

/// The window of one inventory. Instances are made by Get and held by shared
/// pointer; the registry keeps only weak references.
class InventoryUi : public std::enable_shared_from_this<InventoryUi> {
public:
    class Item;

    UniqueId inventoryId;              ///< The inventory shown; key of the registry.
    std::string title = "Inventory";   ///< ImGui window name, unique among the open windows.
    uint64_t capacity = 0;             ///< Number of slots.
    bool open = false;                 ///< Drawn when true (see Show and Hide).
    bool searchable = false;           ///< Shows the search row; the slots start 20 units lower.
    ImVec2 windowPos{0.0f, 0.0f};      ///< Window corner on the screen in pixels, refreshed by Draw.
    ImVec2 windowSize{560.0f, 320.0f}; ///< Window size in pixels.
    /// Where a new window first shows, in pixels from the spawn point (centred,
    /// DefaultSpawnBottomOffset above the bottom): windows shown together stand side by side.
    ImVec2 spawnOffset{0.0f, 0.0f};
    ImVec2 slotSize{64.0f, 64.0f}; ///< Slot width and height, in units (pixels at UI scaling 1).
    float slotSpacing = 8.0f;      ///< Gap between slots, in units.
    float topMargin = 40.0f;       ///< Room above the slots (the title bar), in units.
    bool compact = false;          ///< Items fill the list in order, with no gaps and no fixed places.
    ImVec4 backgroundColor{0.1f, 0.1f, 0.12f, 0.9f}; ///< Window, title and active title colour.
    std::vector<std::shared_ptr<Item>> items;        ///< One per slot; null is an empty slot.
    std::mutex mutex;                                ///< Guards `items`, `capacity` and the items' contents.

    InventoryUi() = default;
    InventoryUi(InventoryUi const&) = delete;
    InventoryUi& operator=(InventoryUi const&) = delete;
    virtual ~InventoryUi();

    /// Sets `open`.
    virtual void Show();
    /// Clears `open` and puts every item back on its slot at once, ending a drag.
    virtual void Hide();
    /// The item in slot `slot`, or null past the end. Takes `mutex`.
    virtual std::shared_ptr<Item> GetItem(unsigned long slot);
    /// The item in the slot named by the leading decimal digits of `slot` ("3x" is
    /// slot 3); null for an empty text or one that does not start with a digit.
    virtual std::shared_ptr<Item> GetSlot(std::string const& slot);
    /// Number of occupied slots. Takes `mutex`.
    virtual unsigned long Count();
    /// Whether Count is below `capacity`.
    virtual bool HasSpace();
    /// Brings the view in line with `inventory`: takes its size as `capacity` and,
    /// slot by slot, keeps a held item that is the record's (same type, and same id
    /// unless the held one has none), updating it through Item::UpdateItem, or makes
    /// a new one (through ItemCreatorFunctions when its type has an entry). A new
    /// item whose id another open window still shows starts from that item's place
    /// on the screen, so a refused or remote move glides back. Slots without a record
    /// become empty. Any thread; takes `_inventoriesMutex`, then `mutex`, and reads
    /// `inventory` under its own lock before either.
    virtual void UpdateInventory(game::Inventory const& inventory);
    /// Draws the window and its items and handles their input: drags, drops, splits
    /// and quick take. UI thread, inside an ImGui frame; takes no lock on entry.
    virtual void Draw();
    /// Draws an empty slot with its corner at `pos` on the screen, `scale` pixels a unit,
    /// with `label` written small in its corner (nothing when empty).
    virtual void DrawSlot(ImVec2 pos, std::string const& label, float scale);
    /// Puts `item` (of this or another window) into the slot under `pointer` (pixels
    /// from this window's corner). An empty slot takes it; an occupied one trades
    /// places with the item's old slot. With `split` (the item's stack must be above
    /// 1), SplitCount units go to the slot's item of the same kind, or to a new entry
    /// in an empty slot. In a compact window a pointer over no entry appends the item.
    /// Returns the slot as decimal text, or "" when nothing moved (no slot under the
    /// pointer, its own slot, a full window, a split onto another kind). Calls no
    /// callback. Takes `_inventoriesMutex`, then this and the item's window's `mutex`.
    virtual std::string MoveOrSwapItem(std::shared_ptr<Item>& item, ImVec2 pointer, bool split);

    /// The instance for `id`, made and entered on first use; null if the one
    /// entered is no T. Takes `_inventoriesMutex`.
    template <typename T = InventoryUi> static std::shared_ptr<T> Get(UniqueId id) {
        std::lock_guard lock(_inventoriesMutex);
        std::weak_ptr<InventoryUi>& entry = _inventories[id];
        if (std::shared_ptr<InventoryUi> existing = entry.lock()) return std::dynamic_pointer_cast<T>(existing);
        std::shared_ptr<T> made = std::make_shared<T>();
        made->inventoryId = id;
        entry = made;
        return made;
    }
    /// Calls `function` for each live instance with `open`, under `_inventoriesMutex`:
    /// it must not call Get, UpdateInventory, MoveItem or MoveOrSwapItem.
    static void ForEachOpenInventory(std::function<void(std::shared_ptr<InventoryUi>&)> function);
    /// Draws every open window in the UI font, each in its `backgroundColor`. Call
    /// once a frame from the UI stage, inside an ImGui frame.
    static void UpdateUi();
    /// Adds the UI font to ImGui's atlas into `_defaultUiFont`; a missing file is
    /// reported on the standard error stream and leaves it null. Call before the
    /// atlas is built.
    static void LoadFonts();

    /// Sets `capacity` and reserves room in `items`. Takes `mutex`.
    void SetCapacity(unsigned long slots);
    /// Slots per row (at least 1) for the current `windowSize` and UI scaling.
    unsigned long GetCols() const;
    /// Rows needed for `capacity` slots.
    unsigned long GetRows() const;
    /// Corner of slot `slot`, in units from the window's corner (times the UI
    /// scaling for pixels).
    ImVec2 GetSlotPos(unsigned long slot) const;
    /// Units of each item type, in the order of first appearance: "Stone 12, Pickaxe 1";
    /// one per line with `multiline`, "" when empty. Takes `mutex`.
    std::string GetSummary(bool multiline);
    /// The stacks (entries of more than one unit) in slot order: "Bread x12, Stone x5".
    std::string GetConsumableStackSummary(bool multiline);
    /// Per item type, the attribute `property` read as a number, times the units and
    /// `scale`, summed: "Iron 4.5, Stone 2". Types without that attribute are left out.
    std::string GetPropertySummary(char const* property, double scale, bool multiline);
    /// Puts `item` from another window into the first free slot here, reported by
    /// OnMoveItem. With `stack` and OnStackItems set, a stack here that takes it by
    /// CanStack is offered it first (OnStackItems, last argument true) and the view
    /// waits for the server. Returns the slot as decimal text, or "" when the item
    /// is already here or there is no room. Takes `_inventoriesMutex`, then the
    /// windows' `mutex`; calls the callback after releasing them.
    std::string MoveItem(std::shared_ptr<Item>& item, bool stack);
    /// Units a split moves from a stack of `stack`: half of it (rounded down) while
    /// left Shift is held, one otherwise. Dragging with Shift held at the release is
    /// the split, so a drag always moves half.
    static int SplitCount(int stack);

    static std::unordered_map<UniqueId, std::weak_ptr<InventoryUi>> _inventories; ///< Registry by inventory id.
    static std::mutex _inventoriesMutex;                                          ///< Guards `_inventories`.

    /// Distance in pixels from a new window's bottom edge to the bottom of the screen.
    static float DefaultSpawnBottomOffset;
    /// Makers of Item subclasses by item type name, given the record and the slot it
    /// is read from. Fill before the first UpdateInventory.
    static std::map<std::string, std::function<std::shared_ptr<Item>(game::Item const&, unsigned long long)>>
        ItemCreatorFunctions;

    // What the user did, reported on the UI thread after the view changed. Ids come in
    // pairs of inventory and item, the source first. Unset callbacks are skipped.

    /// An item went to `slot` of the second inventory (maybe the same); the last argument is its `compact`.
    static std::function<void(UniqueId, UniqueId, UniqueId, std::string const& slot, bool compact)> OnMoveItem;
    /// Two items traded places.
    static std::function<void(UniqueId, UniqueId, UniqueId, UniqueId)> OnSwapItems;
    /// An item was let go outside every window. The view keeps it until the server removes it.
    static std::function<bool(UniqueId, UniqueId)> OnDropItem;
    /// An item was offered to the stack of the second pair; true for a quick take
    /// (MoveItem), where the server may put what the stack cannot take in a free slot.
    /// The view waits for the server.
    static std::function<bool(UniqueId, UniqueId, UniqueId, UniqueId, bool quick)> OnStackItems;
    /// `count` units of a stack went to `slot` of the second inventory.
    static std::function<bool(UniqueId, UniqueId, UniqueId, std::string const& slot, int count)> OnSplitItem;
    /// Shift and a right click on an item of the given inventory: the inventory to move
    /// it to, or the zero id for none.
    static std::function<UniqueId(UniqueId)> OnTryQuickTakeItem;

private:
    /// The slot under `units` (from the window's corner); -1 for none. Caller holds `mutex`.
    long SlotAt(ImVec2 units) const;
    /// The item for `record` at entry `at`: the one `old` holds there or elsewhere
    /// (taken out of `old`), or a new one; see UpdateInventory. Caller holds
    /// `_inventoriesMutex` and `mutex`.
    /// `shown`: where other open windows show items, by id.
    std::shared_ptr<Item> UpdateItemFromInventory(std::vector<std::shared_ptr<Item>>& old, size_t at,
                                                  game::Item const& record,
                                                  std::unordered_map<UniqueId, ImVec2> const& shown);
    /// The release of a drag of `item` at `pointer` (screen pixels), with or without Shift.
    void Release(std::shared_ptr<Item> item, ImVec2 pointer, bool shift);
};

/// The view of one item (or a stack) in a window.
class InventoryUi::Item {
public:
    UniqueId id;                                             ///< The item's id; zero for a split not yet confirmed.
    nerox::modular::ModuleID moduleId;                       ///< Module of the item type.
    std::string name;                                        ///< Item type; tooltip, and button text without icon.
    uint64_t value = 0;                                      ///< Given by the maker: the slot it was read from.
    std::weak_ptr<InventoryUi> owner;                        ///< The window showing it.
    ImVec2 screenPos{0.0f, 0.0f};                            ///< Where it is drawn; (0, 0) is not placed yet.
    ImVec2 targetPos{0.0f, 0.0f};                            ///< Its slot's corner on the screen.
    int32_t stack = 1;                                       ///< Units.
    bool dragging = false;                                   ///< Being dragged by the pointer.
    std::unordered_map<std::string, std::string> attributes; ///< Per-item strings.
    ImTextureID icon = nullptr; ///< Image of the button; without one a plain button shows `name`.

    /// The view of `item`; `value` is kept as given.
    Item(game::Item const& item, unsigned long long value);

    /// Takes `stack` and `attributes` of a newer view of the same item.
    virtual void UpdateItem(Item&& newer);
    virtual ~Item();
    /// Eases `screenPos` towards `pos`, its slot's corner on the screen (or follows the
    /// pointer while dragging), and draws the button, the stack count and the tooltip.
    virtual void Draw(ImVec2 pos);
    /// Same module, name and attributes.
    virtual bool StackableOn(std::shared_ptr<Item>& other) const;
    /// Whether this stack takes `other`; here StackableOn. A subclass adds a limit.
    virtual bool CanStack(std::shared_ptr<Item>& other) const;

    /// Makes `inventory` the owner.
    void Assign(std::weak_ptr<InventoryUi> inventory);
    /// Updates `dragging` after the button: it starts while the button is held and
    /// dragged with left Shift up, and lasts while the left button keeps dragging.
    void MakeItemDraggable();
};

} // namespace game::graphics::ui
