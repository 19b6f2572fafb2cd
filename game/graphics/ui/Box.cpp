#include "game/graphics/ui/Box.hpp"

#include "nerox/vk/Pipeline.hpp"

namespace game::graphics::ui {

GraphicsPipelineWrapper Box::_shader("game/graphics/ui/shaders/box", VK_PRIMITIVE_TOPOLOGY_TRIANGLE_STRIP);

Box::Box() : Element(4, 1, 0, true) { }

nerox::vk::GraphicsPipeline* Box::GetPipeline() {
    return _shader.pipeline.get();
}

void Box::SetColor(glm::vec4 const& color) {
    data.color = color;
}

void Box::SetPosition(glm::vec2 const& position) {
    data.position = position;
}

void Box::SetSize(glm::vec2 const& size) {
    data.size = size;
}

} // namespace game::graphics::ui
