#include "game/MainMenu.hpp"

#include "game/Game.hpp"
#include "game/graphics/ui/Box.hpp"
#include "game/graphics/ui/Button.hpp"
#include "game/graphics/ui/Text.hpp"

#include <algorithm>

namespace game {

using graphics::ui::Box;
using graphics::ui::Button;
using graphics::ui::Element;
using graphics::ui::Text;

void MainMenu::Init() {
    glm::vec2 const buttonSize(0.5f, 0.1f);
    background = Element::Make<Box>();
    background->SetColor(glm::vec4(0.0f, 0.0f, 0.0f, 0.3f));
    background->SetPosition(glm::vec2(0.0f, 0.0f));
    background->SetSize(glm::vec2(0.55f, 0.515f));
    title = Element::Make<Text>("TESSARA", glm::vec4(1.0f, 1.0f, 1.0f, 0.9f), glm::vec2(0.0f, -0.36f), 0.1f);
    worldButton = Element::Make<Button>(glm::vec2(0.0f, -0.18f), buttonSize, "WORLD: -");
    worldButton->_action = [this] { NextWorld(); };
    playButton = Element::Make<Button>(glm::vec2(0.0f, -0.06f), buttonSize, "PLAY");
    playButton->_action = &Game::Play;
    settingsButton = Element::Make<Button>(glm::vec2(0.0f, 0.06f), buttonSize, "SETTINGS");
    settingsButton->_action = [] { Game::settingsWindowOpen = !Game::settingsWindowOpen; };
    quitButton = Element::Make<Button>(glm::vec2(0.0f, 0.18f), buttonSize, "QUIT");
    quitButton->_action = &Game::Quit;
    ShowWorld();
    for (auto const& button : {worldButton, playButton, settingsButton, quitButton}) button->Reset();
    Show();
}

void MainMenu::Show() {
    if (!background) return;
    background->Show();
    title->Show();
    for (auto const& button : {worldButton, playButton, settingsButton, quitButton}) button->Show();
}

void MainMenu::Hide() {
    if (!background) return;
    for (auto const& button : {worldButton, playButton, settingsButton, quitButton}) button->Hide();
    title->Hide();
    background->Hide();
}

void MainMenu::SetWorlds(std::vector<std::string> worlds, std::string const& current) {
    _worlds = std::move(worlds);
    auto found = std::find(_worlds.begin(), _worlds.end(), current);
    if (found == _worlds.end() && !current.empty()) found = _worlds.insert(_worlds.begin(), current);
    _selected = found == _worlds.end() ? 0 : static_cast<size_t>(found - _worlds.begin());
    ShowWorld();
}

std::string MainMenu::SelectedWorld() const {
    return _selected < _worlds.size() ? _worlds[_selected] : std::string();
}

void MainMenu::NextWorld() {
    if (_worlds.empty()) return;
    _selected = (_selected + 1) % _worlds.size();
    ShowWorld();
}

void MainMenu::ShowWorld() {
    if (!worldButton) return;
    std::string const label = "WORLD: " + (_worlds.empty() ? std::string("-") : _worlds[_selected]);
    worldButton->SetText(label.c_str());
}

} // namespace game
