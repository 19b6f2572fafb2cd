// Code generation: the worked examples, layout, program names, shared inputs,
// number formatting and input-letter substitution.
#include "ProgramGraph.hpp"

#include <gtest/gtest.h>

using namespace programtest;

namespace {

// --- worked examples ------------------------------------------------------------------------

TEST(ProgramCodeExamples, DoorDelayReproducedLineForLine) {
    Graph g("door.main.nc");
    auto* input = g.Input(0, 0);
    auto* delay = g.Add<Editor::DelayNode>();
    delay->inputDefaults[0] = "2";
    Graph::Link(input, delay, 1);
    auto* output = g.Output(1);
    Graph::Link(delay, output, 0);
    EXPECT_EQ(g.Body(), (Lines{
                            "",
                            "var $_door_delay1 = 0",
                            "",
                            "update",
                            "\tvar $_input_number_0_0 = input_number(0, 0)",
                            "\tvar $_door_delay1_ = $_door_delay1 > 0 and $_door_delay1 < time",
                            "\tif $_input_number_0_0",
                            "\t\t$_door_delay1 = time + 2",
                            "\toutput_number(1, 0, $_door_delay1_)",
                        }));
}

TEST(ProgramCodeExamples, AliasedLampReproducedLineForLine) {
    Graph g("door.main.nc");
    auto* input = g.Input(0, 0);
    auto* add = g.Add<Editor::MathNode>("ADD");
    Graph::Link(input, add, 0);
    add->inputDefaults[1] = ".5";
    auto* output = g.Output(-1);
    output->alias = "lamp";
    Graph::Link(add, output, 0);
    EXPECT_EQ(g.Body(), (Lines{
                            "",
                            "update",
                            "\tvar $_input_number_0_0 = input_number(0, 0)",
                            "\toutput_number(\"lamp\", 0, ($_input_number_0_0 + 0.5))",
                        }));
}

TEST(ProgramCodeExamples, FirstLineCarriesTheGraphWithSortedKeys) {
    Graph g;
    auto* input = g.Input(2, 1);
    std::string const text = g.Text();
    std::string const first = text.substr(0, text.find('\n'));
    ASSERT_EQ(first.rfind("#NODES ", 0), 0u);
    nlohmann::json const graph = nlohmann::json::parse(first.substr(7));
    ASSERT_EQ(graph["nodes"].size(), 1u);
    EXPECT_EQ(graph["nodes"][0], input->Serialize());
    EXPECT_EQ(first.substr(7), graph.dump()); // compact, keys sorted
    EXPECT_NE(first.find("\"alias\":\"\",\"channel\":1,\"class\":\"InputNode\""), std::string::npos) << first;
}

// --- layout ---------------------------------------------------------------------------------

TEST(ProgramCodeLayout, EmptyGraphIsOnlyTheNodesLine) {
    Graph g;
    EXPECT_EQ(g.Text(), "#NODES {\"nodes\":[]}\n");
}

TEST(ProgramCodeLayout, NodesThatWriteNothingGiveNoBlocks) {
    Graph g;
    g.Input(0);
    g.Add<Editor::TimeNode>();
    g.Add<Editor::MathNode>("SIN");
    std::string const text = g.Text();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
}

TEST(ProgramCodeLayout, BlocksComeInTheirOrderEachAfterAnEmptyLine) {
    Graph g;
    // Added in reverse of the block order: the blocks still come out in theirs.
    auto* delay = g.Add<Editor::DelayNode>();
    auto* out = g.Output(0);
    Graph::Link(delay, out, 0);
    auto* text = g.Add<Editor::ConstTextNode>();
    text->name = "t";
    text->value = "x";
    auto* number = g.Add<Editor::ConstNumberNode>();
    number->name = "n";
    number->value = 1.5;
    auto* include = g.Add<Editor::IncludeNode>();
    include->path = "lib.nc";
    auto* pid = g.Add<Editor::PIDControllerNode>();
    auto* out2 = g.Output(1);
    Graph::Link(pid, out2, 0);
    Lines const body = g.Body();
    Lines const expected{
        "",
        "include \"lib.nc\"",
        "",
        "const $n = 1.500000",
        "",
        "const $t = \"x\"",
        "",
        "var $_test_delay1 = 0",
        "",
        "function @_test_pid1($_setpoint:number, $_processvalue:number, $_kp:number, $_ki:number, $_kd:number, "
        "$_integral:number, $_prev_error:number) : number",
        "\tvar $_error = $_setpoint - $_processvalue",
        "\tvar $_dt = delta_time",
        "\tvar $_derivative = ($_error - $_prev_error) / $_dt",
        "\tvar $_proportional = $_kp * $_error",
        "\t$_integral += $_error * $_dt",
        "\t$_prev_error = $_error",
        "\tvar $_output = $_proportional + $_ki * $_integral + $_kd * $_derivative",
        "\treturn $_output",
        "",
        "update",
        "\tvar $_test_delay1_ = $_test_delay1 > 0 and $_test_delay1 < time",
        "\toutput_number(0, 0, $_test_delay1_)",
        "\tvar $_pid1 = @_test_pid1(0, 0, 1, 0, 0)",
        "\toutput_number(1, 0, $_pid1)",
    };
    EXPECT_EQ(body, expected);
}

TEST(ProgramCodeLayout, CountersStartAtOneOnEveryRun) {
    Graph g;
    auto* expr = g.Add<Editor::ExpressionNode>();
    expr->text = "1";
    auto* out = g.Output(0);
    Graph::Link(expr, out, 0);
    Lines const first = g.Body();
    EXPECT_EQ(g.Body(), first);
    EXPECT_EQ(first.at(2), "\tvar $_expr1 = 1");
}

TEST(ProgramCodeLayout, WrongLengthDefaultsAreRepairedBeforeGeneration) {
    Graph g;
    auto* add = g.Add<Editor::MathNode>("ADD");
    add->inputDefaults = {"4", "5", "6", "7"};
    auto* out = g.Output(0);
    Graph::Link(add, out, 0);
    out->inputDefaults.clear();
    EXPECT_EQ(g.Body(), (Lines{"", "update", "\toutput_number(0, 0, (4 + 5))"}));
    EXPECT_EQ(add->inputDefaults.size(), 2u);
    EXPECT_EQ(out->inputDefaults.size(), 1u);
}

TEST(ProgramCodeLayout, PlainNodesInTheListAreSkipped) {
    Graph g;
    g.editor.nodes.push_back(new Node("Plain", ImVec2(0, 0), {}));
    g.editor.nodes.push_back(nullptr);
    EXPECT_EQ(g.Text(), "#NODES {\"nodes\":[]}\n");
    g.editor.nodes.pop_back();
}

// --- program names --------------------------------------------------------------------------

TEST(ProgramCodeNames, DashesBecomeUnderscoresAndSuffixIsCut) {
    Graph g("my-prog.main.nc");
    auto* delay = g.Add<Editor::DelayNode>();
    auto* out = g.Output(0);
    Graph::Link(delay, out, 0);
    EXPECT_EQ(g.Body().at(1), "var $_my_prog_delay1 = 0");
}

TEST(ProgramCodeNames, NameWithoutSuffixIsUsedWhole) {
    std::string cleaned;
    EXPECT_TRUE(Editor::CleanProgramName("Prog_2", cleaned));
    EXPECT_EQ(cleaned, "Prog_2");
    EXPECT_TRUE(Editor::CleanProgramName("a-b-c.main.nc", cleaned));
    EXPECT_EQ(cleaned, "a_b_c");
    EXPECT_FALSE(Editor::CleanProgramName("x.main.nc.main.nc", cleaned)); // cut once only
    EXPECT_FALSE(Editor::CleanProgramName("", cleaned));
    EXPECT_FALSE(Editor::CleanProgramName("main.nc", cleaned));
    EXPECT_FALSE(Editor::CleanProgramName("caf\xc3\xa9", cleaned));
}

TEST(ProgramCodeNames, RefusedNameWritesMessageAndChangesNothing) {
    Graph g("good.main.nc");
    g.Add<Editor::TimeNode>();
    g.editor.Serialize(true);
    std::string const before = g.editor.GetCode();
    ASSERT_EQ(g.editor.undoHistory.size(), 1u);

    g.Add<Editor::DelayNode>();
    g.editor.programName = "my prog";
    testing::internal::CaptureStderr();
    g.editor.Serialize(true);
    std::string const err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err, "Invalid program name: my prog\n");
    EXPECT_EQ(g.editor.GetCode(), before);
    EXPECT_EQ(g.editor.undoHistory.size(), 1u);
}

