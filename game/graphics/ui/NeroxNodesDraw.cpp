// Drawing of the program nodes: title band colours, input rows with their default
// fields, each class's widgets, the node menus and the editor's add menu.
#include "game/graphics/ui/NeroxCodeEditor.hpp"

#include <imgui_stdlib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace game::graphics::ui::NeroxCodeEditor {

namespace {

// Title band colours of the node groups, 0xRRGGBBAA.
constexpr uint32_t kInOutColor = 0x2E7D5BFF;
constexpr uint32_t kValueColor = 0x3A5F9EFF;
constexpr uint32_t kLogicColor = 0x7E4A9EFF;
constexpr uint32_t kTimingColor = 0xA0692AFF;
constexpr uint32_t kMathColor = 0x9E3F4FFF;
constexpr uint32_t kTextColor = 0x8F7E22FF;
constexpr uint32_t kControlColor = 0x4F5B69FF;

/// Logical height of one row of widgets below the inputs.
constexpr float kFieldRowHeight = 24.0f;

/// Picks the label of a fixed input from a list.
template <size_t N> char const* FixedLabel(char const* const (&labels)[N], int input) {
    return input >= 0 && static_cast<size_t>(input) < N ? labels[input] : "?";
}

/// The letter that stands for an input in formulas, "a" for input 0.
char const* LetterLabel(int input, char* buffer, size_t size) {
    if (input < 0 || input >= 26) return "?";
    std::snprintf(buffer, size, "%c", 'a' + input);
    return buffer;
}

/// Marks the node modified when the last widget finished an edit.
void Commit(Node& node) {
    if (ImGui::IsItemDeactivatedAfterEdit()) node.modified = true;
}

/// A row "label [text field]" from `x` across `width`.
void TextRow(Node& node, char const* label, char const* id, std::string* value, float x, float width) {
    ImGui::SetCursorPosX(x);
    ImGui::AlignTextToFramePadding();
    ImGui::TextUnformatted(label);
    ImGui::SameLine();
    ImGui::SetNextItemWidth(std::max(10.0f, x + width - ImGui::GetCursorPosX()));
    ImGui::InputText(id, value);
    Commit(node);
}

/// A row "label [integer field]".
void IntRow(Node& node, char const* label, char const* id, int32_t* value, float x, float width) {
    ImGui::SetCursorPosX(x);
    ImGui::AlignTextToFramePadding();
    ImGui::TextUnformatted(label);
    ImGui::SameLine();
    ImGui::SetNextItemWidth(std::max(10.0f, x + width - ImGui::GetCursorPosX()));
    ImGui::InputInt(id, value, 0, 0);
    Commit(node);
}

/// A row "label [number | text]" choosing a type number.
void TypeRow(Node& node, int32_t* type, float x, float width) {
    ImGui::SetCursorPosX(x);
    ImGui::AlignTextToFramePadding();
    ImGui::TextUnformatted("type");
    ImGui::SameLine();
    ImGui::SetNextItemWidth(std::max(10.0f, x + width - ImGui::GetCursorPosX()));
    int current = std::clamp(*type, 0, 1);
    if (ImGui::Combo("##type", &current, "number\0text\0") && current != *type) {
        *type = current;
        node.modified = true;
    }
}

/// A row choosing a port by number or, with the alias box ticked, by name.
void PortRow(Node& node, int32_t* index, std::string* alias, float x, float width) {
    ImGui::SetCursorPosX(x);
    bool byAlias = *index == -1;
    if (ImGui::Checkbox("alias", &byAlias)) {
        *index = byAlias ? -1 : 0;
        node.modified = true;
    }
    if (ImGui::IsItemHovered()) ImGui::SetTooltip("Name the port instead of numbering it");
    ImGui::SameLine();
    ImGui::SetNextItemWidth(std::max(10.0f, x + width - ImGui::GetCursorPosX()));
    if (byAlias) {
        ImGui::InputTextWithHint("##alias", "port name", alias);
        Commit(node);
    } else {
        ImGui::InputInt("##index", index, 0, 0);
        if (*index < 0) *index = 0; // -1 is the alias mark
        Commit(node);
    }
}

} // namespace

