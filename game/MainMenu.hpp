#pragma once
// The menu the client shows at start, made of retained interface elements:
// the world to play, Play, Settings and Quit on a dark panel.
#include <memory>
#include <string>
#include <vector>

namespace game::graphics::ui {
class Box;
class Button;
class Text;
} // namespace game::graphics::ui

namespace game {

/// The start menu. Init makes the elements (shown); the owner forwards the
/// pointer to them (Element::ClickTop and HoverTop) and may replace the
/// buttons' actions: Play calls Game::Play, Quit Game::Quit, Settings toggles
/// Game::settingsWindowOpen, and the world button steps through the worlds.
///
/// Layout, y down, sizes in screen heights over 2: the title above a panel of
/// four buttons 0.1 high and 0.12 apart: world, PLAY, SETTINGS, QUIT.
class MainMenu {
public:
    std::shared_ptr<graphics::ui::Box> background;        ///< The panel behind the buttons.
    std::shared_ptr<graphics::ui::Button> playButton;     ///< "PLAY".
    std::shared_ptr<graphics::ui::Button> quitButton;     ///< "QUIT".
    std::shared_ptr<graphics::ui::Button> settingsButton; ///< "SETTINGS".
    std::shared_ptr<graphics::ui::Button> worldButton;    ///< "WORLD: name"; a click takes the next world.
    std::shared_ptr<graphics::ui::Text> title;            ///< "TESSARA", above the panel.

    /// Makes the elements, resets the buttons and shows them.
    void Init();
    void Show(); ///< Shows every element.
    void Hide(); ///< Resets the buttons and hides every element.

    /// The worlds the world button steps through, and the one shown first
    /// (added to the list when missing). An empty list shows "WORLD: -".
    void SetWorlds(std::vector<std::string> worlds, std::string const& current);
    /// The world shown; empty when there is none.
    std::string SelectedWorld() const;
    /// Shows the next world, after the last the first.
    void NextWorld();

private:
    void ShowWorld();
    std::vector<std::string> _worlds;
    size_t _selected = 0;
};

} // namespace game