TEST(ProgramCodeNames, ExactlyTheSuffixIsRefused) {
    Graph g(".main.nc");
    g.editor.code.SetText("kept");
    testing::internal::CaptureStderr();
    g.editor.Serialize(false);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Invalid program name: .main.nc\n");
    EXPECT_EQ(g.editor.GetCode(), "kept");
}

// --- shared inputs and memoised nodes -------------------------------------------------------

TEST(ProgramCodeSharing, TwoOutputsFedByOneExpressionShareOneVariable) {
    Graph g;
    auto* input = g.Input(0);
    auto* expr = g.Add<Editor::ExpressionNode>();
    expr->SetInputCount(1);
    expr->text = "a * 2";
    Graph::Link(input, expr, 0);
    auto* out = g.Output(0, 2);
    Graph::Link(expr, out, 0);
    Graph::Link(expr, out, 1);
    EXPECT_EQ(g.Body(), (Lines{
                            "",
                            "update",
                            "\tvar $_input_number_0_0 = input_number(0, 0)",
                            "\tvar $_expr1 = $_input_number_0_0 * 2",
                            "\toutput_number(0, 0, $_expr1)",
                            "\toutput_number(0, 1, $_expr1)",
                        }));
}

TEST(ProgramCodeSharing, TwoInputNodesWithSameTypeIndexAndChannelShareOneVariable) {
    Graph g;
    auto* a = g.Input(3, 1);
    auto* b = g.Input(3, 1);
    auto* c = g.Input(3, 2);
    auto* add = g.Add<Editor::MathNode>("ADD");
    Graph::Link(a, add, 0);
    Graph::Link(b, add, 1);
    auto* out = g.Output(0, 2);
    Graph::Link(add, out, 0);
    Graph::Link(c, out, 1);
    EXPECT_EQ(g.Body(), (Lines{
                            "",
                            "update",
                            "\tvar $_input_number_3_1 = input_number(3, 1)",
                            "\toutput_number(0, 0, ($_input_number_3_1 + $_input_number_3_1))",
                            "\tvar $_input_number_3_2 = input_number(3, 2)",
                            "\toutput_number(0, 1, $_input_number_3_2)",
                        }));
}

