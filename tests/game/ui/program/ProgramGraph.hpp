#pragma once
// Program graphs built in code, and the example programs under tests/data/program/.
#include "game/graphics/ui/NeroxCodeEditor.hpp"

#include "support/Golden.hpp"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace programtest {

namespace nce = game::graphics::ui::NeroxCodeEditor;
using Editor = nce::Editor;
using Node = game::graphics::ui::Node;
using game::UniqueId;
using json = nlohmann::json;

/// An editor whose nodes are added in code; nodes are owned by the editor.
struct Graph {
    explicit Graph(std::string name = "test.main.nc") { editor.programName = std::move(name); }

    /// Appends a new node of class T to the list.
    template <typename T, typename... Args> T* Add(Args&&... args) {
        T* node = new T(std::forward<Args>(args)...);
        editor.nodes.push_back(node);
        return node;
    }
    /// An OutputNode on port `index` with `count` inputs.
    Editor::OutputNode* Output(int index, size_t count = 1) {
        auto* node = Add<Editor::OutputNode>();
        node->index = index;
        node->SetInputCount(count);
        return node;
    }
    static void Link(Node* from, Node* to, size_t input) { to->inputs.at(input) = from->id; }

    /// Generates without an undo step and returns the whole text.
    std::string Text() {
        editor.Serialize(false);
        return editor.GetCode();
    }

    Editor editor;
};

/// The text of the example program tests/data/program/NAME.nc.
inline std::string Example(std::string const& name) {
    return testsupport::ReadText(testsupport::DataFile("program/" + name + ".nc"));
}

/// Loads the example that uses every node class, with fields, comments, sizes and links set.
inline std::string const kRichProgram = "plant-control.main.nc";
inline void LoadRich(Editor& editor) {
    editor.programName = kRichProgram;
    ASSERT_TRUE(editor.Load(Example("rich")));
}

} // namespace programtest
