// Code generation: the example programs regenerated whole, layout repairs, program
// names, number formatting, input-letter substitution and the literal rule.
#include "ProgramGraph.hpp"

#include <gtest/gtest.h>

#include <pthread.h>

#include <filesystem>
#include <memory>
#include <map>
#include <set>

using namespace programtest;

namespace {

// Each .nc file is a program as the editor saves it: the "#NODES " line with the graph, then its code.
// Examples are named test.main.nc unless listed here.
std::map<std::string, std::string> const kProgramNames{{"door_delay", "door.main.nc"},
                                                       {"aliased_lamp", "door.main.nc"},
                                                       {"rich", kRichProgram},
                                                       {"pid_two", "plant.main.nc"}};

TEST(ProgramCodeExamples, EachExampleOpenedAgainGivesItsOwnText) {
    std::set<std::string> files;
    for (auto const& entry : std::filesystem::directory_iterator(testsupport::DataFile("program")))
        if (entry.path().extension() == ".nc") files.insert(entry.path().stem().string());
    EXPECT_GE(files.size(), 65u); // the folder was found
    for (std::string const& file : files) {
        SCOPED_TRACE("program/" + file + ".nc");
        auto const named = kProgramNames.find(file);
        Editor e;
        e.programName = named == kProgramNames.end() ? "test.main.nc" : named->second;
        std::string const text = Example(file);
        std::string error;
        ASSERT_TRUE(e.Load(text, &error)) << error;
        EXPECT_TRUE(e.warnings.empty());
        e.Serialize(false);
        std::string const first = e.GetCode();
        testsupport::ExpectGolden(first, "program/" + file + ".nc");
        e.Serialize(false);
        EXPECT_EQ(e.GetCode(), first);                                         // the counters start at one on every run
        nce::CompileResult const compiled = nce::Compile(text, e.programName); // the tools' entry point
        EXPECT_TRUE(compiled.ok && compiled.warnings.empty()) << compiled.error;
        EXPECT_EQ(compiled.code, text);
    }
}

TEST(ProgramCodeLayout, WrongLengthDefaultsAreRepairedBeforeGeneration) {
    Graph g;
    auto* add = g.Add<Editor::MathNode>("ADD");
    add->inputDefaults = {"4", "5", "6", "7"};
    auto* out = g.Output(0);
    Graph::Link(add, out, 0);
    out->inputDefaults.clear();
    std::string const text = g.Text();
    EXPECT_EQ(text.substr(text.find('\n')), "\n\nupdate\n\toutput_number(0, 0, (4 + 5))\n");
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

TEST(ProgramCodeLayout, CycleMadeInCodeDoesNotRecurseForever) {
    Graph g;
    auto* a = g.Add<Editor::ExpressionNode>();
    auto* b = g.Add<Editor::ExpressionNode>();
    Graph::Link(b, a, 0);
    Graph::Link(a, b, 0);
    Graph::Link(a, g.Output(0), 0);
    std::string const text = g.Text();
    EXPECT_EQ(text.substr(text.rfind('\t')), "\toutput_number(0, 0, $_expr2)\n");
}

// A chain of 20,000 ADD nodes compiles, and loads and compiles again, on a thread
// with a 256 KiB stack: no walk recurses once per node, and loading is not cubic.
TEST(ProgramCodeLayout, ADeepChainCompilesOnASmallStack) {
    Graph g;
    Node* below = g.Add<Editor::TimeNode>();
    for (int i = 0; i < 20000; ++i) {
        Node* const next = g.Add<Editor::MathNode>("ADD");
        Graph::Link(below, next, 0), below = next;
    }
    Graph::Link(below, g.Output(0), 0);
    std::string text;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 256 * 1024);
    pthread_t thread;
    auto run = [](void* graph) -> void* { // generated, then loaded back and generated again
        return new std::string(nce::Compile(static_cast<Graph*>(graph)->Text(), "test.main.nc").code);
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &g), 0);
    void* result = nullptr;
    pthread_join(thread, &result);
    std::unique_ptr<std::string> const code(static_cast<std::string*>(result));
    EXPECT_NE(code->find("\toutput_number(0, 0, " + std::string(20000, '(') + "time + 0)"), std::string::npos);
}

