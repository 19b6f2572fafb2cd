#pragma once
#include "game/UniqueId.hpp"
#include "game/graphics/ui/Node.hpp"
#include "game/graphics/ui/NodeEditor.hpp"
#include "game/graphics/ui/TextEditor.hpp"

#include <imgui.h>
#include <nlohmann/json.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

/// The visual editor of a computer's program: a node graph that is turned into
/// NeroxCode text, shown beside it in a read-only code pane.
namespace game::graphics::ui::NeroxCodeEditor {

/// The code pane's colours, in TextEditor palette order, each 0xRRGGBBAA.
TextEditor::Palette const* GetNeroxPalette();

/// What Compile gives back: the generated text, or why there is none.
struct CompileResult {
    bool ok = false;                   ///< Whether `code` holds the generated text.
    std::string code;                  ///< The program text, "#NODES " line first.
    std::string error;                 ///< Why nothing was generated, when not ok.
    std::vector<std::string> warnings; ///< Nodes skipped and links cut while loading.
};

/// Loads a program text (first line "#NODES " and the graph JSON) or a bare graph
/// JSON ({"nodes": [...]}) and generates its code for the program `programName`.
/// Needs no ImGui context. An invalid name gives the error "Invalid program name: NAME";
/// a program larger than maxBytes is refused with an error naming the node where it grows past.
CompileResult Compile(std::string const& source, std::string const& programName, size_t maxBytes = 16u << 20);

/// The node editor of a program. Its nodes are the classes nested below; `Serialize`
/// turns them into NeroxCode, puts the text into `code` and records undo steps.
///
/// Node titles understood by CreateNode (also the add menu's items); the class name
/// (e.g. "DelayNode") is accepted as well:
///   Inputs/Outputs: "Input", "Output", "Print"
///   Values:  "Constant Number", "Constant Text", "Number Variable", "Text Variable", "Time"
///   Logic:   "Switch", "Pulse", "Pulse Toggle", "EQUAL", "NOT", "AND", "OR", "XOR", "GREATER", "LESSER"
///   Timing:  "Delay", "Blinker", "Counter", "Smooth"
///   Math:    "Expression", "PID Controller", and every other MathNode operation ("ADD", "SIN", ...)
///   Text:    "Text"
///   Control: "Conditional", "Statement", "Execute", "Include"
class Editor : public NodeEditor {
public:
    /// Type names by type number: 0 number, 1 text.
    static inline std::array<std::string, 2> const TYPES{"number", "text"};
    /// The language's default value of each type, by type number.
    static inline std::array<std::string, 2> const DEFAULT_TYPES_VAL{"0", "\"\""};
    /// Input type whose default is written as it stands (a line of code), used by
    /// the statement inputs of ConditionalNode and ExecuteNode.
    static constexpr int32_t CODE_TYPE = 2;
    /// The MathNode operations, which are their titles, in menu order.
    static std::span<char const* const> MathOperations();
    /// How many inputs a MathNode of this operation has (1, 2 or 3); 2 for an unknown one.
    static int MathInputCount(std::string const& operation);

    /// Common base of the program nodes: a default text and a type for every input.
    class NeroxNode : public Node {
    public:
        /// A node titled `title` with `inputCount` unconnected inputs, empty defaults, all numbers.
        NeroxNode(std::string title, ImVec2 pos, size_t inputCount);
        /// Reads what Serialize wrote ("inputDefaults", "inputTypes", "comment" and the Node keys).
        explicit NeroxNode(nlohmann::json const& json);

        /// Node's keys plus "class", "comment", "inputDefaults" (strings) and "inputTypes" ({"input": type}).
        nlohmann::json Serialize() override;
        /// The class name written as "class" ("InputNode", ...).
        virtual char const* ClassName() const = 0;
        /// Colour of the title band, 0xRRGGBBAA.
        virtual uint32_t GetColor() const;
        /// Short label of an input shown beside its pin; may use `buffer`.
        virtual char const* GetInputLabel(int input, char* buffer, size_t size) const;
        /// Rows of own widgets drawn below the input rows.
        virtual int GetFieldRows() const;
        /// Draws the own widgets; `width` is the usable width in pixels, `x` the left edge.
        virtual void DrawFields(float x, float width, float scale);
        /// Whether an input shows its default value field when unconnected.
        virtual bool ShowsInputDefault(int input) const;
        /// Whether an input shows the number/text switch of its default.
        virtual bool ShowsTypeToggle(int input) const;
        /// Type of an input (an absent entry reads as 0).
        int32_t InputType(int input) const;

