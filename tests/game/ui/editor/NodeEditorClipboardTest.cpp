// Copying, pasting, duplicating and deleting with the keys, through the headless
// Dear ImGui and the headless window's system clipboard.
#include "EditorHarness.hpp"

#include <algorithm>

namespace nodetest {
namespace {

class NodeClipboard : public EditorTest {
protected:
    void SetUp() override {
        EditorTest::SetUp();
        outer = Add("Outer", ImVec2(50.0f, 50.0f));
        a = Add("A", ImVec2(200.0f, 100.0f));
        b = Add("B", ImVec2(400.0f, 140.0f));
        a->inputs[0] = outer->id;
        b->inputs[1] = a->id;
        Idle(2);
    }

    /// Selects A and B with a rectangle around them.
    void SelectPair() {
        ImVec2 const from = Screen(a->pos) - ImVec2(30.0f, 30.0f);
        MoveTo(from);
        Draw();
        Mouse(0, true);
        Draw();
        MoveTo(from + ImVec2(7.0f, 7.0f));
        Draw();
        MoveTo(Screen(b->pos + b->size) + ImVec2(10.0f, 10.0f));
        Draw();
        Mouse(0, false);
        Draw();
        ASSERT_TRUE(a->selected);
        ASSERT_TRUE(b->selected);
        ASSERT_FALSE(outer->selected);
    }