// --- NeroxNode ------------------------------------------------------------------------------

uint32_t Editor::NeroxNode::GetColor() const {
    return kControlColor;
}

char const* Editor::NeroxNode::GetInputLabel(int input, char* buffer, size_t size) const {
    std::snprintf(buffer, size, "%d", input);
    return buffer;
}

int Editor::NeroxNode::GetFieldRows() const {
    return 0;
}
void Editor::NeroxNode::DrawFields(float, float, float) { }
bool Editor::NeroxNode::ShowsInputDefault(int) const {
    return true;
}
bool Editor::NeroxNode::ShowsTypeToggle(int) const {
    return false;
}

void Editor::NeroxNode::CommitIfEdited() {
    Commit(*this);
}

float Editor::NeroxNode::GetMinimumWidth() const {
    return inputs.empty() && GetFieldRows() == 0 ? 90.0f : 170.0f;
}

float Editor::NeroxNode::GetMinimumHeight() const {
    int const rows = GetFieldRows();
    float height = Node::GetMinimumHeight();
    if (rows > 0)
        height += inputs.empty() ? kFieldRowHeight * static_cast<float>(rows) - 20.0f
                                 : kFieldRowHeight * static_cast<float>(rows) + 4.0f;
    return height;
}

uint32_t Editor::NeroxNode::GetInputColor(bool hovered, int input) const {
    int32_t const type = InputType(input);
    if (type == 1)
        return hovered && CanConnectInput(input) ? IM_COL32(255, 235, 130, 255) : IM_COL32(220, 190, 60, 255);
    if (type == CODE_TYPE)
        return hovered && CanConnectInput(input) ? IM_COL32(210, 160, 255, 255) : IM_COL32(160, 110, 220, 255);
    return Node::GetInputColor(hovered, input);
}

