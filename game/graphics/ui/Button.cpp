#include "game/graphics/ui/Button.hpp"

namespace game::graphics::ui {

Button::Button(glm::vec2 const& position, glm::vec2 const& size, char const* label, unsigned short icon) {
    layer = 10;
    data.icon = icon;
    data.color = normalColor;
    hitPosition = data.position = position;
    hitSize = data.size = size;
    if (label != nullptr && label[0] != '\0') {
        text = Element::Make<Text>(label, textColor, position, size.y / 2.0f);
        text->layer = 11;
    }
    click = [this](int button, int action) {
        if (button != 0) return;
        if (action == 1) {
            SetColors(activeColor, activeTextColor);
            pressed = true;
            return;
        }
        bool const fire = action == 0 && pressed && visible;
        pressed = false;
        if (fire) _action(); // the element's mutex is held: Click called this
    };
    hover = [this](bool over, bool isPressed) {
        if (over && isPressed)
            SetColors(activeColor, activeTextColor);
        else
            SetColors(normalColor, over ? hoverTextColor : textColor);
    };
}

Button::Button(glm::vec2 const& position, glm::vec2 const& size, char const* label)
    : Button(position, size, label, 0) { }

Button::Button(glm::vec2 const& position, glm::vec2 const& size, unsigned short icon)
    : Button(position, size, "", icon) { }

void Button::SetColors(glm::vec4 const& box, glm::vec4 const& label) {
    data.color = box;
    if (text) text->SetColor(label);
}

void Button::Reset() {
    std::lock_guard lock(mutex);
    pressed = false;
    SetColors(normalColor, textColor);
}

void Button::Show() {
    Box::Show();
    if (text) text->Show();
}

void Button::Hide() {
    Reset();
    Box::Hide();
    if (text) text->Hide();
}

void Button::SetPosition(glm::vec2 const& position) {
    Box::SetPosition(position);
    hitPosition = position;
    if (text) text->SetPosition(position);
}

void Button::SetSize(glm::vec2 const& size) {
    Box::SetSize(size);
    hitSize = size;
    if (text) text->SetSize(size.y / 2.0f);
}

void Button::SetText(char const* label) {
    if (text) {
        text->SetText(label);
        return;
    }
    if (label == nullptr || label[0] == '\0') return;
    text = Element::Make<Text>(label, textColor, data.position, data.size.y / 2.0f);
    text->layer = 11;
    text->visible = visible;
}

} // namespace game::graphics::ui
