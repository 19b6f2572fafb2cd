#pragma once
// A filled rectangle of the retained interface.
#include "game/graphics/ui/Element.hpp"

#include <cstddef>

namespace game::graphics::ui {

/// One instance of a four-vertex strip, its colour, place and size in the block.
/// A non-zero icon draws that character of the renderer's monospace font
/// atlas (code points 1 to 255) in the middle of the box, in black or white
/// against its colour.
class Box : public Element {
public:
    /// The push-constant block: 128 bytes.
    struct Data {
        glm::vec4 color{1.0f};       ///< Red, green, blue, alpha.
        glm::vec2 position{0.0f};    ///< Centre.
        glm::vec2 size{0.0f};        ///< Extent.
        uint32_t icon = 0;           ///< A Button's icon; 0 for none.
        unsigned char zero[92] = {}; ///< Unused.
    };

    /// The box shader: "game/graphics/ui/shaders/box", a triangle strip.
    static GraphicsPipelineWrapper _shader;

    nerox::vk::GraphicsPipeline* GetPipeline() override;
    void const* GetData() override { return &data; }

    /// These change the block only; the hit rectangle follows only in Button.
    virtual void SetColor(glm::vec4 const& color);
    virtual void SetPosition(glm::vec2 const& position);
    virtual void SetSize(glm::vec2 const& size);

    Data data; ///< What the shader draws.

protected:
    friend class Element;
    Box();
};

static_assert(sizeof(Box::Data) == 128);
static_assert(offsetof(Box::Data, position) == 16 && offsetof(Box::Data, size) == 24);
static_assert(offsetof(Box::Data, icon) == 32 && offsetof(Box::Data, zero) == 36);

} // namespace game::graphics::ui
