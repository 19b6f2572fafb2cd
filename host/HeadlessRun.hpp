#pragma once
#include "HostOptions.hpp"

namespace host {

/// Runs the game without window, renderer or audio: loads the modules, starts
/// the game, opens the world (its saved entities, then every server module's
/// Server_Load), runs the server loop and a client loop on two threads until the
/// tick count is reached or Ctrl+C, saves the world (every server module's
/// Server_Serialize, then the entities), stops the game and prints a
/// summary. Returns the process exit code: 1 when anything failed, a world that
/// could not be loaded included (its files are then left as they were).
int RunHeadless(HostOptions const& options);

} // namespace host
