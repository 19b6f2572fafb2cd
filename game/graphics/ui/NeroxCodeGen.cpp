// Code generation: the node graph becomes one NeroxCode text whose first line
// carries the graph itself.
#include "game/graphics/ui/NeroxCodeEditor.hpp"

#include <array>
#include <cctype>
#include <cstdio>
#include <iostream>
#include <map>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <unordered_set>

namespace game::graphics::ui::NeroxCodeEditor {

using json = nlohmann::json;

namespace {

/// How a MathNode operation is written.
enum class MathForm { Infix, Prefix, Call };

struct MathOp {
    char const* name; ///< The node's title.
    MathForm form;
    char const* text; ///< Operator with its blanks, prefix with its parenthesis, or function name.
    int inputs;       ///< Inputs a, b, c used.
};

// In the order in which titles are tested.
constexpr MathOp kMathOps[] = {
    {"ADD", MathForm::Infix, " + ", 2},
    {"MULTIPLY", MathForm::Infix, " * ", 2},
    {"DIVIDE", MathForm::Infix, " / ", 2},
    {"SUBTRACT", MathForm::Infix, " - ", 2},
    {"EQUAL", MathForm::Infix, " == ", 2},
    {"MODULO", MathForm::Infix, " % ", 2},
    {"ABSOLUTE", MathForm::Call, "abs", 1},
    {"CLAMP", MathForm::Call, "clamp", 3},
    {"NEGATIVE", MathForm::Prefix, "(-", 1},
    {"NOT", MathForm::Prefix, "(!", 1},
    {"AND", MathForm::Infix, " and ", 2},
    {"OR", MathForm::Infix, " or ", 2},
    {"XOR", MathForm::Infix, " xor ", 2},
    {"GREATER", MathForm::Infix, " > ", 2},
    {"LESSER", MathForm::Infix, " < ", 2},
    {"SIN", MathForm::Call, "sin", 1},
    {"COS", MathForm::Call, "cos", 1},
    {"TAN", MathForm::Call, "tan", 1},
    {"ASIN", MathForm::Call, "asin", 1},
    {"ACOS", MathForm::Call, "acos", 1},
    {"ATAN", MathForm::Call, "atan", 1},
    {"POW", MathForm::Call, "pow", 2},
    {"LOG", MathForm::Call, "log", 2},
    {"FLOOR", MathForm::Call, "floor", 1},
    {"CEIL", MathForm::Call, "ceil", 1},
    {"ROUND", MathForm::Call, "round", 1},
    {"FRACT", MathForm::Call, "fract", 1},
    {"SQRT", MathForm::Call, "sqrt", 1},
    {"SIGN", MathForm::Call, "sign", 1},
    {"STEP", MathForm::Call, "step", 3},
    {"SMOOTHSTEP", MathForm::Call, "smoothstep", 3},
    {"LERP", MathForm::Call, "lerp", 3},
};

constexpr auto kMathNames = [] {
    std::array<char const*, std::size(kMathOps)> names{};
    for (size_t i = 0; i < names.size(); ++i) names[i] = kMathOps[i].name;
    return names;
}();

MathOp const* FindMathOp(std::string const& name) {
    for (MathOp const& op : kMathOps)
        if (name == op.name) return &op;
    return nullptr;
}

std::string const kEmpty;

/// Type name of a type number; a number outside the table reads as "number".
std::string const& TypeName(int32_t type) {
    return type >= 0 && static_cast<size_t>(type) < Editor::TYPES.size() ? Editor::TYPES[static_cast<size_t>(type)]
                                                                         : Editor::TYPES[0];
}

/// The language's default value of a type number; outside the table that of a number.
std::string const& DefaultValue(int32_t type) {
    return type >= 0 && static_cast<size_t>(type) < Editor::DEFAULT_TYPES_VAL.size()
        ? Editor::DEFAULT_TYPES_VAL[static_cast<size_t>(type)]
        : Editor::DEFAULT_TYPES_VAL[0];
}

std::string Str(int64_t value) {
    return std::to_string(value);
}

/// Calls `action` for each non-empty piece of `text` between line feeds.
template <typename F> void ForEachLine(std::string const& text, F&& action) {
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        if (end > start) action(text.substr(start, end - start));
        start = end + 1;
    }
}

/// Thrown when the program would grow past Editor::maxProgramBytes.
struct TooLarge {
    std::string message;
};

/// The working values of one run of Editor::Serialize.
class Generator {
public:
    using NeroxNode = Editor::NeroxNode;

