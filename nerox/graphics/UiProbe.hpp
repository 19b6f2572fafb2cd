#pragma once
// Finding Dear ImGui's controls without a screen. The library is built with its
// item hooks compiled in; while a UiProbe is attached to a context, every item
// laid out in a frame is recorded with its rectangle, so that a program without
// a display (tests, input scripts) can find a control by its label and press it
// through ImGuiIO. With no probe attached the hooks cost one flag test per item.
#include <imgui.h>

#include <string>
#include <string_view>
#include <vector>

struct ImGuiContext;

namespace nerox::graphics {

/// Records the items of the frames of one Dear ImGui context. At most one probe
/// is attached to a context at a time; attaching another replaces it.
class UiProbe {
public:
    /// One item of the last frame.
    struct Item {
        ImGuiID id = 0;      ///< Its identifier.
        ImGuiID seed = 0;    ///< Top of its window's identifier stack when it was added.
        ImVec2 min, max;     ///< Its rectangle, screen pixels.
        std::string window;  ///< Name of the window it lies in.
        std::string label;   ///< Its label, for the widgets that report one; empty otherwise.
        int statusFlags = 0; ///< ImGuiItemStatusFlags_ the widget reported.
        bool visible = true; ///< Whether it lies at least partly inside its window's clipping rectangle.

        /// The centre of the rectangle.
        ImVec2 Centre() const { return ImVec2((min.x + max.x) * 0.5f, (min.y + max.y) * 0.5f); }
        /// Whether a checkbox or selectable reported itself checked.
        bool Checked() const;
    };

    /// Attaches to context (the current one when null). Detach (destroy the
    /// probe) before the context is destroyed.
    explicit UiProbe(ImGuiContext* context = nullptr);
    /// Detaches if still attached.
    ~UiProbe();
    UiProbe(UiProbe const&) = delete;
    UiProbe& operator=(UiProbe const&) = delete;

    /// The items of the latest frame: the one being built, or the last one once it ended.
    std::vector<Item> const& Items() const { return _items; }
    /// The last item of the latest frame whose label is label, or whose
    /// identifier label yields in its window (so that unlabelled widgets such as
    /// combos are found too); with window given, only items of windows whose
    /// name starts with it. A visible item comes before one scrolled or clipped
    /// away. Null when there is none.
    Item const* Find(std::string_view label, std::string_view window = {}) const;

    // Called by the hooks.
    void Add(ImGuiContext* context, ImVec2 min, ImVec2 max, ImGuiID id);
    void Info(ImGuiID id, char const* label, int flags);

private:
    ImGuiContext* _context = nullptr;
    std::vector<Item> _items; // the latest frame's
    int _frame = -1;          // its frame count
};

} // namespace nerox::graphics
