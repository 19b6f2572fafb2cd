// The content side of the sample module, loaded as a TESSARA_Mod through the
// list of content modules (Game::_mods) when the game starts.
#include <cstdio>

extern "C" {

// Version marker of the content interface this module was built for.
extern int const _TESSARA_Mod_VERSION;
int const _TESSARA_Mod_VERSION = 1;

// Game::Start, after the client modules have started.
void Load(void*) { std::printf("[sample] content loaded\n"); }

// Game::Stop.
void Unload(void*) { std::printf("[sample] content unloaded\n"); }

} // extern "C"