    Generator(Editor& editor, std::string const& cleanName)
        : editor(editor), programPrefix("$_" + cleanName + "_"), functionPrefix("@_" + cleanName + "_"),
          limit(editor.maxProgramBytes) {
        for (Node* node : editor.nodes) {
            auto* nerox = dynamic_cast<NeroxNode*>(node);
            if (nerox != nullptr && nerox->id.IsSet()) index.try_emplace(nerox->id, nerox);
        }
        for (auto const& [id, node] : index)
            for (UniqueId const& input : node->inputs)
                if (auto const found = index.find(input); found != index.end()) ++uses[found->second];
    }

    /// Writes the lines of one node of the list, when it is a sink.
    void Sink(NeroxNode* node);
    /// The text that stands for the node's value; may add lines. Walks the
    /// inputs with a stack of its own, however deep the graph.
    std::string SerializeNode(NeroxNode* node);
    /// The whole text after the first line.
    void Append(std::string& out) const;
    /// Throws TooLarge naming node when the lines so far pass the limit.
    void CheckLines(NeroxNode const* node);

private:
    /// The text of a node whose inputs are serialized already (in).
    std::string Finish(NeroxNode* node, std::vector<std::string>& in);
    /// Text of input i when it is not linked to a program node: its default by type.
    std::string DefaultText(NeroxNode* node, size_t i) const;
    [[noreturn]] void Refuse(NeroxNode const* node) const;
    /// The source of an input when it names a program node of the list.
    NeroxNode* Source(NeroxNode const* node, size_t input) const {
        if (input >= node->inputs.size()) return nullptr;
        auto const found = index.find(node->inputs[input]);
        return found == index.end() ? nullptr : found->second;
    }
    /// Default text of an input; empty when there is none.
    static std::string const& Default(NeroxNode const* node, size_t input) {
        return input < node->inputDefaults.size() ? node->inputDefaults[input] : kEmpty;
    }
    /// Whether an input holds an id (the stored id only, whether or not the node exists).
    static bool Linked(NeroxNode const* node, size_t input) {
        return input < node->inputs.size() && node->inputs[input].IsSet();
    }
    /// A limit input is present when it holds an id or a non-empty default.
    static bool Present(NeroxNode const* node, size_t input) {
        return input < node->inputs.size() && (node->inputs[input].IsSet() || !Default(node, input).empty());
    }

    std::string Input(NeroxNode* node, std::vector<std::string> const& texts);
    std::string Switch(Editor::SwitchNode* node, std::vector<std::string> const& in);
    std::string Delay(std::vector<std::string> const& in);
    std::string Counter(NeroxNode* node, std::vector<std::string> const& in);
    std::string Smooth(std::vector<std::string> const& in);
    std::string Pulse(Editor::PulseNode* node, std::vector<std::string> const& in);
    /// Takes the text of the first input over (in[0] is left empty).
    std::string Math(NeroxNode* node, std::vector<std::string>& in) const;
    std::string Pid(NeroxNode* node, std::vector<std::string> const& in);
    void Output(Editor::OutputNode* node);
    void Print(Editor::PrintNode* node);
    void Execute(Editor::ExecuteNode* node);

    Editor& editor;

public:
    std::vector<std::string> includes, constNumbers, constTexts, declarations, functions, updateLines;

private:
    int aliasCount = 1, expressionCount = 1, switchCount = 1, delayCount = 1, blinkerCount = 1, counterCount = 1,
        smoothCount = 1, pulseCount = 1, textCount = 1, pidCount = 1;
    std::string const localPrefix = "$_";
    std::string const programPrefix;
    std::string const functionPrefix;
    std::unordered_map<NeroxNode const*, std::string> memo; // names made for memoised nodes
    std::map<std::tuple<std::string, int32_t, int32_t>, std::string> numberedInputs;
    std::map<std::tuple<std::string, std::string, int32_t>, std::string> aliasedInputs;
    std::unordered_set<NeroxNode const*> walking; // nodes on the current path: a cycle ends here

