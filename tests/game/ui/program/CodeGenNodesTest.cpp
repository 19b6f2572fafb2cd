// Code generation of each node class: the sinks, the math table, counters, smooths,
// pulses, switches, delays, blinkers, PID controllers, texts and conditionals.
#include "ProgramGraph.hpp"

#include <gtest/gtest.h>

using namespace programtest;

namespace {

// --- sinks ----------------------------------------------------------------------------------

TEST(ProgramCodeSinks, ConstantNumberAndText) {
    Graph g;
    auto* pi = g.Add<Editor::ConstNumberNode>();
    pi->name = "pi";
    pi->value = 3.14159;
    auto* greeting = g.Add<Editor::ConstTextNode>();
    greeting->name = "greeting";
    greeting->value = "hi there";
    auto* big = g.Add<Editor::ConstNumberNode>();
    big->name = "big";
    big->value = -1e20;
    EXPECT_EQ(g.Body(), (Lines{"", "const $pi = 3.141590", "const $big = -100000000000000000000.000000", "",
                               "const $greeting = \"hi there\""}));
}

TEST(ProgramCodeSinks, ConstantsStandForTheirNames) {
    Graph g;
    auto* number = g.Add<Editor::ConstNumberNode>();
    number->name = "k";
    auto* text = g.Add<Editor::ConstTextNode>();
    text->name = "s";
    auto* print = g.Add<Editor::PrintNode>();
    print->SetInputCount(2);
    Graph::Link(number, print, 0);
    Graph::Link(text, print, 1);
    EXPECT_EQ(g.Body(), (Lines{"", "const $k = 0.000000", "", "const $s = \"\"", "", "update", "\tprint($k, $s)"}));
}

TEST(ProgramCodeSinks, NumberVariableUnconnectedWritesBothPairs) {
    Graph g;
    auto* var = g.Add<Editor::VarNumberNode>();
    var->name = "count";
    EXPECT_EQ(g.Body(), (Lines{"", "var $count : number", "", "update", "\tif 0", "\t\t$count = 0", "\tif 0",
                               "\t\t$count = 0"}));
}

TEST(ProgramCodeSinks, NumberVariableConnected) {
    Graph g;
    auto* value = g.Input(0);
    auto* set = g.Input(1);
    auto* var = g.Add<Editor::VarNumberNode>();
    var->name = "count";
    Graph::Link(value, var, 0);
    Graph::Link(set, var, 1);
    var->inputDefaults[2] = " "; // formats to nothing: no reset pair
    EXPECT_EQ(g.Body(), (Lines{
                            "",
                            "var $count : number",
                            "",
                            "update",
                            "\tvar $_input_number_0_0 = input_number(0, 0)",
                            "\tvar $_input_number_1_0 = input_number(1, 0)",
                            "\tif $_input_number_1_0",
                            "\t\t$count = $_input_number_0_0",
                        }));
}

TEST(ProgramCodeSinks, NumberVariableIgnoresTypesOfItsDefaults) {
    Graph g;
    auto* var = g.Add<Editor::VarNumberNode>();
    var->name = "v";
    var->inputDefaults = {".5", "1", ""};
    var->inputTypes[0] = 1;
    EXPECT_EQ(g.Body(), (Lines{"", "var $v : number", "", "update", "\tif 1", "\t\t$v = 0.5", "\tif 0",
                               "\t\t$v = 0"}));
}

TEST(ProgramCodeSinks, VariableWithoutThreeInputsIsIgnoredButStillNamed) {
    Graph g;
    auto* var = g.Add<Editor::VarNumberNode>();
    var->name = "n";
    var->inputs.resize(2);
    auto* text = g.Add<Editor::VarTextNode>();
    text->name = "t";
    text->inputs.resize(4);
    auto* print = g.Add<Editor::PrintNode>();
    print->SetInputCount(2);
    Graph::Link(var, print, 0);
    Graph::Link(text, print, 1);
    EXPECT_EQ(g.Body(), (Lines{"", "update", "\tprint($n, $t)"}));
}

TEST(ProgramCodeSinks, TextVariableUnconnectedDeclaresOnly) {
    Graph g;
    auto* var = g.Add<Editor::VarTextNode>();
    var->name = "msg";
    EXPECT_EQ(g.Body(), (Lines{"", "var $msg : text"}));
}

TEST(ProgramCodeSinks, TextVariableWithSetAndRawReset) {
    Graph g;
    auto* set = g.Input(2);
    auto* var = g.Add<Editor::VarTextNode>();
    var->name = "msg";
    var->inputDefaults[0] = "hello";
    Graph::Link(set, var, 1);
    var->inputDefaults[2] = "$clear";
    EXPECT_EQ(g.Body(), (Lines{
                            "",
                            "var $msg : text",
                            "",
                            "update",
                            "\tvar $_input_number_2_0 = input_number(2, 0)",
                            "\tif $_input_number_2_0",
                            "\t\t$msg = \"hello\"",
                            "\tif $clear",
                            "\t\t$msg = \"\"",
                        }));
}

TEST(ProgramCodeSinks, TextVariableConnectedValue) {
    Graph g;
    auto* value = g.Input(0, 0, 1);
    auto* var = g.Add<Editor::VarTextNode>();
    var->name = "msg";
    Graph::Link(value, var, 0);
    var->inputDefaults[1] = "1";
    EXPECT_EQ(g.Body(), (Lines{"", "var $msg : text", "", "update", "\tvar $_input_text_0_0 = input_text(0, 0)",
                               "\tif 1", "\t\t$msg = $_input_text_0_0"}));
}

TEST(ProgramCodeSinks, OutputNumberedTextTypedAndEmptyDefaultSkipped) {
    Graph g;
    auto* time = g.Add<Editor::TimeNode>();
    auto* out = g.Output(2, 4);
    Graph::Link(time, out, 0);
    out->inputDefaults[1] = "";
    out->inputDefaults[2] = "5";
    out->inputTypes[2] = 1;
    out->inputDefaults[3] = ".5";
    EXPECT_EQ(g.Body(), (Lines{"", "update", "\toutput_number(2, 0, time)", "\toutput_text(2, 2, \"5\")",
                               "\toutput_number(2, 3, 0.5)"}));
}

TEST(ProgramCodeSinks, OutputAliasedAndEmptyAlias) {
    Graph g;
    auto* out = g.Output(-1, 2);
    out->alias = "screen";
    out->inputDefaults = {"1", "x"};
    out->inputTypes[1] = 1;
    auto* bare = g.Output(-1);
    bare->inputDefaults[0] = "1";
    auto* none = g.Output(3);
    none->inputs.clear();
    EXPECT_EQ(g.Body(), (Lines{"", "update", "\toutput_number(\"screen\", 0, 1)", "\toutput_text(\"screen\", 1, \"x\")",
                               "\toutput_number(\"\", 0, 1)"}));
}

TEST(ProgramCodeSinks, OutputConnectedToMissingNodeUsesDefault) {
    Graph g;
    auto* out = g.Output(0, 2);
    out->inputs[0] = UniqueId::Generate("NODE");
    out->inputs[1] = UniqueId::Generate("NODE");
    out->inputDefaults[1] = "7";
    EXPECT_EQ(g.Body(), (Lines{"", "update", "\toutput_number(0, 1, 7)"}));
}

TEST(ProgramCodeSinks, PrintContributions) {
    Graph g;
    auto* time = g.Add<Editor::TimeNode>();
    auto* print = g.Add<Editor::PrintNode>();
    print->SetInputCount(4);
    Graph::Link(time, print, 0);
    print->inputDefaults[1] = "";   // text: "" even when empty
    print->inputTypes.erase(2);     // number with empty default: nothing
    print->inputTypes.erase(3);
    print->inputDefaults[3] = "-.5";
    EXPECT_EQ(g.Body(), (Lines{"", "update", "\tprint(time, \"\", -0.5)"}));
}

TEST(ProgramCodeSinks, PrintWithNothingToPrintWritesNothing) {
    Graph g;
    auto* print = g.Add<Editor::PrintNode>();
    print->inputTypes.clear();
    auto* empty = g.Add<Editor::PrintNode>();
    empty->inputs.clear();
    EXPECT_EQ(g.Body(), Lines{});
}

TEST(ProgramCodeSinks, PrintOfFreshNodePrintsEmptyText) {
    Graph g;
    g.Add<Editor::PrintNode>();
    EXPECT_EQ(g.Body(), (Lines{"", "update", "\tprint(\"\")"}));
}

TEST(ProgramCodeSinks, ExecuteSplitsAMultiLineConditional) {
    Graph g;
    auto* condition = g.Input(0);
    auto* time = g.Add<Editor::TimeNode>();
    auto* statement = g.Add<Editor::StatementNode>();
    statement->text = "print(a)";
    Graph::Link(time, statement, 0);
    auto* conditional = g.Add<Editor::ConditionalNode>();
    Graph::Link(condition, conditional, 0);
    Graph::Link(statement, conditional, 1);
    conditional->inputDefaults[2] = "$x = 1";
    auto* execute = g.Add<Editor::ExecuteNode>();
    execute->SetInputCount(3);
    Graph::Link(conditional, execute, 0);
    execute->inputDefaults[1] = "$y += 1";
    execute->inputDefaults[2] = "";
    EXPECT_EQ(g.Body(), (Lines{
                            "",
                            "update",
                            "\tvar $_input_number_0_0 = input_number(0, 0)",
                            "\tif $_input_number_0_0",
                            "\t\tprint(time)",
                            "\telse",
                            "\t\t$x = 1",
                            "\t$y += 1",
                        }));
}

TEST(ProgramCodeSinks, ConditionalNestsAndSkipsEmptyLines) {
    Graph g;
    auto* inner = g.Add<Editor::ConditionalNode>();
    inner->inputDefaults = {"$b", "$c = 1\n\n$d = 2", ""};
    auto* outer = g.Add<Editor::ConditionalNode>();
    outer->inputDefaults[0] = "1";
    Graph::Link(inner, outer, 1);
    auto* execute = g.Add<Editor::ExecuteNode>();
    Graph::Link(outer, execute, 0);
    EXPECT_EQ(g.Body(), (Lines{"", "update", "\tif 1", "\t\tif $b", "\t\t\t$c = 1", "\t\t\t$d = 2"}));
}

TEST(ProgramCodeSinks, ExecuteDefaultIsOneLineUnsplit) {
    Graph g;
    auto* execute = g.Add<Editor::ExecuteNode>();
    execute->inputDefaults[0] = "$a = 1\n$b = 2";
    EXPECT_EQ(g.Body(), (Lines{"", "update", "\t$a = 1", "$b = 2"}));
}

TEST(ProgramCodeSinks, ConditionalWithNumberTypedStatementsWritesTheirZero) {
    // A then-input typed as a number formats its empty default to "0".
    Graph g;
    auto* conditional = g.Add<Editor::ConditionalNode>();
    conditional->inputTypes.clear();
    auto* execute = g.Add<Editor::ExecuteNode>();
    Graph::Link(conditional, execute, 0);
    EXPECT_EQ(g.Body(), (Lines{"", "update", "\tif 0", "\t\t0", "\telse", "\t\t0"}));
}

TEST(ProgramCodeSinks, Include) {
    Graph g;
    auto* include = g.Add<Editor::IncludeNode>();
    include->path = "lib/util.nc";
    g.Add<Editor::IncludeNode>(); // empty path: nothing
    EXPECT_EQ(g.Body(), (Lines{"", "include \"lib/util.nc\""}));
}

// --- math -----------------------------------------------------------------------------------

struct MathCase {
    char const* title;
    size_t inputs;
    char const* text;
};

class ProgramCodeMath : public testing::TestWithParam<MathCase> {};

TEST_P(ProgramCodeMath, WritesItsFormWithItsInputCount) {
    MathCase const& c = GetParam();
    Graph g;
    auto* math = g.Add<Editor::MathNode>(c.title);
    EXPECT_EQ(math->inputs.size(), c.inputs);
    EXPECT_EQ(Editor::MathInputCount(c.title), static_cast<int>(c.inputs));
    math->inputDefaults = {"1", "2", "3"};
    auto* out = g.Output(0);
    Graph::Link(math, out, 0);
    EXPECT_EQ(g.Body(), (Lines{"", "update", std::string("\toutput_number(0, 0, ") + c.text + ")"}));
}

INSTANTIATE_TEST_SUITE_P(
    EveryTitle, ProgramCodeMath,
    testing::Values(MathCase{"ADD", 2, "(1 + 2)"}, MathCase{"MULTIPLY", 2, "(1 * 2)"},
                    MathCase{"DIVIDE", 2, "(1 / 2)"}, MathCase{"SUBTRACT", 2, "(1 - 2)"},
                    MathCase{"EQUAL", 2, "(1 == 2)"}, MathCase{"MODULO", 2, "(1 % 2)"},
                    MathCase{"ABSOLUTE", 1, "abs(1)"}, MathCase{"CLAMP", 3, "clamp(1, 2, 3)"},
                    MathCase{"NEGATIVE", 1, "(-1)"}, MathCase{"NOT", 1, "(!1)"}, MathCase{"AND", 2, "(1 and 2)"},
                    MathCase{"OR", 2, "(1 or 2)"}, MathCase{"XOR", 2, "(1 xor 2)"},
                    MathCase{"GREATER", 2, "(1 > 2)"}, MathCase{"LESSER", 2, "(1 < 2)"},
                    MathCase{"SIN", 1, "sin(1)"}, MathCase{"COS", 1, "cos(1)"}, MathCase{"TAN", 1, "tan(1)"},
                    MathCase{"ASIN", 1, "asin(1)"}, MathCase{"ACOS", 1, "acos(1)"},
                    MathCase{"ATAN", 1, "atan(1)"}, MathCase{"POW", 2, "pow(1, 2)"},
                    MathCase{"LOG", 2, "log(1, 2)"}, MathCase{"FLOOR", 1, "floor(1)"},
                    MathCase{"CEIL", 1, "ceil(1)"}, MathCase{"ROUND", 1, "round(1)"},
                    MathCase{"FRACT", 1, "fract(1)"}, MathCase{"SQRT", 1, "sqrt(1)"},
                    MathCase{"SIGN", 1, "sign(1)"}, MathCase{"STEP", 3, "step(1, 2, 3)"},
                    MathCase{"SMOOTHSTEP", 3, "smoothstep(1, 2, 3)"}, MathCase{"LERP", 3, "lerp(1, 2, 3)"}),
    [](testing::TestParamInfo<MathCase> const& info) { return std::string(info.param.title); });

TEST(ProgramCodeMathTable, ListsEveryOperationOnce) {
    auto const operations = Editor::MathOperations();
    EXPECT_EQ(operations.size(), 32u);
    EXPECT_STREQ(operations.front(), "ADD");
    EXPECT_STREQ(operations.back(), "LERP");
}

TEST(ProgramCodeMathTable, UnknownTitleGivesEmptyText) {
    Graph g;
    auto* math = g.Add<Editor::MathNode>("ADD");
    math->title = "FOO";
    auto* out = g.Output(0);
    Graph::Link(math, out, 0);
    EXPECT_EQ(g.Body(), (Lines{"", "update", "\toutput_number(0, 0, )"}));
}

TEST(ProgramCodeMathTable, MissingInputsReadAsEmpty) {
    Graph g;
    auto* math = g.Add<Editor::MathNode>("CLAMP");
    math->inputs.resize(1);
    math->inputDefaults = {"1"};
    auto* out = g.Output(0);
    Graph::Link(math, out, 0);
    EXPECT_EQ(g.Body(), (Lines{"", "update", "\toutput_number(0, 0, clamp(1, , ))"}));
}

TEST(ProgramCodeMathTable, SetOperationChangesInputCountAndKeepsLinks) {
    Editor::MathNode math("ADD");
    UniqueId const a = UniqueId::Generate("NODE");
    math.inputs[0] = a;
    math.SetOperation("LERP");
    EXPECT_EQ(math.title, "LERP");
    ASSERT_EQ(math.inputs.size(), 3u);
    EXPECT_EQ(math.inputs[0], a);
    EXPECT_EQ(math.inputDefaults.size(), 3u);
    EXPECT_TRUE(math.modified);
    math.SetOperation("SIN");
    EXPECT_EQ(math.inputs.size(), 1u);
    EXPECT_EQ(math.inputs[0], a);
}

// --- counters -------------------------------------------------------------------------------

TEST(ProgramCodeCounter, FreshCounterAlwaysWritesTheResetPair) {
    Graph g;
    auto* counter = g.Add<Editor::CounterNode>();
    auto* out = g.Output(0);
    Graph::Link(counter, out, 0);
    EXPECT_EQ(g.Body(), (Lines{
                            "",
                            "var $_test_counter1 : number",
                            "var $_test_counter1_init = 0",
                            "",
                            "update",
                            "\t$_test_counter1 += 1",
                            "\tif 0",
                            "\t\t$_test_counter1 = 0",
                            "\toutput_number(0, 0, $_test_counter1)",
                        }));
}

TEST(ProgramCodeCounter, StartValueLimitsAndReset) {
    Graph g;
    auto* step = g.Input(0);
    auto* reset = g.Input(4);
    auto* counter = g.Add<Editor::CounterNode>();
    Graph::Link(step, counter, 0);
    counter->inputDefaults[1] = "5";
    counter->inputDefaults[2] = "0";
    counter->inputDefaults[3] = "10";
    Graph::Link(reset, counter, 4);
    auto* out = g.Output(0);
    Graph::Link(counter, out, 0);
    EXPECT_EQ(g.Body(), (Lines{
                            "",
                            "var $_test_counter1 : number",
                            "var $_test_counter1_init = 0",
                            "",
                            "update",
                            "\tvar $_input_number_0_0 = input_number(0, 0)",
                            "\tvar $_input_number_4_0 = input_number(4, 0)",
                            "\t$_test_counter1 += $_input_number_0_0",
                            "\tif !$_test_counter1_init",
                            "\t\t$_test_counter1 = 5",
                            "\t\t$_test_counter1_init = 1",
                            "\tif $_test_counter1 < 0",
                            "\t\t$_test_counter1 = 0",
                            "\tif $_test_counter1 > 10",
                            "\t\t$_test_counter1 = 10",
                            "\tif $_input_number_4_0",
                            "\t\t$_test_counter1 = 5",
                            "\toutput_number(0, 0, $_test_counter1)",
                        }));
}

TEST(ProgramCodeCounter, LimitLinkedToMissingNodeCountsAsPresent) {
    Graph g;
    auto* counter = g.Add<Editor::CounterNode>();
    counter->inputs[3] = UniqueId::Generate("NODE"); // id stored, node gone
    auto* out = g.Output(0);
    Graph::Link(counter, out, 0);
    Lines const body = g.Body();
    EXPECT_EQ(Lines(body.begin() + 5, body.end()), (Lines{
                                                       "\t$_test_counter1 += 1",
                                                       "\tif $_test_counter1 > 0",
                                                       "\t\t$_test_counter1 = 0",
                                                       "\tif 0",
                                                       "\t\t$_test_counter1 = 0",
                                                       "\toutput_number(0, 0, $_test_counter1)",
                                                   }));
}

TEST(ProgramCodeCounter, CountersAreNumberedInWalkOrder) {
    Graph g;
    auto* first = g.Add<Editor::CounterNode>();
    auto* second = g.Add<Editor::CounterNode>();
    auto* out = g.Output(0, 2);
    Graph::Link(second, out, 0);
    Graph::Link(first, out, 1);
    Lines const body = g.Body();
    EXPECT_EQ(body.back(), "\toutput_number(0, 1, $_test_counter2)");
    EXPECT_EQ(body.at(1), "var $_test_counter1 : number");
}

// --- smooths --------------------------------------------------------------------------------

TEST(ProgramCodeSmooth, WithoutTriggerOnlyFiveDeclarations) {
    Graph g;
    auto* smooth = g.Add<Editor::SmoothNode>();
    auto* out = g.Output(0);
    Graph::Link(smooth, out, 0);
    EXPECT_EQ(g.Body(), (Lines{
                            "",
                            "var $_test_smooth1 : number",
                            "var $_test_smooth1_a : number",
                            "var $_test_smooth1_b : number",
                            "var $_test_smooth1_t0 : number",
                            "var $_test_smooth1_t1 : number",
                            "",
                            "update",
                            "\toutput_number(0, 0, $_test_smooth1)",
                        }));
}

TEST(ProgramCodeSmooth, WithTriggerAndZeroDurationUsesOne) {
    Graph g;
    auto* trigger = g.Input(0);
    auto* smooth = g.Add<Editor::SmoothNode>();
    smooth->inputDefaults = {"7", "0", ""};
    Graph::Link(trigger, smooth, 2);
    auto* out = g.Output(0);
    Graph::Link(smooth, out, 0);
    Lines const body = g.Body();
    EXPECT_EQ(Lines(body.begin() + 6, body.end()),
              (Lines{
                  "",
                  "update",
                  "\tvar $_input_number_0_0 = input_number(0, 0)",
                  "\tif $_input_number_0_0",
                  "\t\t$_test_smooth1_a = $_test_smooth1",
                  "\t\t$_test_smooth1_b = 7",
                  "\t\t$_test_smooth1_t0 = time",
                  "\t\t$_test_smooth1_t1 = time + 1",
                  "\t$_test_smooth1 = lerp($_test_smooth1_a, $_test_smooth1_b, smoothstep($_test_smooth1_t0, "
                  "$_test_smooth1_t1, time))",
                  "\toutput_number(0, 0, $_test_smooth1)",
              }));
}

TEST(ProgramCodeSmooth, DurationOtherThanZeroIsKept) {
    Graph g;
    auto* smooth = g.Add<Editor::SmoothNode>();
    smooth->inputDefaults = {"1", "2.5", "1"};
    auto* out = g.Output(0);
    Graph::Link(smooth, out, 0);
    Lines const body = g.Body();
    EXPECT_EQ(body.at(8), "\tif 1");
    EXPECT_EQ(body.at(12), "\t\t$_test_smooth1_t1 = time + 2.5");
}

// --- pulses ---------------------------------------------------------------------------------

TEST(ProgramCodePulse, PlainWithNothingConnectedIsZeroEachUpdate) {
    Graph g;
    auto* pulse = g.Add<Editor::PulseNode>();
    pulse->inputDefaults = {"1", "1"}; // defaults alone do not connect
    auto* out = g.Output(0);
    Graph::Link(pulse, out, 0);
    EXPECT_EQ(g.Body(), (Lines{"", "update", "\tvar $_test_pulse1 = 0", "\toutput_number(0, 0, $_test_pulse1)"}));
}

TEST(ProgramCodePulse, ToggleWithNothingConnectedIsDeclared) {
    Graph g;
    auto* pulse = g.Add<Editor::PulseToggleNode>();
    auto* out = g.Output(0);
    Graph::Link(pulse, out, 0);
    EXPECT_EQ(g.Body(), (Lines{"", "var $_test_pulse1 = 0", "", "update", "\toutput_number(0, 0, $_test_pulse1)"}));
}

TEST(ProgramCodePulse, PlainRisingEdgeNotLiteralLike) {
    Graph g;
    auto* time = g.Add<Editor::TimeNode>();
    auto* pulse = g.Add<Editor::PulseNode>();
    Graph::Link(time, pulse, 0);
    auto* out = g.Output(0);
    Graph::Link(pulse, out, 0);
    EXPECT_EQ(g.Body(), (Lines{
                            "",
                            "var $_test_pulse1_last_up = 0",
                            "",
                            "update",
                            "\tvar $_test_pulse1 = 0",
                            "\tvar $_test_pulse1_up_ = time",
                            "\tif $_test_pulse1_up_ and !$_test_pulse1_last_up",
                            "\t\t$_test_pulse1!!",
                            "\t$_test_pulse1_last_up = $_test_pulse1_up_",
                            "\toutput_number(0, 0, $_test_pulse1)",
                        }));
}

TEST(ProgramCodePulse, ToggleFallingEdgeLiteralLike) {
    Graph g;
    auto* input = g.Input(1);
    auto* pulse = g.Add<Editor::PulseToggleNode>();
    Graph::Link(input, pulse, 1);
    auto* out = g.Output(0);
    Graph::Link(pulse, out, 0);
    EXPECT_EQ(g.Body(), (Lines{
                            "",
                            "var $_test_pulse1 = 0",
                            "var $_test_pulse1_last_down = 1",
                            "",
                            "update",
                            "\tvar $_input_number_1_0 = input_number(1, 0)",
                            "\tif !$_input_number_1_0 and $_test_pulse1_last_down",
                            "\t\t$_test_pulse1!!",
                            "\t$_test_pulse1_last_down = $_input_number_1_0",
                            "\toutput_number(0, 0, $_test_pulse1)",
                        }));
}

TEST(ProgramCodePulse, BothEdgesConnected) {
    Graph g;
    auto* input = g.Input(0);
    auto* math = g.Add<Editor::MathNode>("NOT");
    math->inputDefaults[0] = "$x";
    auto* pulse = g.Add<Editor::PulseNode>();
    Graph::Link(input, pulse, 0);
    Graph::Link(math, pulse, 1);
    auto* out = g.Output(0);
    Graph::Link(pulse, out, 0);
    EXPECT_EQ(g.Body(), (Lines{
                            "",
                            "var $_test_pulse1_last_up = 0",
                            "var $_test_pulse1_last_down = 1",
                            "",
                            "update",
                            "\tvar $_input_number_0_0 = input_number(0, 0)",
                            "\tvar $_test_pulse1 = 0",
                            "\tvar $_test_pulse1_down_ = (!$x)",
                            "\tif ($_input_number_0_0 and !$_test_pulse1_last_up) or (!$_test_pulse1_down_ and "
                            "$_test_pulse1_last_down)",
                            "\t\t$_test_pulse1!!",
                            "\t$_test_pulse1_last_up = $_input_number_0_0",
                            "\t$_test_pulse1_last_down = $_test_pulse1_down_",
                            "\toutput_number(0, 0, $_test_pulse1)",
                        }));
}

TEST(ProgramCodePulse, EdgeLinkedToMissingNodeCountsAsConnected) {
    Graph g;
    auto* pulse = g.Add<Editor::PulseToggleNode>();
    pulse->inputs[0] = UniqueId::Generate("NODE");
    pulse->inputDefaults[0] = "-1"; // "-" is not literal-like
    auto* out = g.Output(0);
    Graph::Link(pulse, out, 0);
    EXPECT_EQ(g.Body(), (Lines{
                            "",
                            "var $_test_pulse1 = 0",
                            "var $_test_pulse1_last_up = 0",
                            "",
                            "update",
                            "\tvar $_test_pulse1_up_ = -1",
                            "\tif $_test_pulse1_up_ and !$_test_pulse1_last_up",
                            "\t\t$_test_pulse1!!",
                            "\t$_test_pulse1_last_up = $_test_pulse1_up_",
                            "\toutput_number(0, 0, $_test_pulse1)",
                        }));
}

TEST(ProgramCodePulse, LiteralLikeRule) {
    EXPECT_TRUE(Editor::IsLiteralLike("\"x\""));
    EXPECT_TRUE(Editor::IsLiteralLike("$a"));
    EXPECT_TRUE(Editor::IsLiteralLike("0"));
    EXPECT_TRUE(Editor::IsLiteralLike("9x"));
    EXPECT_FALSE(Editor::IsLiteralLike(""));
    EXPECT_FALSE(Editor::IsLiteralLike("-1"));
    EXPECT_FALSE(Editor::IsLiteralLike("time"));
    EXPECT_FALSE(Editor::IsLiteralLike("(1 + 2)"));
    EXPECT_FALSE(Editor::IsLiteralLike(".5"));
}

// --- switches -------------------------------------------------------------------------------

TEST(ProgramCodeSwitch, MinusOneSelectorGoesThroughTheUnderscoreVariable) {
    Graph g;
    auto* sw = g.Add<Editor::SwitchNode>();
    sw->inputDefaults = {"-1", "10", "20"};
    auto* out = g.Output(0);
    Graph::Link(sw, out, 0);
    EXPECT_EQ(g.Body(), (Lines{
                            "",
                            "update",
                            "\tvar $_switch1 = 0",
                            "\tvar $_switch1_ = -1",
                            "\tif $_switch1_ == 0",
                            "\t\t$_switch1 = 10",
                            "\telseif $_switch1_ == 1",
                            "\t\t$_switch1 = 20",
                            "\toutput_number(0, 0, $_switch1)",
                        }));
}

TEST(ProgramCodeSwitch, TextSwitchWithLiteralSelector) {
    Graph g;
    auto* sw = g.Add<Editor::SwitchNode>();
    sw->SetType(1);
    sw->SetInputCount(4);
    sw->inputDefaults = {"2", "a", "b", "c"};
    auto* out = g.Output(0);
    out->inputTypes[0] = 1;
    Graph::Link(sw, out, 0);
    EXPECT_EQ(g.Body(), (Lines{
                            "",
                            "update",
                            "\tvar $_switch1 = \"\"",
                            "\tif 2 == 0",
                            "\t\t$_switch1 = \"a\"",
                            "\telseif 2 == 1",
                            "\t\t$_switch1 = \"b\"",
                            "\telseif 2 == 2",
                            "\t\t$_switch1 = \"c\"",
                            "\toutput_text(0, 0, $_switch1)",
                        }));
}

TEST(ProgramCodeSwitch, SelectorOnly) {
    Graph g;
    auto* sw = g.Add<Editor::SwitchNode>();
    sw->SetInputCount(1);
    auto* out = g.Output(0);
    Graph::Link(sw, out, 0);
    EXPECT_EQ(g.Body(), (Lines{"", "update", "\tvar $_switch1 = 0", "\toutput_number(0, 0, $_switch1)"}));
}

TEST(ProgramCodeSwitch, SetTypeRetypesTheCasesOnly) {
    Editor::SwitchNode sw;
    sw.SetType(1);
    EXPECT_EQ(sw.InputType(0), 0);
    EXPECT_EQ(sw.InputType(1), 1);
    EXPECT_EQ(sw.InputType(2), 1);
    sw.SetInputCount(4);
    EXPECT_EQ(sw.InputType(3), 1);
    sw.SetType(0);
    EXPECT_TRUE(sw.inputTypes.empty());
}

// --- delays and blinkers --------------------------------------------------------------------

TEST(ProgramCodeDelay, ZeroTimeBecomesOneAndResetIsWritten) {
    Graph g;
    auto* trigger = g.Input(0);
    auto* reset = g.Input(1);
    auto* delay = g.Add<Editor::DelayNode>();
    delay->inputDefaults[0] = "0";
    Graph::Link(trigger, delay, 1);
    Graph::Link(reset, delay, 2);
    auto* out = g.Output(0);
    Graph::Link(delay, out, 0);
    EXPECT_EQ(g.Body(), (Lines{
                            "",
                            "var $_test_delay1 = 0",
                            "",
                            "update",
                            "\tvar $_input_number_0_0 = input_number(0, 0)",
                            "\tvar $_input_number_1_0 = input_number(1, 0)",
                            "\tvar $_test_delay1_ = $_test_delay1 > 0 and $_test_delay1 < time",
                            "\tif $_input_number_0_0",
                            "\t\t$_test_delay1 = time + 1",
                            "\tif $_input_number_1_0",
                            "\t\t$_test_delay1 = 0",
                            "\toutput_number(0, 0, $_test_delay1_)",
                        }));
}

TEST(ProgramCodeDelay, SharedDelayIsWrittenOnce) {
    Graph g;
    auto* delay = g.Add<Editor::DelayNode>();
    auto* out = g.Output(0, 2);
    Graph::Link(delay, out, 0);
    Graph::Link(delay, out, 1);
    EXPECT_EQ(g.Body(), (Lines{
                            "",
                            "var $_test_delay1 = 0",
                            "",
                            "update",
                            "\tvar $_test_delay1_ = $_test_delay1 > 0 and $_test_delay1 < time",
                            "\toutput_number(0, 0, $_test_delay1_)",
                            "\toutput_number(0, 1, $_test_delay1_)",
                        }));
}

TEST(ProgramCodeBlinker, PeriodZeroOrEmptyDividesByOne) {
    for (char const* period : {"0", ""}) {
        Graph g;
        auto* blink = g.Add<Editor::BlinkerNode>();
        blink->inputDefaults[0] = period;
        auto* out = g.Output(0);
        Graph::Link(blink, out, 0);
        EXPECT_EQ(g.Body(), (Lines{"", "update", "\tvar $_blinker1 = round(time / 1) % 2 == 0",
                                   "\toutput_number(0, 0, $_blinker1)"}))
            << "period \"" << period << "\"";
    }
}

TEST(ProgramCodeBlinker, OtherPeriodsAreKept) {
    Graph g;
    auto* blink = g.Add<Editor::BlinkerNode>();
    blink->inputDefaults[0] = ".5";
    auto* out = g.Output(0);
    Graph::Link(blink, out, 0);
    EXPECT_EQ(g.Body().at(2), "\tvar $_blinker1 = round(time / 0.5) % 2 == 0");
}

// --- texts ----------------------------------------------------------------------------------

TEST(ProgramCodeText, FormatIsWrittenUnescapedWithItsArguments) {
    Graph g;
    auto* time = g.Add<Editor::TimeNode>();
    auto* text = g.Add<Editor::TextNode>();
    text->text = "t={} \"q\"";
    text->SetInputCount(3);
    Graph::Link(time, text, 0);
    text->inputDefaults[1] = "s";
    text->inputTypes.erase(2);
    text->inputDefaults[2] = "4";
    auto* print = g.Add<Editor::PrintNode>();
    Graph::Link(text, print, 0);
    EXPECT_EQ(g.Body(), (Lines{"", "update", "\tvar $_text1 = text(\"t={} \"q\"\", time, \"s\", 4)",
                               "\tprint($_text1)"}));
}

TEST(ProgramCodeText, WithoutInputs) {
    Graph g;
    auto* text = g.Add<Editor::TextNode>();
    text->text = "hi";
    text->SetInputCount(0);
    auto* print = g.Add<Editor::PrintNode>();
    Graph::Link(text, print, 0);
    EXPECT_EQ(g.Body(), (Lines{"", "update", "\tvar $_text1 = text(\"hi\")", "\tprint($_text1)"}));
}

// --- PID controllers ------------------------------------------------------------------------

Lines PidFunction(std::string const& name, bool min, bool max) {
    std::string params;
    if (min) params += ", $_min:number";
    if (max) params += ", $_max:number";
    Lines lines{"function " + name +
                    "($_setpoint:number, $_processvalue:number, $_kp:number, $_ki:number, $_kd:number" + params +
                    ", $_integral:number, $_prev_error:number) : number",
                "\tvar $_error = $_setpoint - $_processvalue",
                "\tvar $_dt = delta_time",
                "\tvar $_derivative = ($_error - $_prev_error) / $_dt",
                "\tvar $_proportional = $_kp * $_error",
                "\t$_integral += $_error * $_dt"};
    if (min) lines.insert(lines.end(), {"\tif $_integral < $_min", "\t\t$_integral = $_min"});
    if (max) lines.insert(lines.end(), {"\tif $_integral > $_max", "\t\t$_integral = $_max"});
    lines.insert(lines.end(),
                 {"\t$_prev_error = $_error", "\tvar $_output = $_proportional + $_ki * $_integral + $_kd * $_derivative"});
    if (min) lines.insert(lines.end(), {"\tif $_output < $_min", "\t\t$_output = $_min"});
    if (max) lines.insert(lines.end(), {"\tif $_output > $_max", "\t\t$_output = $_max"});
    lines.push_back("\treturn $_output");
    return lines;
}

TEST(ProgramCodePid, WithoutLimitsOrReset) {
    Graph g;
    auto* pid = g.Add<Editor::PIDControllerNode>();
    auto* out = g.Output(0);
    Graph::Link(pid, out, 0);
    Lines expected{""};
    for (auto& line : PidFunction("@_test_pid1", false, false)) expected.push_back(line);
    expected.insert(expected.end(),
                    {"", "update", "\tvar $_pid1 = @_test_pid1(0, 0, 1, 0, 0)", "\toutput_number(0, 0, $_pid1)"});
    EXPECT_EQ(g.Body(), expected);
}

TEST(ProgramCodePid, WithLimitsAndReset) {
    Graph g;
    auto* setpoint = g.Input(0);
    auto* value = g.Input(1);
    auto* reset = g.Input(5);
    auto* pid = g.Add<Editor::PIDControllerNode>();
    Graph::Link(setpoint, pid, 0);
    Graph::Link(value, pid, 1);
    pid->inputDefaults[2] = "2";
    pid->inputDefaults[3] = ".1";
    pid->inputDefaults[4] = "0.01";
    Graph::Link(reset, pid, 5);
    pid->inputDefaults[6] = "-1";
    pid->inputDefaults[7] = "1";
    auto* out = g.Output(0);
    Graph::Link(pid, out, 0);
    Lines expected{""};
    for (auto& line : PidFunction("@_test_pid1", true, true)) expected.push_back(line);
    std::string const call = "@_test_pid1($_input_number_0_0, $_input_number_1_0, 2, 0.1, 0.01, -1, 1";
    expected.insert(expected.end(), {"", "update", "\tvar $_input_number_0_0 = input_number(0, 0)",
                                     "\tvar $_input_number_1_0 = input_number(1, 0)",
                                     "\tvar $_input_number_5_0 = input_number(5, 0)", "\tvar $_pid1 = 0",
                                     "\tif $_input_number_5_0", "\t\t$_pid1 = " + call + ", 0, 0)", "\telse",
                                     "\t\t$_pid1 = " + call + ")", "\toutput_number(0, 0, $_pid1)"});
    EXPECT_EQ(g.Body(), expected);
}

TEST(ProgramCodePid, MaximumOnlyAndTwoControllers) {
    Graph g("plant.main.nc");
    auto* first = g.Add<Editor::PIDControllerNode>();
    first->inputDefaults[7] = "100";
    auto* second = g.Add<Editor::PIDControllerNode>();
    second->inputs[6] = UniqueId::Generate("NODE"); // linked to a missing node: present, reads as 0
    auto* out = g.Output(0, 2);
    Graph::Link(first, out, 0);
    Graph::Link(second, out, 1);
    Lines expected{""};
    for (auto& line : PidFunction("@_plant_pid1", false, true)) expected.push_back(line);
    for (auto& line : PidFunction("@_plant_pid2", true, false)) expected.push_back(line);
    expected.insert(expected.end(),
                    {"", "update", "\tvar $_pid1 = @_plant_pid1(0, 0, 1, 0, 0, 100)", "\toutput_number(0, 0, $_pid1)",
                     "\tvar $_pid2 = @_plant_pid2(0, 0, 1, 0, 0, 0)", "\toutput_number(0, 1, $_pid2)"});
    EXPECT_EQ(g.Body(), expected);
}

// --- odd graphs -----------------------------------------------------------------------------

TEST(ProgramCodeOddGraphs, ClassesWithoutValueGiveEmptyText) {
    Graph g;
    auto* basic = g.Add<Editor::BasicNumberNode>();
    auto* include = g.Add<Editor::IncludeNode>();
    auto* out = g.Output(0, 2);
    Graph::Link(basic, out, 0);
    Graph::Link(include, out, 1);
    EXPECT_EQ(g.Body(), (Lines{"", "update", "\toutput_number(0, 0, )", "\toutput_number(0, 1, )"}));
}

TEST(ProgramCodeOddGraphs, CycleMadeInCodeDoesNotRecurseForever) {
    Graph g;
    auto* a = g.Add<Editor::ExpressionNode>();
    auto* b = g.Add<Editor::ExpressionNode>();
    Graph::Link(b, a, 0);
    Graph::Link(a, b, 0);
    auto* out = g.Output(0);
    Graph::Link(a, out, 0);
    Lines const body = g.Body();
    ASSERT_FALSE(body.empty());
    EXPECT_EQ(body.back(), "\toutput_number(0, 0, $_expr2)");
}

} // namespace
