#pragma once
// A small retained interface drawn straight into the overlay pass: a flat list
// of elements, each a rectangle or a line of text drawn by one instanced draw
// from a 128-byte push-constant block, with no vertex buffers.
//
// Coordinates: positions are normalised device coordinates, -1 to 1 on both
// axes with the origin at the centre of the screen and y growing downwards.
// Sizes use the same units but are measured against the screen's height on
// both axes, so a square stays square on any aspect ratio: an element of size
// (w, h) covers w / 2 x h / 2 screen heights.
#include "nerox/SharedMutex.hpp"

#include <glm/glm.hpp>
#include <vulkan/vulkan.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace nerox::vk {
class GraphicsPipeline;
}
namespace game::graphics {
class GameRenderer;
}

namespace game::graphics::ui {

/// The pipeline of one element shader, drawn in the renderer's overlay pass.
/// Wrappers are static objects: they exist before the renderer, which loads
/// them all (LoadPipelines) once its overlay pass exists and again whenever
/// the pass is made anew, and unloads them when it goes.
class GraphicsPipelineWrapper {
public:
    static constexpr size_t MaxInstances = 1024;

    /// Enters the wrapper in _instances; loads its pipeline at once when
    /// Game::renderer exists. The 1025th wrapper throws std::out_of_range.
    GraphicsPipelineWrapper(std::string shaderPath, VkPrimitiveTopology topology);
    /// Unloads and leaves _instances.
    ~GraphicsPipelineWrapper();
    GraphicsPipelineWrapper(GraphicsPipelineWrapper const&) = delete;
    GraphicsPipelineWrapper& operator=(GraphicsPipelineWrapper const&) = delete;

    /// Builds the pipeline on the renderer's overlay pass unless it is loaded:
    /// no vertex input, this topology, no depth test, "over" blending of the
    /// colour that writes the fragment's alpha as it is. The shaders get the pass's width and height in pixels
    /// as the float specialisation constants 0 and 1.
    void LoadPipeline(GameRenderer* renderer);
    /// Drops the pipeline; the renderer's trash keeps it until no frame uses it.
    void UnloadPipeline();
    /// LoadPipeline of every wrapper.
    static void LoadPipelines(GameRenderer* renderer);
    /// UnloadPipeline of every wrapper.
    static void UnloadPipelines();

    std::string shaderPath;                                ///< Without the ".vert.spv" / ".frag.spv" ending.
    VkPrimitiveTopology topology;                          ///< Primitive assembly.
    uint32_t index;                                        ///< Place in _instances.
    std::shared_ptr<nerox::vk::GraphicsPipeline> pipeline; ///< Null until loaded.

    static std::array<GraphicsPipelineWrapper*, MaxInstances> _instances; ///< All wrappers; null where none.
    static std::atomic<uint32_t> _nbInstance;                             ///< Wrappers made so far.
    static std::mutex _instancesMutex; ///< Guards the entries of _instances and each pipeline.
};

/// One element of the list. Made only through Make, which enters it in
/// _sharedObjects; it leaves the list (its entry expires) when the last shared
/// pointer to it goes.
///
/// Threads: the handlers run under the element's own mutex, so input may come
/// from another thread than drawing; a handler must not call Click or Hover of
/// its own element. Show, Hide and the Set operations are for the thread that
/// owns the input (or a handler); Draw copies the block under the mutex.
class Element {
public:
    using ClickHandler = std::function<void(int button, int action)>; ///< action 1 press, 0 release.
    using HoverHandler = std::function<void(bool over, bool pressed)>;
    using DragHandler = std::function<void(glm::ivec2 const&, glm::ivec2 const&)>;

    /// Makes a T with args, gives it its self reference and enters it in the
    /// first expired entry of _sharedObjects (else at the end).
    template <class T, class... Args> static std::shared_ptr<T> Make(Args&&... args) {
        std::shared_ptr<T> element(new T(std::forward<Args>(args)...));
        element->_self = element;
        std::unique_lock lock(_sharedObjectsMutex);
        size_t free = 0;
        while (free < _sharedObjects.size() && !_sharedObjects[free].expired()) ++free;
        if (free == _sharedObjects.size()) _sharedObjects.emplace_back();
        _sharedObjects[free] = element;
        element->slot = free;
        return element;
    }

    /// Sorts the list by comparator (live elements only: expired entries are
    /// dropped) keeping the order of equals, and refreshes each slot. The
    /// renderer calls it after each frame with "layer of a below layer of b".
    static void Sort(std::function<bool(std::shared_ptr<Element> const&, std::shared_ptr<Element> const&)> comparator);
    /// Calls function with each live element, in draw order, under the shared lock.
    static void ForEach(std::function<void(Element&)> const& function);

