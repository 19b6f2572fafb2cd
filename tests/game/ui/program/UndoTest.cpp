// The undo history: what Serialize records, its limit, truncation after undoing,
// and Undo/Redo restoring graphs and code.
#include "ProgramGraph.hpp"

#include <gtest/gtest.h>

using namespace programtest;

namespace {

size_t NodeCount(nlohmann::json const& entry) { return entry.at("nodes").size(); }

TEST(ProgramUndoHistory, SerializeWithUndoPushesNewestAtFront) {
    Graph g;
    g.Add<Editor::TimeNode>();
    g.editor.Serialize(true);
    g.Add<Editor::DelayNode>();
    g.editor.Serialize(true);
    ASSERT_EQ(g.editor.undoHistory.size(), 2u);
    EXPECT_EQ(NodeCount(g.editor.undoHistory.front()), 2u);
    EXPECT_EQ(NodeCount(g.editor.undoHistory.back()), 1u);
    EXPECT_EQ(g.editor.undoPosition, 0u);
    EXPECT_EQ("#NODES " + g.editor.undoHistory.front().dump() + "\n", g.editor.GetCode());
}

TEST(ProgramUndoHistory, SerializeWithoutUndoRecordsNothing) {
    Graph g;
    g.Add<Editor::TimeNode>();
    g.editor.Serialize(false);
    EXPECT_TRUE(g.editor.undoHistory.empty());
}

TEST(ProgramUndoHistory, LimitDropsTheOldest) {
    Graph g;
    g.editor.undoLimit = 2;
    for (int i = 0; i < 3; ++i) {
        g.Add<Editor::TimeNode>();
        g.editor.Serialize(true);
    }
    ASSERT_EQ(g.editor.undoHistory.size(), 2u);
    EXPECT_EQ(NodeCount(g.editor.undoHistory.front()), 3u);
    EXPECT_EQ(NodeCount(g.editor.undoHistory.back()), 2u);
}

TEST(ProgramUndoHistory, DefaultLimitIsSensible) {
    Editor e;
    EXPECT_GE(e.undoLimit, 20u);
    EXPECT_LE(e.undoLimit, 1000u);
}

TEST(ProgramUndoHistory, NewChangeAfterUndoDropsTheUndoneEntries) {
    Graph g;
    for (int i = 0; i < 3; ++i) {
        g.Add<Editor::TimeNode>();
        g.editor.Serialize(true);
    }
    g.editor.Undo();
    g.editor.Undo();
    ASSERT_EQ(g.editor.undoPosition, 2u);
    ASSERT_EQ(g.editor.nodes.size(), 1u);
    g.Add<Editor::DelayNode>();
    g.editor.Serialize(true);
    EXPECT_EQ(g.editor.undoPosition, 0u);
    ASSERT_EQ(g.editor.undoHistory.size(), 2u);
    EXPECT_EQ(NodeCount(g.editor.undoHistory.front()), 2u);
    EXPECT_EQ(NodeCount(g.editor.undoHistory.back()), 1u);
    EXPECT_FALSE(g.editor.CanRedo());
}

TEST(ProgramUndoHistory, UndoAndRedoRestoreGraphsAndCode) {
    Graph g;
    auto* time = g.Add<Editor::TimeNode>();
    UniqueId const timeId = time->id;
    g.editor.Serialize(true);
    std::string const first = g.editor.GetCode();

    auto* expr = g.Add<Editor::ExpressionNode>();
    expr->text = "a";
    Graph::Link(time, expr, 0);
    auto* out = g.Output(0);
    Graph::Link(expr, out, 0);
    g.editor.Serialize(true);
    std::string const second = g.editor.GetCode();

    expr->text = "a * 2";
    g.editor.Serialize(true);
    std::string const third = g.editor.GetCode();
    ASSERT_NE(second, third);

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
}

TEST(ProgramUndoHistory, UndoWithEmptyHistoryDoesNothing) {
    Graph g;
    g.Add<Editor::TimeNode>();
    g.editor.Undo();
    g.editor.Redo();
    EXPECT_EQ(g.editor.nodes.size(), 1u);
    EXPECT_EQ(g.editor.undoPosition, 0u);
}

} // namespace
