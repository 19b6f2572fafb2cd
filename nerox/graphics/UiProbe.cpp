#include "nerox/graphics/UiProbe.hpp"

#include <imgui_internal.h>

#include <cstdarg>

namespace nerox::graphics {

bool UiProbe::Item::Checked() const {
    return (statusFlags & ImGuiItemStatusFlags_Checked) != 0;
}

UiProbe::UiProbe(ImGuiContext* context) : _context(context != nullptr ? context : ImGui::GetCurrentContext()) {
    if (_context == nullptr) return;
    _context->TestEngine = this;
    _context->TestEngineHookItems = true;
}

UiProbe::~UiProbe() {
    if (_context == nullptr || _context->TestEngine != this) return;
    _context->TestEngine = nullptr;
    _context->TestEngineHookItems = false;
}

void UiProbe::Add(ImGuiContext* context, ImVec2 min, ImVec2 max, ImGuiID id) {
    if (context->FrameCount != _frame) {
        _items.clear();
        _frame = context->FrameCount;
    }
    ImGuiWindow const* window = context->CurrentWindow;
    Item item;
    item.id = id;
    item.seed = window != nullptr && !window->IDStack.empty() ? window->IDStack.back() : 0;
    item.min = min;
    item.max = max;
    if (window != nullptr && window->Name != nullptr) item.window = window->Name;
    if (window != nullptr) item.visible = window->ClipRect.Overlaps(ImRect(min, max));
    _items.push_back(std::move(item));
}

void UiProbe::Info(ImGuiID id, char const* label, int flags) {
    // The widget reports right after adding itself: the newest item of that id.
    for (auto it = _items.rbegin(); it != _items.rend(); ++it) {
        if (it->id != id) continue;
        if (label != nullptr) it->label = label;
        it->statusFlags = flags;
        return;
    }
}

UiProbe::Item const* UiProbe::Find(std::string_view label, std::string_view window) const {
    Item const* hidden = nullptr;
    for (auto it = _items.rbegin(); it != _items.rend(); ++it) {
        if (!window.empty() && !std::string_view(it->window).starts_with(window)) continue;
        if (it->label != label && ImHashStr(label.data(), label.size(), it->seed) != it->id) continue;
        if (it->visible) return &*it;
        if (hidden == nullptr) hidden = &*it;
    }
    return hidden;
}

} // namespace nerox::graphics

// ---------------------------------------------------------------- Dear ImGui's item hooks

void ImGuiTestEngineHook_ItemAdd(ImGuiContext* context, ImRect const& bb, ImGuiID id) {
    if (auto* probe = static_cast<nerox::graphics::UiProbe*>(context->TestEngine))
        probe->Add(context, bb.Min, bb.Max, id);
}

void ImGuiTestEngineHook_ItemInfo(ImGuiContext* context, ImGuiID id, char const* label, ImGuiItemStatusFlags flags) {
    if (auto* probe = static_cast<nerox::graphics::UiProbe*>(context->TestEngine)) probe->Info(id, label, flags);
}

void ImGuiTestEngineHook_Log(ImGuiContext*, char const*, ...) { }

char const* ImGuiTestEngine_FindItemDebugLabel(ImGuiContext* context, ImGuiID id) {
    auto const* probe = static_cast<nerox::graphics::UiProbe const*>(context->TestEngine);
    if (probe == nullptr) return nullptr;
    for (auto const& item : probe->Items())
        if (item.id == id && !item.label.empty()) return item.label.c_str();
    return nullptr;
}
