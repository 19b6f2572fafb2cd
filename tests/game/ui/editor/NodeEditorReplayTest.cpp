// The node editor's gestures and keys replayed from scripts under tests/data/ui/editor/,
// whose "=" and "@" lines hold the state the lines before them leave; and the frames
// that must allocate nothing.
#include "EditorHarness.hpp"
#include "support/CountedAllocations.hpp"
#include "support/Golden.hpp"

#include <cmath>
#include <cstdio>
#include <sstream>

namespace nodetest {
namespace {

class NodeReplay : public EditorTest {
protected:
    /// A node by its letter with a part (A.out, A.in0, A.title, A.corner), or a screen point
    /// x,y; either moved by +dx,dy.
    ImVec2 At(std::string const& word) const {
        ImVec2 at, by;
        size_t const plus = word.find('+');
        if (plus != std::string::npos) std::sscanf(word.c_str() + plus + 1, "%f,%f", &by.x, &by.y);
        std::string const part = word.substr(0, plus).substr(std::min<size_t>(2, word.size()));
        Node const* node = std::isupper(word[0]) ? nodes[static_cast<size_t>(word[0] - 'A')] : nullptr;
        if (node == nullptr) std::sscanf(word.c_str(), "%f,%f", &at.x, &at.y);
        else if (part == "title") at = Screen(node->pos) + ImVec2(12.0f, 4.0f);
        else if (part == "corner") at = Screen(node->pos + node->size) - ImVec2(3.0f, 3.0f);
        else if (part == "out") at = editor.outputPins.at(node->id);
        else at = editor.inputPins.at(node->id).at(static_cast<size_t>(part[2] - '0'));
        return at + by;
    }
    static int KeyCode(std::string const& name) {
        if (name == "ctrl") return GLFW_KEY_LEFT_CONTROL;
        if (name == "shift") return GLFW_KEY_LEFT_SHIFT;
        return name == "del" ? GLFW_KEY_DELETE : std::toupper(name[0]);
    }
    /// The State() with what else is going on, or where the nodes are and the view.
    std::string Show(bool geometry) const {
        std::ostringstream out;
        auto point = [&](ImVec2 v, char between) { out << std::round(v.x * 100) / 100 << between << std::round(v.y * 100) / 100; };
        if (geometry) {
            for (Node const* node : target->nodes) {
                out << node->title << ' ';
                point(node->pos, ',');
                out << ' ';
                point(node->size, 'x');
                out << ' ';
            }
            out << "pan ";
            point(target->pan, ',');
            out << " zoom " << target->zoom;
            return "@ " + out.str();
        }
        out << "= " << State() << (target->changed ? " changed" : "") << (focused ? "" : " unfocused");
        if (int const menus = ImGui::GetCurrentContext()->OpenPopupStack.Size) out << " menus " << menus;
        if (target->boxSelecting) out << " boxing";
        if (target->panning) out << " panning";
        if (target->movingNode != nullptr) out << " moving " << target->movingNode->title;
        if (target->resizingNode != nullptr) out << " resizing " << target->resizingNode->title;
        out << (target->copyArmed ? "" : " copy off") << (target->pasteArmed ? "" : " paste off");
        for (Node const* node : target->nodes) {
            if (node->draggingOutput || node->disconnectOutput || node->draggingInput >= 0)
                out << " " << node->title << " dragging " << node->draggingOutput << node->disconnectOutput << node->draggingInput;
            if (!node->CanClone()) out << " " << node->title << " solo";
            if (int const clicks = static_cast<TestNode const*>(node)->doubleClicks) out << " " << node->title << " double clicked " << clicks;
        }
        if (target->outputPins.size() != target->nodes.size()) out << " pins " << target->outputPins.size();
        if (!NodeEditor::clipboard.empty()) out << " copied " << NodeEditor::clipboard.size();
        if (std::string const text = window.GetClipboardText(); !text.empty()) out << " system \"" << text << '"';
        return out.str();
    }
    /// Runs one command of a script line; see tests/data/ui/editor/*.txt.
    void Run(std::string const& command) {
        std::istringstream in(command);
        std::string verb, x, y, rest;
        int button = 0, times = 1;
        in >> verb;
        std::getline(in >> std::ws, rest);
        rest.erase(rest.find_last_not_of(' ') + 1);
        std::istringstream args(rest);
        if (verb == "reset") {
            std::string flags;
            args >> x >> y >> flags;
            Reset(x.empty() ? "------" : x, y == "-" ? "" : y, flags);
        } else if (verb == "click") {
            args >> x >> button >> times;
            MoveTo(At(x));
            for (int i = 0; i < times; ++i) Mouse(button, true), Draw(), Mouse(button, false), Draw();
        } else if (verb == "grab") {
            args >> x >> button;
            Grab(At(x), button);
        } else if (verb == "drag") {
            args >> x >> y >> button;
            ImVec2 const to = At(y);
            Grab(At(x), button);
            MoveTo(to), Mouse(button, false), Draw();
        } else if (verb == "move") {
            MoveTo(At(rest));
        } else if (verb == "release") {
            args >> button;
            Mouse(button, false), Draw();
        } else if (verb == "menu") {
            Run("click " + rest + " 1");
            Draw();
            ASSERT_EQ(ImGui::GetCurrentContext()->OpenPopupStack.Size, 1) << command;
            ImGuiWindow const* popup = ImGui::GetCurrentContext()->OpenPopupStack.back().Window;
            ImVec2 const item = popup->Pos + popup->WindowPadding + ImVec2(6.0f, 3.0f);
            Run("click " + std::to_string(item.x) + "," + std::to_string(item.y));
        } else if (verb == "keys" || verb == "down" || verb == "up") {
            std::vector<std::string> keys;
            while (args >> x) keys.push_back(x);
            for (std::string const& key : keys) Key(KeyCode(key), verb != "up");
            if (verb != "keys") return;
            Draw();
            for (std::string const& key : keys) Key(KeyCode(key), false);
            Draw();
        } else if (verb == "frame" || verb == "beside") {
            args >> times;
            for (int i = 0; i < times; ++i) Draw(verb == "beside");
        } else if (verb == "wheel") {
            Wheel(std::stof(rest));
            Draw();
        } else if (verb == "typing") { // as when a field inside a node has the keys
            ImGui::GetCurrentContext()->WantTextInputNextFrame = 1;
        } else if (verb == "sys") {
            window.SetClipboardText(rest);
        } else if (verb == "clipboard") {
            NodeEditor::clipboard = nlohmann::json::parse(rest);
        } else if (verb == "pan") {
            std::sscanf(rest.c_str(), "%f,%f", &editor.pan.x, &editor.pan.y);
        } else if (verb == "size") {
            std::sscanf(rest.c_str() + 2, "%fx%f", &nodes[static_cast<size_t>(rest[0] - 'A')]->size.x, &nodes[static_cast<size_t>(rest[0] - 'A')]->size.y);
        } else if (verb == "select" || verb == "solo") {
            for (char n : rest) (verb == "solo" ? nodes[static_cast<size_t>(n - 'A')]->clonable : nodes[static_cast<size_t>(n - 'A')]->selected) ^= true;
        } else if (verb == "other") {
            target = &other;
        } else {
            ADD_FAILURE() << "unknown command: " << command;
        }
    }
    /// Replays a script, each "=" or "@" line rewritten by what it shows, and compares it whole.
    void Replay(std::string const& name) {
        std::string out;
        for (std::string const& line : testsupport::SplitLines(testsupport::ReadText(testsupport::DataFile(name)))) {
            if (line.empty() || line[0] == '#' || line[0] == '=' || line[0] == '@') {
                out += (line.empty() || line[0] == '#' ? line : Show(line[0] == '@')) + "\n";
                continue;
            }
            std::istringstream commands(line);
            for (std::string command; std::getline(commands >> std::ws, command, ';');) Run(command);
            out += line + "\n";
        }
        testsupport::ExpectGolden(out, name);
    }
};

TEST_F(NodeReplay, Gestures) { Replay("ui/editor/gestures.txt"); }
TEST_F(NodeReplay, Links) { Replay("ui/editor/links.txt"); }
TEST_F(NodeReplay, Keys) { Replay("ui/editor/keys.txt"); }

TEST_F(EditorTest, PinsSitWhereTheyAreDrawn) {
    // At unit scale a pin is 16 pixels, the first one 1.5 font sizes plus 2 below the top.
    ImVec2 const first = Screen(a->pos) + ImVec2(8.0f, 1.5f * 13.0f * 0.5f + 2.0f + 8.0f);
    ExpectNear(editor.inputPins.at(a->id).at(0), first, "first input");
    ExpectNear(editor.inputPins.at(a->id).at(1), first + ImVec2(0.0f, 20.0f), "second input");
    ExpectNear(editor.outputPins.at(a->id), first + ImVec2(a->size.x - 16.0f, 0.0f), "output");
}

TEST_F(EditorTest, HiddenNodesHaveNoPinsAndNoLinks) {
    // Links are curves on the canvas's own draw list: one shows as more vertices there.
    ImGuiWindow const* canvas = ImGui::FindWindowByName("Canvas");
    auto vertices = [&](bool link) {
        b->inputs[0] = link ? a->id : UniqueId();
        Draw();
        return canvas->DrawList->VtxBuffer.Size;
    };
    for (TestNode* hidden : {static_cast<TestNode*>(nullptr), a, b}) {
        if (hidden != nullptr) hidden->visible = false;
        EXPECT_EQ(vertices(true) > vertices(false), hidden == nullptr);
        if (hidden == nullptr) continue;
        EXPECT_EQ(editor.outputPins.count(hidden->id) + editor.inputPins.count(hidden->id), 0u);
        hidden->visible = true;
    }
}

// Drawing frames of a settled editor allocates nothing: every operator new in this program is counted.
TEST_F(EditorTest, SteadyFramesAllocateNothing) {
    for (int i = 3; i < 40; ++i) {
        TestNode* node = Add("Node", ImVec2(600.0f + 40.0f * static_cast<float>(i % 10), 20.0f + 100.0f * static_cast<float>(i / 10)), 3);
        node->inputs[0] = editor.nodes[static_cast<size_t>(i - 1)]->id;
        node->inputs[2] = editor.nodes[static_cast<size_t>(i - 2)]->id;
        node->selected = i % 3 == 0;
    }
    editor.nodes[5]->visible = false;
    MoveTo(Screen(a->pos) + ImVec2(12.0f, 4.0f));
    Idle(3);
    long const hovering = testsupport::allocations.load();
    Idle(20);
    EXPECT_EQ(testsupport::allocations.load() - hovering, 0) << "hovering a node";
    Grab(editor.outputPins.at(b->id));
    Idle(3);
    long const dragging = testsupport::allocations.load();
    for (int i = 0; i < 20; ++i) MoveTo(ImVec2(700.0f + static_cast<float>(i), 500.0f));
    EXPECT_EQ(testsupport::allocations.load() - dragging, 0) << "dragging a link";
    EXPECT_TRUE(b->draggingOutput);
    Mouse(0, false);
}

} // namespace
} // namespace nodetest
