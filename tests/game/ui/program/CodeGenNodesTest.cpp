// The node classes' own edits: math operations, switch types, input counts and which
// outputs may be linked. What each class generates is pinned by the example programs.
#include "ProgramGraph.hpp"

#include <gtest/gtest.h>

#include <tuple>

using namespace programtest;

namespace {

TEST(ProgramNodes, MathNodeTakesTheInputCountOfItsOperation) {
    for (char const* operation : Editor::MathOperations())
        EXPECT_EQ(Editor::MathNode(operation).inputs.size(), size_t(Editor::MathInputCount(operation))) << operation;
    EXPECT_EQ(Editor::MathInputCount("FOO"), 2);
}

TEST(ProgramNodes, SetOperationChangesInputCountAndKeepsLinks) {
    Editor::MathNode math("ADD");
    UniqueId const a = UniqueId::Generate("NODE");
    math.inputs[0] = a;
    math.SetOperation("LERP");
    EXPECT_EQ(math.title, "LERP");
    ASSERT_EQ(math.inputs.size(), 3u);
    EXPECT_EQ(math.inputs[0], a);
    EXPECT_EQ(math.inputDefaults, (std::vector<std::string>{"", "1", "0.5"}));
    EXPECT_TRUE(math.modified);
    math.SetOperation("SIN");
    EXPECT_EQ(math.inputs.size(), 1u);
    EXPECT_EQ(math.inputs[0], a);
}

TEST(ProgramNodes, SwitchSetTypeRetypesTheCasesOnly) {
    Editor::SwitchNode sw;
    sw.SetType(1);
    EXPECT_EQ(sw.InputType(0), 0);
    EXPECT_EQ(sw.InputType(1), 1);
    sw.SetInputCount(4);
    EXPECT_EQ(sw.InputType(3), 1);
    sw.SetType(0);
    EXPECT_TRUE(sw.inputTypes.empty());
}

TEST(ProgramNodes, InputCountKeepsDefaultsAndTypesInStep) {
    Editor::TextNode text;
    text.inputDefaults[0] = "keep";
    text.SetInputCount(3);
    EXPECT_EQ(text.inputs.size(), 3u);
    EXPECT_EQ(text.inputDefaults, (std::vector<std::string>{"keep", "", ""}));
    EXPECT_EQ(text.InputType(2), 1);
    EXPECT_TRUE(text.modified);
    text.modified = false;
    text.inputTypes[7] = 1; // stray entry past the end
    text.SetInputCount(1);
    EXPECT_EQ(text.inputDefaults, (std::vector<std::string>{"keep"}));
    EXPECT_EQ(text.inputTypes.size(), 1u);
    EXPECT_TRUE(text.modified);
    text.modified = false;
    text.SetInputCount(1);
    EXPECT_FALSE(text.modified);
}

TEST(ProgramNodes, InputCountStaysWithinLimits) {
    Editor::OutputNode out;
    Editor::ExpressionNode expr;
    Editor::SwitchNode sw;
    for (auto [node, asked, kept] : {std::tuple<Editor::NeroxNodeWithVariableInputCount*, size_t, size_t>{&out, 0, 1},
                                     {&expr, 40, 26},
                                     {&sw, 0, 1}}) {
        node->SetInputCount(asked);
        EXPECT_EQ(node->inputs.size(), kept) << node->title;
    }
}

TEST(ProgramNodes, OnlyOutputsOfProgramNodesConnect) {
    Editor::DelayNode delay;
    Editor::TimeNode time;
    Editor::IncludeNode include;
    Node plain("Plain", ImVec2(0, 0), {});
    EXPECT_TRUE(delay.CanConnectInputToOutput(0, &time));
    EXPECT_FALSE(delay.CanConnectInputToOutput(0, &include));
    EXPECT_FALSE(delay.CanConnectInputToOutput(0, &plain));
    EXPECT_FALSE(delay.CanConnectInputToOutput(3, &time));
}

} // namespace
