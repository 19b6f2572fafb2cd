#include "game/graphics/ui/Text.hpp"

#include "nerox/vk/Pipeline.hpp"

#include <cstring>

namespace game::graphics::ui {

GraphicsPipelineWrapper Text::_shader("game/graphics/ui/shaders/text", VK_PRIMITIVE_TOPOLOGY_POINT_LIST);

Text::Text(char const* text, glm::vec4 const& color, glm::vec2 const& position, float size) : Element(1, 0, 0, true) {
    data.color = color;
    data.position = position;
    data.size = size;
    SetText(text);
}

nerox::vk::GraphicsPipeline* Text::GetPipeline() {
    return _shader.pipeline.get();
}

void Text::SetText(char const* text) {
    size_t const length = text == nullptr ? 0 : strnlen(text, MaxLength);
    std::memcpy(data.characters, text, length);
    data.length = static_cast<uint32_t>(length);
    instanceCount = data.length;
}

std::string Text::GetText() const {
    return std::string(data.characters, data.length);
}

void Text::SetColor(glm::vec4 const& color) {
    data.color = color;
}

void Text::SetPosition(glm::vec2 const& position) {
    data.position = position;
}

void Text::SetSize(float size) {
    data.size = size;
}

} // namespace game::graphics::ui