        float GetMinimumWidth() const override;
        float GetMinimumHeight() const override;
        /// Title band in the class colour, one row per input (label, default, type), then the fields.
        void DrawContent(ImDrawList* drawList, ImVec2 size, float scale) override;
        /// Edits the comment.
        void ContextMenu() override;
        /// Text inputs are drawn yellow, code inputs violet.
        uint32_t GetInputColor(bool hovered, int input) const override;
        /// Only the output of a program node that has one may be linked.
        bool CanConnectInputToOutput(int input, Node const* source) const override;

        std::string comment;                             ///< Free note of the user; not read by code generation.
        std::vector<std::string> inputDefaults;          ///< Text of each input when unconnected.
        std::unordered_map<int32_t, int32_t> inputTypes; ///< Input number to type number (0 number, 1 text, 2 code).

    protected:
        /// Sets `modified` when the last widget finished an edit.
        void CommitIfEdited();
    };

    /// Base of the nodes whose input count the user changes with + and - buttons.
    class NeroxNodeWithVariableInputCount : public NeroxNode {
    public:
        using NeroxNode::NeroxNode;
        /// Least input count.
        virtual size_t MinimumInputCount() const;
        /// Most input count.
        virtual size_t MaximumInputCount() const;
        /// Type given to a new input.
        virtual int32_t NewInputType(size_t input) const;
        /// Default given to a new input.
        virtual std::string NewInputDefault(size_t input) const;
        /// Sets the input count within the limits, keeping inputDefaults and inputTypes in
        /// step (new inputs unconnected, surplus entries dropped); sets `modified` on a change.
        void SetInputCount(size_t count);
        int GetFieldRows() const override;
        /// Adds the +/- row after the class's own fields.
        void DrawFields(float x, float width, float scale) override;
        /// Adds "Add Input" and "Remove Input".
        void ContextMenu() override;

    protected:
        /// The class's own widgets, above the +/- row.
        virtual void DrawOwnFields(float x, float width, float scale);
        /// Rows of DrawOwnFields.
        virtual int GetOwnFieldRows() const;
    };

    /// Reads a device port: number or text, by number or by alias, on a channel.
    class InputNode : public NeroxNode {
    public:
        explicit InputNode(ImVec2 pos = {});
        /// Reads "type" (0 or 1), "index", "channel", "alias".
        explicit InputNode(nlohmann::json const& json);
        nlohmann::json Serialize() override;
        char const* ClassName() const override { return "InputNode"; }
        uint32_t GetColor() const override;
        int GetFieldRows() const override;
        void DrawFields(float x, float width, float scale) override;
        int32_t type = 0;    ///< 0 number, 1 text.
        int32_t index = 0;   ///< Port number; -1 means the port is named by `alias`.
        int32_t channel = 0; ///< Channel on the port.
        std::string alias;   ///< Port name.
    };

    /// Writes a device port, one channel per input from channel 0; a sink.
    class OutputNode : public NeroxNodeWithVariableInputCount {
    public:
        explicit OutputNode(ImVec2 pos = {});
        /// Reads "index", "alias".
        explicit OutputNode(nlohmann::json const& json);
        nlohmann::json Serialize() override;
        char const* ClassName() const override { return "OutputNode"; }
        uint32_t GetColor() const override;
        char const* GetInputLabel(int input, char* buffer, size_t size) const override;
        bool ShowsTypeToggle(int input) const override;
        size_t MinimumInputCount() const override;
        int32_t index = 0; ///< Port number; -1 means `alias`.
        std::string alias; ///< Port name.

    protected:
        void DrawOwnFields(float x, float width, float scale) override;
        int GetOwnFieldRows() const override;
    };

