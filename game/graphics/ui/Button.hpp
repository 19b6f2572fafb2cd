#pragma once
// A button of the retained interface: a box with an optional label that
// answers the pointer and runs an action when clicked.
#include "game/graphics/ui/Box.hpp"
#include "game/graphics/ui/Text.hpp"

#include <functional>
#include <memory>

namespace game::graphics::ui {

/// A Box (layer 10) with a Text (layer 11) of half its height.
///
/// Pointer states, as its handlers move between them (left button only):
///
///   state      box colour    text colour       on
///   normal     normalColor   textColor         hover over -> hovered; press over -> active
///   hovered    normalColor   hoverTextColor    hover off -> normal; press -> active
///   active     activeColor   activeTextColor   release over, pressed -> _action, then hovered
///                                              hover off while pressed -> normal, still pressed
///
/// Any action other than a press clears pressed, so a release over a button
/// that was not pressed on it does nothing. Hide resets the button first.
class Button : public Box {
public:
    glm::vec4 normalColor{0.5f, 0.5f, 0.5f, 0.8f};
    glm::vec4 textColor{0.8f, 0.8f, 0.8f, 1.0f};
    glm::vec4 hoverTextColor{1.0f, 1.0f, 1.0f, 1.0f};
    glm::vec4 activeColor{0.4f, 0.4f, 0.4f, 0.8f};
    glm::vec4 activeTextColor{0.0f, 0.0f, 0.0f, 1.0f};
    std::shared_ptr<Text> text;            ///< The label; null for an empty one.
    bool pressed = false;                  ///< Pressed on this button and not released yet.
    std::function<void()> _action = [] {}; ///< Run on a click, under the element's mutex.

    void Reset() override;                                ///< Not pressed, normal colours.
    void Show() override;                                 ///< With the label.
    void Hide() override;                                 ///< Resets, then hides with the label.
    void SetPosition(glm::vec2 const& position) override; ///< Also the hit rectangle and the label.
    void SetSize(glm::vec2 const& size) override;         ///< Also the hit rectangle and the label's size.
    /// Sets the label's text; makes the label when there was none.
    virtual void SetText(char const* label);

protected:
    friend class Element;
    Button(glm::vec2 const& position, glm::vec2 const& size, char const* label, unsigned short icon);
    Button(glm::vec2 const& position, glm::vec2 const& size, char const* label);
    Button(glm::vec2 const& position, glm::vec2 const& size, unsigned short icon);

private:
    void SetColors(glm::vec4 const& box, glm::vec4 const& label);
};

} // namespace game::graphics::ui
