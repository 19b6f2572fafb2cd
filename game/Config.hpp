#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace game {

/// A read-only YAML document, read by keys and indices.
///
/// Every accessor has a quiet result instead of an error: a missing key or an index
/// past the end gives the node asked from, a wrong kind of node gives an invalid node,
/// and an invalid node reads as 0, false or the empty string.
///
/// Parse copies the document into the config's own node table, so the text may go
/// away afterwards. Nodes and iterators borrow that table: they dangle once Parse or
/// Clear runs. A parsed config is never written and may be read from any thread;
/// Parse and Clear must not run while nodes are in use.
///
/// How the YAML maps to nodes:
/// - The text must be UTF-8 without NUL characters; anything else is refused before parsing.
/// - The root is the first document of the stream; later documents are ignored.
///   A stream with no document, or whose root is an empty scalar, leaves the config empty.
/// - A mapping's children are its values, each carrying its key (HasKey). A key must be
///   a scalar: pairs whose key is a mapping or a sequence are left out. A missing key
///   (": v") reads as the empty key. Duplicate keys are kept; lookups find the first.
///   "<<" is an ordinary key (merge keys are not applied).
/// - A sequence's children are its items, without keys.
/// - Scalars keep their text as YAML defines it (quotes and escapes resolved, block
///   scalars folded or kept literal). Tags are ignored. "~" and "null" read as written;
///   a missing value reads as the empty text.
/// - An alias reads as a copy of the node its anchor names. An alias to no earlier
///   anchor, or to a node that contains the alias itself, is an error.
/// - A document that would need more than maxNodes nodes (aliases included) is refused.
///
/// Errors: a document that can't be read leaves the config empty and writes one line
/// "Config: YAML error at line L, column C: message" to std::cerr. Nothing is thrown.
class Config {
    class Tree;

public:
    /// Index of no node.
    static constexpr size_t none = size_t(-1);
    /// Most nodes a parsed document may have, aliases copied out included.
    static constexpr size_t maxNodes = 1000000;

    class Iterator;

    /// One node of the tree: a pointer to the tree and an index into it.
    class Node {
    public:
        /// An invalid node.
        Node() = default;

        /// True if the node is valid.
        explicit operator bool() const;
        /// Position among its siblings (0 for the root), -1 if invalid.
        long Index() const;
        /// Number of nodes of the whole tree (not of the children); 0 if invalid.
        size_t Size() const;

        /// True if the node is a value of a mapping, so it has a key.
        bool HasKey() const;
        /// True if the node is a mapping.
        bool IsMap() const;
        /// True if the node is a sequence.
        bool IsArray() const;
        /// True if the node is a scalar.
        bool IsValue() const;

        /// True if the trimmed scalar text is one whole real number (integers included) or an infinity or NaN.
        bool IsFloat() const;
        /// True if the trimmed scalar text is one whole integer with an optional sign and base prefix.
        bool IsInt() const;
        /// True if the trimmed scalar text is a whole integer or a whole real number.
        bool IsNumeric() const;
        /// True for a scalar whose trimmed text is empty or not numeric.
        bool IsString() const;

        /// The scalar text as a float; 0 if it isn't a number.
        float AsFloat() const;
        /// The scalar text as a double; 0 if it isn't a number.
        double AsDouble() const;
        /// The scalar text as an integer, wrapping in 32 bits; 0 if it isn't an integer.
        int32_t AsInt() const;
        /// The scalar text as an integer, wrapping in 64 bits; 0 if it isn't an integer.
        int64_t AsInt64() const;
        /// The scalar text as an unsigned integer; 0 if it isn't one or doesn't fit.
        uint64_t AsUInt64() const;
        /// The scalar text; empty if invalid or not a scalar.
        std::string AsString() const;
        /// Same as AsString.
        operator std::string() const;
        /// The node's key; empty if it has none.
        std::string Key() const;

        /// True if AsString equals text (a null text counts as empty).
        bool operator==(char const* text) const;
        /// True if AsString equals text.
        bool operator==(std::string const& text) const;
        /// True if AsString differs from text.
        bool operator!=(char const* text) const;
        /// True if AsString differs from text.
        bool operator!=(std::string const& text) const;

        /// The value of key in this mapping; this node itself if the key is missing,
        /// an invalid node if this node is invalid or not a mapping.
        Node operator[](char const* key) const;
        /// The item at index in this sequence; this node itself if the index is past
        /// the end, an invalid node if this node is invalid or not a sequence.
        Node operator[](unsigned long index) const;

        /// Iterator at the first child, or end() if there is none.
        Iterator begin() const;
        /// Iterator past the last child.
        Iterator end() const;

    private:
        friend class Config;
        friend class Iterator;
        Node(Tree const* tree, size_t id) : _tree(tree), _id(id) { }

        Tree const* _tree = nullptr;
        size_t _id = none;
    };

    /// Walks the children of a node, forwards or backwards. Stepping back from the
    /// first child gives the end iterator, as does stepping on from the last; the end
    /// iterator stays where it is.
    class Iterator {
    public:
        /// An iterator at no node.
        Iterator() = default;

        /// Moves to the next sibling.
        Iterator& operator++();
        /// Moves to the previous sibling.
        Iterator& operator--();
        /// The node the iterator is at.
        Node operator*() const { return Node(_tree, _id); }
        /// True if both are at the same node of the same tree.
        bool operator==(Iterator const& other) const { return _tree == other._tree && _id == other._id; }
        /// True if the iterators differ.
        bool operator!=(Iterator const& other) const { return !(*this == other); }

    private:
        friend class Node;
        Iterator(Tree const* tree, size_t id) : _tree(tree), _id(id) { }

        Tree const* _tree = nullptr;
        size_t _id = none;
    };

    /// An empty config.
    Config();
    /// Frees the tree.
    ~Config();
    Config(Config const&) = delete;
    Config& operator=(Config const&) = delete;

    /// Replaces the tree with the first document of text (NUL-terminated, owned by the
    /// caller, not kept). On an error the config stays empty and one line goes to std::cerr.
    void Parse(char* text);
    /// Same as Parse(char*) for a text held in a string.
    void Parse(std::string const& text);
    /// Frees the tree; the config is empty afterwards.
    void Clear();

    /// The value of key in the root mapping (the root itself if the key is missing);
    /// an invalid node if the config is empty or the root isn't a mapping.
    Node operator[](char const* key) const;
    /// The item at index in the root sequence (the root itself if past the end);
    /// an invalid node if the config is empty or the root isn't a sequence.
    Node operator[](unsigned long index) const;
    /// True if nothing is parsed.
    bool Empty() const;

private:
    /// Parses size bytes at data; the shared part of both Parse forms.
    void ParseText(char const* data, size_t size);

    std::unique_ptr<Tree> _tree;
};

} // namespace game