    /// A named number constant.
    class ConstNumberNode : public NeroxNode {
    public:
        explicit ConstNumberNode(ImVec2 pos = {});
        /// Reads "name", "value" (a number).
        explicit ConstNumberNode(nlohmann::json const& json);
        nlohmann::json Serialize() override;
        char const* ClassName() const override { return "ConstNumberNode"; }
        uint32_t GetColor() const override;
        int GetFieldRows() const override;
        void DrawFields(float x, float width, float scale) override;
        std::string name; ///< Without the leading "$".
        double value = 0; ///< Its value.
    };

    /// A named text constant.
    class ConstTextNode : public NeroxNode {
    public:
        explicit ConstTextNode(ImVec2 pos = {});
        /// Reads "name", "value" (a string).
        explicit ConstTextNode(nlohmann::json const& json);
        nlohmann::json Serialize() override;
        char const* ClassName() const override { return "ConstTextNode"; }
        uint32_t GetColor() const override;
        int GetFieldRows() const override;
        void DrawFields(float x, float width, float scale) override;
        std::string name;  ///< Without the leading "$".
        std::string value; ///< Its text, unescaped.
    };

    /// A named number variable kept between updates; inputs value, set, reset.
    class VarNumberNode : public NeroxNode {
    public:
        explicit VarNumberNode(ImVec2 pos = {});
        /// Reads "name".
        explicit VarNumberNode(nlohmann::json const& json);
        nlohmann::json Serialize() override;
        char const* ClassName() const override { return "VarNumberNode"; }
        uint32_t GetColor() const override;
        char const* GetInputLabel(int input, char* buffer, size_t size) const override;
        int GetFieldRows() const override;
        void DrawFields(float x, float width, float scale) override;
        std::string name; ///< Without the leading "$".
    };

    /// A named text variable kept between updates; inputs value, set, reset.
    class VarTextNode : public NeroxNode {
    public:
        explicit VarTextNode(ImVec2 pos = {});
        /// Reads "name".
        explicit VarTextNode(nlohmann::json const& json);
        nlohmann::json Serialize() override;
        char const* ClassName() const override { return "VarTextNode"; }
        uint32_t GetColor() const override;
        char const* GetInputLabel(int input, char* buffer, size_t size) const override;
        int GetFieldRows() const override;
        void DrawFields(float x, float width, float scale) override;
        std::string name; ///< Without the leading "$".
    };

    /// Goes true for a time after a trigger; inputs time, trigger, reset.
    class DelayNode : public NeroxNode {
    public:
        explicit DelayNode(ImVec2 pos = {});
        explicit DelayNode(nlohmann::json const& json);
        char const* ClassName() const override { return "DelayNode"; }
        uint32_t GetColor() const override;
        char const* GetInputLabel(int input, char* buffer, size_t size) const override;
    };

    /// Square wave over time; input period.
    class BlinkerNode : public NeroxNode {
    public:
        explicit BlinkerNode(ImVec2 pos = {});
        explicit BlinkerNode(nlohmann::json const& json);
        char const* ClassName() const override { return "BlinkerNode"; }
        uint32_t GetColor() const override;
        char const* GetInputLabel(int input, char* buffer, size_t size) const override;
    };

    /// Accumulator with limits; inputs step, start value, minimum, maximum, reset.
    class CounterNode : public NeroxNode {
    public:
        explicit CounterNode(ImVec2 pos = {});
        explicit CounterNode(nlohmann::json const& json);
        char const* ClassName() const override { return "CounterNode"; }
        uint32_t GetColor() const override;
        char const* GetInputLabel(int input, char* buffer, size_t size) const override;
    };

    /// Eased move to a target; inputs target, duration, trigger.
    class SmoothNode : public NeroxNode {
    public:
        explicit SmoothNode(ImVec2 pos = {});
        explicit SmoothNode(nlohmann::json const& json);
        char const* ClassName() const override { return "SmoothNode"; }
        uint32_t GetColor() const override;
        char const* GetInputLabel(int input, char* buffer, size_t size) const override;
    };

