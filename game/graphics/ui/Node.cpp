#include "game/graphics/ui/Node.hpp"

#include <algorithm>
#include <utility>

namespace game::graphics::ui {

Node::Node(std::string title, ImVec2 pos, std::vector<UniqueId> inputs)
    : id(UniqueId::Generate("NODE")), title(std::move(title)), pos(pos), inputs(std::move(inputs)) { }

namespace {

/// A number of a "pos" or "size" object. The library would read true as 1:
/// anything but a number is refused as a wrong type.
float Coordinate(nlohmann::json const& object, char const* key) {
    nlohmann::json const& value = object.at(key);
    if (!value.is_number())
        throw nlohmann::json::type_error::create(302, std::string("\"") + key + "\" must be a number", &value);
    return value.get<float>();
}

} // namespace

Node::Node(nlohmann::json const& json)
    : id(json.at("id").get<std::string>()), title(json.at("title").get<std::string>()),
      pos(Coordinate(json.at("pos"), "x"), Coordinate(json.at("pos"), "y")),
      size(Coordinate(json.at("size"), "x"), Coordinate(json.at("size"), "y")) {
    nlohmann::json const& list = json.at("inputs");
    if (!list.is_array()) throw nlohmann::json::type_error::create(302, "\"inputs\" must be an array", &list);
    inputs.reserve(list.size());
    for (nlohmann::json const& input : list) inputs.emplace_back(input.get<std::string>());
}

Node::~Node() = default;

nlohmann::json Node::Serialize() {
    nlohmann::json json;
    json["id"] = static_cast<std::string>(id);
    json["title"] = title;
    json["pos"] = {{"x", pos.x}, {"y", pos.y}};
    json["size"] = {{"x", size.x}, {"y", size.y}};
    nlohmann::json list = nlohmann::json::array();
    for (UniqueId const& input : inputs) list.push_back(static_cast<std::string>(input));
    json["inputs"] = std::move(list);
    return json;
}

bool Node::CanClone() const {
    return true;
}

float Node::GetMinimumWidth() const {
    return 35.0f;
}

float Node::GetMinimumHeight() const {
    float const base = resizable ? 55.0f : 45.0f;
    size_t const extra = inputs.empty() ? 0 : inputs.size() - 1;
    return base + 20.0f * static_cast<float>(extra);
}

void Node::DrawContent(ImDrawList*, ImVec2, float) { }

void Node::ContextMenu() { }

void Node::DrawInput(ImDrawList* drawList, ImVec2 center, float pinSize, float scale, int input) {
    bool const hot = ImGui::IsItemHovered() || ImGui::IsItemActive();
    drawList->AddCircle(center, pinSize * 0.5f - 1.5f * scale, GetInputColor(hot, input), 0, 3.0f * scale);
}

void Node::DrawOutput(ImDrawList* drawList, ImVec2 center, float pinSize, float) {
    bool const hot = ImGui::IsItemHovered() || ImGui::IsItemActive();
    drawList->AddCircleFilled(center, pinSize * 0.5f, GetOutputColor(hot));
}

void Node::ContextMenuInput(int) { }

void Node::ContextMenuOutput() { }

uint32_t Node::GetInputColor(bool hovered, int input) const {
    if (hovered && CanConnectInput(input)) return ImGui::ColorConvertFloat4ToU32(ImVec4(0.5f, 1.0f, 0.6f, 1.0f));
    return ImGui::ColorConvertFloat4ToU32(ImVec4(0.2f, 0.8f, 0.4f, 1.0f));
}

uint32_t Node::GetOutputColor(bool hovered) const {
    if (hovered && CanConnectOutput()) return ImGui::ColorConvertFloat4ToU32(ImVec4(1.0f, 0.5f, 0.6f, 1.0f));
    return ImGui::ColorConvertFloat4ToU32(ImVec4(0.8f, 0.2f, 0.4f, 1.0f));
}

bool Node::CanConnectInputToOutput(int, Node const*) const {
    return true;
}

bool Node::CanConnectInput(int) const {
    return true;
}

bool Node::CanConnectOutput() const {
    return true;
}

bool Node::operator==(Node const& other) const {
    return id == other.id;
}

void Node::OnDoubleClick() { }

std::string const& Node::IdText() {
    if (idTextOf != id) {
        idText = static_cast<std::string>(id);
        idTextOf = id;
    }
    return idText;
}

} // namespace game::graphics::ui