void Editor::NeroxNode::DrawContent(ImDrawList* drawList, ImVec2 size, float scale) {
    ImVec2 const start = ImGui::GetCursorPos(); // left edge after the pins, just below the title
    ImGuiStyle const& style = ImGui::GetStyle();
    float const s = scale;
    float const fontSize = ImGui::GetFontSize();

    // The title band in the class colour, with the title written again over it.
    ImVec2 const corner = ImGui::GetWindowPos();
    float const inset = selected ? std::max(2.0f, 3.0f * s) : 0.0f;
    ImVec2 const bandMin(corner.x + inset, corner.y + inset);
    ImVec2 const bandMax(corner.x + ImGui::GetWindowWidth() - inset, corner.y + 1.5f * fontSize);
    if (bandMax.x > bandMin.x && bandMax.y > bandMin.y) {
        drawList->AddRectFilled(bandMin, bandMax, TextEditor::ToImGuiColor((GetColor() & 0xFFFFFF00u) | 0xE0u),
                                style.FrameRounding, ImDrawFlags_RoundCornersTop);
        drawList->PushClipRect(bandMin, bandMax, true);
        drawList->AddText(ImVec2(corner.x + style.FramePadding.x, corner.y + 0.25f * fontSize),
                          ImGui::GetColorU32(ImGuiCol_Text), title.data(), title.data() + title.size());
        drawList->PopClipRect();
        if (!comment.empty() && ImGui::IsMouseHoveringRect(bandMin, bandMax) && ImGui::IsWindowHovered())
            ImGui::SetTooltip("%s", comment.c_str());
    }

    if (inputDefaults.size() != inputs.size()) inputDefaults.resize(inputs.size());

    ImGui::PushStyleVar(ImGuiStyleVar_FramePadding, ImVec2(style.FramePadding.x, 1.0f * s));
    float const frameHeight = ImGui::GetFrameHeight();
    float const textHeight = ImGui::GetTextLineHeight();
    float const left = start.x;
    float const right = start.x + size.x;
    char buffer[32];

    // One row per input, centred on its pin.
    for (int i = 0; i < static_cast<int>(inputs.size()); ++i) {
        float const centre = start.y + 2.0f * s + 20.0f * s * static_cast<float>(i) + 8.0f * s;
        ImGui::PushID(i);
        char const* label = GetInputLabel(i, buffer, sizeof(buffer));
        ImGui::SetCursorPos(ImVec2(left + 2.0f * s, centre - 0.5f * textHeight));
        ImGui::TextUnformatted(label);
        if (!inputs[static_cast<size_t>(i)].IsSet() && ShowsInputDefault(i)) {
            bool const toggle = ShowsTypeToggle(i);
            float const toggleWidth =
                toggle ? ImGui::CalcTextSize("#").x + 2.0f * style.FramePadding.x + style.ItemInnerSpacing.x : 0.0f;
            float const x = left + 2.0f * s + ImGui::CalcTextSize(label).x + style.ItemInnerSpacing.x;
            float const width = right - x - toggleWidth;
            if (width > 8.0f * s) {
                ImGui::SetCursorPos(ImVec2(x, centre - 0.5f * frameHeight));
                ImGui::SetNextItemWidth(width);
                int32_t const type = InputType(i);
                char const* hint = type == CODE_TYPE ? "statement" : type == 1 ? "text" : "0";
                ImGui::InputTextWithHint("##default", hint, &inputDefaults[static_cast<size_t>(i)]);
                CommitIfEdited();
                if (toggle) {
                    ImGui::SameLine(0.0f, style.ItemInnerSpacing.x);
                    ImGui::SetCursorPosY(centre - 0.5f * fontSize);
                    if (ImGui::SmallButton(type == 1 ? "T" : "#")) {
                        if (type == 1)
                            inputTypes.erase(i);
                        else
                            inputTypes[i] = 1;
                        modified = true;
                    }
                    if (ImGui::IsItemHovered())
                        ImGui::SetTooltip(type == 1 ? "Default is text; click for a number"
                                                    : "Default is a number; click for text");
                }
            }
        }
        ImGui::PopID();
    }

    // The class's own widgets below the inputs.
    if (GetFieldRows() > 0) {
        float const top =
            start.y + 2.0f * s + 20.0f * s * static_cast<float>(inputs.size()) + (inputs.empty() ? 0.0f : 4.0f * s);
        ImGui::SetCursorPos(ImVec2(left, top));
        ImGui::PushItemWidth(size.x);
        DrawFields(left, size.x, s);
        ImGui::PopItemWidth();
    }
    ImGui::PopStyleVar();
    ImGui::SetCursorPos(start); // leave the layout as it was given
}

void Editor::NeroxNode::ContextMenu() {
    ImGui::TextDisabled("%s", ClassName());
    ImGui::SetNextItemWidth(200.0f * ImGui::GetFontSize() / 13.0f);
    ImGui::InputTextWithHint("##comment", "comment", &comment);
    CommitIfEdited();
}

// --- NeroxNodeWithVariableInputCount --------------------------------------------------------

int Editor::NeroxNodeWithVariableInputCount::GetFieldRows() const {
    return GetOwnFieldRows() + 1;
}
int Editor::NeroxNodeWithVariableInputCount::GetOwnFieldRows() const {
    return 0;
}
void Editor::NeroxNodeWithVariableInputCount::DrawOwnFields(float, float, float) { }