    /// User text that gives a value; the letters a, b, c... stand for the inputs.
    class ExpressionNode : public NeroxNodeWithVariableInputCount {
    public:
        explicit ExpressionNode(ImVec2 pos = {});
        /// Reads "text".
        explicit ExpressionNode(nlohmann::json const& json);
        nlohmann::json Serialize() override;
        char const* ClassName() const override { return "ExpressionNode"; }
        uint32_t GetColor() const override;
        char const* GetInputLabel(int input, char* buffer, size_t size) const override;
        bool ShowsTypeToggle(int input) const override;
        size_t MaximumInputCount() const override;
        std::string text; ///< Formula with input letters.

    protected:
        void DrawOwnFields(float x, float width, float scale) override;
        int GetOwnFieldRows() const override;
    };

    /// User text that is a statement; the letters a, b, c... stand for the inputs.
    class StatementNode : public NeroxNodeWithVariableInputCount {
    public:
        explicit StatementNode(ImVec2 pos = {});
        /// Reads "text".
        explicit StatementNode(nlohmann::json const& json);
        nlohmann::json Serialize() override;
        char const* ClassName() const override { return "StatementNode"; }
        uint32_t GetColor() const override;
        char const* GetInputLabel(int input, char* buffer, size_t size) const override;
        bool ShowsTypeToggle(int input) const override;
        size_t MaximumInputCount() const override;
        std::string text; ///< Statement with input letters.

    protected:
        void DrawOwnFields(float x, float width, float scale) override;
        int GetOwnFieldRows() const override;
    };

    /// Runs the statements on its inputs, one per line; a sink.
    class ExecuteNode : public NeroxNodeWithVariableInputCount {
    public:
        explicit ExecuteNode(ImVec2 pos = {});
        explicit ExecuteNode(nlohmann::json const& json);
        char const* ClassName() const override { return "ExecuteNode"; }
        uint32_t GetColor() const override;
        int32_t NewInputType(size_t input) const override;
        size_t MinimumInputCount() const override;
    };

    /// If and else around statements; inputs condition, then, else.
    class ConditionalNode : public NeroxNode {
    public:
        explicit ConditionalNode(ImVec2 pos = {});
        explicit ConditionalNode(nlohmann::json const& json);
        char const* ClassName() const override { return "ConditionalNode"; }
        uint32_t GetColor() const override;
        char const* GetInputLabel(int input, char* buffer, size_t size) const override;
    };

    /// Picks an input by a number: input 0 is the selector, then the cases 0, 1, 2...
    class SwitchNode : public NeroxNodeWithVariableInputCount {
    public:
        explicit SwitchNode(ImVec2 pos = {});
        /// Reads "type" (0 or 1).
        explicit SwitchNode(nlohmann::json const& json);
        nlohmann::json Serialize() override;
        char const* ClassName() const override { return "SwitchNode"; }
        uint32_t GetColor() const override;
        char const* GetInputLabel(int input, char* buffer, size_t size) const override;
        size_t MinimumInputCount() const override;
        int32_t NewInputType(size_t input) const override;
        /// Sets `type` and the type of every case input.
        void SetType(int32_t newType);
        int32_t type = 0; ///< Type of the value chosen.

    protected:
        void DrawOwnFields(float x, float width, float scale) override;
        int GetOwnFieldRows() const override;
    };

    /// One-update pulse on an edge; inputs rising edge, falling edge.
    class PulseNode : public NeroxNode {
    public:
        explicit PulseNode(ImVec2 pos = {});
        explicit PulseNode(nlohmann::json const& json);
        char const* ClassName() const override { return "PulseNode"; }
        uint32_t GetColor() const override;
        char const* GetInputLabel(int input, char* buffer, size_t size) const override;

    protected:
        PulseNode(std::string title, ImVec2 pos);
    };

    /// Flips a kept state on an edge; inputs rising edge, falling edge.
    class PulseToggleNode : public PulseNode {
    public:
        explicit PulseToggleNode(ImVec2 pos = {});
        explicit PulseToggleNode(nlohmann::json const& json);
        char const* ClassName() const override { return "PulseToggleNode"; }
    };

    /// A built-in number; the plain class stands for nothing.
    class BasicNumberNode : public NeroxNode {
    public:
        explicit BasicNumberNode(ImVec2 pos = {});
        explicit BasicNumberNode(nlohmann::json const& json);
        char const* ClassName() const override { return "BasicNumberNode"; }
        uint32_t GetColor() const override;

