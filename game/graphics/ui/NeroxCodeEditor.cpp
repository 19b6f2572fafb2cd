// The program editor itself: the code pane's palette, loading a program or graph,
// undo and redo, the frame with canvas and code side by side, and Compile.
#include "game/graphics/ui/NeroxCodeEditor.hpp"

#include "game/Game.hpp"

#include <GLFW/glfw3.h>

#include <algorithm>
#include <cmath>
#include <string_view>
#include <unordered_set>

namespace game::graphics::ui::NeroxCodeEditor {

using json = nlohmann::json;

TextEditor::Palette const* GetNeroxPalette() {
    static TextEditor::Palette const palette = {
        0xe6e1dcff, // default
        0x5094d4ff, // keyword
        0xcec083ff, // number
        0xca7f53ff, // string
        0xf3e77bff, // character literal
        0xdd7e7aff, // punctuation
        0x808040ff, // preprocessor
        0x72c56bff, // identifier
        0x8bd1ffff, // known identifier
        0xa040c0ff, // preprocessor identifier
        0x7c7e81ff, // comment
        0x7c7e81ff, // multi-line comment
        0x00000040, // background
        0xe0e0e0ff, // cursor
        0x2060a080, // selection
        0xff3000f0, // error marker
        0x50505050, // control character
        0x0080f040, // breakpoint
        0x7c7e81ff, // line number
        0x00000040, // current line fill
        0x80808040, // current line fill, inactive
        0xa0a0a040, // current line edge
    };
    return &palette;
}

Editor::Editor() {
    code.SetReadOnly(true);
    code.SetPalette(*GetNeroxPalette());
}

Editor::~Editor() = default;

// --- loading --------------------------------------------------------------------------------

bool Editor::Load(std::string const& text, std::string* error) {
    warnings.clear();
    auto fail = [error](std::string message) {
        if (error != nullptr) *error = std::move(message);
        return false;
    };
    std::string_view const prefix = "#NODES ";
    std::string_view body = text;
    if (body.starts_with("\xEF\xBB\xBF")) body.remove_prefix(3); // a byte order mark
    size_t const first = body.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) return fail("no graph found: the text is empty");
    body.remove_prefix(first);
    json graph;
    if (body.starts_with(prefix)) {
        size_t end = body.find('\n');
        if (end == std::string_view::npos) end = body.size();
        std::string_view line = body.substr(prefix.size(), end - prefix.size());
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        try {
            graph = json::parse(line);
        } catch (json::exception const& e) {
            return fail(std::string("cannot read the graph on the \"#NODES \" line: ") + e.what());
        }
    } else if (body.front() == '{') {
        try {
            graph = json::parse(body);
        } catch (json::exception const& e) {
            return fail(std::string("cannot read the graph JSON: ") + e.what());
        }
    } else {
        return fail("no graph found: the text neither begins with \"#NODES \" nor is a graph JSON object");
    }
    if (!ReplaceGraph(graph, error)) return false;
    undoHistory.clear();
    undoPosition = 0;
    changed = true;
    return true;
}

bool Editor::LoadGraph(json const& graph, std::string* error) {
    warnings.clear();
    if (!ReplaceGraph(graph, error)) return false;
    undoHistory.clear();
    undoPosition = 0;
    changed = true;
    return true;
}

bool Editor::HasCycle(std::unordered_map<UniqueId, Node*> const& index) const {
    // Kahn's order: nodes whose inputs are all placed are placed in turn; a
    // node never placed sits on a cycle or after one.
    std::unordered_map<Node const*, size_t> waiting; // inputs not placed yet
    std::unordered_map<Node const*, std::vector<Node const*>> users;
    std::vector<Node const*> ready;
    for (auto const& [id, node] : index) {
        size_t count = 0;
        for (UniqueId const& input : node->inputs) {
            auto const found = index.find(input);
            if (found == index.end()) continue;
            users[found->second].push_back(node);
            ++count;
        }
        waiting[node] = count;
        if (count == 0) ready.push_back(node);
    }
    size_t placed = 0;
    while (!ready.empty()) {
        Node const* node = ready.back();
        ready.pop_back();
        ++placed;
        for (Node const* user : users[node])
            if (--waiting[user] == 0) ready.push_back(user);
    }
    return placed != index.size();
}