TEST(ProgramCodeSharing, TextAndNumberInputsOfOnePortAreDistinct) {
    Graph g;
    auto* a = g.Input(0, 0, 0);
    auto* b = g.Input(0, 0, 1);
    auto* print = g.Add<Editor::PrintNode>();
    print->SetInputCount(2);
    Graph::Link(a, print, 0);
    Graph::Link(b, print, 1);
    EXPECT_EQ(g.Body(), (Lines{
                            "",
                            "update",
                            "\tvar $_input_number_0_0 = input_number(0, 0)",
                            "\tvar $_input_text_0_0 = input_text(0, 0)",
                            "\tprint($_input_number_0_0, $_input_text_0_0)",
                        }));
}

TEST(ProgramCodeSharing, AliasedInputsShareByTypeAliasAndChannel) {
    Graph g;
    auto* a = g.Input(-1, 0, 1);
    a->alias = "door";
    auto* b = g.Input(-1, 0, 1);
    b->alias = "door";
    auto* c = g.Input(-1, 2, 1);
    c->alias = "door";
    auto* empty = g.Input(-1, 0, 1);
    auto* emptyNumber = g.Input(-1, 0, 0);
    auto* print = g.Add<Editor::PrintNode>();
    print->SetInputCount(5);
    Graph::Link(a, print, 0);
    Graph::Link(b, print, 1);
    Graph::Link(c, print, 2);
    Graph::Link(empty, print, 3);
    Graph::Link(emptyNumber, print, 4);
    EXPECT_EQ(g.Body(), (Lines{
                            "",
                            "update",
                            "\tvar $_input_alias_1 = input_text(\"door\", 0)",
                            "\tvar $_input_alias_2 = input_text(\"door\", 2)",
                            "\tprint($_input_alias_1, $_input_alias_1, $_input_alias_2, \"\", 0)",
                        }));
}

TEST(ProgramCodeSharing, MemoisedNodeWalksItsInputsAgainWithoutNewLines) {
    Graph g;
    auto* input = g.Input(0);
    auto* blink = g.Add<Editor::BlinkerNode>();
    Graph::Link(input, blink, 0);
    auto* out = g.Output(0, 3);
    for (size_t i = 0; i < 3; ++i) Graph::Link(blink, out, i);
    Lines const body = g.Body();
    EXPECT_EQ(body, (Lines{
                        "",
                        "update",
                        "\tvar $_input_number_0_0 = input_number(0, 0)",
                        "\tvar $_blinker1 = round(time / $_input_number_0_0) % 2 == 0",
                        "\toutput_number(0, 0, $_blinker1)",
                        "\toutput_number(0, 1, $_blinker1)",
                        "\toutput_number(0, 2, $_blinker1)",
                    }));
}

TEST(ProgramCodeSharing, MathNodeWithTwoConsumersIsWrittenTwice) {
    Graph g;
    auto* mul = g.Add<Editor::MathNode>("MULTIPLY");
    mul->inputDefaults = {"2", "3"};
    auto* out = g.Output(0, 2);
    Graph::Link(mul, out, 0);
    Graph::Link(mul, out, 1);
    EXPECT_EQ(g.Body(), (Lines{"", "update", "\toutput_number(0, 0, (2 * 3))", "\toutput_number(0, 1, (2 * 3))"}));
}