    protected:
        BasicNumberNode(std::string title, ImVec2 pos);
    };

    /// The value "time", in seconds.
    class TimeNode : public BasicNumberNode {
    public:
        explicit TimeNode(ImVec2 pos = {});
        explicit TimeNode(nlohmann::json const& json);
        char const* ClassName() const override { return "TimeNode"; }
    };

    /// Prints its inputs; a sink.
    class PrintNode : public NeroxNodeWithVariableInputCount {
    public:
        explicit PrintNode(ImVec2 pos = {});
        explicit PrintNode(nlohmann::json const& json);
        char const* ClassName() const override { return "PrintNode"; }
        uint32_t GetColor() const override;
        bool ShowsTypeToggle(int input) const override;
        int32_t NewInputType(size_t input) const override;
        size_t MinimumInputCount() const override;
    };

    /// Formats text from its inputs with the language's "text" function.
    class TextNode : public NeroxNodeWithVariableInputCount {
    public:
        explicit TextNode(ImVec2 pos = {});
        /// Reads "text".
        explicit TextNode(nlohmann::json const& json);
        nlohmann::json Serialize() override;
        char const* ClassName() const override { return "TextNode"; }
        uint32_t GetColor() const override;
        bool ShowsTypeToggle(int input) const override;
        int32_t NewInputType(size_t input) const override;
        std::string text; ///< The format, written unescaped.

    protected:
        void DrawOwnFields(float x, float width, float scale) override;
        int GetOwnFieldRows() const override;
    };

    /// One operation, named by its title; 1, 2 or 3 inputs a, b, c.
    class MathNode : public NeroxNode {
    public:
        /// A node of operation `operation` with MathInputCount(operation) inputs.
        explicit MathNode(std::string const& operation = "ADD", ImVec2 pos = {});
        /// Same as the string form.
        explicit MathNode(char const* operation, ImVec2 pos = {});
        explicit MathNode(nlohmann::json const& json);
        char const* ClassName() const override { return "MathNode"; }
        uint32_t GetColor() const override;
        char const* GetInputLabel(int input, char* buffer, size_t size) const override;
        int GetFieldRows() const override;
        void DrawFields(float x, float width, float scale) override;
        /// Changes the operation (the title) and the input count; the links of kept inputs stay.
        void SetOperation(std::string const& operation);
    };

    /// PID loop; inputs set point, process value, P, I, D gains, reset, minimum, maximum.
    class PIDControllerNode : public NeroxNode {
    public:
        explicit PIDControllerNode(ImVec2 pos = {});
        explicit PIDControllerNode(nlohmann::json const& json);
        char const* ClassName() const override { return "PIDControllerNode"; }
        uint32_t GetColor() const override;
        char const* GetInputLabel(int input, char* buffer, size_t size) const override;
    };

    /// Includes another source file; a sink.
    class IncludeNode : public NeroxNode {
    public:
        explicit IncludeNode(ImVec2 pos = {});
        /// Reads "path".
        explicit IncludeNode(nlohmann::json const& json);
        nlohmann::json Serialize() override;
        char const* ClassName() const override { return "IncludeNode"; }
        uint32_t GetColor() const override;
        int GetFieldRows() const override;
        void DrawFields(float x, float width, float scale) override;
        std::string path; ///< File to include.
    };

    /// One item of the add menu.
    struct CatalogEntry {
        char const* title;     ///< Node title and menu label.
        char const* className; ///< Class that the title makes.
        char const* group;     ///< Menu group.
    };

    /// An editor with no nodes; the code pane is read-only with the Nerox palette.
    Editor();
    ~Editor() override;

    /// Makes the class that `title` names (a menu title or a class name), else null.
    /// `inputs` links its first inputs; a variable-input class takes exactly that many
    /// inputs when the list is not empty (within its limits).
    Node* CreateNode(std::string const& title, ImVec2 pos, std::vector<UniqueId> inputs) override;
    /// Rebuilds any class from what its Serialize wrote. An unknown class or a malformed
    /// node gives null and a message on stderr and in `warnings`.
    Node* DeserializeNode(nlohmann::json const& json) override;
    /// The canvas beside the code pane; handles the undo keys and regenerates the code
    /// (with an undo step) after a change. Returns whether the window has the focus.
    bool Render() override;
    /// The add menu: a search box, then the node groups (or the matches of the search).
    void ContextMenu(ImVec2 pos) override;

