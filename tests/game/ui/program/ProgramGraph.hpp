#pragma once
// Builds program graphs in code and reads back the generated text line by line.
#include "game/graphics/ui/NeroxCodeEditor.hpp"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace programtest {

namespace nce = game::graphics::ui::NeroxCodeEditor;
using Editor = nce::Editor;
using Node = game::graphics::ui::Node;
using game::UniqueId;

/// An editor whose nodes are added in code; nodes are owned by the editor.
struct Graph {
    explicit Graph(std::string name = "test.main.nc") { editor.programName = std::move(name); }

    /// Appends a new node of class T to the list.
    template <typename T, typename... Args>
    T* Add(Args&&... args) {
        T* node = new T(std::forward<Args>(args)...);
        editor.nodes.push_back(node);
        return node;
    }
    /// An InputNode reading a numbered port.
    Editor::InputNode* Input(int index, int channel = 0, int type = 0) {
        auto* node = Add<Editor::InputNode>();
        node->index = index;
        node->channel = channel;
        node->type = type;
        return node;
    }
    /// An OutputNode on port `index` with `count` inputs.
    Editor::OutputNode* Output(int index, size_t count = 1) {
        auto* node = Add<Editor::OutputNode>();
        node->index = index;
        node->SetInputCount(count);
        return node;
    }
    /// Links the output of `from` to input `input` of `to`.
    static void Link(Node* from, Node* to, size_t input) { to->inputs.at(input) = from->id; }

    /// Generates without an undo step and returns the whole text.
    std::string Text() {
        editor.Serialize(false);
        return editor.GetCode();
    }
    /// The lines after the "#NODES " line.
    std::vector<std::string> Body() { return BodyOf(Text()); }

    static std::vector<std::string> BodyOf(std::string const& text) {
        std::vector<std::string> lines;
        size_t start = 0;
        while (start < text.size()) {
            size_t end = text.find('\n', start);
            if (end == std::string::npos) end = text.size();
            lines.push_back(text.substr(start, end - start));
            start = end + 1;
        }
        EXPECT_FALSE(lines.empty());
        if (!lines.empty()) {
            EXPECT_EQ(lines.front().rfind("#NODES {", 0), 0u) << lines.front();
            lines.erase(lines.begin());
        }
        return lines;
    }

    Editor editor;
};

using Lines = std::vector<std::string>;

/// A graph that uses every class, with non-default fields, comments, sizes and links.
inline void BuildRichGraph(Graph& g) {
    auto place = [](Node* node, float x, float y) {
        node->pos = ImVec2(x, y);
        node->size = ImVec2(170.5f, 90.25f);
    };
    auto* in = g.Input(0, 1);
    place(in, 10, 20);
    in->comment = "button";
    auto* alias = g.Input(-1, 2, 1);
    alias->alias = "door";
    place(alias, 10, 120);
    auto* number = g.Add<Editor::ConstNumberNode>();
    number->name = "gain";
    number->value = 0.1;
    auto* text = g.Add<Editor::ConstTextNode>();
    text->name = "label";
    text->value = "Lamp";
    auto* time = g.Add<Editor::TimeNode>();
    auto* basic = g.Add<Editor::BasicNumberNode>();
    (void)basic;
    auto* delay = g.Add<Editor::DelayNode>();
    Graph::Link(in, delay, 1);
    delay->inputDefaults[0] = "2";
    auto* blink = g.Add<Editor::BlinkerNode>();
    blink->inputDefaults[0] = ".5";
    auto* counter = g.Add<Editor::CounterNode>();
    Graph::Link(blink, counter, 0);
    counter->inputDefaults[3] = "10";
    auto* smooth = g.Add<Editor::SmoothNode>();
    Graph::Link(counter, smooth, 0);
    Graph::Link(delay, smooth, 2);
    auto* expr = g.Add<Editor::ExpressionNode>();
    expr->text = "a * b + $gain";
    Graph::Link(smooth, expr, 0);
    Graph::Link(number, expr, 1);
    auto* pulse = g.Add<Editor::PulseNode>();
    Graph::Link(in, pulse, 0);
    auto* toggle = g.Add<Editor::PulseToggleNode>();
    Graph::Link(pulse, toggle, 0);
    Graph::Link(time, toggle, 1);
    auto* sw = g.Add<Editor::SwitchNode>();
    sw->SetType(1);
    sw->inputDefaults = {"", "off", "on"};
    Graph::Link(toggle, sw, 0);
    auto* varNumber = g.Add<Editor::VarNumberNode>();
    varNumber->name = "level";
    Graph::Link(expr, varNumber, 0);
    Graph::Link(pulse, varNumber, 1);
    auto* varText = g.Add<Editor::VarTextNode>();
    varText->name = "state";
    Graph::Link(sw, varText, 0);
    varText->inputDefaults[1] = "1";
    auto* format = g.Add<Editor::TextNode>();
    format->text = "{} {}";
    format->SetInputCount(2);
    Graph::Link(text, format, 0);
    Graph::Link(varText, format, 1);
    auto* add = g.Add<Editor::MathNode>("ADD");
    Graph::Link(varNumber, add, 0);
    add->inputDefaults[1] = "1";
    auto* lerp = g.Add<Editor::MathNode>("LERP");
    Graph::Link(add, lerp, 2);
    auto* pid = g.Add<Editor::PIDControllerNode>();
    Graph::Link(lerp, pid, 0);
    Graph::Link(alias, pid, 1);
    pid->inputDefaults[7] = "5";
    auto* statement = g.Add<Editor::StatementNode>();
    statement->text = "$level = a";
    Graph::Link(pid, statement, 0);
    auto* conditional = g.Add<Editor::ConditionalNode>();
    Graph::Link(pulse, conditional, 0);
    Graph::Link(statement, conditional, 1);
    conditional->inputDefaults[2] = "print(\"idle\")";
    auto* execute = g.Add<Editor::ExecuteNode>();
    Graph::Link(conditional, execute, 0);
    auto* print = g.Add<Editor::PrintNode>();
    Graph::Link(format, print, 0);
    auto* out = g.Output(-1, 2);
    out->alias = "lamp";
    Graph::Link(lerp, out, 0);
    out->inputDefaults[1] = "x";
    out->inputTypes[1] = 1;
    auto* include = g.Add<Editor::IncludeNode>();
    include->path = "lib/util.nc";
}

} // namespace programtest