void Editor::NeroxNodeWithVariableInputCount::DrawFields(float x, float width, float scale) {
    DrawOwnFields(x, width, scale);
    // The input count row; "+" is drawn last.
    ImGui::SetCursorPosX(x);
    ImGui::AlignTextToFramePadding();
    ImGui::Text("inputs %d", static_cast<int>(inputs.size()));
    ImGui::SameLine();
    if (ImGui::SmallButton("-")) SetInputCount(inputs.size() > 0 ? inputs.size() - 1 : 0);
    if (ImGui::IsItemHovered()) ImGui::SetTooltip("Remove the last input");
    ImGui::SameLine();
    if (ImGui::SmallButton("+")) SetInputCount(inputs.size() + 1);
    if (ImGui::IsItemHovered()) ImGui::SetTooltip("Add an input");
}

void Editor::NeroxNodeWithVariableInputCount::ContextMenu() {
    if (ImGui::MenuItem("Add Input", nullptr, false, inputs.size() < MaximumInputCount()))
        SetInputCount(inputs.size() + 1);
    if (ImGui::MenuItem("Remove Input", nullptr, false, inputs.size() > MinimumInputCount()))
        SetInputCount(inputs.size() - 1);
    ImGui::Separator();
    NeroxNode::ContextMenu();
}

// --- per class ------------------------------------------------------------------------------

uint32_t Editor::InputNode::GetColor() const {
    return kInOutColor;
}
int Editor::InputNode::GetFieldRows() const {
    return 3;
}
void Editor::InputNode::DrawFields(float x, float width, float) {
    TypeRow(*this, &type, x, width);
    PortRow(*this, &index, &alias, x, width);
    IntRow(*this, "channel", "##channel", &channel, x, width);
}

uint32_t Editor::OutputNode::GetColor() const {
    return kInOutColor;
}
char const* Editor::OutputNode::GetInputLabel(int input, char* buffer, size_t size) const {
    std::snprintf(buffer, size, "ch %d", input);
    return buffer;
}
bool Editor::OutputNode::ShowsTypeToggle(int) const {
    return true;
}
int Editor::OutputNode::GetOwnFieldRows() const {
    return 1;
}
void Editor::OutputNode::DrawOwnFields(float x, float width, float) {
    PortRow(*this, &index, &alias, x, width);
}

uint32_t Editor::ConstNumberNode::GetColor() const {
    return kValueColor;
}
int Editor::ConstNumberNode::GetFieldRows() const {
    return 2;
}
void Editor::ConstNumberNode::DrawFields(float x, float width, float) {
    TextRow(*this, "name", "##name", &name, x, width);
    ImGui::SetCursorPosX(x);
    ImGui::AlignTextToFramePadding();
    ImGui::TextUnformatted("value");
    ImGui::SameLine();
    ImGui::SetNextItemWidth(std::max(10.0f, x + width - ImGui::GetCursorPosX()));
    double edited = value;
    if (ImGui::InputDouble("##value", &edited, 0.0, 0.0, "%g") && std::isfinite(edited)) value = edited;
    CommitIfEdited();
}

uint32_t Editor::ConstTextNode::GetColor() const {
    return kValueColor;
}
int Editor::ConstTextNode::GetFieldRows() const {
    return 2;
}
void Editor::ConstTextNode::DrawFields(float x, float width, float) {
    TextRow(*this, "name", "##name", &name, x, width);
    TextRow(*this, "value", "##value", &value, x, width);
}

uint32_t Editor::VarNumberNode::GetColor() const {
    return kValueColor;
}
char const* Editor::VarNumberNode::GetInputLabel(int input, char*, size_t) const {
    static char const* const labels[] = {"value", "set", "reset"};
    return FixedLabel(labels, input);
}
int Editor::VarNumberNode::GetFieldRows() const {
    return 1;
}
void Editor::VarNumberNode::DrawFields(float x, float width, float) {
    TextRow(*this, "name", "##name", &name, x, width);
}

uint32_t Editor::VarTextNode::GetColor() const {
    return kValueColor;
}
char const* Editor::VarTextNode::GetInputLabel(int input, char*, size_t) const {
    static char const* const labels[] = {"value", "set", "reset"};
    return FixedLabel(labels, input);
}
int Editor::VarTextNode::GetFieldRows() const {
    return 1;
}
void Editor::VarTextNode::DrawFields(float x, float width, float) {
    TextRow(*this, "name", "##name", &name, x, width);
}