    /// Pointer events for the whole list, as the code that owns the input
    /// forwards them (mouse and screen in pixels). The top element is the last
    /// visible one in draw order whose hit rectangle holds the pointer and that
    /// takes the event. A click goes to the top element that takes clicks; a
    /// release (action 0) also resets every other element, so that a press
    /// dragged off a button never fires it later. Returns whether an element took it.
    static bool ClickTop(glm::ivec2 const& mouse, glm::ivec2 const& screen, int button, int action);
    /// The top element with a hover handler hears (true, pressed); every other
    /// visible one with a handler hears (false, pressed).
    static void HoverTop(glm::ivec2 const& mouse, glm::ivec2 const& screen, bool pressed);
    /// For code that polls the pointer once per frame: HoverTop every call, and
    /// ClickTop with the left button (0) when its state changed since the last
    /// call (a press, action 1, or a release, action 0).
    static void ForwardPointer(glm::ivec2 const& mouse, glm::ivec2 const& screen, bool leftDown);

    virtual ~Element() = default;
    Element(Element const&) = delete;
    Element& operator=(Element const&) = delete;

    /// The pipeline of the element's shader, or null while none is loaded.
    virtual nerox::vk::GraphicsPipeline* GetPipeline() = 0;
    /// The 128-byte push-constant block, or null.
    virtual void const* GetData() = 0;
    /// True when visible, a drag or drop handler is set, button is 0 and the pointer is over it.
    virtual bool IsDraggable(glm::ivec2 const& mouse, glm::ivec2 const& screen, int button) const;
    /// Calls the hover handler with (false, false).
    virtual void Reset();
    /// When visible and loaded: binds the pipeline and the renderer's main set,
    /// pushes the block (all stages, offset 0) and draws vertexCount vertices
    /// and instanceCount instances. Within the overlay pass.
    virtual void Draw(VkCommandBuffer commandBuffer);
    virtual void Show(); ///< Draws it and lets it take events.
    virtual void Hide(); ///< Neither.

    /// Whether the pointer lies strictly inside the hit rectangle.
    bool IsOver(glm::ivec2 const& mouse, glm::ivec2 const& screen) const;
    /// When visible, over it and a click handler is set: calls it and returns true.
    bool Click(glm::ivec2 const& mouse, glm::ivec2 const& screen, int button, int action);
    /// When visible: calls the hover handler with (IsOver, pressed).
    void Hover(glm::ivec2 const& mouse, glm::ivec2 const& screen, bool pressed);
    /// Calls the hover handler with (true, pressed).
    void Hover(bool pressed);
    void Drag(glm::ivec2 const& from, glm::ivec2 const& to); ///< Calls the drag handler.
    void Drop(glm::ivec2 const& from, glm::ivec2 const& to); ///< Calls the drop handler.

    uint64_t slot = 0;                 ///< Place in _sharedObjects.
    mutable std::mutex mutex;          ///< Guards the handlers, and the block while Draw copies it.
    std::optional<ClickHandler> click; ///< Mouse button events.
    std::optional<HoverHandler> hover; ///< Pointer state.
    std::optional<DragHandler> drag;   ///< Dragging from the element.
    std::optional<DragHandler> drop;   ///< Dropping onto it.
    glm::vec2 hitPosition{0.0f};       ///< Centre of the hit rectangle.
    glm::vec2 hitSize{0.0f};           ///< Extent of the hit rectangle.
    uint32_t vertexCount;              ///< Vertices per draw.
    uint32_t instanceCount;            ///< Instances per draw.
    int32_t layer;                     ///< Draw order: higher is drawn later, on top.
    bool visible;                      ///< Drawn and taking events.

    /// Every element, in draw order; expired entries are free places.
    static std::vector<std::weak_ptr<Element>> _sharedObjects;
    /// Writers (Make, Sort) take it exclusively, iteration shared.
    static nerox::SharedMutex _sharedObjectsMutex;
    /// The left button's state at the last ForwardPointer.
    static std::atomic<bool> _pointerDown;

protected:
    /// The live elements in draw order, taken under the shared lock.
    static std::vector<std::shared_ptr<Element>> Live();
    /// The same into live, which keeps its storage.
    static void Live(std::vector<std::shared_ptr<Element>>& live);
    Element(uint32_t vertexCount, uint32_t instanceCount, int32_t layer, bool visible);
    std::weak_ptr<Element> _self; ///< Filled by Make.
};

} // namespace game::graphics::ui