// --- FormatNumber ---------------------------------------------------------------------------

TEST(ProgramCodeFormatNumber, Cases) {
    EXPECT_EQ(Editor::FormatNumber(""), "0");
    EXPECT_EQ(Editor::FormatNumber("   "), "");
    EXPECT_EQ(Editor::FormatNumber(" \t\n\r\v\f"), "");
    EXPECT_EQ(Editor::FormatNumber(" 5 "), "5");
    EXPECT_EQ(Editor::FormatNumber("\t\n1.0\r\v\f"), "1.0");
    EXPECT_EQ(Editor::FormatNumber(".5"), "0.5");
    EXPECT_EQ(Editor::FormatNumber("  .25"), "0.25");
    EXPECT_EQ(Editor::FormatNumber("-.5"), "-0.5");
    EXPECT_EQ(Editor::FormatNumber("+.5"), "+0.5");
    EXPECT_EQ(Editor::FormatNumber("-."), "-0.");
    EXPECT_EQ(Editor::FormatNumber("."), "0.");
    EXPECT_EQ(Editor::FormatNumber("-5"), "-5");
    EXPECT_EQ(Editor::FormatNumber("-"), "-");
    EXPECT_EQ(Editor::FormatNumber("abc"), "abc"); // no other check
    EXPECT_EQ(Editor::FormatNumber("1e3"), "1e3");
}

TEST(ProgramCodeFormatNumber, BlankDefaultOfAnOutputWritesAnEmptyValue) {
    Graph g;
    auto* out = g.Output(0);
    out->inputDefaults[0] = "  ";
    EXPECT_EQ(g.Body(), (Lines{"", "update", "\toutput_number(0, 0, )"}));
}

// --- substitution ---------------------------------------------------------------------------

TEST(ProgramCodeSubstitution, Cases) {
    Lines const two{"X", "Y"};
    EXPECT_EQ(Editor::Substitute("a + b", two), "X + Y");
    EXPECT_EQ(Editor::Substitute("A + B", two), "X + Y");
    EXPECT_EQ(Editor::Substitute("sin(a)", two), "sin(X)");
    EXPECT_EQ(Editor::Substitute("ab", two), "aY");
    EXPECT_EQ(Editor::Substitute("c", two), "c");
    EXPECT_EQ(Editor::Substitute("a1", two), "X1");
    EXPECT_EQ(Editor::Substitute("\"a b\" + a", two), "\"a b\" + X");
    EXPECT_EQ(Editor::Substitute("  a  ", two), "X");
    EXPECT_EQ(Editor::Substitute(" \t ", two), "");
    EXPECT_EQ(Editor::Substitute("", two), "");
    EXPECT_EQ(Editor::Substitute("b", {}), "b");
    EXPECT_EQ(Editor::Substitute("$a", two), "$X"); // the rule looks at letters only

    Lines fourteen;
    for (int i = 0; i < 14; ++i) fourteen.push_back("i" + std::to_string(i));
    EXPECT_EQ(Editor::Substitute("sin(a)", fourteen), "sii13(i0)");
}

TEST(ProgramCodeSubstitution, ExpressionAndStatementUseInputTexts) {
    Graph g;
    auto* time = g.Add<Editor::TimeNode>();
    auto* expr = g.Add<Editor::ExpressionNode>();
    expr->text = " a + b ";
    Graph::Link(time, expr, 0);
    expr->inputDefaults[1] = ".5";
    auto* statement = g.Add<Editor::StatementNode>();
    statement->text = "print(a)";
    Graph::Link(expr, statement, 0);
    auto* execute = g.Add<Editor::ExecuteNode>();
    Graph::Link(statement, execute, 0);
    EXPECT_EQ(g.Body(), (Lines{"", "update", "\tvar $_expr1 = time + 0.5", "\tprint($_expr1)"}));
}

TEST(ProgramCodeSubstitution, TextTypedDefaultIsQuotedAndOtherTypesAsTheyStand) {
    Graph g;
    auto* expr = g.Add<Editor::ExpressionNode>();
    expr->SetInputCount(3);
    expr->text = "a + b + c";
    expr->inputDefaults = {"hi", "x + 1", ""};
    expr->inputTypes[0] = 1;
    expr->inputTypes[1] = 7;
    auto* out = g.Output(0);
    Graph::Link(expr, out, 0);
    EXPECT_EQ(g.Body().at(2), "\tvar $_expr1 = \"hi\" + x + 1 + 0");
}

} // namespace
