#pragma once
#include "game/UniqueId.hpp"

#include <imgui.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace game::graphics::ui {

/// One box of a node graph: a title, any number of inputs and at most one output.
/// A link is stored on the input side only: `inputs[i]` holds the id of the node
/// whose output feeds input i, or the null id. Positions and sizes are logical
/// units, independent of the editor's zoom and of the UI scaling.
class Node {
public:
    /// A node with a new id (tag "NODE"), size 0 (brought up to the minimum when drawn).
    Node(std::string title, ImVec2 pos, std::vector<UniqueId> inputs);
    /// Reads what Serialize wrote. Every key is required: a missing one or a wrong
    /// type lets the JSON library's exception through.
    explicit Node(nlohmann::json const& json);
    virtual ~Node();

    Node(Node const&) = delete;
    Node& operator=(Node const&) = delete;

    /// {"id", "title", "pos": {"x","y"}, "size": {"x","y"}, "inputs": [ids as text]}; subclasses add keys.
    virtual nlohmann::json Serialize();
    /// Whether pasting a copy into the editor it came from is allowed.
    virtual bool CanClone() const;
    /// Least width in logical units.
    virtual float GetMinimumWidth() const;
    /// Least height in logical units: 55 when resizable else 45, plus 20 per input after the first.
    virtual float GetMinimumHeight() const;
    /// Draws the body below the title; size is the body's extent in pixels, scale the editor's scale.
    virtual void DrawContent(ImDrawList* drawList, ImVec2 size, float scale);
    /// Adds items to the node's right-click menu.
    virtual void ContextMenu();
    /// Draws input pin `input` centred at `center` (screen), side `pinSize`: a ring.
    virtual void DrawInput(ImDrawList* drawList, ImVec2 center, float pinSize, float scale, int input);
    /// Draws the output pin centred at `center` (screen), side `pinSize`: filled.
    virtual void DrawOutput(ImDrawList* drawList, ImVec2 center, float pinSize, float scale);
    /// Adds items to the right-click menu of input pin `input`.
    virtual void ContextMenuInput(int input);
    /// Adds items to the right-click menu of the output pin.
    virtual void ContextMenuOutput();
    /// Colour of input pin `input` (ImGui packed colour).
    virtual uint32_t GetInputColor(bool hovered, int input) const;
    /// Colour of the output pin (ImGui packed colour).
    virtual uint32_t GetOutputColor(bool hovered) const;
    /// Whether input `input` may take the output of `source`.
    virtual bool CanConnectInputToOutput(int input, Node const* source) const;
    /// Whether input `input` may be linked at all.
    virtual bool CanConnectInput(int input) const;
    /// Whether the output may be linked at all.
    virtual bool CanConnectOutput() const;
    /// Nodes are equal when their ids are.
    virtual bool operator==(Node const& other) const;
    /// Called on a double click on the title.
    virtual void OnDoubleClick();

    UniqueId id;                   ///< Identity, tag "NODE".
    std::string title;             ///< Shown on the title bar; saved.
    ImVec2 pos;                    ///< Top left corner, logical units.
    ImVec2 size{0.0f, 0.0f};       ///< Extent, logical units; brought up to the minimum on the first draw.
    std::vector<UniqueId> inputs;  ///< Source of each input; the null id when not connected.
    bool resizable = true;         ///< Shows the resize corner; adds 10 to the least height.
    bool movable = true;           ///< May be dragged by its title.
    bool hasOutput = true;         ///< Shows the output pin.
    bool reserved = false;         ///< Kept for subclasses; the editor does not read it.
    bool visible = true;           ///< A hidden node is neither drawn nor linked.
    bool modified = false;         ///< Set when an input changes; cleared by the owner.
    bool selected = false;         ///< Part of the selection.
    bool hovered = false;          ///< Under the pointer in the last frame.
    int32_t draggingInput = -1;    ///< Input whose pin is being dragged, else -1.
    bool draggingOutput = false;   ///< The output pin is being dragged.
    bool disconnectOutput = false; ///< Request to cut every link from the output when it is next drawn.

private:
    friend class NodeEditor;

    /// `id` in text form, formatted again only when `id` has changed, so that
    /// drawing a node each frame does not build the text anew.
    std::string const& IdText();

    UniqueId idTextOf;  ///< The id that `idText` was made from.
    std::string idText; ///< Text form of `idTextOf`.
};

} // namespace game::graphics::ui