    // The program nodes by id; how many inputs take each node's output.
    std::unordered_map<UniqueId, NeroxNode*> index;
    std::unordered_map<NeroxNode const*, size_t> uses;
    // The text of each node used more than once, as its first walk gave it: a
    // later walk would give the same text and add no lines.
    std::unordered_map<NeroxNode const*, std::string> finished;
    size_t cycles = 0; // walks cut short by a cycle: their texts are not kept
    size_t const limit;
    size_t lineBytes = 0;                 // bytes of the lines counted so far
    std::array<size_t, 6> countedLines{}; // of each list, the lines counted
};

/// Input text k, or the empty text past the last input.
std::string const& At(std::vector<std::string> const& in, size_t k) {
    return k < in.size() ? in[k] : kEmpty;
}

std::string Generator::DefaultText(NeroxNode* node, size_t i) const {
    std::string const& value = Default(node, i);
    int32_t const type = node->InputType(static_cast<int>(i));
    if (type == 1) return "\"" + value + "\"";
    if (type == 0) return Editor::FormatNumber(value);
    return value;
}

void Generator::Refuse(NeroxNode const* node) const {
    throw TooLarge{"the program would be larger than " + Str(static_cast<int64_t>(limit)) + " bytes: it grows past " +
                   "that at node \"" + node->title + "\" (" + static_cast<std::string>(node->id) +
                   "); simplify the graph or raise the limit"};
}

void Generator::CheckLines(NeroxNode const* node) {
    size_t list = 0;
    for (auto const* lines : {&includes, &constNumbers, &constTexts, &declarations, &functions, &updateLines}) {
        for (size_t& counted = countedLines[list++]; counted < lines->size(); ++counted)
            lineBytes += (*lines)[counted].size() + 2;
    }
    if (lineBytes > limit) Refuse(node);
}

std::string Generator::SerializeNode(NeroxNode* root) {
    // The walk of the recursive definition (each input in order, then the node
    // itself) on a stack of frames.
    struct Frame {
        NeroxNode* node;
        size_t next;                 // the next input to serialize
        std::vector<std::string> in; // the texts of the inputs so far
        size_t cyclesBefore;
        size_t bytes = 0; // their length
    };
    std::vector<Frame> stack;
    std::string value; // what the last node finished or looked up gave
    // Starts the walk of node, or sets value at once (no node, a finished one, a cycle).
    auto const enter = [&](NeroxNode* node) {
        if (node == nullptr) return value.clear(), false;
        if (auto const found = finished.find(node); found != finished.end()) return value = found->second, false;
        if (!walking.insert(node).second) return ++cycles, value.clear(), false; // a cycle: stop walking
        stack.push_back({node, 0, {}, cycles});
        stack.back().in.reserve(node->inputs.size());
        return true;
    };
    if (!enter(root)) return value;
    while (!stack.empty()) {
        Frame& top = stack.back();
        if (top.next < top.node->inputs.size()) {
            size_t const i = top.next++;
            NeroxNode* const source = Source(top.node, i);
            if (source == nullptr) {
                top.in.push_back(DefaultText(top.node, i));
            } else if (enter(source)) {
                continue; // top is stale: the source's frame is on top now
            } else {
                top.in.push_back(std::move(value));
            }
            if ((top.bytes += top.in.back().size()) > limit) Refuse(top.node);
            continue;
        }
        NeroxNode* const node = top.node;
        value = Finish(node, top.in);
        bool const complete = cycles == top.cyclesBefore;
        walking.erase(node);
        stack.pop_back();
        if (value.size() > limit) Refuse(node);
        CheckLines(node);
        if (complete && uses[node] > 1) finished.emplace(node, value);
        if (stack.empty()) break;
        Frame& parent = stack.back();
        parent.in.push_back(std::move(value));
        if ((parent.bytes += parent.in.back().size()) > limit) Refuse(parent.node);
    }
    return value;
}

std::string Generator::Finish(NeroxNode* node, std::vector<std::string>& in) {
    if (auto const found = memo.find(node); found != memo.end()) return found->second;

    auto remember = [&](std::string name) {
        memo.emplace(node, name);
        return name;
    };

    if (dynamic_cast<Editor::InputNode*>(node)) return Input(node, in);
    if (auto* n = dynamic_cast<Editor::ConstNumberNode*>(node)) return "$" + n->name;
    if (auto* n = dynamic_cast<Editor::ConstTextNode*>(node)) return "$" + n->name;
    if (auto* n = dynamic_cast<Editor::VarNumberNode*>(node)) return "$" + n->name;
    if (auto* n = dynamic_cast<Editor::VarTextNode*>(node)) return "$" + n->name;
    if (auto* n = dynamic_cast<Editor::ExpressionNode*>(node)) {
        std::string const text = Editor::Substitute(n->text, in);
        std::string const name = localPrefix + "expr" + Str(expressionCount++);
        updateLines.push_back("var " + name + " = " + text);
        return remember(name);
    }
    if (auto* n = dynamic_cast<Editor::StatementNode*>(node)) return Editor::Substitute(n->text, in);
    if (dynamic_cast<Editor::ConditionalNode*>(node)) {
        std::string result = "if " + At(in, 0);
        ForEachLine(At(in, 1), [&](std::string const& line) { result += "\n\t" + line; });
        if (!At(in, 2).empty()) {
            result += "\nelse";
            ForEachLine(At(in, 2), [&](std::string const& line) { result += "\n\t" + line; });
        }
        return result;
    }
    if (auto* n = dynamic_cast<Editor::SwitchNode*>(node)) return remember(Switch(n, in));
    if (dynamic_cast<Editor::DelayNode*>(node)) return remember(Delay(in));
    if (dynamic_cast<Editor::BlinkerNode*>(node)) {
        std::string const name = localPrefix + "blinker" + Str(blinkerCount++);
        std::string const period = At(in, 0) == "0" ? "1" : At(in, 0);
        updateLines.push_back("var " + name + " = round(time / " + period + ") % 2 == 0");
        return remember(name);
    }
    if (dynamic_cast<Editor::CounterNode*>(node)) return remember(Counter(node, in));
    if (dynamic_cast<Editor::SmoothNode*>(node)) return remember(Smooth(in));
    if (auto* n = dynamic_cast<Editor::PulseNode*>(node)) return remember(Pulse(n, in));
    if (dynamic_cast<Editor::TimeNode*>(node)) return "time";
    if (auto* n = dynamic_cast<Editor::TextNode*>(node)) {
        std::string arguments;
        for (std::string const& text : in) arguments += ", " + text;
        std::string const name = localPrefix + "text" + Str(textCount++);
        updateLines.push_back("var " + name + " = text(\"" + n->text + "\"" + arguments + ")");
        return remember(name);
    }
    if (dynamic_cast<Editor::MathNode*>(node)) return Math(node, in);
    if (dynamic_cast<Editor::PIDControllerNode*>(node)) return remember(Pid(node, in));
    return {};
}

std::string Generator::Input(NeroxNode* node, std::vector<std::string> const&) {
    auto const* input = static_cast<Editor::InputNode*>(node);
    std::string const& type = TypeName(input->type);
    std::string const channel = Str(input->channel);
    if (input->index == -1) {
        if (input->alias.empty()) return input->type == 1 ? "\"\"" : "0";
        auto const key = std::make_tuple(type, input->alias, input->channel);
        if (auto const found = aliasedInputs.find(key); found != aliasedInputs.end()) return found->second;
        std::string name = localPrefix + "input_alias_" + Str(aliasCount++);
        updateLines.push_back("var " + name + " = input_" + type + "(\"" + input->alias + "\", " + channel + ")");
        aliasedInputs.emplace(key, name);
        return name;
    }
    auto const key = std::make_tuple(type, input->index, input->channel);
    if (auto const found = numberedInputs.find(key); found != numberedInputs.end()) return found->second;
    std::string const index = Str(input->index);
    std::string name = localPrefix + "input_" + type + "_" + index + "_" + channel;
    updateLines.push_back("var " + name + " = input_" + type + "(" + index + ", " + channel + ")");
    numberedInputs.emplace(key, name);
    return name;
}

std::string Generator::Switch(Editor::SwitchNode* node, std::vector<std::string> const& in) {
    std::string const name = localPrefix + "switch" + Str(switchCount++);
    updateLines.push_back("var " + name + " = " + DefaultValue(node->type));
    std::string selector = At(in, 0);
    if (!Editor::IsLiteralLike(selector)) {
        updateLines.push_back("var " + name + "_ = " + selector);
        selector = name + "_";
    }
    int const cases = static_cast<int>(node->inputs.size()) - 1;
    for (int k = 0; k < cases; ++k) {
        updateLines.push_back((k == 0 ? "if " : "elseif ") + selector + " == " + Str(k));
        updateLines.push_back("\t" + name + " = " + At(in, static_cast<size_t>(k) + 1));
    }
    return name;
}

std::string Generator::Delay(std::vector<std::string> const& in) {
    std::string const name = programPrefix + "delay" + Str(delayCount++);
    std::string const out = name + "_";
    declarations.push_back("var " + name + " = 0");
    updateLines.push_back("var " + out + " = " + name + " > 0 and " + name + " < time");
    if (At(in, 1) != "0") {
        std::string const time = At(in, 0) == "0" ? "1" : At(in, 0);
        updateLines.push_back("if " + At(in, 1));
        updateLines.push_back("\t" + name + " = time + " + time);
    }
    if (At(in, 2) != "0") {
        updateLines.push_back("if " + At(in, 2));
        updateLines.push_back("\t" + name + " = 0");
    }
    return out;
}

std::string Generator::Counter(NeroxNode* node, std::vector<std::string> const& in) {
    std::string const name = programPrefix + "counter" + Str(counterCount++);
    declarations.push_back("var " + name + " : number");
    declarations.push_back("var " + name + "_init = 0");
    updateLines.push_back(name + " += " + At(in, 0));
    if (At(in, 1) != "0") {
        updateLines.push_back("if !" + name + "_init");
        updateLines.push_back("\t" + name + " = " + At(in, 1));
        updateLines.push_back("\t" + name + "_init = 1");
    }
    if (Present(node, 2)) {
        updateLines.push_back("if " + name + " < " + At(in, 2));
        updateLines.push_back("\t" + name + " = " + At(in, 2));
    }
    if (Present(node, 3)) {
        updateLines.push_back("if " + name + " > " + At(in, 3));
        updateLines.push_back("\t" + name + " = " + At(in, 3));
    }
    updateLines.push_back("if " + At(in, 4));
    updateLines.push_back("\t" + name + " = " + At(in, 1));
    return name;
}

std::string Generator::Smooth(std::vector<std::string> const& in) {
    std::string const name = programPrefix + "smooth" + Str(smoothCount++);
    std::string const a = name + "_a", b = name + "_b", t0 = name + "_t0", t1 = name + "_t1";
    for (std::string const* v : {&name, &a, &b, &t0, &t1}) declarations.push_back("var " + *v + " : number");
    if (At(in, 2) == "0") return name;
    std::string const duration = At(in, 1) == "0" ? "1" : At(in, 1);
    updateLines.push_back("if " + At(in, 2));
    updateLines.push_back("\t" + a + " = " + name);
    updateLines.push_back("\t" + b + " = " + At(in, 0));
    updateLines.push_back("\t" + t0 + " = time");
    updateLines.push_back("\t" + t1 + " = time + " + duration);
    updateLines.push_back(name + " = lerp(" + a + ", " + b + ", smoothstep(" + t0 + ", " + t1 + ", time))");
    return name;
}

std::string Generator::Pulse(Editor::PulseNode* node, std::vector<std::string> const& in) {
    std::string const name = programPrefix + "pulse" + Str(pulseCount++);
    if (dynamic_cast<Editor::PulseToggleNode*>(node))
        declarations.push_back("var " + name + " = 0");
    else
        updateLines.push_back("var " + name + " = 0");
    bool const up = Linked(node, 0);
    bool const down = Linked(node, 1);
    if (!up && !down) return name;
    std::string rising = At(in, 0);
    std::string falling = At(in, 1);
    if (up) {
        declarations.push_back("var " + name + "_last_up = 0");
        if (!Editor::IsLiteralLike(rising)) {
            updateLines.push_back("var " + name + "_up_ = " + rising);
            rising = name + "_up_";
        }
    }
    if (down) {
        declarations.push_back("var " + name + "_last_down = 1");
        if (!Editor::IsLiteralLike(falling)) {
            updateLines.push_back("var " + name + "_down_ = " + falling);
            falling = name + "_down_";
        }
    }
    if (up && down)
        updateLines.push_back("if (" + rising + " and !" + name + "_last_up) or (!" + falling + " and " + name +
                              "_last_down)");
    else if (up)
        updateLines.push_back("if " + rising + " and !" + name + "_last_up");
    else
        updateLines.push_back("if !" + falling + " and " + name + "_last_down");
    updateLines.push_back("\t" + name + "!!");
    if (up) updateLines.push_back(name + "_last_up = " + rising);
    if (down) updateLines.push_back(name + "_last_down = " + falling);
    return name;
}

std::string Generator::Math(NeroxNode* node, std::vector<std::string>& in) const {
    MathOp const* op = FindMathOp(node->title);
    if (op == nullptr) return {};
    // The first input's text is taken over and grown in place: in a long chain
    // it is most of the text, and a copy of it at each step would be wasted.
    std::string text = in.empty() ? std::string() : std::move(in[0]);
    switch (op->form) {
    case MathForm::Infix: return ((text.insert(0, "(") += op->text) += At(in, 1)) += ")";
    case MathForm::Prefix: return text.insert(0, op->text) += ")";
    case MathForm::Call: {
        text.insert(0, std::string(op->text) + "(");
        for (int k = 1; k < op->inputs; ++k) (text += ", ") += At(in, static_cast<size_t>(k));
        return text + ")";
    }
    }
    return {};
}

std::string Generator::Pid(NeroxNode* node, std::vector<std::string> const& in) {
    bool const hasMin = Present(node, 6);
    bool const hasMax = Present(node, 7);
    std::string const number = Str(pidCount++);
    std::string const function = functionPrefix + "pid" + number;
    std::string const name = localPrefix + "pid" + number;
    std::string parameters, arguments;
    if (hasMin) {
        parameters += ", $_min:number";
        arguments += ", " + At(in, 6);
    }
    if (hasMax) {
        parameters += ", $_max:number";
        arguments += ", " + At(in, 7);
    }
    functions.push_back("function " + function +
                        "($_setpoint:number, $_processvalue:number, $_kp:number, $_ki:number, $_kd:number" +
                        parameters + ", $_integral:number, $_prev_error:number) : number");
    functions.push_back("\tvar $_error = $_setpoint - $_processvalue");
    functions.push_back("\tvar $_dt = delta_time");
    functions.push_back("\tvar $_derivative = ($_error - $_prev_error) / $_dt");
    functions.push_back("\tvar $_proportional = $_kp * $_error");
    functions.push_back("\t$_integral += $_error * $_dt");
    if (hasMin) {
        functions.push_back("\tif $_integral < $_min");
        functions.push_back("\t\t$_integral = $_min");
    }
    if (hasMax) {
        functions.push_back("\tif $_integral > $_max");
        functions.push_back("\t\t$_integral = $_max");
    }
    functions.push_back("\t$_prev_error = $_error");
    functions.push_back("\tvar $_output = $_proportional + $_ki * $_integral + $_kd * $_derivative");
    if (hasMin) {
        functions.push_back("\tif $_output < $_min");
        functions.push_back("\t\t$_output = $_min");
    }
    if (hasMax) {
        functions.push_back("\tif $_output > $_max");
        functions.push_back("\t\t$_output = $_max");
    }
    functions.push_back("\treturn $_output");

    std::string const call = function + "(" + At(in, 0) + ", " + At(in, 1) + ", " + At(in, 2) + ", " + At(in, 3) +
        ", " + At(in, 4) + arguments;
    if (At(in, 5) == "0") {
        updateLines.push_back("var " + name + " = " + call + ")");
    } else {
        updateLines.push_back("var " + name + " = 0");
        updateLines.push_back("if " + At(in, 5));
        updateLines.push_back("\t" + name + " = " + call + ", 0, 0)");
        updateLines.push_back("else");
        updateLines.push_back("\t" + name + " = " + call + ")");
    }
    return name;
}

void Generator::Output(Editor::OutputNode* node) {
    std::string const head = node->index != -1 ? Str(node->index) + ", " : "\"" + node->alias + "\", ";
    for (size_t i = 0; i < node->inputs.size(); ++i) {
        std::string const& type = TypeName(node->InputType(static_cast<int>(i)));
        std::string value;
        if (NeroxNode* source = Source(node, i)) {
            value = SerializeNode(source);
        } else {
            std::string const& fallback = Default(node, i);
            if (fallback.empty()) continue;
            value = type == "text" ? "\"" + fallback + "\"" : Editor::FormatNumber(fallback);
        }
        updateLines.push_back("output_" + type + "(" + head + Str(static_cast<int64_t>(i)) + ", " + value + ")");
    }
}

void Generator::Print(Editor::PrintNode* node) {
    std::string arguments;
    auto add = [&arguments](std::string const& text) {
        if (!arguments.empty()) arguments += ", ";
        arguments += text;
    };
    for (size_t i = 0; i < node->inputs.size(); ++i) {
        if (NeroxNode* source = Source(node, i)) {
            add(SerializeNode(source));
            continue;
        }
        std::string const& fallback = Default(node, i);
        if (node->InputType(static_cast<int>(i)) == 1)
            add("\"" + fallback + "\"");
        else if (!fallback.empty())
            add(Editor::FormatNumber(fallback));
    }
    if (!arguments.empty()) updateLines.push_back("print(" + arguments + ")");
}

void Generator::Execute(Editor::ExecuteNode* node) {
    for (size_t i = 0; i < node->inputs.size(); ++i) {
        if (NeroxNode* source = Source(node, i)) {
            ForEachLine(SerializeNode(source), [&](std::string const& line) { updateLines.push_back(line); });
        } else if (!Default(node, i).empty()) {
            updateLines.push_back(Default(node, i));
        }
    }
}

void Generator::Sink(NeroxNode* node) {
    if (auto* n = dynamic_cast<Editor::ConstNumberNode*>(node)) {
        int const length = std::snprintf(nullptr, 0, "%f", n->value);
        std::string value(static_cast<size_t>(std::max(length, 0)), '\0');
        if (length > 0) std::snprintf(value.data(), value.size() + 1, "%f", n->value);
        constNumbers.push_back("const $" + n->name + " = " + value);
    } else if (auto* n = dynamic_cast<Editor::ConstTextNode*>(node)) {
        constTexts.push_back("const $" + n->name + " = \"" + n->value + "\"");
    } else if (auto* n = dynamic_cast<Editor::VarNumberNode*>(node); n && n->inputs.size() == 3) {
        std::string const name = "$" + n->name;
        declarations.push_back("var " + name + " : number");
        std::string texts[3];
        for (size_t i = 0; i < 3; ++i) {
            NeroxNode* source = Source(n, i);
            texts[i] = source ? SerializeNode(source) : Editor::FormatNumber(Default(n, i));
        }
        if (!texts[1].empty()) {
            updateLines.push_back("if " + texts[1]);
            updateLines.push_back("\t" + name + " = " + texts[0]);
        }
        if (!texts[2].empty()) {
            updateLines.push_back("if " + texts[2]);
            updateLines.push_back("\t" + name + " = 0");
        }
    } else if (auto* n = dynamic_cast<Editor::VarTextNode*>(node); n && n->inputs.size() == 3) {
        std::string const name = "$" + n->name;
        declarations.push_back("var " + name + " : text");
        std::string texts[3];
        for (size_t i = 0; i < 3; ++i) {
            NeroxNode* source = Source(n, i);
            if (source)
                texts[i] = SerializeNode(source);
            else
                texts[i] = i == 0 ? "\"" + Default(n, 0) + "\"" : Default(n, i);
        }
        if (!texts[1].empty()) {
            updateLines.push_back("if " + texts[1]);
            updateLines.push_back("\t" + name + " = " + texts[0]);
        }
        if (!texts[2].empty()) {
            updateLines.push_back("if " + texts[2]);
            updateLines.push_back("\t" + name + " = \"\"");
        }
    } else if (auto* n = dynamic_cast<Editor::OutputNode*>(node); n && !n->inputs.empty()) {
        Output(n);
    } else if (auto* n = dynamic_cast<Editor::PrintNode*>(node); n && !n->inputs.empty()) {
        Print(n);
    } else if (auto* n = dynamic_cast<Editor::ExecuteNode*>(node); n && !n->inputs.empty()) {
        Execute(n);
    } else if (auto* n = dynamic_cast<Editor::IncludeNode*>(node); n && !n->path.empty()) {
        includes.push_back("include \"" + n->path + "\"");
    }
}

void Generator::Append(std::string& out) const {
    for (auto const* list : {&includes, &constNumbers, &constTexts, &declarations, &functions}) {
        if (list->empty()) continue;
        out += '\n';
        for (std::string const& line : *list) {
            out += line;
            out += '\n';
        }
    }
    if (!updateLines.empty()) {
        out += "\nupdate\n";
        for (std::string const& line : updateLines) {
            out += '\t';
            out += line;
            out += '\n';
        }
    }
}

} // namespace

