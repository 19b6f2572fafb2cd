// The undo history: what Serialize records, its limit, truncation after undoing,
// and Undo/Redo restoring graphs and code.
#include "ProgramGraph.hpp"

#include <gtest/gtest.h>

using namespace programtest;

namespace {

TEST(ProgramUndoHistory, SerializeWithUndoPushesNewestAtFrontUpToTheLimit) {
    Graph g;
    g.Add<Editor::TimeNode>();
    g.editor.Serialize(false);
    EXPECT_TRUE(g.editor.undoHistory.empty());
    g.editor.undoLimit = 2;
    for (int i = 0; i < 3; ++i) {
        g.editor.Serialize(true);
        g.Add<Editor::TimeNode>();
    }
    ASSERT_EQ(g.editor.undoHistory.size(), 2u); // the oldest dropped
    EXPECT_EQ(g.editor.undoHistory.front().at("nodes").size(), 3u);
    EXPECT_EQ(g.editor.undoHistory.back().at("nodes").size(), 2u);
    EXPECT_EQ(g.editor.undoPosition, 0u);
    EXPECT_EQ("#NODES " + g.editor.undoHistory.front().dump() + "\n", g.editor.GetCode());
}

TEST(ProgramUndoHistory, UndoAndRedoRestoreGraphsAndCodeAndANewChangeDropsTheUndone) {
    Graph g;
    auto* time = g.Add<Editor::TimeNode>();
    g.editor.Undo(); // an empty history: nothing
    g.editor.Redo();
    ASSERT_EQ(g.editor.nodes.size(), 1u);
    UniqueId const timeId = time->id;
    g.editor.Serialize(true);
    std::string const first = g.editor.GetCode();
    auto* expr = g.Add<Editor::ExpressionNode>();
    expr->text = "a";
    Graph::Link(time, expr, 0);
    Graph::Link(expr, g.Output(0), 0);
    g.editor.Serialize(true);
    std::string const second = g.editor.GetCode();
    expr->text = "a * 2";
    g.editor.Serialize(true);
    std::string const third = g.editor.GetCode();

    g.editor.Undo();
    EXPECT_EQ(g.editor.GetCode(), second);
    auto* restored = dynamic_cast<Editor::ExpressionNode*>(g.editor.nodes.at(1));
    ASSERT_NE(restored, nullptr);
    EXPECT_EQ(restored->text, "a");
    EXPECT_EQ(restored->inputs[0], timeId);
    g.editor.Undo();
    EXPECT_EQ(g.editor.GetCode(), first);
    ASSERT_EQ(g.editor.nodes.size(), 1u);
    EXPECT_EQ(g.editor.nodes[0]->id, timeId);
    EXPECT_FALSE(g.editor.CanUndo());
    g.editor.Undo(); // at the oldest: nothing
    EXPECT_EQ(g.editor.undoPosition, 2u);
    EXPECT_EQ(g.editor.GetCode(), first);

    g.editor.Redo();
    EXPECT_EQ(g.editor.GetCode(), second);
    g.editor.Redo();
    EXPECT_EQ(g.editor.GetCode(), third);
    EXPECT_FALSE(g.editor.CanRedo());
    g.editor.Redo(); // at the newest: nothing
    EXPECT_EQ(g.editor.undoPosition, 0u);
    EXPECT_EQ(g.editor.undoHistory.size(), 3u);
    EXPECT_FALSE(g.editor.changed);
    for (Node* node : g.editor.nodes) EXPECT_FALSE(node->modified);

    // A new change after undoing drops the undone entries.
    g.editor.Undo();
    g.editor.Undo();
    g.Add<Editor::DelayNode>();
    g.editor.Serialize(true);
    EXPECT_EQ(g.editor.undoPosition, 0u);
    ASSERT_EQ(g.editor.undoHistory.size(), 2u);
    EXPECT_EQ(g.editor.undoHistory.front().at("nodes").size(), 2u);
    EXPECT_EQ(g.editor.undoHistory.back().at("nodes").size(), 1u);
    EXPECT_FALSE(g.editor.CanRedo());
}

} // namespace
