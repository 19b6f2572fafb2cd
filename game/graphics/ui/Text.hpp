#pragma once
// A line of text of the retained interface, drawn with the renderer's
// monospace font atlas.
#include "game/graphics/ui/Element.hpp"

#include <cstddef>
#include <string>

namespace game::graphics::ui {

/// One point sprite per character: instanceCount is the text's length. The
/// line is centred on its position; size is the height of a character cell.
/// Characters are bytes, drawn from the atlas's cells 0 to 255.
class Text : public Element {
public:
    /// Characters a block holds: text past them is dropped.
    static constexpr size_t MaxLength = 92;

    /// The push-constant block: 128 bytes.
    struct Data {
        glm::vec4 color{1.0f};           ///< Red, green, blue, alpha.
        glm::vec2 position{0.0f};        ///< Centre of the line.
        float size = 0.0f;               ///< Height of a character.
        uint32_t length = 0;             ///< Characters in use.
        uint32_t zero = 0;               ///< Unused.
        char characters[MaxLength] = {}; ///< Not terminated.
    };

    /// The text shader: "game/graphics/ui/shaders/text", a point list.
    static GraphicsPipelineWrapper _shader;

    nerox::vk::GraphicsPipeline* GetPipeline() override;
    void const* GetData() override { return &data; }

    /// Copies at most MaxLength characters; the rest is dropped. A null text is empty.
    virtual void SetText(char const* text);
    /// The characters in use.
    virtual std::string GetText() const;
    virtual void SetColor(glm::vec4 const& color);
    virtual void SetPosition(glm::vec2 const& position);
    virtual void SetSize(float size);

    Data data; ///< What the shader draws.

protected:
    friend class Element;
    /// text (cut to MaxLength), in color, centred on position, characters size high.
    Text(char const* text, glm::vec4 const& color, glm::vec2 const& position, float size);
};

static_assert(sizeof(Text::Data) == 128);
static_assert(offsetof(Text::Data, position) == 16 && offsetof(Text::Data, size) == 24);
static_assert(offsetof(Text::Data, length) == 28 && offsetof(Text::Data, characters) == 36);

} // namespace game::graphics::ui
