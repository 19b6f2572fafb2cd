// The retained interface without a screen: hit tests, the buttons' pointer
// states, the list's slots and order, and the start menu answering the pointer.
#include <gtest/gtest.h>

#include "game/Game.hpp"
#include "game/MainMenu.hpp"
#include "game/graphics/ui/Box.hpp"
#include "game/graphics/ui/Button.hpp"
#include "game/graphics/ui/Text.hpp"

#include <string>

namespace {

using game::graphics::ui::Box;
using game::graphics::ui::Button;
using game::graphics::ui::Element;
using game::graphics::ui::Text;

glm::ivec2 const Wide(1920, 540); // hit rectangles are sized by the height on both axes

TEST(ElementTest, HitRectangleIsSizedByTheScreenHeightOnBothAxes) {
    auto const box = Element::Make<Box>();
    box->hitPosition = glm::vec2(0.0f, 0.0f);
    box->hitSize = glm::vec2(0.4f, 0.2f); // 0.1 x 0.05 heights either side: 54 x 27 pixels
    struct Probe {
        glm::ivec2 mouse;
        bool over;
    } const probes[] = {
        {{960, 270}, true}, {{1013, 270}, true}, {{1014, 270}, false}, {{907, 270}, true},
        {{906, 270}, false}, {{960, 297}, false}, {{960, 296}, true}, {{960, 243}, false},
    };
    for (Probe const& probe : probes)
        EXPECT_EQ(box->IsOver(probe.mouse, Wide), probe.over) << probe.mouse.x << "," << probe.mouse.y;
}

TEST(ElementTest, TextKeepsAtMost92Characters) {
    std::string const long93(93, 'x');
    auto const text = Element::Make<Text>(long93.c_str(), glm::vec4(1.0f), glm::vec2(0.0f), 0.05f);
    EXPECT_EQ(text->GetText(), std::string(92, 'x'));
    EXPECT_EQ(text->instanceCount, 92u);
    EXPECT_EQ(text->data.length, 92u);
    text->SetText("PLAY");
    EXPECT_EQ(text->GetText(), "PLAY");
    EXPECT_EQ(text->instanceCount, 4u);
}

struct ButtonTest : ::testing::Test {
    std::shared_ptr<Button> button = Element::Make<Button>(glm::vec2(0.0f), glm::vec2(0.5f, 0.1f), "PLAY");
    int actions = 0;
    glm::ivec2 const screen{1280, 720};
    glm::ivec2 const over{640, 360}, off{10, 10};
    void SetUp() override { button->_action = [this] { ++actions; }; }
};

TEST_F(ButtonTest, ClickFiresOnlyAPressThatIsReleasedOverIt) {
    EXPECT_EQ(button->layer, 10);
    EXPECT_EQ(button->text->layer, 11);
    EXPECT_FLOAT_EQ(button->text->data.size, 0.05f);
    EXPECT_TRUE(button->Click(over, screen, 0, 0)); // a release with no press before it
    EXPECT_EQ(actions, 0);
    EXPECT_TRUE(button->Click(over, screen, 0, 1));
    EXPECT_EQ(button->data.color, button->activeColor);
    EXPECT_EQ(button->text->data.color, button->activeTextColor);
    EXPECT_TRUE(button->Click(over, screen, 0, 0));
    EXPECT_EQ(actions, 1);
    EXPECT_FALSE(button->pressed);
    EXPECT_FALSE(button->Click(off, screen, 0, 1)); // not over it: nothing
    EXPECT_TRUE(button->Click(over, screen, 1, 1)); // the right button: taken, but no press
    EXPECT_FALSE(button->pressed);
}

TEST_F(ButtonTest, HoverColoursFollowThePointer) {
    button->Hover(over, screen, false);
    EXPECT_EQ(button->text->data.color, button->hoverTextColor);
    button->Hover(over, screen, true);
    EXPECT_EQ(button->data.color, button->activeColor);
    button->Hover(off, screen, false);
    EXPECT_EQ(button->data.color, button->normalColor);
    EXPECT_EQ(button->text->data.color, button->textColor);
}

TEST_F(ButtonTest, HiddenButtonTakesNoEventsAndHideUnpresses) {
    button->Click(over, screen, 0, 1);
    button->Hide();
    EXPECT_FALSE(button->pressed);
    EXPECT_FALSE(button->text->visible);
    EXPECT_FALSE(button->Click(over, screen, 0, 0));
    EXPECT_FALSE(button->IsDraggable(over, screen, 0));
    button->Show();
    EXPECT_TRUE(button->text->visible);
    EXPECT_TRUE(button->Click(over, screen, 0, 0));
    EXPECT_EQ(actions, 0);
}

TEST(ElementListTest, AGoneElementFreesItsSlotAndSortKeepsEquals) {
    auto first = Element::Make<Box>();
    auto second = Element::Make<Box>();
    uint64_t const freed = first->slot;
    first.reset();
    EXPECT_TRUE(Element::_sharedObjects[freed].expired());
    auto third = Element::Make<Box>();
    EXPECT_EQ(third->slot, freed);
    second->layer = 5;
    third->layer = 5;
    auto top = Element::Make<Box>();
    top->layer = 7;
    Element::Sort([](auto const& a, auto const& b) { return a->layer < b->layer; });
    std::vector<Element*> order;
    Element::ForEach([&](Element& element) { order.push_back(&element); });
    ASSERT_EQ(order.size(), 3u);
    EXPECT_EQ(order[0], third.get()); // in the freed slot, before second: equals keep their order
    EXPECT_EQ(order[1], second.get());
    EXPECT_EQ(order[2], top.get());
    EXPECT_EQ(top->slot, 2u);
}

TEST(MainMenuTest, ButtonsAnswerThePointerAndTheTopElementTakesTheClick) {
    game::MainMenu menu;
    menu.Init();
    menu.SetWorlds({"alpha", "beta"}, "demo");
    EXPECT_EQ(menu.worldButton->text->GetText(), "WORLD: demo");
    int plays = 0;
    menu.playButton->_action = [&] { ++plays; };
    Element::Sort([](auto const& a, auto const& b) { return a->layer < b->layer; });
    glm::ivec2 const screen(1280, 720);
    auto const at = [&](float y) { return glm::ivec2(640, static_cast<int>((1.0f + y) / 2.0f * 720.0f)); };

    Element::ForwardPointer(at(-0.06f), screen, false); // over PLAY
    EXPECT_EQ(menu.playButton->text->data.color, menu.playButton->hoverTextColor);
    EXPECT_EQ(menu.quitButton->text->data.color, menu.quitButton->textColor);
    Element::ForwardPointer(at(-0.06f), screen, true);
    Element::ForwardPointer(at(-0.06f), screen, false);
    EXPECT_EQ(plays, 1);

    Element::ForwardPointer(at(-0.06f), screen, true); // pressed on PLAY, released on the panel
    Element::ForwardPointer(at(0.0f), screen, false);
    Element::ForwardPointer(at(-0.06f), screen, false);
    EXPECT_EQ(plays, 1);
    EXPECT_FALSE(menu.playButton->pressed);

    for (int click = 0; click < 3; ++click) { // the world button steps round the list
        Element::ForwardPointer(at(-0.18f), screen, true);
        Element::ForwardPointer(at(-0.18f), screen, false);
    }
    EXPECT_EQ(menu.SelectedWorld(), "demo");

    // A box laid over PLAY takes the click: the button below hears nothing.
    auto const cover = Element::Make<Button>(glm::vec2(0.0f, -0.06f), glm::vec2(0.2f, 0.1f), "X");
    cover->layer = 12;
    Element::Sort([](auto const& a, auto const& b) { return a->layer < b->layer; });
    Element::ForwardPointer(at(-0.06f), screen, true);
    Element::ForwardPointer(at(-0.06f), screen, false);
    EXPECT_EQ(plays, 1);
    EXPECT_FALSE(menu.playButton->pressed);

    menu.Hide();
    EXPECT_FALSE(menu.background->visible || menu.playButton->visible || menu.title->visible);
}

} // namespace
