// The content side of the planet module, loaded as a TESSARA_Mod through the
// list of content modules (Game::_mods).
//
// Load registers the sample planet (PlanetEnvironment.hpp: flat ground at y = 0,
// a water basin, an exponential atmosphere) in Game::_environmentFunctions under
// environment id 1 (planet::environmentId) and marks the environment loaded.
// Unload removes that entry again, as long as it is still this module's.
// An id already taken by another module is left alone, with a warning.
#include "PlanetEnvironment.hpp"

#include "game/Game.hpp"

#include <cstdio>

namespace {

using AnswerPointer = game::physics::EnvironmentInfo (*)(glm::dvec3 const&, game::EnvironmentInfoFlags, double);

/// Whether the function stands for this module's planet.
bool IsOurs(game::physics::EnvironmentFunction const& function) {
    AnswerPointer const* target = function.target<AnswerPointer>();
    return target != nullptr && *target == &planet::Environment;
}

} // namespace

extern "C" {

// Version marker of the content interface this module was built for.
extern int const _TESSARA_Mod_VERSION;
int const _TESSARA_Mod_VERSION = 1;

// Game::Start: register the planet.
void Load(void*) {
    auto const [entry, added] = Game::_environmentFunctions.try_emplace(
        planet::environmentId, game::physics::EnvironmentFunction(&planet::Environment));
    if (!added && !IsOurs(entry->second)) {
        std::fprintf(stderr,
                     "[planet] warning: environment id %llu is taken by another module; planet not registered\n",
                     static_cast<unsigned long long>(planet::environmentId));
        return;
    }
    Game::environmentIsLoaded = true;
    std::printf("[planet] environment %llu registered\n", static_cast<unsigned long long>(planet::environmentId));
}

// Game::Stop: remove the planet; its function is code of this library.
void Unload(void*) {
    auto const found = Game::_environmentFunctions.find(planet::environmentId);
    if (found == Game::_environmentFunctions.end() || !IsOurs(found->second)) return;
    Game::_environmentFunctions.erase(found);
    Game::environmentIsLoaded = false;
    std::printf("[planet] environment %llu removed\n", static_cast<unsigned long long>(planet::environmentId));
}

} // extern "C"
