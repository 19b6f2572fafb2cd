#include "game/graphics/ui/InventoryUi.hpp"

#include "game/Game.hpp"
#include "game/Inventory.hpp"
#include "nerox/Assert.hpp"

#define IMGUI_DEFINE_MATH_OPERATORS
#include <imgui_internal.h>

#include <GLFW/glfw3.h>

#include <algorithm>
#include <cctype>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <sstream>

namespace game::graphics::ui {

ImFont* _defaultUiFont = nullptr;

std::unordered_map<UniqueId, std::weak_ptr<InventoryUi>> InventoryUi::_inventories;
std::mutex InventoryUi::_inventoriesMutex;
float InventoryUi::DefaultSpawnBottomOffset = 50.0f;
std::map<std::string, std::function<std::shared_ptr<InventoryUi::Item>(game::Item const&, unsigned long long)>>
    InventoryUi::ItemCreatorFunctions;
std::function<void(UniqueId, UniqueId, UniqueId, std::string const&, bool)> InventoryUi::OnMoveItem;
std::function<void(UniqueId, UniqueId, UniqueId, UniqueId)> InventoryUi::OnSwapItems;
std::function<bool(UniqueId, UniqueId)> InventoryUi::OnDropItem;
std::function<bool(UniqueId, UniqueId, UniqueId, UniqueId, bool)> InventoryUi::OnStackItems;
std::function<bool(UniqueId, UniqueId, UniqueId, std::string const&, int)> InventoryUi::OnSplitItem;
std::function<UniqueId(UniqueId)> InventoryUi::OnTryQuickTakeItem;

namespace {

char const* const kFontPath = "game/graphics/ui/fonts/OpenSans-SemiBold.ttf";
/// How fast an item glides to its slot: the gap shrinks by a factor e every 1/30 s.
constexpr float kEaseRate = 30.0f;
/// Closer than this many pixels, an item jumps onto its slot.
constexpr float kSnapDistance = 0.5f;

/// The left Shift key, by the GLFW key code the backend indexes KeysDown with.
bool LeftShift() {
    return ImGui::GetCurrentContext() != nullptr && ImGui::IsKeyDown(GLFW_KEY_LEFT_SHIFT);
}

ImVec2 WindowPadding() {
    return ImGui::GetCurrentContext() ? ImGui::GetStyle().WindowPadding : ImVec2(0.0f, 0.0f);
}

std::string Lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

bool Inside(ImVec2 point, ImVec2 corner, ImVec2 size) {
    return point.x >= corner.x && point.y >= corner.y && point.x < corner.x + size.x && point.y < corner.y + size.y;
}

/// Position of a window in ImGui's display order (higher is in front); -1 when unknown.
int DisplayOrder(std::string const& title) {
    ImGuiWindow* const window = ImGui::FindWindowByName(title.c_str());
    for (int i = 0; window != nullptr && i < GImGui->Windows.Size; ++i)
        if (GImGui->Windows[i] == window) return i;
    return -1;
}

/// A slot key: canonical decimal text ("0", "17", not "07" or "+1").
bool ParseSlot(std::string const& key, uint64_t& slot) {
    if (key.empty() || key.size() > 19 || (key[0] == '0' && key.size() > 1)) return false;
    slot = 0;
    for (char c : key) {
        if (!std::isdigit(static_cast<unsigned char>(c))) return false;
        slot = slot * 10 + static_cast<uint64_t>(c - '0');
    }
    return true;
}

bool SameKind(InventoryUi::Item const& held, game::Item const& record) {
    return held.moduleId == record.module && held.name == record.name;
}

/// A new view of `record`, through ItemCreatorFunctions when its type has a maker.
std::shared_ptr<InventoryUi::Item> MakeItem(game::Item const& record, unsigned long long value) {
    auto const maker = InventoryUi::ItemCreatorFunctions.find(record.name);
    if (maker != InventoryUi::ItemCreatorFunctions.end() && maker->second)
        if (std::shared_ptr<InventoryUi::Item> made = maker->second(record, value)) return made;
    return std::make_shared<InventoryUi::Item>(record, value);
}

/// `count` units of the kind of `item`, with no id yet: a split the server has not named.
game::Item SplitRecord(InventoryUi::Item const& item, int count) {
    game::Item record;
    record.module = item.moduleId;
    record.name = item.name;
    record.stack = static_cast<uint32_t>(count);
    record.attributes = item.attributes;
    return record;
}

std::string Join(std::vector<std::string> const& parts, bool multiline) {
    std::string text;
    for (std::string const& part : parts) text += (text.empty() ? "" : multiline ? "\n" : ", ") + part;
    return text;
}

/// The mutexes of two windows (one window once), taken in a fixed order: by address.
class PairLock {
public:
    PairLock(InventoryUi* a, InventoryUi* b) {
        if (a == b) b = nullptr;
        if (a != nullptr && b != nullptr && std::less<InventoryUi*>()(b, a)) std::swap(a, b);
        if (a != nullptr) first = std::unique_lock(a->mutex);
        if (b != nullptr) second = std::unique_lock(b->mutex);
    }

private:
    std::unique_lock<std::mutex> first, second;
};

std::string Number(double value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

} // namespace

// ---- registry and frame ----

InventoryUi::~InventoryUi() = default;

void InventoryUi::ForEachOpenInventory(std::function<void(std::shared_ptr<InventoryUi>&)> function) {
    std::lock_guard lock(_inventoriesMutex);
    for (auto const& [id, entry] : _inventories)
        if (std::shared_ptr<InventoryUi> inventory = entry.lock(); inventory && inventory->open) function(inventory);
}

void InventoryUi::UpdateUi() {
    if (!ImGui::GetCurrentContext()) return;
    // Drawn outside the registry lock: a drop looks the windows up again.
    std::vector<std::shared_ptr<InventoryUi>> shown;
    ForEachOpenInventory([&](std::shared_ptr<InventoryUi>& inventory) { shown.push_back(inventory); });
    if (_defaultUiFont) ImGui::PushFont(_defaultUiFont);
    ImGui::PushStyleColor(ImGuiCol_Button, ImVec4(0.22f, 0.22f, 0.25f, 0.9f));
    ImGui::PushStyleColor(ImGuiCol_ButtonHovered, ImVec4(0.32f, 0.32f, 0.36f, 0.9f));
    ImGui::PushStyleColor(ImGuiCol_ButtonActive, ImVec4(0.42f, 0.42f, 0.46f, 0.9f));
    for (std::shared_ptr<InventoryUi> const& inventory : shown) {
        ImGui::PushStyleColor(ImGuiCol_WindowBg, inventory->backgroundColor);
        ImGui::PushStyleColor(ImGuiCol_TitleBg, inventory->backgroundColor);
        ImGui::PushStyleColor(ImGuiCol_TitleBgActive, inventory->backgroundColor);
        inventory->Draw();
        ImGui::PopStyleColor(3);
    }
    ImGui::PopStyleColor(3);
    if (_defaultUiFont) ImGui::PopFont();
}

void InventoryUi::LoadFonts() {
    _defaultUiFont = nullptr;
    std::error_code error;
    if (!std::filesystem::exists(std::filesystem::status(kFontPath, error))) {
        std::cerr << "Font file does not exist: " << kFontPath << std::endl;
        return;
    }
    if (ImGui::GetCurrentContext()) _defaultUiFont = ImGui::GetIO().Fonts->AddFontFromFileTTF(kFontPath, 56.0f);
}

void InventoryUi::Show() {
    std::lock_guard lock(_inventoriesMutex); // `open` is read under it by other threads
    open = true;
}

void InventoryUi::Hide() {
    {
        std::lock_guard lock(_inventoriesMutex);
        open = false;
    }
    std::lock_guard lock(mutex);
    for (std::shared_ptr<Item> const& item : items) {
        if (!item) continue;
        item->screenPos = item->targetPos;
        item->dragging = false;
    }
}

// ---- slots and grid ----

std::shared_ptr<InventoryUi::Item> InventoryUi::GetItem(unsigned long slot) {
    std::lock_guard lock(mutex);
    return slot < items.size() ? items[slot] : nullptr;
}

std::shared_ptr<InventoryUi::Item> InventoryUi::GetSlot(std::string const& slot) {
    if (slot.empty() || !std::isdigit(static_cast<unsigned char>(slot[0]))) return nullptr;
    return GetItem(std::strtoul(slot.c_str(), nullptr, 10)); // out of range reads ULONG_MAX: null
}

unsigned long InventoryUi::Count() {
    std::lock_guard lock(mutex);
    return static_cast<unsigned long>(std::count_if(items.begin(), items.end(), [](auto const& item) { return item; }));
}

bool InventoryUi::HasSpace() {
    unsigned long const count = Count();
    std::lock_guard lock(mutex);
    return count < capacity;
}

void InventoryUi::SetCapacity(unsigned long slots) {
    std::lock_guard lock(mutex);
    capacity = slots;
    items.reserve(slots);
}

unsigned long InventoryUi::GetCols() const {
    float const cols =
        std::floor(((windowSize.x - 2.0f * WindowPadding().x) / Game::GetUiScaling()) / (slotSize.x + slotSpacing));
    return cols >= 1.0f ? static_cast<unsigned long>(cols) : 1; // also for NaN: a row has at least one slot
}

unsigned long InventoryUi::GetRows() const {
    unsigned long const cols = GetCols();
    return static_cast<unsigned long>((capacity + cols - 1) / cols);
}

ImVec2 InventoryUi::GetSlotPos(unsigned long slot) const {
    float const scale = Game::GetUiScaling();
    unsigned long const cols = GetCols();
    float const left = (windowSize.x / scale - static_cast<float>(cols) * (slotSize.x + slotSpacing)) / 2.0f;
    float const top = topMargin + (searchable ? 20.0f : 0.0f) + WindowPadding().y / scale;
    return ImVec2(left + static_cast<float>(slot % cols) * (slotSize.x + slotSpacing),
                  top + static_cast<float>(slot / cols) * (slotSize.y + slotSpacing));
}

long InventoryUi::SlotAt(ImVec2 units) const {
    // Slot rectangles grown by half the spacing tile the grid, so the slot is found by division.
    ImVec2 const first = GetSlotPos(0);
    float const half = slotSpacing / 2.0f;
    float const col = std::floor((units.x - first.x + half) / (slotSize.x + slotSpacing));
    float const row = std::floor((units.y - first.y + half) / (slotSize.y + slotSpacing));
    unsigned long const cols = GetCols();
    if (!(col >= 0.0f && row >= 0.0f && col < static_cast<float>(cols))) return -1;
    double const slot = static_cast<double>(row) * static_cast<double>(cols) + static_cast<double>(col);
    double const slots = static_cast<double>(compact ? items.size() : capacity);
    return slot < slots ? static_cast<long>(slot) : -1;
}

// ---- summaries ----

std::string InventoryUi::GetSummary(bool multiline) {
    std::vector<std::pair<std::string, long long>> units;
    {
        std::lock_guard lock(mutex);
        for (std::shared_ptr<Item> const& item : items) {
            if (!item) continue;
            auto const type =
                std::find_if(units.begin(), units.end(), [&](auto const& u) { return u.first == item->name; });
            if (type == units.end())
                units.emplace_back(item->name, item->stack);
            else
                type->second += item->stack;
        }
    }
    std::vector<std::string> parts;
    for (auto const& [name, count] : units) parts.push_back(name + " " + std::to_string(count));
    return Join(parts, multiline);
}

std::string InventoryUi::GetConsumableStackSummary(bool multiline) {
    std::vector<std::string> parts;
    std::lock_guard lock(mutex);
    for (std::shared_ptr<Item> const& item : items)
        if (item && item->stack > 1) parts.push_back(item->name + " x" + std::to_string(item->stack));
    return Join(parts, multiline);
}

std::string InventoryUi::GetPropertySummary(char const* property, double scale, bool multiline) {
    if (property == nullptr) return "";
    std::vector<std::pair<std::string, double>> sums;
    {
        std::lock_guard lock(mutex);
        for (std::shared_ptr<Item> const& item : items) {
            if (!item) continue;
            auto const attribute = item->attributes.find(property);
            if (attribute == item->attributes.end()) continue;
            double const amount = std::strtod(attribute->second.c_str(), nullptr) * item->stack * scale;
            auto const type =
                std::find_if(sums.begin(), sums.end(), [&](auto const& s) { return s.first == item->name; });
            if (type == sums.end())
                sums.emplace_back(item->name, amount);
            else
                type->second += amount;
        }
    }
    std::vector<std::string> parts;
    for (auto const& [name, sum] : sums) parts.push_back(name + " " + Number(sum));
    return Join(parts, multiline);
}

// ---- the server's view ----

void InventoryUi::UpdateInventory(game::Inventory const& inventory) {
    uint64_t size = 0;
    std::vector<std::pair<uint64_t, game::Item>> records;
    {
        std::lock_guard lock(inventory.mutex);
        size = inventory.size;
        uint64_t slot = 0;
        for (auto const& [key, item] : inventory.items)
            if (ParseSlot(key, slot) && slot < size) records.emplace_back(slot, item);
    }
    std::sort(records.begin(), records.end(), [](auto const& a, auto const& b) { return a.first < b.first; });

    std::lock_guard registry(_inventoriesMutex);
    // Where the other open windows show items, taken before this window's lock: an item
    // that came from one of them glides over from there.
    std::unordered_map<UniqueId, ImVec2> shown;
    for (auto const& [id, entry] : _inventories) {
        std::shared_ptr<InventoryUi> const other = entry.lock();
        if (!other || other.get() == this || !other->open) continue;
        std::lock_guard lock(other->mutex);
        for (std::shared_ptr<Item> const& item : other->items)
            if (item && item->id.IsSet()) shown[item->id] = item->screenPos;
    }
    std::lock_guard lock(mutex);
    capacity = size;
    std::vector<std::shared_ptr<Item>> old = std::move(items);
    items.assign(compact ? records.size() : static_cast<size_t>(size), nullptr); // compact: in order, no gaps
    for (size_t i = 0; i < records.size(); ++i) {
        size_t const at = compact ? i : static_cast<size_t>(records[i].first);
        items[at] = UpdateItemFromInventory(old, at, records[i].second, shown);
    }
}

std::shared_ptr<InventoryUi::Item> InventoryUi::UpdateItemFromInventory(
    std::vector<std::shared_ptr<Item>>& old, size_t at, game::Item const& record,
    std::unordered_map<UniqueId, ImVec2> const& shown) {
    std::shared_ptr<Item> item;
    // The entry held here, if it is this record's (one without an id yet takes the record's);
    // otherwise this window's item of that id wherever it stands, e.g. after a refused move.
    if (at < old.size() && old[at] && SameKind(*old[at], record) && (old[at]->id == record.id || !old[at]->id.IsSet()))
        item = std::move(old[at]);
    else if (record.id.IsSet()) {
        auto const same = std::find_if(old.begin(), old.end(), [&](std::shared_ptr<Item> const& held) {
            return held && held->id == record.id && SameKind(*held, record);
        });
        if (same != old.end()) item = std::move(*same);
    }
    if (item) {
        item->id = record.id;
        item->UpdateItem(Item(record, item->value));
        return item;
    }
    item = MakeItem(record, at);
    item->Assign(weak_from_this());
    if (auto const there = shown.find(record.id); record.id.IsSet() && there != shown.end())
        item->screenPos = there->second;
    return item;
}

// ---- moves ----

int InventoryUi::SplitCount(int stack) {
    return LeftShift() ? stack / 2 : 1;
}

std::string InventoryUi::MoveOrSwapItem(std::shared_ptr<Item>& item, ImVec2 pointer, bool split) {
    NEROX_ASSERT(item);
    std::shared_ptr<Item> const moving = item; // `item` may name an entry that changes below
    std::lock_guard registry(_inventoriesMutex);
    std::shared_ptr<InventoryUi> const source = moving->owner.lock();
    PairLock const locks(this, source.get());
    NEROX_ASSERT(!split || moving->stack > 1);

    std::vector<std::shared_ptr<Item>>* const from = source ? &source->items : nullptr;
    size_t at = 0;
    if (from) {
        auto const entry = std::find(from->begin(), from->end(), moving);
        if (entry == from->end()) return ""; // no longer where it was drawn
        at = static_cast<size_t>(entry - from->begin());
    }
    long slot = SlotAt(pointer / Game::GetUiScaling());
    if (slot < 0) {
        if (!compact) return "";
        // A compact list takes it at its end.
        if (source.get() == this) {
            if (at + 1 == items.size()) return "";
            items.erase(items.begin() + static_cast<long>(at));
            items.push_back(moving);
            return std::to_string(items.size() - 1);
        }
        if (items.size() >= capacity) return "";
        slot = static_cast<long>(items.size());
    }
    size_t const to = static_cast<size_t>(slot);
    if (to >= items.size()) items.resize(to + 1);
    if (items[to] == moving) return "";

    if (split) {
        int const count = SplitCount(moving->stack);
        if (items[to]) {
            if (!moving->StackableOn(items[to])) return "";
            items[to]->stack += count;
        } else {
            items[to] = MakeItem(SplitRecord(*moving, count), to);
            items[to]->screenPos = moving->screenPos;
            items[to]->Assign(weak_from_this());
        }
        moving->stack -= count;
        return std::to_string(to);
    }

    std::shared_ptr<Item> const occupant = items[to];
    if (occupant && !from) return ""; // nowhere to put the other one
    items[to] = moving;
    moving->Assign(weak_from_this());
    if (from) {
        if (occupant) {
            (*from)[at] = occupant;
            occupant->Assign(source);
        } else if (source->compact) {
            from->erase(from->begin() + static_cast<long>(at));
        } else {
            (*from)[at] = nullptr;
        }
    }
    return std::to_string(std::find(items.begin(), items.end(), moving) - items.begin());
}

std::string InventoryUi::MoveItem(std::shared_ptr<Item>& item, bool stack) {
    NEROX_ASSERT(item);
    std::shared_ptr<Item> moving = item;
    std::function<void()> report;
    std::string slot;
    {
        std::lock_guard registry(_inventoriesMutex);
        std::shared_ptr<InventoryUi> const source = moving->owner.lock();
        if (source.get() == this) return "";
        PairLock const locks(this, source.get());
        size_t at = 0;
        if (source) {
            auto const entry = std::find(source->items.begin(), source->items.end(), moving);
            if (entry == source->items.end()) return "";
            at = static_cast<size_t>(entry - source->items.begin());
        }
        UniqueId const from = source ? source->inventoryId : UniqueId();
        UniqueId const itemId = moving->id, to = inventoryId;

        for (size_t i = 0; stack && OnStackItems && i < items.size(); ++i) {
            if (!items[i] || !items[i]->CanStack(moving)) continue;
            UniqueId const onto = items[i]->id;
            report = [=] { OnStackItems(from, itemId, to, onto, true); };
            slot = std::to_string(i);
            break;
        }
        if (!report) {
            size_t free = static_cast<size_t>(std::find(items.begin(), items.end(), nullptr) - items.begin());
            if (free == items.size()) {
                if (items.size() >= capacity) return "";
                items.emplace_back();
            }
            items[free] = moving;
            moving->Assign(weak_from_this());
            moving->dragging = false;
            if (source && source->compact)
                source->items.erase(source->items.begin() + static_cast<long>(at));
            else if (source)
                source->items[at] = nullptr;
            slot = std::to_string(free);
            report = [=, compact = compact] {
                if (OnMoveItem) OnMoveItem(from, itemId, to, slot, compact);
            };
        }
    }
    report();
    return slot;
}

void InventoryUi::Release(std::shared_ptr<Item> item, ImVec2 pointer, bool shift) {
    std::shared_ptr<InventoryUi> target;
    UniqueId itemId, occupantId;
    bool occupied = false, stack = false, split = false;
    int count = 0;
    {
        std::lock_guard registry(_inventoriesMutex);
        int front = -2;
        for (auto const& [id, entry] : _inventories) {
            std::shared_ptr<InventoryUi> candidate = entry.lock();
            if (!candidate || !candidate->open || !Inside(pointer, candidate->windowPos, candidate->windowSize))
                continue;
            if (int const order = DisplayOrder(candidate->title); order > front) front = order, target = candidate;
        }
        PairLock const locks(this, target.get());
        itemId = item->id;
        if (target) {
            split = shift && item->stack > 1; // a single unit moves whole
            count = split ? SplitCount(item->stack) : 0;
            long const slot = target->SlotAt((pointer - target->windowPos) / Game::GetUiScaling());
            std::shared_ptr<Item> occupant;
            if (slot >= 0 && static_cast<size_t>(slot) < target->items.size()) occupant = target->items[slot];
            occupied = occupant && occupant != item;
            occupantId = occupied ? occupant->id : UniqueId();
            stack = occupied && !split && OnStackItems && occupant->CanStack(item);
        }
    }
    if (!target) {
        if (OnDropItem) OnDropItem(inventoryId, itemId);
        return;
    }
    if (stack) {
        OnStackItems(inventoryId, itemId, target->inventoryId, occupantId, false);
        return;
    }
    std::string const slot = target->MoveOrSwapItem(item, pointer - target->windowPos, split);
    if (slot.empty()) return;
    if (split) {
        if (OnSplitItem) OnSplitItem(inventoryId, itemId, target->inventoryId, slot, count);
    } else if (occupied) {
        if (OnSwapItems) OnSwapItems(inventoryId, itemId, target->inventoryId, occupantId);
    } else if (OnMoveItem) {
        OnMoveItem(inventoryId, itemId, target->inventoryId, slot, target->compact);
    }
}

// ---- drawing ----

void InventoryUi::DrawSlot(ImVec2 pos, std::string const& label, float scale) {
    ImDrawList* const draw = ImGui::GetWindowDrawList();
    ImVec2 const end = pos + slotSize * scale;
    draw->AddRectFilled(pos, end, ImGui::GetColorU32(ImVec4(0.0f, 0.0f, 0.0f, 0.35f)), 4.0f * scale);
    draw->AddRect(pos, end, ImGui::GetColorU32(ImGuiCol_Border), 4.0f * scale);
    if (!label.empty())
        draw->AddText(ImGui::GetFont(), ImGui::GetFontSize() * 0.7f, pos + ImVec2(3.0f, 2.0f) * scale,
                      ImGui::GetColorU32(ImGuiCol_TextDisabled), label.c_str());
}

void InventoryUi::Draw() {
    static std::shared_ptr<Item> draggingItem; // the item under the pointer, of whichever window
    static char search[64] = "";               // the search box, shared by the windows
    static std::string search_;                // its text in lower case
    if (!open) return;
    if (draggingItem && !draggingItem->dragging) draggingItem.reset(); // its window was hidden
    float const scale = Game::GetUiScaling();
    ImGuiViewport const* const viewport = ImGui::GetMainViewport();
    ImGui::SetNextWindowPos(ImVec2(viewport->Pos.x + viewport->Size.x * 0.5f + spawnOffset.x,
                                   viewport->Pos.y + viewport->Size.y - DefaultSpawnBottomOffset + spawnOffset.y),
                            ImGuiCond_FirstUseEver, ImVec2(0.5f, 1.0f));
    ImGui::SetNextWindowSize(windowSize);
    bool keepOpen = true;
    bool const shown =
        ImGui::Begin(title.c_str(), &keepOpen,
                     ImGuiWindowFlags_NoResize | ImGuiWindowFlags_NoCollapse | ImGuiWindowFlags_NoScrollbar |
                         ImGuiWindowFlags_NoScrollWithMouse | ImGuiWindowFlags_NoSavedSettings);
    windowPos = ImGui::GetWindowPos();
    if (shown && searchable) {
        ImGui::SetCursorPos(ImVec2(WindowPadding().x, topMargin * scale + WindowPadding().y));
        ImGui::SetWindowFontScale(0.7f);
        ImGui::AlignTextToFramePadding();
        ImGui::TextUnformatted(" Search: ");
        ImGui::SameLine();
        ImGui::SetNextItemWidth(ImGui::GetContentRegionAvail().x * 0.6f);
        ImGui::InputText("##InventorySearch", search, sizeof search);
        ImGui::SameLine();
        if (ImGui::Button(" clear ")) search[0] = '\0';
        ImGui::SetWindowFontScale(1.0f);
        search_ = Lower(search);
    }

    ImVec2 const size = slotSize * scale;
    std::shared_ptr<Item> held, quickTake;
    if (shown) {
        std::lock_guard lock(mutex);
        for (unsigned long i = 0; i < capacity; ++i) DrawSlot(windowPos + GetSlotPos(i) * scale, "", scale);
        for (size_t i = 0; i < items.size(); ++i) {
            std::shared_ptr<Item> const item = items[i];
            if (!item) continue;
            ImVec2 const slot = windowPos + GetSlotPos(i) * scale;
            if (item->dragging) { // drawn on top below; its place stays taken
                item->targetPos = slot;
                ImGui::SetCursorScreenPos(slot);
                ImGui::PushID(static_cast<int>(i));
                if (size.x > 0.0f && size.y > 0.0f) ImGui::InvisibleButton("##hiddenItem", size);
                ImGui::PopID();
                held = item;
                continue;
            }
            bool const dim = !search_.empty() && Lower(item->name).find(search_) == std::string::npos;
            if (dim) ImGui::PushStyleVar(ImGuiStyleVar_Alpha, ImGui::GetStyle().Alpha * 0.3f);
            item->Draw(slot);
            if (dim) ImGui::PopStyleVar();
            if (item->dragging)
                draggingItem = item;
            else if (ImGui::IsMouseClicked(1) && LeftShift() && ImGui::IsWindowHovered() &&
                     ImGui::IsMouseHoveringRect(item->screenPos, item->screenPos + size))
                quickTake = item;
        }
    }
    ImGui::End();

    bool released = false;
    if (held) {
        std::lock_guard lock(mutex);
        ImGui::SetNextWindowPos(held->targetPos + ImGui::GetMouseDragDelta(0));
        ImGui::SetNextWindowSize(size);
        ImGui::PushStyleVar(ImGuiStyleVar_WindowPadding, ImVec2(0.0f, 0.0f));
        ImGui::PushStyleVar(ImGuiStyleVar_WindowBorderSize, 0.0f);
        ImGui::Begin("##dragging_inven_inventory_item_", nullptr,
                     ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_NoInputs | ImGuiWindowFlags_NoBackground |
                         ImGuiWindowFlags_NoSavedSettings | ImGuiWindowFlags_NoFocusOnAppearing |
                         ImGuiWindowFlags_NoNav);
        ImGui::BringWindowToDisplayFront(ImGui::GetCurrentWindow());
        ImGui::PushID((std::string(held->id) + "_inventory_item_").c_str());
        held->Draw(held->targetPos);
        ImGui::PopID();
        ImGui::End();
        ImGui::PopStyleVar(2);
        released = !held->dragging;
    }
    // No lock is held from here on: callbacks may call UpdateInventory at once.
    if (released) {
        draggingItem.reset();
        Release(held, ImGui::GetIO().MousePos, LeftShift());
    }
    if (quickTake && OnTryQuickTakeItem) {
        UniqueId const to = OnTryQuickTakeItem(inventoryId);
        if (to.IsSet() && to != inventoryId)
            if (std::shared_ptr<InventoryUi> target = Get<InventoryUi>(to)) target->MoveItem(quickTake, true);
    }
    if (!keepOpen) Hide();
}

// ---- items ----

InventoryUi::Item::Item(game::Item const& item, unsigned long long value)
    : id(item.id), moduleId(item.module), name(item.name), value(value),
      stack(static_cast<int32_t>(std::min<uint32_t>(item.stack, INT32_MAX))), attributes(item.attributes) { }

InventoryUi::Item::~Item() = default;

void InventoryUi::Item::UpdateItem(Item&& newer) {
    stack = newer.stack;
    attributes = std::move(newer.attributes);
}

bool InventoryUi::Item::StackableOn(std::shared_ptr<Item>& other) const {
    // unordered_map's == holds both directions: same keys, each with the same value.
    return other && moduleId == other->moduleId && name == other->name && attributes == other->attributes;
}

bool InventoryUi::Item::CanStack(std::shared_ptr<Item>& other) const {
    return StackableOn(other);
}

void InventoryUi::Item::Assign(std::weak_ptr<InventoryUi> inventory) {
    owner = std::move(inventory);
}

void InventoryUi::Item::MakeItemDraggable() {
    if (ImGui::IsItemActive() && !LeftShift())
        dragging = ImGui::IsMouseDragging(0);
    else
        dragging = dragging && ImGui::IsMouseDragging(0);
}

void InventoryUi::Item::Draw(ImVec2 pos) {
    float const scale = Game::GetUiScaling();
    std::shared_ptr<InventoryUi> const window = owner.lock();
    ImVec2 const size = (window ? window->slotSize : ImVec2(64.0f, 64.0f)) * scale;
    targetPos = pos;
    if (dragging && ImGui::IsMouseDown(0)) {
        screenPos = pos + ImGui::GetMouseDragDelta(0);
    } else if (screenPos.x == 0.0f && screenPos.y == 0.0f) {
        screenPos = pos; // not placed yet
    } else {
        screenPos += (pos - screenPos) * (1.0f - std::exp(-kEaseRate * ImGui::GetIO().DeltaTime));
        if (std::fabs(pos.x - screenPos.x) < kSnapDistance && std::fabs(pos.y - screenPos.y) < kSnapDistance)
            screenPos = pos;
    }

    ImGui::SetCursorScreenPos(screenPos);
    if (id.IsSet())
        ImGui::PushID(std::string(id).c_str());
    else
        ImGui::PushID(this);
    if (icon) {
        ImGui::PushStyleVar(ImGuiStyleVar_FrameBorderSize, 0.0f);
        ImGui::PushID("##item");
        ImGui::ImageButton(icon, size, ImVec2(0.0f, 0.0f), ImVec2(1.0f, 1.0f), 0);
        ImGui::PopID();
        ImGui::PopStyleVar();
    } else {
        ImGui::Button((name + "##item").c_str(), size);
    }
    MakeItemDraggable();
    if (!dragging && ImGui::IsItemHovered()) ImGui::SetTooltip("%s", name.c_str());
    if (stack > 1) {
        std::string const count = std::to_string(stack);
        float const fontSize = ImGui::GetFontSize() * 0.7f;
        ImVec2 const extent = ImGui::GetFont()->CalcTextSizeA(fontSize, FLT_MAX, 0.0f, count.c_str());
        ImGui::GetWindowDrawList()->AddText(ImGui::GetFont(), fontSize,
                                            screenPos + size - extent - ImVec2(4.0f, 2.0f) * scale,
                                            ImGui::GetColorU32(ImGuiCol_Text), count.c_str());
    }
    ImGui::PopID();
}

} // namespace game::graphics::ui