// Every level takes both inputs from the level below: the text doubles each time.
// Generation stops where it passes the limit, names that node and keeps the last code.
TEST(ProgramCodeLayout, AProgramPastTheSizeLimitIsRefusedNamingTheNode) {
    Graph g;
    Node* below = g.Add<Editor::TimeNode>();
    std::vector<Node*> levels;
    for (int i = 0; i < 40; ++i) {
        levels.push_back(g.Add<Editor::MathNode>("ADD"));
        Graph::Link(below, levels.back(), 0), Graph::Link(below, levels.back(), 1), below = levels.back();
    }
    Node* const output = g.Output(0);
    g.editor.maxProgramBytes = 1 << 20;
    g.editor.Serialize(true); // nothing reaches the output yet: a short program
    std::string const accepted = g.editor.GetCode();
    Graph::Link(below, output, 0);
    g.editor.Serialize(true);
    EXPECT_EQ(g.editor.GetCode(), accepted);
    std::string const expected =
        "the program would be larger than 1048576 bytes: it grows past that at node \"ADD\" (" +
        static_cast<std::string>(levels[16]->id) + "); simplify the graph or raise the limit";
    EXPECT_EQ(std::tuple(g.editor.generationError, g.editor.warnings.back()), std::tuple(expected, expected));
    g.editor.Undo(); // the link that made it too large can be undone
    EXPECT_EQ(std::tuple(g.editor.GetCode(), g.editor.generationError), std::tuple(accepted, ""));
}

// --- program names --------------------------------------------------------------------------

TEST(ProgramCodeNames, CleanProgramNameCutsTheSuffixOnceAndRefusesOthers) {
    struct Case {
        char const* name;
        char const* cleaned; // null: refused
    };
    for (Case const c : {Case{"Prog_2", "Prog_2"}, Case{"a-b-c.main.nc", "a_b_c"}, Case{"x.main.nc.main.nc", nullptr},
                         Case{"", nullptr}, Case{"main.nc", nullptr}, Case{"caf\xc3\xa9", nullptr}}) {
        std::string cleaned;
        EXPECT_EQ(Editor::CleanProgramName(c.name, cleaned), c.cleaned != nullptr) << c.name;
        if (c.cleaned) {
            EXPECT_EQ(cleaned, c.cleaned);
        }
    }
}

TEST(ProgramCodeNames, RefusedNameWritesMessageAndChangesNothing) {
    Graph g("good.main.nc");
    g.Add<Editor::TimeNode>();
    g.editor.Serialize(true);
    std::string const before = g.editor.GetCode();
    g.Add<Editor::DelayNode>();
    for (char const* name : {"my prog", ".main.nc"}) {
        g.editor.programName = name;
        testing::internal::CaptureStderr();
        g.editor.Serialize(true);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), std::string("Invalid program name: ") + name + "\n");
        EXPECT_EQ(g.editor.GetCode(), before);
        EXPECT_EQ(g.editor.undoHistory.size(), 1u);
    }
}

// --- number formatting, substitution, literals ----------------------------------------------

TEST(ProgramCodeText, FormatNumber) {
    std::pair<char const*, char const*> const cases[] = {
        {"", "0"},     {"   ", ""},       {" \t\n\r\v\f", ""}, {" 5 ", "5"},    {"\t\n1.0\r\v\f", "1.0"},
        {".5", "0.5"}, {"  .25", "0.25"}, {"-.5", "-0.5"},     {"+.5", "+0.5"}, {"-.", "-0."},
        {".", "0."},   {"-5", "-5"},      {"-", "-"},          {"abc", "abc"},  {"1e3", "1e3"}, // no other check
    };
    for (auto const& [in, out] : cases) EXPECT_EQ(Editor::FormatNumber(in), out) << '"' << in << '"';
}

TEST(ProgramCodeText, SubstituteReplacesLoneInputLetters) {
    std::vector<std::string> const two{"X", "Y"}, none;
    std::vector<std::string> fourteen;
    for (int i = 0; i < 14; ++i) fourteen.push_back("i" + std::to_string(i));
    struct Case {
        char const* text;
        std::vector<std::string> const& inputs;
        char const* out;
    };
    for (Case const& c :
         {Case{"a + b", two, "X + Y"}, Case{"A + B", two, "X + Y"}, Case{"sin(a)", two, "sin(X)"},
          Case{"ab", two, "aY"}, Case{"c", two, "c"}, Case{"a1", two, "X1"}, Case{"\"a b\" + a", two, "\"a b\" + X"},
          Case{"  a  ", two, "X"}, Case{" \t ", two, ""}, Case{"", two, ""}, Case{"b", none, "b"},
          Case{"$a", two, "$X"}, // the rule looks at letters only
          Case{"sin(a)", fourteen, "sii13(i0)"}})
        EXPECT_EQ(Editor::Substitute(c.text, c.inputs), c.out) << c.text;
}

TEST(ProgramCodeText, LiteralLikeRule) {
    for (char const* text : {"\"x\"", "$a", "0", "9x"}) EXPECT_TRUE(Editor::IsLiteralLike(text)) << text;
    for (char const* text : {"", "-1", "time", "(1 + 2)", ".5"}) EXPECT_FALSE(Editor::IsLiteralLike(text)) << text;
}

} // namespace
