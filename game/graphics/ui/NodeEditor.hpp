#pragma once
#include "game/UniqueId.hpp"
#include "game/graphics/ui/Node.hpp"

#include <imgui.h>
#include <nlohmann/json.hpp>

#include <string>
#include <unordered_map>
#include <vector>

namespace game::graphics::ui {

/// A zoomable canvas of nodes joined by links, drawn with Dear ImGui inside the
/// current window. It stores which output feeds which input, refuses cycles, and
/// handles selection, moving, resizing, deleting, copying and pasting; what a
/// graph means is up to a subclass. The editor owns its nodes.
class NodeEditor {
public:
    NodeEditor();
    virtual ~NodeEditor();

    NodeEditor(NodeEditor const&) = delete;
    NodeEditor& operator=(NodeEditor const&) = delete;

    /// Makes a node (a plain Node here) with a new id; null means nothing is made.
    /// The caller appends it to `nodes`.
    virtual Node* CreateNode(std::string const& title, ImVec2 pos, std::vector<UniqueId> inputs);
    /// Deletes a node after cutting every link from it (the nodes it fed are marked
    /// `modified`). Does nothing when readOnly. The caller removes it from `nodes`.
    virtual void DestroyNode(Node* node);
    /// DestroyNode on every node, then empties `nodes`.
    virtual void ClearAllNodes();
    /// Makes a node from what its Serialize wrote; null means nothing is made.
    /// JSON errors pass to the caller.
    virtual Node* DeserializeNode(nlohmann::json const& json);
    /// Draws one frame and handles its input. Call inside an open ImGui window.
    /// Returns whether that window (or a child of it) has the focus.
    virtual bool Render();
    /// Pans by a drag of `delta` pixels with mouse button `button`.
    virtual void Drag(ImVec2 delta, int button);
    /// Zooms by `amount` wheel steps (an eighth each) about `at`, pixels from the window's corner.
    virtual void Zoom(ImVec2 at, float amount);
    /// Whether input `input` of `inputNode` may take the output of `sourceNode`:
    /// both set, the input node agrees, they differ, and no cycle would close.
    virtual bool CanConnectInputToOutput(Node* inputNode, int input, Node* sourceNode);
    /// The canvas's right-click menu; pos is in canvas units.
    virtual void ContextMenu(ImVec2 pos);
    /// The right-click menu of a node's title.
    virtual void ContextMenuNode(Node* node);
    /// The right-click menu of an input pin.
    virtual void ContextMenuInput(Node* node, int input);
    /// The right-click menu of an output pin.
    virtual void ContextMenuOutput(Node* node);

    /// The node of `nodes` with this id, cast to T; null for the null id, an id
    /// not in `nodes`, or a node that is no T.
    template <typename T = Node>
    T* GetNode(UniqueId const& id) const {
        if (!id.IsSet()) return nullptr; // either half zero: not connected
        for (Node* node : nodes)
            if (node != nullptr && node->id == id) return dynamic_cast<T*>(node);
        return nullptr;
    }

    /// Whether `node` is `other` or takes, through its inputs at any depth, the
    /// output of `other`. False when either is null.
    bool NodeDependsOn(Node const* node, Node const* other) const;

    /// Canvas scale: zoom times the UI scaling.
    float Scale() const;

    std::unordered_map<UniqueId, std::vector<ImVec2>> inputPins; ///< Screen position of each input pin, last drawn.
    std::unordered_map<UniqueId, ImVec2> outputPins;             ///< Screen position of each output pin, last drawn.
    bool boxSelecting = false;      ///< A selection rectangle is being drawn.
    ImVec2 boxStart{0.0f, 0.0f};    ///< Its first corner, screen space.
    ImVec2 boxEnd{0.0f, 0.0f};      ///< Its second corner, screen space.
    ImVec2 moveDelta{0.0f, 0.0f};   ///< Movement of the dragged node in this frame, logical units.
    ImVec2 grabOffset{0.0f, 0.0f};  ///< Pointer minus node corner at the start of a drag.
    Node* movingNode = nullptr;     ///< Node whose title is being dragged.
    Node* resizingNode = nullptr;   ///< Node whose corner is being dragged.
    bool mouseBusy = false;         ///< A pin, a title or a corner took the left button this frame.
    bool mouseWasDown = false;      ///< Left button at the end of the last frame.
    bool panning = false;           ///< A right or middle drag is moving the canvas.
    bool copyArmed = true;          ///< The copy chord may fire.
    bool pasteArmed = true;         ///< The paste chord may fire.
    bool readOnly = false;          ///< No structural change is allowed.
    ImVec2 pan{0.0f, 0.0f};         ///< Canvas offset, logical units.
    float zoom = 1.0f;              ///< Canvas scale.
    std::vector<Node*> nodes;       ///< Owned; drawing order and the order of code generation.
    bool changed = false;           ///< Set on every structural change; cleared by the owner.

    static nlohmann::json clipboard;      ///< Nodes copied by any editor, as serialized.
    static NodeEditor* clipboardFrom;     ///< The editor that filled `clipboard`.
};

} // namespace game::graphics::ui
