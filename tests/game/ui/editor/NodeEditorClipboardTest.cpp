// Copying, pasting, duplicating and deleting with the keys, through the headless
// Dear ImGui and the headless window's system clipboard.
#include "EditorHarness.hpp"

namespace nodetest {
namespace {

using NodeClipboard = EditorTest;

constexpr int C = GLFW_KEY_C, V = GLFW_KEY_V, D = GLFW_KEY_D, Del = GLFW_KEY_DELETE;
constexpr int kElsewhere = -1; ///< Not a key: something else is put on the system clipboard.

/// With B fed by A and C by B, the selection `selected` (bits of A, B and C), the pointer
/// at (700, 400), "some text" on the system clipboard and an entry left over on the
/// clipboard, the keys (Ctrl chords but for Delete) leave the State() `after`, `copied`
/// entries on the clipboard and `system` on the system clipboard.
struct KeyCase { char const* name; int selected; std::vector<int> keys; char const* after; size_t copied; char const* system; int flags = 0; };

TEST_F(NodeClipboard, KeysCopyPasteDuplicateAndDelete) {
    KeyCase const cases[] = {
        {"Ctrl+C copies and deselects", 0b110, {C}, "A:-- B:0- C:1-", 2, ""},
        {"Ctrl+V pastes the inner link under new ids, not the outer one", 0b110, {C, V}, "A:-- B:0- C:1- B+:-- C+:3-", 2, ""},
        {"each paste has ids of its own", 0b110, {C, V, V}, "A:-- B:0- C:1- B+:-- C+:3- B+:-- C+:5-", 2, ""},
        {"Ctrl+D duplicates", 0b110, {D}, "A:-- B:0- C:1- B+:-- C+:3-", 2, ""},
        {"text copied elsewhere since stops the paste", 0b110, {C, kElsewhere, V}, "A:-- B:0- C:1-", 2, "elsewhere"},
        {"Ctrl+C of nothing empties the clipboard", 0b000, {C, V}, "A:-- B:0- C:1-", 0, "some text"},
        {"Delete cuts the links and marks the nodes fed", 0b011, {Del}, "C*:--", 1, "some text"},
        {"read-only copies only", 0b011, {Del, D, V}, "A:-- B:0- C:1-", 2, "", kReadOnly},
    };
    for (KeyCase const& k : cases) {
        SCOPED_TRACE(k.name);
        Reset("--a-b-", k.flags, k.selected);
        window.SetClipboardText("some text");
        NodeEditor::clipboard = nlohmann::json::array({"left over"});
        MoveTo(ImVec2(700.0f, 400.0f));
        for (int key : k.keys) {
            if (key == kElsewhere)
                window.SetClipboardText("elsewhere");
            else
                Press(key, key != Del);
        }
        EXPECT_EQ(State(), k.after);
        EXPECT_EQ(NodeEditor::clipboard.size(), k.copied);
        EXPECT_EQ(window.GetClipboardText(), k.system);
        EXPECT_EQ(editor.changed, editor.nodes.size() != 3);
        EXPECT_EQ(editor.outputPins.size(), editor.nodes.size()) << "no pins left of deleted nodes";
    }
}

TEST_F(NodeClipboard, PasteCentresTheGroupOnThePointer) {
    Reset("--a-b-");
    b->selected = c->selected = true;
    Press(GLFW_KEY_C);
    ImVec2 const pointer(700.0f, 400.0f);
    MoveTo(pointer);
    Press(GLFW_KEY_V);
    ASSERT_EQ(editor.nodes.size(), 5u);
    Node const* b2 = editor.nodes[3];
    Node const* c2 = editor.nodes[4];
    ExpectNear((b2->pos + c2->pos) * 0.5f, (pointer - kOrigin) / editor.Scale() - editor.pan, "centre");
    ExpectNear(c2->pos - b2->pos, c->pos - b->pos, "shape");
    ExpectNear(c2->size, c->size, "size");
    EXPECT_EQ(NodeEditor::clipboard[0].at("id"), static_cast<std::string>(b2->id)) << "the ids it handed out";
    EXPECT_EQ(b2->id.Tag(), "NODE");
}

TEST_F(NodeClipboard, ChordsFireOncePerPress) {
    b->selected = c->selected = true;
    Key(GLFW_KEY_LEFT_CONTROL, true);
    Key(GLFW_KEY_C, true);
    Draw();
    a->selected = true;
    Draw();
    EXPECT_EQ(NodeEditor::clipboard.size(), 2u) << "still held";
    Key(GLFW_KEY_C, false);
    Draw();
    EXPECT_TRUE(editor.copyArmed);
    Key(GLFW_KEY_C, true);
    Draw();
    EXPECT_EQ(NodeEditor::clipboard.size(), 1u);
    Key(GLFW_KEY_C, false);
    // A paste stopped by text on the system clipboard goes ahead once it is emptied.
    window.SetClipboardText("elsewhere");
    Key(GLFW_KEY_V, true);
    Draw();
    EXPECT_TRUE(editor.pasteArmed);
    window.SetClipboardText("");
    Draw();
    Draw();
    EXPECT_EQ(editor.nodes.size(), 4u);
    Key(GLFW_KEY_V, false);
    Key(GLFW_KEY_LEFT_CONTROL, false);
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
    // The field lets go while the chord is still held: nothing fires until it is released.
    Key(GLFW_KEY_DELETE, false);
    Draw();
    EXPECT_EQ(editor.nodes.size(), 3u);
    EXPECT_TRUE(NodeEditor::clipboard.empty());
    Key(GLFW_KEY_C, false);
    Key(GLFW_KEY_LEFT_CONTROL, false);
    Draw();
    Press(GLFW_KEY_C);
    EXPECT_EQ(NodeEditor::clipboard.size(), 1u);
}

TEST_F(NodeClipboard, UnclonableNodesArePastedOnlyIntoAnotherEditor) {
    Reset("---a--");
    a->clonable = false;
    a->selected = b->selected = true;
    Press(GLFW_KEY_C);
    Press(GLFW_KEY_V);
    // A's copy is left out; B's input then names an unknown node, which counts as unconnected.
    EXPECT_EQ(State(), "A:-- B:-0 C:-- B+:-?");
    TestEditor other;
    Key(GLFW_KEY_LEFT_CONTROL, true);
    Key(GLFW_KEY_V, true);
    Draw(other);
    Key(GLFW_KEY_V, false);
    Key(GLFW_KEY_LEFT_CONTROL, false);
    Draw(other);
    ASSERT_EQ(other.nodes.size(), 2u);
    EXPECT_FALSE(other.nodes[0]->CanClone());
    EXPECT_EQ(other.nodes[1]->inputs[1], other.nodes[0]->id);
    EXPECT_TRUE(other.changed);
}

TEST_F(NodeClipboard, ForeignEntriesAreLeftOutAndTheRestIsPasted) {
    nlohmann::json badInputs = b->Serialize();
    badInputs["inputs"] = {"not an id"};
    NodeEditor::clipboard = nlohmann::json::array(
        {42, nlohmann::json{{"id", "short"}, {"pos", {{"x", 0}, {"y", 0}}}}, nlohmann::json{{"id", 7}}, badInputs, a->Serialize()});
    Press(GLFW_KEY_V);
    EXPECT_EQ(State(), "A:-- B:-- C:-- A+:--");
    EXPECT_EQ(NodeEditor::clipboard[1].at("id"), "short") << "entries left out keep their ids";
    EXPECT_TRUE(editor.changed);
}

} // namespace
} // namespace nodetest
