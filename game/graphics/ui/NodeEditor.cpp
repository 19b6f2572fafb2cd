#include "game/graphics/ui/NodeEditor.hpp"

#include "game/Game.hpp"

#include <algorithm>
#include <cmath>
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

float NodeEditor::Scale() const { return zoom * Game::GetUiScaling(); }

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
    for (Node* node : nodes) DestroyNode(node);
    nodes.clear();
}

Node* NodeEditor::DeserializeNode(nlohmann::json const& json) { return new Node(json); }

bool NodeEditor::Render() {
    // Drawing and input handling come with the canvas.
    return false;
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
    for (UniqueId const& id : sourceNode->inputs) {
        Node const* feeding = GetNode(id);
        if (feeding == nullptr) continue;
        if (NodeDependsOn(feeding, inputNode)) return false;
    }
    return true;
}

bool NodeEditor::NodeDependsOn(Node const* node, Node const* other) const {
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
            Node const* source = GetNode(id);
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

} // namespace game::graphics::ui