uint32_t Editor::DelayNode::GetColor() const {
    return kTimingColor;
}
char const* Editor::DelayNode::GetInputLabel(int input, char*, size_t) const {
    static char const* const labels[] = {"time", "trigger", "reset"};
    return FixedLabel(labels, input);
}

uint32_t Editor::BlinkerNode::GetColor() const {
    return kTimingColor;
}
char const* Editor::BlinkerNode::GetInputLabel(int input, char*, size_t) const {
    static char const* const labels[] = {"period"};
    return FixedLabel(labels, input);
}

uint32_t Editor::CounterNode::GetColor() const {
    return kTimingColor;
}
char const* Editor::CounterNode::GetInputLabel(int input, char*, size_t) const {
    static char const* const labels[] = {"step", "start", "min", "max", "reset"};
    return FixedLabel(labels, input);
}

uint32_t Editor::SmoothNode::GetColor() const {
    return kTimingColor;
}
char const* Editor::SmoothNode::GetInputLabel(int input, char*, size_t) const {
    static char const* const labels[] = {"target", "duration", "trigger"};
    return FixedLabel(labels, input);
}

uint32_t Editor::ExpressionNode::GetColor() const {
    return kMathColor;
}
char const* Editor::ExpressionNode::GetInputLabel(int input, char* buffer, size_t size) const {
    return LetterLabel(input, buffer, size);
}
bool Editor::ExpressionNode::ShowsTypeToggle(int) const {
    return true;
}
int Editor::ExpressionNode::GetOwnFieldRows() const {
    return 1;
}
void Editor::ExpressionNode::DrawOwnFields(float x, float width, float) {
    TextRow(*this, "=", "##text", &text, x, width);
}

uint32_t Editor::StatementNode::GetColor() const {
    return kControlColor;
}
char const* Editor::StatementNode::GetInputLabel(int input, char* buffer, size_t size) const {
    return LetterLabel(input, buffer, size);
}
bool Editor::StatementNode::ShowsTypeToggle(int) const {
    return true;
}
int Editor::StatementNode::GetOwnFieldRows() const {
    return 1;
}
void Editor::StatementNode::DrawOwnFields(float x, float width, float) {
    TextRow(*this, ">", "##text", &text, x, width);
}

uint32_t Editor::ExecuteNode::GetColor() const {
    return kControlColor;
}

uint32_t Editor::ConditionalNode::GetColor() const {
    return kControlColor;
}
char const* Editor::ConditionalNode::GetInputLabel(int input, char*, size_t) const {
    static char const* const labels[] = {"if", "then", "else"};
    return FixedLabel(labels, input);
}

uint32_t Editor::SwitchNode::GetColor() const {
    return kLogicColor;
}
char const* Editor::SwitchNode::GetInputLabel(int input, char* buffer, size_t size) const {
    if (input == 0) return "select";
    std::snprintf(buffer, size, "%d", input - 1);
    return buffer;
}
int Editor::SwitchNode::GetOwnFieldRows() const {
    return 1;
}
void Editor::SwitchNode::DrawOwnFields(float x, float width, float) {
    int32_t chosen = type;
    TypeRow(*this, &chosen, x, width);
    if (chosen != type) SetType(chosen);
}

uint32_t Editor::PulseNode::GetColor() const {
    return kLogicColor;
}
char const* Editor::PulseNode::GetInputLabel(int input, char*, size_t) const {
    static char const* const labels[] = {"rise", "fall"};
    return FixedLabel(labels, input);
}

uint32_t Editor::BasicNumberNode::GetColor() const {
    return kValueColor;
}

uint32_t Editor::PrintNode::GetColor() const {
    return kInOutColor;
}
bool Editor::PrintNode::ShowsTypeToggle(int) const {
    return true;
}

