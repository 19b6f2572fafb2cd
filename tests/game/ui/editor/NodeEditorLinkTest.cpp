// Linking by dragging between pins, refusing cycles, and cutting links, through
// the headless Dear ImGui.
#include "EditorHarness.hpp"

namespace nodetest {
namespace {

class NodeLinking : public EditorTest {
protected:
    void SetUp() override {
        EditorTest::SetUp();
        a = Add("A", ImVec2(50.0f, 50.0f));
        b = Add("B", ImVec2(300.0f, 80.0f));
        c = Add("C", ImVec2(550.0f, 110.0f));
        Idle(2);
    }

    TestNode* a = nullptr;
    TestNode* b = nullptr;
    TestNode* c = nullptr;
};

TEST_F(NodeLinking, PinsAreCachedWhereTheyAreDrawn) {
    // Unit scale: a pin is 16 pixels, the first one 1.5 font sizes plus 2 below the top.
    float const top = 1.5f * 13.0f * 0.5f + 2.0f;
    ImVec2 const corner = Screen(a->pos);
    EXPECT_FLOAT_EQ(OutputPin(a).x, corner.x + a->size.x - 8.0f);
    EXPECT_FLOAT_EQ(OutputPin(a).y, corner.y + top + 8.0f);
    EXPECT_FLOAT_EQ(InputPin(a, 0).x, corner.x + 8.0f);
    EXPECT_FLOAT_EQ(InputPin(a, 0).y, corner.y + top + 8.0f);
    EXPECT_FLOAT_EQ(InputPin(a, 1).y, corner.y + top + 20.0f + 8.0f);
    EXPECT_EQ(editor.inputPins.at(a->id).size(), 2u);
    // Sizes were brought up to the minimum on the first draw.
    EXPECT_FLOAT_EQ(a->size.x, 35.0f);
    EXPECT_FLOAT_EQ(a->size.y, 75.0f);
}

TEST_F(NodeLinking, DragFromOutputToInputConnects) {
    Drag(OutputPin(a), InputPin(b, 1));
    EXPECT_EQ(b->inputs[1], a->id);
    EXPECT_FALSE(b->inputs[0].IsSet());
    EXPECT_TRUE(b->modified);
    EXPECT_FALSE(a->modified);
    EXPECT_FALSE(a->draggingOutput);
    EXPECT_FALSE(editor.boxSelecting) << "the pin took the drag";
}

TEST_F(NodeLinking, DragFromInputToOutputConnects) {
    Drag(InputPin(c, 0), OutputPin(b));
    EXPECT_EQ(c->inputs[0], b->id);
    EXPECT_TRUE(c->modified);
    EXPECT_EQ(c->draggingInput, -1);
    EXPECT_FALSE(editor.boxSelecting);
}

TEST_F(NodeLinking, ReleaseAwayFromAnyPinConnectsNothing) {
    Drag(OutputPin(a), InputPin(b, 0) + ImVec2(0.0f, 40.0f));
    Drag(InputPin(c, 1), ImVec2(700.0f, 500.0f));
    EXPECT_FALSE(b->inputs[0].IsSet());
    EXPECT_FALSE(c->inputs[1].IsSet());
    EXPECT_FALSE(b->modified);
    EXPECT_FALSE(c->modified);
}

TEST_F(NodeLinking, AnExistingLinkIsReplaced) {
    b->inputs[0] = c->id;
    Drag(OutputPin(a), InputPin(b, 0));
    EXPECT_EQ(b->inputs[0], a->id);
}

TEST_F(NodeLinking, OwnOutputIsRefusedBothWays) {
    Drag(OutputPin(a), InputPin(a, 0));
    EXPECT_FALSE(a->inputs[0].IsSet());
    Idle();
    Drag(InputPin(a, 1), OutputPin(a));
    EXPECT_FALSE(a->inputs[1].IsSet());
    EXPECT_FALSE(a->modified);
}

TEST_F(NodeLinking, LinksThatWouldCloseACycleAreRefused) {
    b->inputs[0] = a->id;
    c->inputs[0] = b->id;
    Drag(OutputPin(b), InputPin(a, 0)); // A <- B <- A
    EXPECT_FALSE(a->inputs[0].IsSet());
    Idle();
    Drag(InputPin(a, 1), OutputPin(c)); // A <- C <- B <- A
    EXPECT_FALSE(a->inputs[1].IsSet());
    EXPECT_FALSE(a->modified);
    Idle();
    Drag(OutputPin(a), InputPin(c, 1)); // a second path is fine
    EXPECT_EQ(c->inputs[1], a->id);
}

TEST_F(NodeLinking, NodeAndPinRulesAreAsked) {
    b->acceptsLinks = false;
    Drag(OutputPin(a), InputPin(b, 0));
    EXPECT_FALSE(b->inputs[0].IsSet());
    Idle();
    c->inputsLinkable = false;
    Drag(InputPin(c, 0), OutputPin(a));
    EXPECT_FALSE(c->inputs[0].IsSet());
    EXPECT_EQ(c->draggingInput, -1);
}

TEST_F(NodeLinking, RightClickDuringAnOutputDragLinksSeveralInputs) {
    ImVec2 const from = OutputPin(a);
    MoveTo(from);
    Draw();
    Mouse(0, true);
    Draw();
    MoveTo(InputPin(b, 0));
    Draw();
    EXPECT_TRUE(a->draggingOutput);
    Mouse(1, true);
    Draw();
    Mouse(1, false);
    Draw();
    EXPECT_EQ(b->inputs[0], a->id);
    MoveTo(InputPin(c, 1));
    Draw();
    Mouse(0, false);
    Draw();
    EXPECT_EQ(c->inputs[1], a->id);
    EXPECT_FALSE(a->draggingOutput);
    EXPECT_EQ(OpenPopups(), 0);
}

TEST_F(NodeLinking, DoubleClickOnAnInputDisconnectsIt) {
    b->inputs[0] = a->id;
    b->inputs[1] = c->id;
    ImVec2 const pin = InputPin(b, 0);
    Click(pin);
    EXPECT_EQ(b->inputs[0], a->id);
    Mouse(0, true);
    Draw();
    Mouse(0, false);
    Draw();
    EXPECT_FALSE(b->inputs[0].IsSet());
    EXPECT_EQ(b->inputs[1], c->id);
    EXPECT_TRUE(b->modified);
}

TEST_F(NodeLinking, DoubleClickOnAnOutputDisconnectsEveryInputItFeeds) {
    b->inputs[0] = a->id;
    c->inputs[1] = a->id;
    c->inputs[0] = b->id;
    Click(OutputPin(a));
    Mouse(0, true);
    Draw();
    Mouse(0, false);
    Draw();
    EXPECT_FALSE(b->inputs[0].IsSet());
    EXPECT_FALSE(c->inputs[1].IsSet());
    EXPECT_EQ(c->inputs[0], b->id);
    EXPECT_TRUE(b->modified);
    EXPECT_TRUE(c->modified);
}

TEST_F(NodeLinking, DisconnectRequestIsCarriedOutWhenThePinIsDrawn) {
    b->inputs[0] = a->id;
    c->inputs[0] = a->id;
    a->disconnectOutput = true;
    Draw();
    EXPECT_FALSE(a->disconnectOutput);
    EXPECT_FALSE(b->inputs[0].IsSet());
    EXPECT_FALSE(c->inputs[0].IsSet());
    EXPECT_TRUE(b->modified);
    EXPECT_TRUE(c->modified);
}

TEST_F(NodeLinking, HiddenNodesHaveNoPinsAndNoLinks) {
    // Curves are drawn on the canvas's own draw list, so a link shows as more
    // vertices there than the same nodes without it.
    ImGuiWindow* canvas = ImGui::FindWindowByName("Canvas");
    ASSERT_NE(canvas, nullptr);
    auto vertices = [&](bool link) {
        b->inputs[0] = link ? a->id : UniqueId();
        Draw();
        return canvas->DrawList->VtxBuffer.Size;
    };
    EXPECT_GT(vertices(true), vertices(false));

    a->visible = false;
    EXPECT_EQ(vertices(true), vertices(false)) << "hidden source";
    EXPECT_EQ(editor.outputPins.count(a->id), 0u);
    EXPECT_EQ(editor.inputPins.count(a->id), 0u);
    a->visible = true;
    b->visible = false;
    EXPECT_EQ(vertices(true), vertices(false)) << "hidden input node";
    b->visible = true;
    EXPECT_GT(vertices(true), vertices(false)) << "shown again";

    // A node hidden from the start has never had pins.
    TestNode* hidden = Add("H", ImVec2(400.0f, 300.0f));
    hidden->visible = false;
    Draw();
    int const before = canvas->DrawList->VtxBuffer.Size;
    c->inputs[0] = hidden->id;
    Draw();
    EXPECT_EQ(editor.outputPins.count(hidden->id), 0u);
    EXPECT_EQ(canvas->DrawList->VtxBuffer.Size, before);
}

TEST_F(NodeLinking, ReadOnlyRefusesLinksAndDisconnects) {
    editor.readOnly = true;
    b->inputs[1] = c->id;
    Drag(OutputPin(a), InputPin(b, 0));
    Idle();
    Drag(InputPin(c, 0), OutputPin(a));
    Idle();
    Click(InputPin(b, 1));
    Mouse(0, true);
    Draw();
    Mouse(0, false);
    Draw();
    EXPECT_FALSE(b->inputs[0].IsSet());
    EXPECT_FALSE(c->inputs[0].IsSet());
    EXPECT_EQ(b->inputs[1], c->id);
    EXPECT_FALSE(b->modified);
    EXPECT_FALSE(c->modified);
}

TEST_F(NodeLinking, PinMenuDisconnectsAnInput) {
    b->inputs[1] = a->id;
    Click(InputPin(b, 1), 1);
    Draw();
    ASSERT_EQ(OpenPopups(), 1);
    ClickFirstMenuItem(); // "Disconnect"
    EXPECT_FALSE(b->inputs[1].IsSet());
    EXPECT_TRUE(b->modified);
    EXPECT_EQ(OpenPopups(), 0);
}

TEST_F(NodeLinking, OutputMenuAsksForADisconnect) {
    b->inputs[1] = a->id;
    c->inputs[0] = a->id;
    Click(OutputPin(a), 1);
    Draw();
    ASSERT_EQ(OpenPopups(), 1);
    ClickFirstMenuItem(); // "Disconnect from all input nodes"
    Draw();
    EXPECT_FALSE(b->inputs[1].IsSet());
    EXPECT_FALSE(c->inputs[0].IsSet());
    EXPECT_FALSE(a->disconnectOutput);
}

TEST_F(NodeLinking, ScaledLinkEndsFollowTheRealPointerOnRelease) {
    editor.zoom = 2.0f;
    Idle(2);
    Drag(OutputPin(a), InputPin(b, 1));
    EXPECT_EQ(b->inputs[1], a->id);
}

} // namespace
} // namespace nodetest
