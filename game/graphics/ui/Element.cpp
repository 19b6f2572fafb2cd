#include "game/graphics/ui/Element.hpp"

#include "game/Game.hpp"
#include "game/graphics/GameRenderer.hpp"
#include "nerox/vk/Pipeline.hpp"

#include <cstring>
#include <shared_mutex>

namespace game::graphics::ui {

// ---------------------------------------------------------------- pipelines

std::array<GraphicsPipelineWrapper*, GraphicsPipelineWrapper::MaxInstances> GraphicsPipelineWrapper::_instances{};
std::atomic<uint32_t> GraphicsPipelineWrapper::_nbInstance{0};
std::mutex GraphicsPipelineWrapper::_instancesMutex;

GraphicsPipelineWrapper::GraphicsPipelineWrapper(std::string shaderPath, VkPrimitiveTopology topology)
    : shaderPath(std::move(shaderPath)), topology(topology), index(_nbInstance.fetch_add(1)) {
    {
        std::lock_guard lock(_instancesMutex);
        _instances.at(index) = this;
    }
    if (Game::renderer != nullptr) LoadPipeline(Game::renderer);
}

GraphicsPipelineWrapper::~GraphicsPipelineWrapper() {
    UnloadPipeline();
    std::lock_guard lock(_instancesMutex);
    _instances[index] = nullptr;
}

void GraphicsPipelineWrapper::LoadPipeline(GameRenderer* renderer) {
    if (pipeline || renderer == nullptr || !renderer->overlayRenderpass) return;
    nerox::vk::GraphicsPipelineOptions options;
    options.topology = topology;
    options.depthTest = false;
    options.depthWrite = false;
    options.alphaBlending = true;
    options.dstAlphaBlendFactor = VK_BLEND_FACTOR_ZERO;
    VkExtent2D const extent = renderer->overlayRenderpass->Extent();
    options.specialization = {static_cast<float>(extent.width), static_cast<float>(extent.height)};
    pipeline = std::make_shared<nerox::vk::GraphicsPipeline>(renderer->GetDevice(), *renderer->overlayPipelineLayout,
                                                             *renderer->overlayRenderpass, shaderPath, options);
}

void GraphicsPipelineWrapper::UnloadPipeline() {
    if (!pipeline) return;
    if (Game::renderer != nullptr) Game::renderer->Trash(std::move(pipeline));
    pipeline.reset();
}

void GraphicsPipelineWrapper::LoadPipelines(GameRenderer* renderer) {
    std::lock_guard lock(_instancesMutex);
    for (GraphicsPipelineWrapper* wrapper : _instances)
        if (wrapper != nullptr) wrapper->LoadPipeline(renderer);
}

void GraphicsPipelineWrapper::UnloadPipelines() {
    std::lock_guard lock(_instancesMutex);
    for (GraphicsPipelineWrapper* wrapper : _instances)
        if (wrapper != nullptr) wrapper->UnloadPipeline();
}

// ---------------------------------------------------------------- the list

std::vector<std::weak_ptr<Element>> Element::_sharedObjects;
nerox::SharedMutex Element::_sharedObjectsMutex;
std::atomic<bool> Element::_pointerDown{false};

Element::Element(uint32_t vertexCount, uint32_t instanceCount, int32_t layer, bool visible)
    : vertexCount(vertexCount), instanceCount(instanceCount), layer(layer), visible(visible) { }

void Element::Sort(std::function<bool(std::shared_ptr<Element> const&, std::shared_ptr<Element> const&)> comparator) {
    std::unique_lock lock(_sharedObjectsMutex);
    // Once per frame: the storage is kept, and an insertion sort keeps the order
    // of equals without a buffer (the list is short and nearly sorted already).
    static std::vector<std::shared_ptr<Element>> live;
    live.clear();
    for (auto const& entry : _sharedObjects)
        if (auto element = entry.lock()) live.push_back(std::move(element));
    for (size_t i = 1; i < live.size(); ++i) {
        for (size_t j = i; j > 0 && comparator(live[j], live[j - 1]); --j) std::swap(live[j], live[j - 1]);
    }
    _sharedObjects.resize(live.size());
    for (size_t i = 0; i < live.size(); ++i) {
        _sharedObjects[i] = live[i];
        live[i]->slot = i;
    }
    live.clear();
}

std::vector<std::shared_ptr<Element>> Element::Live() {
    std::vector<std::shared_ptr<Element>> live;
    Live(live);
    return live;
}

void Element::Live(std::vector<std::shared_ptr<Element>>& live) {
    live.clear();
    std::shared_lock lock(_sharedObjectsMutex);
    live.reserve(_sharedObjects.size());
    for (auto const& entry : _sharedObjects)
        if (auto element = entry.lock()) live.push_back(std::move(element));
}

void Element::ForEach(std::function<void(Element&)> const& function) {
    for (auto const& element : Live()) function(*element);
}

bool Element::ClickTop(glm::ivec2 const& mouse, glm::ivec2 const& screen, int button, int action) {
    bool taken = false;
    std::vector<std::shared_ptr<Element>> const live = Live();
    for (auto it = live.rbegin(); it != live.rend(); ++it) {
        if (!taken && (*it)->Click(mouse, screen, button, action)) {
            taken = true;
        } else if (action == 0) {
            (*it)->Reset();
        }
    }
    return taken;
}

void Element::HoverTop(glm::ivec2 const& mouse, glm::ivec2 const& screen, bool pressed) {
    // Every frame while a pointer is forwarded: the list's storage is kept per thread.
    thread_local std::vector<std::shared_ptr<Element>> live;
    Live(live);
    bool found = false;
    for (auto it = live.rbegin(); it != live.rend(); ++it) {
        Element& element = **it;
        if (!element.visible) continue;
        std::lock_guard lock(element.mutex);
        if (!element.hover) continue;
        bool const over = !found && element.IsOver(mouse, screen);
        found = found || over;
        (*element.hover)(over, pressed);
    }
    live.clear();
}

void Element::ForwardPointer(glm::ivec2 const& mouse, glm::ivec2 const& screen, bool leftDown) {
    if (_pointerDown.exchange(leftDown) != leftDown) ClickTop(mouse, screen, 0, leftDown ? 1 : 0);
    HoverTop(mouse, screen, leftDown);
}

// ---------------------------------------------------------------- one element

bool Element::IsOver(glm::ivec2 const& mouse, glm::ivec2 const& screen) const {
    float const width = static_cast<float>(screen.x);
    float const height = static_cast<float>(screen.y);
    float const cx = (1.0f + hitPosition.x) / 2.0f * width;
    float const hx = hitSize.x / 4.0f * height; // the height on both axes
    float const cy = (1.0f + hitPosition.y) / 2.0f * height;
    float const hy = hitSize.y / 4.0f * height;
    auto const bound = [](float value) { return static_cast<int>(value); };
    return mouse.x > bound(cx - hx) && mouse.x < bound(cx + hx) && mouse.y > bound(cy - hy) && mouse.y < bound(cy + hy);
}

bool Element::Click(glm::ivec2 const& mouse, glm::ivec2 const& screen, int button, int action) {
    if (!visible) return false;
    std::lock_guard lock(mutex);
    if (!click || !IsOver(mouse, screen)) return false;
    (*click)(button, action);
    return true;
}

void Element::Hover(glm::ivec2 const& mouse, glm::ivec2 const& screen, bool pressed) {
    if (!visible) return;
    std::lock_guard lock(mutex);
    if (hover) (*hover)(IsOver(mouse, screen), pressed);
}

void Element::Hover(bool pressed) {
    std::lock_guard lock(mutex);
    if (hover) (*hover)(true, pressed);
}

void Element::Reset() {
    std::lock_guard lock(mutex);
    if (hover) (*hover)(false, false);
}

bool Element::IsDraggable(glm::ivec2 const& mouse, glm::ivec2 const& screen, int button) const {
    if (!visible) return false;
    std::lock_guard lock(mutex);
    return (drag || drop) && button == 0 && IsOver(mouse, screen);
}

void Element::Drag(glm::ivec2 const& from, glm::ivec2 const& to) {
    std::lock_guard lock(mutex);
    if (drag) (*drag)(from, to);
}

void Element::Drop(glm::ivec2 const& from, glm::ivec2 const& to) {
    std::lock_guard lock(mutex);
    if (drop) (*drop)(from, to);
}

void Element::Show() {
    visible = true;
}

void Element::Hide() {
    visible = false;
}

void Element::Draw(VkCommandBuffer commandBuffer) {
    GameRenderer* const renderer = Game::renderer;
    if (!visible || renderer == nullptr) return;
    nerox::vk::GraphicsPipeline* const pipeline = GetPipeline();
    if (pipeline == nullptr) return;

    pipeline->Bind(commandBuffer);
    VkDescriptorSet const set = renderer->MainDescriptorSet();
    vkCmdBindDescriptorSets(commandBuffer, VK_PIPELINE_BIND_POINT_GRAPHICS, *renderer->overlayPipelineLayout, 0, 1,
                            &set, 0, nullptr);
    std::array<unsigned char, GameRenderer::OverlayPushConstantBytes> block;
    bool pushed = false;
    {
        std::lock_guard lock(mutex);
        if (void const* data = GetData()) {
            std::memcpy(block.data(), data, block.size());
            pushed = true;
        }
    }
    if (pushed)
        vkCmdPushConstants(commandBuffer, *renderer->overlayPipelineLayout, 0x7fffffff, 0, block.size(), block.data());
    vkCmdDraw(commandBuffer, vertexCount, instanceCount, 0, 0);
}

} // namespace game::graphics::ui