uint32_t Editor::TextNode::GetColor() const {
    return kTextColor;
}
bool Editor::TextNode::ShowsTypeToggle(int) const {
    return true;
}
int Editor::TextNode::GetOwnFieldRows() const {
    return 1;
}
void Editor::TextNode::DrawOwnFields(float x, float width, float) {
    TextRow(*this, "format", "##text", &text, x, width);
}

uint32_t Editor::MathNode::GetColor() const {
    static char const* const logic[] = {"EQUAL", "NOT", "AND", "OR", "XOR", "GREATER", "LESSER"};
    for (char const* name : logic)
        if (title == name) return kLogicColor;
    return kMathColor;
}
char const* Editor::MathNode::GetInputLabel(int input, char* buffer, size_t size) const {
    return LetterLabel(input, buffer, size);
}
int Editor::MathNode::GetFieldRows() const {
    return 1;
}
void Editor::MathNode::DrawFields(float x, float width, float) {
    ImGui::SetCursorPosX(x);
    ImGui::SetNextItemWidth(width);
    if (ImGui::BeginCombo("##operation", title.c_str())) {
        for (char const* operation : MathOperations()) {
            bool const current = title == operation;
            if (ImGui::Selectable(operation, current) && !current) SetOperation(operation);
            if (current) ImGui::SetItemDefaultFocus();
        }
        ImGui::EndCombo();
    }
}

uint32_t Editor::PIDControllerNode::GetColor() const {
    return kMathColor;
}
char const* Editor::PIDControllerNode::GetInputLabel(int input, char*, size_t) const {
    static char const* const labels[] = {"setpoint", "value", "P", "I", "D", "reset", "min", "max"};
    return FixedLabel(labels, input);
}

uint32_t Editor::IncludeNode::GetColor() const {
    return kControlColor;
}
int Editor::IncludeNode::GetFieldRows() const {
    return 1;
}
void Editor::IncludeNode::DrawFields(float x, float width, float) {
    TextRow(*this, "path", "##path", &path, x, width);
}

// --- the add menu ---------------------------------------------------------------------------

void Editor::ContextMenu(ImVec2 pos) {
    if (readOnly) return;
    if (ImGui::IsWindowAppearing()) {
        menuFilter.clear();
        ImGui::SetKeyboardFocusHere();
    }
    ImGui::SetNextItemWidth(12.0f * ImGui::GetFontSize());
    ImGui::InputTextWithHint("##search", "search", &menuFilter);

    char const* chosen = nullptr;
    if (menuFilter.empty()) {
        std::span<CatalogEntry const> const catalog = Catalog();
        for (size_t first = 0; first < catalog.size();) {
            char const* group = catalog[first].group;
            size_t last = first;
            while (last < catalog.size() && std::strcmp(catalog[last].group, group) == 0) ++last;
            if (ImGui::BeginMenu(group)) {
                for (size_t i = first; i < last; ++i)
                    if (ImGui::MenuItem(catalog[i].title)) chosen = catalog[i].title;
                ImGui::EndMenu();
            }
            first = last;
        }
    } else {
        bool any = false;
        for (CatalogEntry const& entry : Catalog()) {
            if (!MatchesFilter(entry.title, menuFilter)) continue;
            any = true;
            if (ImGui::MenuItem(entry.title)) chosen = entry.title;
        }
        if (!any) ImGui::TextDisabled("no match");
    }
    if (chosen == nullptr) return;

    Node* node = CreateNode(chosen, pos, {});
    if (node == nullptr) return;
    node->size.x = std::max(node->size.x, node->GetMinimumWidth());
    node->size.y = std::max(node->size.y, node->GetMinimumHeight());
    node->pos.x -= node->size.x * 0.5f;
    node->pos.y -= node->size.y * 0.5f;
    nodes.push_back(node);
    changed = true;
    menuFilter.clear();
    ImGui::CloseCurrentPopup();
}

} // namespace game::graphics::ui::NeroxCodeEditor