std::span<char const* const> Editor::MathOperations() {
    return kMathNames;
}

int Editor::MathInputCount(std::string const& operation) {
    MathOp const* op = FindMathOp(operation);
    return op != nullptr ? op->inputs : 2;
}

bool Editor::CleanProgramName(std::string const& name, std::string& cleaned) {
    cleaned = name;
    std::string_view constexpr suffix = ".main.nc";
    if (cleaned.size() >= suffix.size() && cleaned.ends_with(suffix)) cleaned.resize(cleaned.size() - suffix.size());
    for (char& c : cleaned)
        if (c == '-') c = '_';
    if (cleaned.empty()) return false;
    for (char const c : cleaned) {
        bool const ok = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
        if (!ok) return false;
    }
    return true;
}

std::string Editor::FormatNumber(std::string s) {
    if (s.empty()) return "0";
    constexpr char const* blanks = " \f\n\r\t\v";
    size_t const first = s.find_first_not_of(blanks);
    if (first == std::string::npos) return {};
    size_t const last = s.find_last_not_of(blanks);
    s = s.substr(first, last - first + 1);
    if (s[0] == '.') return "0" + s;
    if (s.size() >= 2 && (s[0] == '-' || s[0] == '+') && s[1] == '.') return s.substr(0, 1) + "0" + s.substr(1);
    return s;
}

