#pragma once
#include "game/UniqueId.hpp"
#include "game/graphics/ui/Node.hpp"

#include <imgui.h>
#include <nlohmann/json.hpp>

#include <string>
#include <unordered_map>
#include <utility>
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
    template <typename T = Node> T* GetNode(UniqueId const& id) const {
        if (!id.IsSet()) return nullptr; // either half zero: not connected
        for (Node* node : nodes)
            if (node != nullptr && node->id == id) return dynamic_cast<T*>(node);
        return nullptr;
    }

    /// Whether `node` is `other` or takes, through its inputs at any depth, the
    /// output of `other`. False when either is null. Linear in the graph's size.
    bool NodeDependsOn(Node const* node, Node const* other) const;
    /// Whether `node` depends on `other`, looking nodes up in `index` (see NodeIndex).
    static bool NodeDependsOn(Node const* node, Node const* other, std::unordered_map<UniqueId, Node*> const& index);
    /// The nodes of `nodes` by id, for walks that look up many of them.
    std::unordered_map<UniqueId, Node*> NodeIndex() const;

    /// Canvas scale: zoom times the UI scaling.
    float Scale() const;

    std::unordered_map<UniqueId, std::vector<ImVec2>> inputPins; ///< Screen position of each input pin, last drawn.
    std::unordered_map<UniqueId, ImVec2> outputPins;             ///< Screen position of each output pin, last drawn.
    bool boxSelecting = false;                                   ///< A selection rectangle is being drawn.
    ImVec2 boxStart{0.0f, 0.0f};                                 ///< Its first corner, screen space.
    ImVec2 boxEnd{0.0f, 0.0f};                                   ///< Its second corner, screen space.
    ImVec2 moveDelta{0.0f, 0.0f};  ///< Movement of the dragged node in this frame, logical units.
    ImVec2 grabOffset{0.0f, 0.0f}; ///< Pointer minus node corner at the start of a drag.
    Node* movingNode = nullptr;    ///< Node whose title is being dragged.
    Node* resizingNode = nullptr;  ///< Node whose corner is being dragged.
    bool mouseBusy = false;        ///< A pin, a title or a corner took the left button this frame.
    bool mouseWasDown = false;     ///< Left button at the end of the last frame.
    bool panning = false;          ///< A right or middle drag is moving the canvas.
    bool copyArmed = true;         ///< The copy chord may fire.
    bool pasteArmed = true;        ///< The paste chord may fire.
    bool readOnly = false;         ///< No structural change is allowed.
    ImVec2 pan{0.0f, 0.0f};        ///< Canvas offset, logical units.
    float zoom = 1.0f;             ///< Canvas scale.
    std::vector<Node*> nodes;      ///< Owned; drawing order and the order of code generation.
    bool changed = false;          ///< Set on every structural change; cleared by the owner.

    static nlohmann::json clipboard;  ///< Nodes copied by any editor, as serialized.
    static NodeEditor* clipboardFrom; ///< The editor that filled `clipboard`.

private:
    /// The window being drawn into, as Render found it at the start of the frame.
    struct Canvas {
        ImVec2 origin;      ///< Screen position of the window's corner.
        ImVec2 size;        ///< Window size in pixels.
        float scale = 1.0f; ///< Pixels per logical unit: zoom times the UI scaling.
        float pin = 16.0f;  ///< Side of a pin square in pixels.
    };

    /// A curve from an output pin to an input pin, screen space.
    struct Link {
        ImVec2 output;
        ImVec2 input;
        bool highlighted = false;
    };

    /// Ends a click or a move when the left button is let go.
    void HandleLeftRelease();
    /// Starts, follows and ends the selection rectangle, and draws it.
    void UpdateBoxSelection(Canvas const& canvas);
    /// Draws one node with its title, corner and pins and handles their input.
    /// Returns whether "Delete Node" was chosen; the caller then destroys it.
    bool DrawNode(Node* node, Canvas const& canvas, ImVec2& mousePos);
    /// The title button: selection toggle, double click, moving, and its menu.
    /// Returns whether "Delete Node" was chosen.
    bool DrawTitle(Node* node, Canvas const& canvas);
    /// Moves `node` to follow the pointer and records the step in `moveDelta`.
    void MoveNode(Node* node, Canvas const& canvas);
    /// The resize grip in the bottom right corner.
    void DrawResizeCorner(Node* node, Canvas const& canvas);
    /// The input pins, with linking by drag and their menus.
    void DrawInputPins(Node* node, Canvas const& canvas, ImVec2& mousePos);
    /// The output pin, with linking by drag, disconnecting and its menu.
    void DrawOutputPin(Node* node, Canvas const& canvas, ImVec2& mousePos);
    /// Links input `input` of `node` to the output whose pin holds `point`, if allowed.
    void ConnectInputAt(Node* node, int input, ImVec2 point, float pin);
    /// Links the output of `node` to the first other input whose pin holds `point`, if allowed.
    void ConnectOutputAt(Node* node, ImVec2 point, float pin);
    /// Cuts every link from the output of `node` and clears its request flag.
    void DisconnectOutput(Node* node);
    /// Moves the other selected nodes along with the dragged one.
    void ApplyMoves();
    /// Copy, paste and delete chords.
    void HandleKeys(Canvas const& canvas);
    /// Replaces the clipboard with the selected nodes.
    void CopySelection();
    /// Adds the clipboard's nodes under new ids, centred on the pointer.
    void PasteClipboard(Canvas const& canvas);
    /// Destroys every selected node.
    void DeleteSelection();
    /// Collects the links between drawn pins and draws them with the dragged ones.
    void DrawLinks(Canvas const& canvas, bool focused);
    /// Pans with a right or middle drag and zooms with the wheel.
    void HandlePanAndZoom(Canvas const& canvas);
    /// The node of `nodes` with this id, through `nodeIndex` (built by DrawLinks).
    Node* IndexedNode(UniqueId const& id) const;

    std::vector<Link> links;                           ///< This frame's links; reused.
    std::vector<std::pair<UniqueId, Node*>> nodeIndex; ///< `nodes` sorted by id for link lookups; reused.
};

} // namespace game::graphics::ui
