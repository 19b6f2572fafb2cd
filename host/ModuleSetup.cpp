#include "ModuleSetup.hpp"

#include "game/Game.hpp"
#include "game/modules/GAME_Mod.hpp"

namespace host {

void SortClientModuleLists() {
    using game::modules::GAME_Mod;
    auto byName = [](GAME_Mod::Ptr a, GAME_Mod::Ptr b) { return a->name < b->name; };
    for (char const* key : {"update", "render", "post", "overlay", "ui"}) GAME_Mod::SortModules(key, byName);
}

void RunInputPass(double deltaTime) {
    Game::InputUpdate(deltaTime);
    if (Game::_inputMode == 1)
        Game::InputUpdate_Play(deltaTime);
    else if (Game::_inputMode == 2)
        Game::InputUpdate_Station(deltaTime);
}

} // namespace host