    TestNode* outer = nullptr;
    TestNode* a = nullptr;
    TestNode* b = nullptr;
};

TEST_F(NodeClipboard, CopyTakesTheSelectionAndEmptiesTheSystemClipboard) {
    window.SetClipboardText("some text");
    SelectPair();
    Chord(GLFW_KEY_C);
    ASSERT_TRUE(NodeEditor::clipboard.is_array());
    ASSERT_EQ(NodeEditor::clipboard.size(), 2u);
    EXPECT_EQ(NodeEditor::clipboard[0].at("title"), "A");
    EXPECT_EQ(NodeEditor::clipboard[1].at("title"), "B");
    EXPECT_EQ(NodeEditor::clipboardFrom, &editor);
    EXPECT_FALSE(a->selected);
    EXPECT_FALSE(b->selected);
    EXPECT_EQ(window.GetClipboardText(), "");
    EXPECT_TRUE(editor.copyArmed) << "armed again once the chord is let go";
    EXPECT_EQ(editor.nodes.size(), 3u);
}

TEST_F(NodeClipboard, CopyFiresOncePerChord) {
    SelectPair();
    Key(GLFW_KEY_LEFT_CONTROL, true);
    Key(GLFW_KEY_C, true);
    Draw();
    EXPECT_FALSE(editor.copyArmed);
    ASSERT_EQ(NodeEditor::clipboard.size(), 2u);
    a->selected = true;
    Draw(); // still held: the clipboard keeps the pair
    EXPECT_EQ(NodeEditor::clipboard.size(), 2u);
    Key(GLFW_KEY_C, false);
    Draw();
    EXPECT_TRUE(editor.copyArmed);
    Key(GLFW_KEY_C, true);
    Draw();
    EXPECT_EQ(NodeEditor::clipboard.size(), 1u);
    Key(GLFW_KEY_C, false);
    Key(GLFW_KEY_LEFT_CONTROL, false);
    Draw();
}

TEST_F(NodeClipboard, PasteKeepsTheInnerLinkUnderNewIdsAndDropsTheOuterOne) {
    SelectPair();
    Chord(GLFW_KEY_C);
    editor.changed = false;
    ImVec2 const pointer(700.0f, 400.0f);
    MoveTo(pointer);
    Draw();
    Chord(GLFW_KEY_V);
    ASSERT_EQ(editor.nodes.size(), 5u);
    EXPECT_TRUE(editor.changed);
    Node const* a2 = editor.nodes[3];
    Node const* b2 = editor.nodes[4];
    EXPECT_EQ(a2->title, "A");
    EXPECT_EQ(b2->title, "B");
    EXPECT_NE(a2->id, a->id);
    EXPECT_NE(b2->id, b->id);
    EXPECT_EQ(a2->id.Tag(), "NODE");
    EXPECT_EQ(b2->inputs[1], a2->id) << "the inner link follows the new ids";
    EXPECT_FALSE(b2->inputs[0].IsSet());
    EXPECT_FALSE(a2->inputs[0].IsSet()) << "the link from outside the copied set is cut";
    EXPECT_TRUE(a2->selected);
    EXPECT_TRUE(b2->selected);
    // The originals are untouched.
    EXPECT_EQ(a->inputs[0], outer->id);
    EXPECT_EQ(b->inputs[1], a->id);
    // The group is centred on the pointer and keeps its shape.
    ImVec2 const at = (pointer - kOrigin) / editor.Scale() - editor.pan;
    EXPECT_FLOAT_EQ((a2->pos.x + b2->pos.x) * 0.5f, at.x);
    EXPECT_FLOAT_EQ((a2->pos.y + b2->pos.y) * 0.5f, at.y);
    EXPECT_FLOAT_EQ(b2->pos.x - a2->pos.x, 200.0f);
    EXPECT_FLOAT_EQ(b2->pos.y - a2->pos.y, 40.0f);
    EXPECT_FLOAT_EQ(b2->size.x, b->size.x);
    // The clipboard holds the ids it handed out.
    EXPECT_EQ(NodeEditor::clipboard[0].at("id"), static_cast<std::string>(a2->id));
    EXPECT_EQ(NodeEditor::clipboard[1].at("id"), static_cast<std::string>(b2->id));

    // A second paste gets ids of its own again.
    Chord(GLFW_KEY_V);
    ASSERT_EQ(editor.nodes.size(), 7u);
    EXPECT_NE(editor.nodes[5]->id, a2->id);
    EXPECT_EQ(editor.nodes[6]->inputs[1], editor.nodes[5]->id);
}

TEST_F(NodeClipboard, TextOnTheSystemClipboardStopsThePaste) {
    SelectPair();
    Chord(GLFW_KEY_C);
    window.SetClipboardText("copied elsewhere");
    editor.changed = false;
    Key(GLFW_KEY_LEFT_CONTROL, true);
    Key(GLFW_KEY_V, true);
    Draw();
    EXPECT_EQ(editor.nodes.size(), 3u);
    EXPECT_TRUE(editor.pasteArmed);
    EXPECT_FALSE(editor.changed);
    // Emptied while the chord is held, the paste goes ahead.
    window.SetClipboardText("");
    Draw();
    EXPECT_EQ(editor.nodes.size(), 5u);
    EXPECT_FALSE(editor.pasteArmed);
    Key(GLFW_KEY_V, false);
    Key(GLFW_KEY_LEFT_CONTROL, false);
    Draw();
}

TEST_F(NodeClipboard, NothingToPasteDoesNothing) {
    Chord(GLFW_KEY_V);
    EXPECT_EQ(editor.nodes.size(), 3u);
    EXPECT_FALSE(editor.changed);
    // A copy of nothing empties the clipboard.
    NodeEditor::clipboard = nlohmann::json::array({a->Serialize()});
    Chord(GLFW_KEY_C);
    EXPECT_TRUE(NodeEditor::clipboard.empty());
    Chord(GLFW_KEY_V);
    EXPECT_EQ(editor.nodes.size(), 3u);
}

TEST_F(NodeClipboard, ForeignEntriesAreLeftOutAndTheRestIsPasted) {
    nlohmann::json good = a->Serialize();
    nlohmann::json badInputs = b->Serialize();
    badInputs["inputs"] = {"not an id"};
    NodeEditor::clipboard = nlohmann::json::array(
        {42, nlohmann::json{{"id", "short"}, {"pos", {{"x", 0}, {"y", 0}}}}, nlohmann::json{{"id", 7}}, badInputs, good});
    Chord(GLFW_KEY_V);
    ASSERT_EQ(editor.nodes.size(), 4u) << "only the well-formed node is pasted";
    EXPECT_EQ(editor.nodes.back()->title, "A");
    EXPECT_NE(editor.nodes.back()->id, a->id);
    EXPECT_EQ(NodeEditor::clipboard[1].at("id"), "short") << "entries left out keep their ids";
    EXPECT_TRUE(editor.changed);
    Draw(); // the frame after still draws and ends cleanly
}

TEST_F(NodeClipboard, CtrlDDuplicatesTheSelection) {
    SelectPair();
    Chord(GLFW_KEY_D);
    ASSERT_EQ(editor.nodes.size(), 5u);
    EXPECT_FALSE(a->selected);
    EXPECT_FALSE(b->selected);
    EXPECT_TRUE(editor.nodes[3]->selected);
    EXPECT_TRUE(editor.nodes[4]->selected);
    EXPECT_EQ(editor.nodes[4]->inputs[1], editor.nodes[3]->id);
}

TEST_F(NodeClipboard, UnclonableNodesArePastedOnlyIntoAnotherEditor) {
    a->clonable = false;
    SelectPair();
    Chord(GLFW_KEY_C);
    Chord(GLFW_KEY_V);
    ASSERT_EQ(editor.nodes.size(), 4u) << "A is dropped in its own editor";
    EXPECT_EQ(editor.nodes[3]->title, "B");
    // Its source was renamed but not pasted: an unknown id, which counts as unconnected.
    EXPECT_EQ(editor.GetNode(editor.nodes[3]->inputs[1]), nullptr);

    TestEditor other;
    Draw(other);
    Key(GLFW_KEY_LEFT_CONTROL, true);
    Key(GLFW_KEY_V, true);
    Draw(other);
    Key(GLFW_KEY_V, false);
    Key(GLFW_KEY_LEFT_CONTROL, false);
    Draw(other);
    ASSERT_EQ(other.nodes.size(), 2u);
    EXPECT_EQ(other.nodes[0]->title, "A");
    EXPECT_FALSE(other.nodes[0]->CanClone());
    EXPECT_EQ(other.nodes[1]->inputs[1], other.nodes[0]->id);
    EXPECT_TRUE(other.changed);
}

TEST_F(NodeClipboard, DeleteKeyDestroysTheSelectionAndMarksFedNodes) {
    TestNode* c = Add("C", ImVec2(600.0f, 300.0f));
    c->inputs[0] = a->id;
    c->inputs[1] = outer->id;
    Draw();
    a->selected = true;
    outer->selected = true;
    Key(GLFW_KEY_DELETE, true);
    Draw();
    Key(GLFW_KEY_DELETE, false);
    Draw();
    ASSERT_EQ(editor.nodes.size(), 2u);
    EXPECT_EQ(editor.nodes[0], b);
    EXPECT_EQ(editor.nodes[1], c);
    EXPECT_FALSE(b->inputs[1].IsSet());
    EXPECT_FALSE(c->inputs[0].IsSet());
    EXPECT_FALSE(c->inputs[1].IsSet());
    EXPECT_TRUE(b->modified);
    EXPECT_TRUE(c->modified);
    EXPECT_TRUE(editor.changed);
    EXPECT_EQ(editor.outputPins.count(b->id), 1u);
    EXPECT_EQ(editor.outputPins.size(), 2u) << "no pins left of the deleted nodes";
}

TEST_F(NodeClipboard, KeysTypedIntoATextFieldLeaveTheGraphAlone) {
    // As when a field inside a node is being edited: the keys are the field's.
    auto typing = [] { ImGui::GetCurrentContext()->WantTextInputNextFrame = 1; };
    a->selected = true;
    typing();
    Key(GLFW_KEY_DELETE, true);
    Draw();
    typing();
    Key(GLFW_KEY_LEFT_CONTROL, true);
    Key(GLFW_KEY_C, true);
    Draw();
    EXPECT_EQ(editor.nodes.size(), 3u);
    EXPECT_TRUE(NodeEditor::clipboard.empty());
    // The field lets go while the chord is still held: nothing fires until it is released.
    Key(GLFW_KEY_DELETE, false);
    Draw();
    EXPECT_TRUE(NodeEditor::clipboard.empty());
    EXPECT_EQ(editor.nodes.size(), 3u);
    Key(GLFW_KEY_C, false);
    Key(GLFW_KEY_LEFT_CONTROL, false);
    Draw();
    Chord(GLFW_KEY_C);
    EXPECT_EQ(NodeEditor::clipboard.size(), 1u);
}

TEST_F(NodeClipboard, ReadOnlyCopiesButNeitherPastesNorDeletes) {
    editor.readOnly = true;
    SelectPair();
    Chord(GLFW_KEY_C);
    EXPECT_EQ(NodeEditor::clipboard.size(), 2u);
    Chord(GLFW_KEY_V);
    Chord(GLFW_KEY_D);
    EXPECT_EQ(editor.nodes.size(), 3u);
    a->selected = true;
    Key(GLFW_KEY_DELETE, true);
    Draw();
    Key(GLFW_KEY_DELETE, false);
    Draw();
    EXPECT_EQ(editor.nodes.size(), 3u);
    EXPECT_EQ(b->inputs[1], a->id);
    EXPECT_FALSE(b->modified);
    EXPECT_FALSE(editor.changed);
}

TEST_F(NodeClipboard, KeysNeedTheFocus) {
    a->selected = true;
    for (int i = 0; i < 2; ++i) {
        Frame([&] {
            ImGui::SetNextWindowPos(kOrigin);
            ImGui::SetNextWindowSize(kSize);
            ImGui::Begin("Canvas", nullptr, ImGuiWindowFlags_NoTitleBar | ImGuiWindowFlags_NoMove);
            focused = editor.Render();
            ImGui::End();
            ImGui::SetNextWindowPos(ImVec2(1100.0f, 600.0f));
            ImGui::Begin("Other");
            ImGui::End();
        });
    }
    ASSERT_FALSE(focused);
    Key(GLFW_KEY_DELETE, true);
    Frame([&] {
        ImGui::Begin("Canvas");
        editor.Render();
        ImGui::End();
        ImGui::Begin("Other");
        ImGui::End();
    });
    Key(GLFW_KEY_DELETE, false);
    EXPECT_EQ(editor.nodes.size(), 3u);
}

} // namespace
} // namespace nodetest
