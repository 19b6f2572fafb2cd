#include "game/graphics/ui/NodeEditor.hpp"

#include "game/Game.hpp"
#include "nerox/graphics/Window.hpp"

#define IMGUI_DEFINE_MATH_OPERATORS
#include <imgui_internal.h>

#include <GLFW/glfw3.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iostream>
#include <string>
#include <unordered_set>

namespace game::graphics::ui {

nlohmann::json NodeEditor::clipboard = nlohmann::json::array();
NodeEditor* NodeEditor::clipboardFrom = nullptr;

NodeEditor::NodeEditor() = default;

NodeEditor::~NodeEditor() {
    for (Node* node : nodes) delete node;
    nodes.clear();
    if (clipboardFrom == this) clipboardFrom = nullptr;
}

float NodeEditor::Scale() const {
    return zoom * Game::GetUiScaling();
}

Node* NodeEditor::CreateNode(std::string const& title, ImVec2 pos, std::vector<UniqueId> inputs) {
    return new Node(title, pos, std::move(inputs));
}

void NodeEditor::DestroyNode(Node* node) {
    if (readOnly || node == nullptr) return;
    for (Node* other : nodes) {
        if (other == nullptr || other == node) continue;
        for (UniqueId& input : other->inputs) {
            if (input == node->id) {
                input = UniqueId();
                other->modified = true;
            }
        }
    }
    if (movingNode == node) movingNode = nullptr;
    if (resizingNode == node) resizingNode = nullptr;
    inputPins.erase(node->id);
    outputPins.erase(node->id);
    delete node;
    changed = true;
}

void NodeEditor::ClearAllNodes() {
    // DestroyNode looks through `nodes`, so each entry leaves the list as soon as
    // its node is gone; the node itself is still listed while it is destroyed.
    while (!nodes.empty()) {
        DestroyNode(nodes.front());
        nodes.erase(nodes.begin());
    }
}

Node* NodeEditor::DeserializeNode(nlohmann::json const& json) {
    return new Node(json);
}

void NodeEditor::Drag(ImVec2 delta, int button) {
    float const s = Scale();
    pan.x += delta.x / s;
    pan.y += delta.y / s;
    if (ImGui::GetCurrentContext() != nullptr) ImGui::ResetMouseDragDelta(button);
}

void NodeEditor::Zoom(ImVec2 at, float amount) {
    float s = Scale();
    pan.x -= at.x / s;
    pan.y -= at.y / s;
    float const z = zoom * (1.0f + amount / 8.0f);
    float const most = 2.0f / Game::GetUiScaling();
    if (z < 0.05f) {
        zoom = std::min(0.05f, most);
    } else {
        zoom = std::min(z, most);
        if (std::fabs(zoom - 1.0f) < 0.1f) zoom = 1.0f;
    }
    s = Scale();
    pan.x += at.x / s;
    pan.y += at.y / s;
}

bool NodeEditor::CanConnectInputToOutput(Node* inputNode, int input, Node* sourceNode) {
    if (inputNode == nullptr || sourceNode == nullptr) return false;
    if (!inputNode->CanConnectInputToOutput(input, sourceNode)) return false;
    if (*inputNode == *sourceNode) return false;
    std::unordered_map<UniqueId, Node*> const index = NodeIndex();
    for (UniqueId const& id : sourceNode->inputs) {
        auto const found = index.find(id);
        if (found != index.end() && NodeDependsOn(found->second, inputNode, index)) return false;
    }
    return true;
}

std::unordered_map<UniqueId, Node*> NodeEditor::NodeIndex() const {
    std::unordered_map<UniqueId, Node*> index;
    index.reserve(nodes.size());
    for (Node* node : nodes)
        if (node != nullptr && node->id.IsSet()) index.try_emplace(node->id, node); // the first of an id, as GetNode
    return index;
}

bool NodeEditor::NodeDependsOn(Node const* node, Node const* other) const {
    if (node == nullptr || other == nullptr) return false;
    return NodeDependsOn(node, other, NodeIndex());
}

bool NodeEditor::NodeDependsOn(Node const* node, Node const* other, std::unordered_map<UniqueId, Node*> const& index) {
    if (node == nullptr || other == nullptr) return false;
    // Walked with a stack and a visited set, so that a graph read from a file
    // that already holds a cycle cannot make this loop forever.
    std::vector<Node const*> stack{node};
    std::unordered_set<Node const*> seen{node};
    while (!stack.empty()) {
        Node const* current = stack.back();
        stack.pop_back();
        if (current == other) return true;
        for (UniqueId const& id : current->inputs) {
            auto const found = index.find(id);
            Node const* source = found == index.end() ? nullptr : found->second;
            if (source != nullptr && seen.insert(source).second) stack.push_back(source);
        }
    }
    return false;
}

void NodeEditor::ContextMenu(ImVec2 pos) {
    if (ImGui::MenuItem("Add Node")) {
        Node* node = CreateNode("New Node", pos, {UniqueId(), UniqueId()});
        if (node != nullptr) {
            node->size.x = std::max(node->size.x, node->GetMinimumWidth());
            node->size.y = std::max(node->size.y, node->GetMinimumHeight());
            node->pos.x -= node->size.x * 0.5f;
            node->pos.y -= node->size.y * 0.5f;
            nodes.push_back(node);
            changed = true;
        }
    }
}

void NodeEditor::ContextMenuNode(Node* node) {
    if (node != nullptr) node->ContextMenu();
}

void NodeEditor::ContextMenuInput(Node* node, int input) {
    if (node == nullptr || input < 0 || static_cast<size_t>(input) >= node->inputs.size()) return;
    if (node->inputs[static_cast<size_t>(input)].IsSet() && ImGui::MenuItem("Disconnect")) {
        node->inputs[static_cast<size_t>(input)] = UniqueId();
        node->modified = true;
    }
    node->ContextMenuInput(input);
}

void NodeEditor::ContextMenuOutput(Node* node) {
    if (node == nullptr) return;
    if (ImGui::MenuItem("Disconnect from all input nodes")) node->disconnectOutput = true;
    node->ContextMenuOutput();
}

namespace {

constexpr int kLeft = 0;
constexpr int kRight = 1;
constexpr int kMiddle = 2;

/// The left Ctrl and left Shift keys, by the GLFW key codes the backend indexes KeysDown with.
bool LeftCtrl() {
    return ImGui::IsKeyDown(GLFW_KEY_LEFT_CONTROL);
}
bool LeftShift() {
    return ImGui::IsKeyDown(GLFW_KEY_LEFT_SHIFT);
}

ImU32 Colour(float r, float g, float b, float a) {
    return ImGui::ColorConvertFloat4ToU32(ImVec4(r, g, b, a));
}

/// Whether `point` lies within half a pin of the pin centred at `centre`.
bool InPin(ImVec2 centre, ImVec2 point, float pin) {
    return std::fabs(point.x - centre.x) <= pin * 0.5f && std::fabs(point.y - centre.y) <= pin * 0.5f;
}

bool StrictlyInside(ImVec2 point, ImVec2 min, ImVec2 max) {
    return point.x > min.x && point.x < max.x && point.y > min.y && point.y < max.y;
}

/// The system clipboard's text; a game without a window has an empty one.
std::string SystemClipboardText() {
    return Game::window != nullptr ? Game::window->GetClipboardText() : std::string();
}

bool IdLess(std::pair<UniqueId, Node*> const& a, std::pair<UniqueId, Node*> const& b) {
    return a.first.first != b.first.first ? a.first.first < b.first.first : a.first.second < b.first.second;
}

} // namespace

bool NodeEditor::Render() {
    static ImVec2 mousePos{0.0f, 0.0f}; // loose end of a link being dragged, screen space
    static ImVec2 hitPos{0.0f, 0.0f};   // where the canvas menu opened, canvas units

    ImGuiIO& io = ImGui::GetIO();
    Canvas canvas;
    canvas.origin = ImGui::GetWindowPos();
    canvas.size = ImGui::GetWindowSize();
    canvas.scale = Scale();
    canvas.pin = 16.0f * canvas.scale;
    float const s = canvas.scale;
    links.clear();

    ImGui::PushStyleVar(ImGuiStyleVar_ChildRounding, 4.0f * s);
    ImGui::PushStyleVar(ImGuiStyleVar_FrameRounding, 4.0f * s);
    ImGui::PushStyleVar(ImGuiStyleVar_Alpha, 1.0f);
    ImGui::PushStyleVar(ImGuiStyleVar_FramePadding, ImVec2(4.0f * s, 4.0f * s));
    ImGui::PushStyleColor(ImGuiCol_ChildBg, ImVec4(0.2f, 0.2f, 0.2f, 1.0f));

    HandleLeftRelease();
    UpdateBoxSelection(canvas);

    mouseBusy = false;
    ImGui::SetWindowFontScale(zoom);
    for (size_t i = 0; i < nodes.size();) {
        Node* node = nodes[i];
        if (node == nullptr) {
            ++i;
            continue;
        }
        if (!node->visible) {
            // Not drawn, so not linked: forget where its pins were.
            node->hovered = false;
            inputPins.erase(node->id);
            outputPins.erase(node->id);
            ++i;
            continue;
        }
        if (DrawNode(node, canvas, mousePos)) {
            DestroyNode(node);
            nodes.erase(nodes.begin() + static_cast<std::ptrdiff_t>(i));
            continue;
        }
        ++i;
    }
    ImGui::SetWindowFontScale(1.0f);

    mouseWasDown = ImGui::IsMouseDown(kLeft);
    if (!mouseBusy && (movingNode != nullptr || resizingNode != nullptr)) {
        changed = true;
        movingNode = nullptr;
        resizingNode = nullptr;
    }

    bool const focused = ImGui::IsWindowFocused(ImGuiFocusedFlags_RootAndChildWindows);
    if (focused) {
        ApplyMoves();
        HandleKeys(canvas);
    } else {
        copyArmed = false;
        pasteArmed = false;
    }

    DrawLinks(canvas, focused);

    ImGui::PopStyleColor();
    ImGui::PopStyleVar(4);
    ImGui::PushStyleVar(ImGuiStyleVar_WindowPadding, ImVec2(8.0f * s, 8.0f * s));
    if (!readOnly && !panning && ImGui::BeginPopupContextWindow()) {
        if (ImGui::IsWindowAppearing()) hitPos = (io.MousePos - canvas.origin) / s - pan;
        ContextMenu(hitPos);
        ImGui::EndPopup();
    }
    ImGui::PopStyleVar();

    panning = ImGui::IsMouseDragging(kRight) || ImGui::IsMouseDragging(kMiddle);
    HandlePanAndZoom(canvas);

    pan.x = std::clamp(pan.x, -4000.0f, 40000.0f);
    pan.y = std::clamp(pan.y, -4000.0f, 40000.0f);

    return ImGui::IsWindowFocused(ImGuiFocusedFlags_RootAndChildWindows);
}

void NodeEditor::HandleLeftRelease() {
    if (boxSelecting || !mouseWasDown || !ImGui::IsMouseReleased(kLeft)) return;
    if (moveDelta.x != 0.0f || moveDelta.y != 0.0f) {
        moveDelta = ImVec2(0.0f, 0.0f);
    } else if (!LeftCtrl() && movingNode == nullptr) {
        // A click that moved nothing clears the selection.
        for (Node* node : nodes)
            if (node != nullptr) node->selected = false;
    }
}

void NodeEditor::UpdateBoxSelection(Canvas const& canvas) {
    if (mouseBusy || !ImGui::IsMouseDragging(kLeft)) {
        boxSelecting = false;
        return;
    }
    ImVec2 const pointer = ImGui::GetIO().MousePos;
    if (!boxSelecting && ImGui::IsWindowHovered()) {
        boxSelecting = true;
        moveDelta = ImVec2(0.0f, 0.0f);
        boxStart = pointer;
    }
    if (!boxSelecting) return;
    boxEnd = pointer;
    ImDrawList* drawList = ImGui::GetWindowDrawList();
    drawList->PushClipRect(canvas.origin, canvas.origin + canvas.size, true);
    drawList->AddRectFilled(ImMin(boxStart, boxEnd), ImMax(boxStart, boxEnd), Colour(0.2f, 0.5f, 0.7f, 0.5f));
    drawList->PopClipRect();
}

bool NodeEditor::DrawNode(Node* node, Canvas const& canvas, ImVec2& mousePos) {
    float const s = canvas.scale;
    float const p = canvas.pin;

    node->size.x = std::min(std::max(node->size.x, node->GetMinimumWidth()), 1000.0f);
    node->size.y = std::min(std::max(node->size.y, node->GetMinimumHeight()), 1000.0f);

    ImGui::SetCursorPos((node->pos + pan) * s);
    std::string const& idText = node->IdText();
    ImGui::PushID(idText.data(), idText.data() + idText.size());
    ImVec2 const extent = node->size * s;
    ImGui::BeginChild("##", extent, false, ImGuiWindowFlags_NoScrollbar | ImGuiWindowFlags_NoScrollWithMouse);
    // Right after Begin the item is the child's (empty) title bar: its top edge.
    ImVec2 const itemMin = ImGui::GetItemRectMin();
    ImVec2 const itemMax = ImGui::GetItemRectMax();
    node->hovered = ImGui::IsWindowHovered();

    ImDrawList* drawList = ImGui::GetWindowDrawList();
    float const titleHeight = 1.5f * ImGui::GetFontSize();
    drawList->ChannelsSplit(2);
    drawList->ChannelsSetCurrent(1);
    ImGui::SetCursorPos(ImVec2(p, titleHeight));
    node->DrawContent(drawList, ImVec2(extent.x - 2.0f * p, extent.y - titleHeight), s);
    drawList->ChannelsSetCurrent(0);

    if (boxSelecting) {
        ImVec2 const min = ImMin(boxStart, boxEnd);
        ImVec2 const max = ImMax(boxStart, boxEnd);
        ImVec2 const probe((itemMin.x + itemMax.x) * 0.5f, (itemMin.y + itemMax.y) * 0.5f + node->size.y * s / 3.0f);
        if (StrictlyInside(probe, min, max))
            node->selected = true;
        else if (!LeftCtrl())
            node->selected = false;
    }

    bool const deleteRequested = DrawTitle(node, canvas);
    if (node->resizable && !readOnly) DrawResizeCorner(node, canvas);
    DrawInputPins(node, canvas, mousePos);
    if (node->hasOutput)
        DrawOutputPin(node, canvas, mousePos);
    else
        outputPins.erase(node->id);

    ImGui::SetCursorPos(ImVec2(0.0f, 0.0f));
    ImGui::Dummy(extent);
    drawList->ChannelsMerge();
    ImGui::EndChild();
    ImGui::PopID();
    return deleteRequested;
}

bool NodeEditor::DrawTitle(Node* node, Canvas const& canvas) {
    float const s = canvas.scale;
    bool const outlined = node->selected;
    if (outlined) {
        ImGui::PushStyleVar(ImGuiStyleVar_FrameBorderSize, std::max(2.0f, 3.0f * s));
        ImGui::PushStyleColor(ImGuiCol_Border, ImVec4(0.2f, 0.8f, 1.0f, 1.0f));
    }
    ImVec4 const plain = ImGui::GetStyleColorVec4(ImGuiCol_Button);
    ImVec4 const lit(plain.x + 0.07f, plain.y + 0.07f, plain.z + 0.07f, plain.w + 0.07f);
    ImGui::PushStyleColor(ImGuiCol_ButtonHovered, lit);
    ImGui::PushStyleColor(ImGuiCol_ButtonActive, lit);
    ImGui::PushStyleVar(ImGuiStyleVar_ButtonTextAlign, ImVec2(0.0f, 0.5f));
    ImGui::SetCursorPos(ImVec2(0.0f, 0.0f));
    ImGui::Button(node->title.c_str(), ImVec2(node->size.x * s, 1.5f * ImGui::GetFontSize()));
    ImGui::PopStyleVar();
    ImGui::PopStyleColor(2);
    if (outlined) {
        ImGui::PopStyleColor();
        ImGui::PopStyleVar();
    }

    bool const active = ImGui::IsItemActive();
    if (active || ImGui::IsItemHovered()) ImGui::SetMouseCursor(ImGuiMouseCursor_ResizeAll);
    if (active && !readOnly) {
        if (ImGui::IsMouseDoubleClicked(kLeft))
            node->OnDoubleClick();
        else if (LeftCtrl() && ImGui::IsMouseClicked(kLeft) && !mouseWasDown && !mouseBusy)
            node->selected = !node->selected;
        if (node->movable) {
            if (ImGui::IsMouseDown(kLeft)) {
                mouseBusy = true;
                // The node is taken when the press starts. A pan or zoom in the
                // middle of a move clears movingNode; the node still follows the
                // pointer with the offset taken at the press.
                if (ImGui::IsItemActivated()) {
                    movingNode = node;
                    grabOffset = ImGui::GetIO().MousePos - canvas.origin - node->pos * s;
                }
            }
            if (ImGui::IsMouseDragging(kLeft)) {
                if (panning)
                    moveDelta = ImVec2(0.0f, 0.0f);
                else
                    MoveNode(node, canvas);
            }
        }
    }

    bool deleteRequested = false;
    if (!readOnly && !panning && ImGui::BeginPopupContextItem()) {
        if (ImGui::MenuItem("Delete Node"))
            deleteRequested = true;
        else
            ContextMenuNode(node);
        ImGui::EndPopup();
    }
    return deleteRequested;
}

void NodeEditor::MoveNode(Node* node, Canvas const& canvas) {
    float const s = canvas.scale;
    ImVec2 const old = node->pos;
    ImVec2 pos = (ImGui::GetIO().MousePos - canvas.origin - grabOffset) / s;
    if (LeftShift()) {
        pos.x = std::round(pos.x / 10.0f) * 10.0f;
        pos.y = std::round(pos.y / 10.0f) * 10.0f;
    }
    // Keep the node's centre inside the window.
    ImVec2 const half = node->size * 0.5f;
    ImVec2 const least = ImVec2(0.0f, 0.0f) - half - pan;
    ImVec2 const most = canvas.size / s - half - pan;
    pos.x = std::min(std::max(pos.x, least.x), most.x);
    pos.y = std::min(std::max(pos.y, least.y), most.y);
    node->pos = pos;
    moveDelta = pos - old;
}

void NodeEditor::DrawResizeCorner(Node* node, Canvas const& canvas) {
    float const s = canvas.scale;
    float const side = 10.0f * s;
    ImVec2 const extent = node->size * s;
    ImGui::SetCursorPos(extent - ImVec2(side, side));
    ImVec2 const min = ImGui::GetCursorScreenPos();
    ImGui::InvisibleButton("resize", ImVec2(side, side));
    bool const active = ImGui::IsItemActive();
    bool const hot = active || ImGui::IsItemHovered();
    if (hot) ImGui::SetMouseCursor(ImGuiMouseCursor_ResizeNWSE);
    if (active && ImGui::IsMouseDown(kLeft)) {
        mouseBusy = true;
        if (resizingNode == nullptr) resizingNode = node;
    }
    if (active && ImGui::IsMouseDragging(kLeft)) {
        // Up to 2000 while dragging; the next frame's clamp brings it back to 1000.
        ImVec2 const size = (ImGui::GetIO().MousePos - canvas.origin) / s - node->pos - pan;
        node->size.x = std::min(std::max(size.x, node->GetMinimumWidth()), 2000.0f);
        node->size.y = std::min(std::max(size.y, node->GetMinimumHeight()), 2000.0f);
    }
    ImVec2 const max = min + ImVec2(side, side);
    ImGui::GetWindowDrawList()->AddTriangleFilled(
        ImVec2(max.x, min.y), max, ImVec2(min.x, max.y),
        ImGui::GetColorU32(hot ? ImGuiCol_ResizeGripHovered : ImGuiCol_ResizeGrip));
}

void NodeEditor::DrawInputPins(Node* node, Canvas const& canvas, ImVec2& mousePos) {
    ImGuiIO& io = ImGui::GetIO();
    float const s = canvas.scale;
    float const p = canvas.pin;
    float const top = 1.5f * ImGui::GetFontSize();
    ImDrawList* drawList = ImGui::GetWindowDrawList();

    std::vector<ImVec2>& positions = inputPins[node->id];
    positions.resize(node->inputs.size());
    // Pins run down from the title; the cursor keeps them apart when the item
    // spacing is wider than their gap.
    ImGui::SetCursorPos(ImVec2(0.0f, top));
    for (size_t k = 0; k < positions.size() && k < node->inputs.size(); ++k) {
        int const i = static_cast<int>(k);
        float const y = std::max(top + 2.0f * s + 20.0f * s * static_cast<float>(k), ImGui::GetCursorPosY());
        ImGui::SetCursorPos(ImVec2(0.0f, y));
        ImVec2 const centre = ImGui::GetCursorScreenPos() + ImVec2(p * 0.5f, p * 0.5f);
        ImGui::PushID(i);
        ImGui::InvisibleButton("input", ImVec2(p, p));
        positions[k] = centre;
        node->DrawInput(drawList, centre, p, s, i);

        if (!readOnly) {
            if (ImGui::IsItemActive() || node->draggingInput == i) {
                if (ImGui::IsMouseDown(kLeft)) mouseBusy = true;
                if (node->CanConnectInput(i) && ImGui::IsMouseDragging(kLeft)) {
                    node->draggingInput = i;
                    mousePos += ImGui::GetMouseDragDelta(kLeft) / s;
                    ImGui::ResetMouseDragDelta(kLeft);
                    links.push_back({mousePos, centre, true});
                } else if (ImGui::IsMouseDoubleClicked(kLeft)) {
                    node->inputs[k] = UniqueId();
                    node->modified = true;
                } else {
                    mousePos = io.MousePos;
                }
            }
            if (node->draggingInput == i && !ImGui::IsMouseDown(kLeft)) {
                node->draggingInput = -1;
                if (ImGui::IsMouseReleased(kLeft) && node->CanConnectInput(i)) ConnectInputAt(node, i, io.MousePos, p);
            }
        }

        if (!readOnly && !panning) {
            ImGui::PushStyleVar(ImGuiStyleVar_WindowPadding, ImVec2(5.0f * s, 5.0f * s));
            if (ImGui::BeginPopupContextItem()) {
                ContextMenuInput(node, i);
                ImGui::EndPopup();
            }
            ImGui::PopStyleVar();
        }
        ImGui::PopID();
    }
}

void NodeEditor::DrawOutputPin(Node* node, Canvas const& canvas, ImVec2& mousePos) {
    ImGuiIO& io = ImGui::GetIO();
    float const s = canvas.scale;
    float const p = canvas.pin;
    ImGui::SetCursorPos(ImVec2(node->size.x * s - p, 1.5f * ImGui::GetFontSize() + 2.0f * s));
    ImVec2 const centre = ImGui::GetCursorScreenPos() + ImVec2(p * 0.5f, p * 0.5f);
    ImGui::InvisibleButton("output", ImVec2(p, p));
    outputPins[node->id] = centre;
    node->DrawOutput(ImGui::GetWindowDrawList(), centre, p, s);

    if (!readOnly) {
        if (ImGui::IsItemActive() || node->draggingOutput) {
            if (ImGui::IsMouseDown(kLeft)) mouseBusy = true;
            if (node->CanConnectOutput() && ImGui::IsMouseDragging(kLeft)) {
                node->draggingOutput = true;
                mousePos += ImGui::GetMouseDragDelta(kLeft) / s;
                ImGui::ResetMouseDragDelta(kLeft);
                links.push_back({centre, mousePos, true});
                // A right click links the output and keeps the drag going.
                if (ImGui::IsMouseClicked(kRight)) ConnectOutputAt(node, io.MousePos, p);
            } else if (ImGui::IsMouseDoubleClicked(kLeft)) {
                DisconnectOutput(node);
            } else {
                mousePos = io.MousePos;
            }
        }
        if (node->draggingOutput && !ImGui::IsMouseDown(kLeft)) {
            node->draggingOutput = false;
            if (ImGui::IsMouseReleased(kLeft) && node->CanConnectOutput()) ConnectOutputAt(node, io.MousePos, p);
        }
        if (node->disconnectOutput) DisconnectOutput(node);
    }

    if (!readOnly && !panning) {
        ImGui::PushStyleVar(ImGuiStyleVar_WindowPadding, ImVec2(5.0f * s, 5.0f * s));
        if (ImGui::BeginPopupContextItem()) {
            ContextMenuOutput(node);
            ImGui::EndPopup();
        }
        ImGui::PopStyleVar();
    }
}

void NodeEditor::ConnectInputAt(Node* node, int input, ImVec2 point, float pin) {
    for (Node* source : nodes) {
        if (source == nullptr || source == node || !source->hasOutput || !source->visible) continue;
        auto const found = outputPins.find(source->id);
        if (found == outputPins.end() || !InPin(found->second, point, pin)) continue;
        if (CanConnectInputToOutput(node, input, source)) {
            node->inputs[static_cast<size_t>(input)] = source->id;
            node->modified = true;
        }
        return;
    }
}

void NodeEditor::ConnectOutputAt(Node* node, ImVec2 point, float pin) {
    for (Node* target : nodes) {
        if (target == nullptr || target == node || !target->visible) continue;
        auto const found = inputPins.find(target->id);
        if (found == inputPins.end()) continue;
        std::vector<ImVec2> const& positions = found->second;
        for (size_t i = 0; i < positions.size() && i < target->inputs.size(); ++i) {
            if (target->inputs[i] == node->id || !InPin(positions[i], point, pin)) continue;
            if (CanConnectInputToOutput(target, static_cast<int>(i), node)) {
                target->inputs[i] = node->id;
                target->modified = true;
            }
            return;
        }
    }
}

void NodeEditor::DisconnectOutput(Node* node) {
    for (Node* other : nodes) {
        if (other == nullptr || other == node) continue;
        for (UniqueId& input : other->inputs) {
            if (input == node->id) {
                input = UniqueId();
                other->modified = true;
            }
        }
    }
    node->disconnectOutput = false;
}

void NodeEditor::ApplyMoves() {
    if (boxSelecting || movingNode == nullptr || (moveDelta.x == 0.0f && moveDelta.y == 0.0f)) return;
    for (Node* node : nodes)
        if (node != nullptr && node != movingNode && node->selected) node->pos += moveDelta;
}

void NodeEditor::HandleKeys(Canvas const& canvas) {
    bool const ctrl = LeftCtrl();
    bool const duplicate = ImGui::IsKeyDown(GLFW_KEY_D);

    // While a text field inside a node is being edited, Ctrl+C, Ctrl+V and Delete
    // are that field's: a chord held there does not fire when the field lets go.
    if (ImGui::GetIO().WantTextInput) {
        if (ctrl && (ImGui::IsKeyDown(GLFW_KEY_C) || duplicate)) copyArmed = false;
        if (ctrl && (ImGui::IsKeyDown(GLFW_KEY_V) || duplicate)) pasteArmed = false;
        return;
    }

    if (ctrl && (ImGui::IsKeyDown(GLFW_KEY_C) || duplicate)) {
        if (copyArmed) {
            copyArmed = false;
            CopySelection();
        }
    } else {
        copyArmed = true;
    }

    if (!readOnly) {
        if (ctrl && (ImGui::IsKeyDown(GLFW_KEY_V) || duplicate)) {
            // Text on the system clipboard means something else was copied since.
            if (pasteArmed && clipboard.is_array() && !clipboard.empty() && SystemClipboardText().empty()) {
                pasteArmed = false;
                PasteClipboard(canvas);
            }
        } else {
            pasteArmed = true;
        }
        if (ImGui::IsKeyDown(GLFW_KEY_DELETE)) DeleteSelection();
    }
}

void NodeEditor::CopySelection() {
    clipboard = nlohmann::json::array();
    clipboardFrom = this;
    for (Node* node : nodes) {
        if (node == nullptr || !node->selected) continue;
        node->selected = false;
        clipboard.push_back(node->Serialize());
    }
    if (!clipboard.empty() && Game::window != nullptr) Game::window->SetClipboardText("");
}

namespace {

/// Whether entry has what pasting reads before the node is rebuilt: a text
/// "id" and a numeric "pos". Anything else put on the shared clipboard is left
/// out, as is an id that does not parse.
bool IsPastable(nlohmann::json const& entry) {
    if (!entry.is_object()) return false;
    auto const id = entry.find("id");
    auto const pos = entry.find("pos");
    if (id == entry.end() || !id->is_string() || pos == entry.end() || !pos->is_object()) return false;
    auto const x = pos->find("x");
    auto const y = pos->find("y");
    return x != pos->end() && x->is_number() && y != pos->end() && y->is_number();
}

} // namespace

void NodeEditor::PasteClipboard(Canvas const& canvas) {
    struct Renamed {
        UniqueId old;
        UniqueId fresh;
        std::string oldText;
        std::string freshText;
    };
    std::vector<Renamed> renamed;
    renamed.reserve(clipboard.size());
    ImVec2 sum(0.0f, 0.0f);
    size_t pastable = 0;
    std::vector<bool> taken(clipboard.size(), false);
    for (size_t i = 0; i < clipboard.size(); ++i) {
        nlohmann::json& entry = clipboard[i];
        if (!IsPastable(entry)) continue;
        Renamed name;
        name.oldText = entry["id"].get<std::string>();
        try {
            name.old = UniqueId(name.oldText);
        } catch (std::exception const&) {
            continue; // not an id of ours
        }
        taken[i] = true;
        name.fresh = UniqueId::Generate("NODE");
        name.freshText = static_cast<std::string>(name.fresh);
        entry["id"] = name.freshText;
        sum.x += entry["pos"]["x"].get<float>();
        sum.y += entry["pos"]["y"].get<float>();
        renamed.push_back(std::move(name));
        ++pastable;
    }
    if (pastable < clipboard.size())
        std::cerr << "NodeEditor: left out " << clipboard.size() - pastable
                  << " clipboard entries without a node's \"id\" and numeric \"pos\"\n";
    if (pastable == 0) return;
    ImVec2 const centre = sum / static_cast<float>(pastable);

    ImGuiIO const& io = ImGui::GetIO();
    // Without a pointer the group lands in the middle of the window.
    ImVec2 const at = ImGui::IsMousePosValid(&io.MousePos) ? io.MousePos - canvas.origin : canvas.size * 0.5f;
    ImVec2 const offset = at / canvas.scale - pan - centre;

    for (size_t i = 0; i < clipboard.size(); ++i) {
        if (!taken[i]) continue;
        nlohmann::json& entry = clipboard[i];
        Node* node = nullptr;
        try {
            node = DeserializeNode(entry);
        } catch (std::exception const& error) {
            std::cerr << "NodeEditor: left out a clipboard entry: " << error.what() << '\n';
        }
        // The entry's links follow the new ids too, so that pasting again keeps them.
        auto const inputs = entry.find("inputs");
        if (inputs != entry.end() && inputs->is_array())
            for (nlohmann::json& input : *inputs)
                for (Renamed const& name : renamed)
                    if (input.is_string() && !name.oldText.empty() &&
                        input.get_ref<std::string const&>() == name.oldText)
                        input = name.freshText;
        if (node == nullptr) continue;
        if (clipboardFrom == this && !node->CanClone()) {
            delete node;
            continue;
        }
        node->pos += offset;
        // Links within the pasted group follow the new ids; links from outside are cut.
        for (UniqueId& input : node->inputs) {
            UniqueId next;
            if (input.IsSet())
                for (Renamed const& name : renamed)
                    if (name.old == input) next = name.fresh;
            input = next;
        }
        node->selected = true;
        nodes.push_back(node);
    }
    changed = true;
}

void NodeEditor::DeleteSelection() {
    for (size_t i = 0; i < nodes.size();) {
        Node* node = nodes[i];
        if (node != nullptr && node->selected) {
            DestroyNode(node);
            nodes.erase(nodes.begin() + static_cast<std::ptrdiff_t>(i));
        } else {
            ++i;
        }
    }
}

Node* NodeEditor::IndexedNode(UniqueId const& id) const {
    auto const found =
        std::lower_bound(nodeIndex.begin(), nodeIndex.end(), std::pair<UniqueId, Node*>(id, nullptr), IdLess);
    return found != nodeIndex.end() && found->first == id ? found->second : nullptr;
}

void NodeEditor::DrawLinks(Canvas const& canvas, bool focused) {
    nodeIndex.clear();
    for (Node* node : nodes)
        if (node != nullptr) nodeIndex.emplace_back(node->id, node);
    std::sort(nodeIndex.begin(), nodeIndex.end(), IdLess);

    for (Node* node : nodes) {
        if (node == nullptr || !node->visible) continue;
        auto const pins = inputPins.find(node->id);
        if (pins == inputPins.end()) continue;
        for (size_t i = 0; i < node->inputs.size() && i < pins->second.size(); ++i) {
            UniqueId const& sourceId = node->inputs[i];
            if (!sourceId.IsSet()) continue;
            auto const output = outputPins.find(sourceId);
            if (output == outputPins.end()) continue;
            Node const* source = IndexedNode(sourceId);
            if (source == nullptr || !source->visible) continue;
            links.push_back({output->second, pins->second[i], node->hovered || source->hovered});
        }
    }

    float const s = canvas.scale;
    float const p = canvas.pin;
    ImDrawList* windowList = ImGui::GetWindowDrawList();
    ImDrawList* foregroundList = ImGui::GetForegroundDrawList();
    ImU32 const normal = Colour(0.8f, 0.8f, 0.8f, 1.0f);
    ImU32 const white = Colour(1.0f, 1.0f, 1.0f, 1.0f);
    ImVec2 const windowMax = canvas.origin + canvas.size;
    for (Link const& link : links) {
        ImVec2 const reach(4.0f * p, 0.0f);
        windowList->AddBezierCubic(link.output, link.output + reach, link.input - reach, link.input,
                                   link.highlighted ? white : normal, link.highlighted ? 3.0f : 2.0f * s);
        for (ImVec2 const end : {link.output, link.input}) {
            bool const onTop = focused && StrictlyInside(end, canvas.origin, windowMax);
            (onTop ? foregroundList : windowList)->AddCircleFilled(end, 0.2f * p, white);
        }
    }
}

void NodeEditor::HandlePanAndZoom(Canvas const& canvas) {
    if (!ImGui::IsWindowHovered(ImGuiHoveredFlags_ChildWindows | ImGuiHoveredFlags_NoPopupHierarchy) && !mouseBusy)
        return;
    if (panning) {
        int const button = ImGui::IsMouseDragging(kRight) ? kRight : kMiddle;
        Drag(ImGui::GetMouseDragDelta(button), button);
        movingNode = nullptr;
        resizingNode = nullptr;
    }
    float const wheel = ImGui::GetIO().MouseWheel;
    if (wheel != 0.0f) {
        Zoom(ImGui::GetIO().MousePos - canvas.origin, wheel > 0.0f ? 1.0f : -1.0f);
        movingNode = nullptr;
        resizingNode = nullptr;
    }
}

} // namespace game::graphics::ui