bool Editor::ReplaceGraph(json const& graph, std::string* error) {
    auto fail = [error](char const* message) {
        if (error != nullptr) *error = message;
        return false;
    };
    if (!graph.is_object()) return fail("the graph is not a JSON object");
    auto const list = graph.find("nodes");
    if (list == graph.end() || !list->is_array()) return fail("the graph has no \"nodes\" array");

    std::vector<Node*> loaded;
    loaded.reserve(list->size());
    std::unordered_set<UniqueId> ids;
    for (json const& entry : *list) {
        Node* node = DeserializeNode(entry);
        if (node == nullptr) continue;
        if (!node->id.IsSet()) {
            node->id = UniqueId::Generate("NODE");
            Warn("node \"" + node->title + "\" had no id and was given a new one");
        }
        if (!ids.insert(node->id).second) {
            Warn("skipped node \"" + node->title + "\": its id repeats that of an earlier node");
            delete node;
            continue;
        }
        loaded.push_back(node);
    }

    for (Node* node : nodes) delete node;
    nodes = std::move(loaded);
    inputPins.clear();
    outputPins.clear();
    movingNode = nullptr;
    resizingNode = nullptr;
    boxSelecting = false;
    if (clipboardFrom == this) clipboardFrom = nullptr;

    // A link that closes a cycle would make code generation walk forever: cut it.
    // A graph without cycles (every graph the editor saves) is told in linear
    // time; only one with cycles is searched link by link.
    std::unordered_map<UniqueId, Node*> const index = NodeIndex();
    if (!HasCycle(index)) return true;
    for (Node* node : nodes) {
        for (size_t i = 0; i < node->inputs.size(); ++i) {
            auto const found = index.find(node->inputs[i]);
            if (found == index.end() || !NodeDependsOn(found->second, node, index)) continue;
            node->inputs[i] = UniqueId();
            Warn("cut input " + std::to_string(i) + " of node \"" + node->title + "\": the link closed a cycle");
        }
    }
    return true;
}

// --- undo -----------------------------------------------------------------------------------

void Editor::RestoreUndoEntry() {
    json const entry = undoHistory[static_cast<size_t>(undoPosition)];
    ReplaceGraph(entry, nullptr);
    changed = false;
    for (Node* node : nodes) node->modified = false;
    Serialize(false);
}

void Editor::Undo() {
    if (!CanUndo()) return;
    ++undoPosition;
    RestoreUndoEntry();
}

void Editor::Redo() {
    if (!CanRedo()) return;
    undoPosition = std::min<uint64_t>(undoPosition, undoHistory.size()) - 1;
    RestoreUndoEntry();
}

// --- the frame ------------------------------------------------------------------------------

bool Editor::Render() {
    ImGuiIO const& io = ImGui::GetIO();
    float const ui = Game::GetUiScaling();
    ImVec2 const avail = ImGui::GetContentRegionAvail();
    float const bar = 6.0f * ui;
    float const usable = std::max(0.0f, avail.x - bar);
    float const height = std::max(avail.y, 1.0f);
    split = std::clamp(split, 0.15f, 0.85f);

    ImGui::BeginChild("##nerox_canvas", ImVec2(std::max(1.0f, std::floor(usable * split)), height), true,
                      ImGuiWindowFlags_NoScrollbar | ImGuiWindowFlags_NoScrollWithMouse | ImGuiWindowFlags_NoMove);
    bool const canvasFocused = NodeEditor::Render();
    ImGui::EndChild();

    // The bar between the panes moves the split.
    ImGui::SameLine(0.0f, 0.0f);
    ImGui::InvisibleButton("##nerox_split", ImVec2(bar, height));
    if (ImGui::IsItemHovered() || ImGui::IsItemActive()) ImGui::SetMouseCursor(ImGuiMouseCursor_ResizeEW);
    if (ImGui::IsItemActive() && usable > 0.0f) split = std::clamp(split + io.MouseDelta.x / usable, 0.15f, 0.85f);
    ImGui::SameLine(0.0f, 0.0f);
    code.Render("##nerox_code", ImVec2(0.0f, height), true);

    bool const focused = ImGui::IsWindowFocused(ImGuiFocusedFlags_RootAndChildWindows);

    // Regenerate after a change in this frame, recording an undo step.
    bool dirty = changed;
    changed = false;
    for (Node* node : nodes) {
        if (node != nullptr && node->modified) {
            dirty = true;
            node->modified = false;
        }
    }
    if (dirty) Serialize(true);

    // Ctrl+Z undoes; Ctrl+Y and Ctrl+Shift+Z redo. A text field being edited keeps its own.
    if (focused && !readOnly && io.KeyCtrl && !ImGui::IsAnyItemActive()) {
        if (ImGui::IsKeyPressed(GLFW_KEY_Z)) {
            if (io.KeyShift)
                Redo();
            else
                Undo();
        } else if (ImGui::IsKeyPressed(GLFW_KEY_Y)) {
            Redo();
        }
    }
    return focused || canvasFocused;
}

// --- the command-line entry -----------------------------------------------------------------

CompileResult Compile(std::string const& source, std::string const& programName, size_t maxBytes) {
    CompileResult result;
    std::string cleaned;
    if (!Editor::CleanProgramName(programName, cleaned)) {
        result.error = "Invalid program name: " + programName;
        return result;
    }
    Editor editor;
    editor.programName = programName;
    editor.printWarnings = false; // the caller gets them in the result
    std::string error;
    bool const loaded = editor.Load(source, &error);
    result.warnings = editor.warnings;
    if (!loaded) {
        result.error = std::move(error);
        return result;
    }
    editor.maxProgramBytes = maxBytes;
    editor.Serialize(false);
    if (!editor.generationError.empty()) {
        result.error = editor.generationError;
        return result;
    }
    result.code = editor.GetCode();
    result.ok = true;
    return result;
}

} // namespace game::graphics::ui::NeroxCodeEditor