    /// Regenerates the code text into `code`; with `pushUndo` the graph also goes into
    /// the undo history. An invalid program name prints a message and changes nothing;
    /// a program larger than maxProgramBytes changes nothing either and leaves the
    /// reason in generationError and in the warnings.
    void Serialize(bool pushUndo);

    /// Replaces the graph by the one in `text`: a program text whose first line is
    /// "#NODES " and the graph JSON, or a bare graph JSON (leading blanks and a byte
    /// order mark are skipped; the rest of a program text is not read). Nodes that cannot be read are
    /// skipped and links that close a cycle are cut, each with a warning. Clears the undo
    /// history and sets `changed`. False (graph unchanged) with `*error` set when no graph
    /// can be read.
    bool Load(std::string const& text, std::string* error = nullptr);
    /// Load from a graph JSON value ({"nodes": [...]}).
    bool LoadGraph(nlohmann::json const& graph, std::string* error = nullptr);
    /// Steps back one entry of the undo history, restoring its graph and code.
    void Undo();
    /// Steps forward one entry of the undo history.
    void Redo();
    /// Whether Undo would do something.
    bool CanUndo() const { return undoPosition + 1 < undoHistory.size(); }
    /// Whether Redo would do something.
    bool CanRedo() const { return undoPosition > 0; }
    /// The text of the code pane.
    std::string GetCode() const { return code.GetText(); }

    /// The program name made fit for identifiers: ".main.nc" cut off the end, "-" made
    /// "_". False when the result is not one or more of A-Z, a-z, 0-9 and "_".
    static bool CleanProgramName(std::string const& name, std::string& cleaned);
    /// A default's text as a number literal: "" gives "0", blanks are trimmed, "." gets a
    /// leading "0", "-." and "+." become "-0." and "+0."; nothing else is checked.
    static std::string FormatNumber(std::string s);
    /// Replaces input letters in `text` by the input texts: only a letter that ends a run
    /// of letters, outside double quotes, whose place in the alphabet has an input.
    static std::string Substitute(std::string const& text, std::vector<std::string> const& inputs);
    /// Whether a text starts with a double quote, "$" or a digit.
    static bool IsLiteralLike(std::string const& text);
    /// Every item of the add menu, grouped in menu order.
    static std::span<CatalogEntry const> Catalog();
    /// Whether a menu title matches the search text (case-insensitive substring; empty matches all).
    static bool MatchesFilter(char const* title, std::string const& filter);

    std::string programName;                ///< File name of the program, e.g. "door.main.nc".
    TextEditor code;                        ///< The generated text, read-only.
    uint64_t undoLimit = 100;               ///< Most entries kept in `undoHistory`.
    size_t maxProgramBytes = 16u << 20;     ///< Largest program Serialize makes; a larger one is refused.
    std::string generationError;            ///< Why the last Serialize made no text; empty when it made one.
    std::deque<nlohmann::json> undoHistory; ///< Graphs after each change, newest at the front.
    uint64_t undoPosition = 0;              ///< Entries undone; 0 at the newest.
    std::vector<std::string> warnings;      ///< Messages of the last Load (also printed to stderr).
    bool printWarnings = true;              ///< Whether Warn also prints to stderr (Compile returns them instead).
    std::string menuFilter;                 ///< Search text of the add menu.
    float split = 0.6f;                     ///< Share of the width taken by the canvas.

private:
    /// Replaces the nodes by those of `graph`, warning about what it skips or cuts.
    bool ReplaceGraph(nlohmann::json const& graph, std::string* error);
    /// Whether the links between the nodes of index close a cycle.
    bool HasCycle(std::unordered_map<UniqueId, Node*> const& index) const;
    /// Adds a warning to `warnings`, and prints it to stderr when printWarnings is set.
    void Warn(std::string message);
    /// Restores undoHistory[undoPosition] and regenerates the code.
    void RestoreUndoEntry();
};

} // namespace game::graphics::ui::NeroxCodeEditor