std::string Editor::Substitute(std::string const& text, std::vector<std::string> const& inputs) {
    auto const blank = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
    auto const letter = [](char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; };
    size_t begin = 0, end = text.size();
    while (begin < end && blank(text[begin])) ++begin;
    while (end > begin && blank(text[end - 1])) --end;
    std::string out;
    bool inString = false;
    for (size_t i = begin; i < end; ++i) {
        char const c = text[i];
        if (c == '"') {
            inString = !inString;
            out += c;
        } else if (inString || !letter(c) || (i + 1 < end && letter(text[i + 1]))) {
            out += c;
        } else {
            int const k = std::tolower(static_cast<unsigned char>(c)) - 'a' + 1;
            if (k >= 1 && static_cast<size_t>(k) <= inputs.size())
                out += inputs[static_cast<size_t>(k) - 1];
            else
                out += c;
        }
    }
    return out;
}

bool Editor::IsLiteralLike(std::string const& text) {
    return !text.empty() && (text[0] == '"' || text[0] == '$' || (text[0] >= '0' && text[0] <= '9'));
}

void Editor::Serialize(bool pushUndo) {
    json root;
    root["nodes"] = json::array();

    std::string cleaned;
    if (!CleanProgramName(programName, cleaned)) {
        std::cerr << "Invalid program name: " << programName << '\n';
        return;
    }
    Generator generator(*this, cleaned);

    for (Node* node : nodes)
        if (auto* nerox = dynamic_cast<NeroxNode*>(node))
            if (nerox->inputDefaults.size() != nerox->inputs.size()) nerox->inputDefaults.resize(nerox->inputs.size());

    json& list = root["nodes"];
    for (Node* node : nodes)
        if (auto* nerox = dynamic_cast<NeroxNode*>(node)) list.push_back(nerox->Serialize());

    if (pushUndo) {
        if (undoPosition != 0) {
            size_t const drop = static_cast<size_t>(std::min<uint64_t>(undoPosition, undoHistory.size()));
            undoHistory.erase(undoHistory.begin(), undoHistory.begin() + static_cast<std::ptrdiff_t>(drop));
            undoPosition = 0;
        }
        undoHistory.push_front(root);
        if (undoHistory.size() > undoLimit) undoHistory.pop_back();
    }

    // The graph is in the undo history even when its code is refused, so that
    // the change that made it too large can be undone.
    generationError.clear();
    try {
        for (Node* node : nodes) {
            if (auto* nerox = dynamic_cast<NeroxNode*>(node)) {
                generator.Sink(nerox);
                generator.CheckLines(nerox);
            }
        }
    } catch (TooLarge const& failure) {
        // The code pane keeps the last text that could be made.
        generationError = failure.message;
        Warn(failure.message);
        return;
    }

    std::string text = "#NODES " + root.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
    generator.Append(text);
    code.SetText(text);
}

} // namespace game::graphics::ui::NeroxCodeEditor
