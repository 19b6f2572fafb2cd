#pragma once
#include "HostOptions.hpp"

namespace host {

/// Runs the game without window, renderer or audio: loads the modules, starts
/// the game, runs the server loop and a client loop on two threads until the
/// tick count is reached or Ctrl+C, stops the game and prints a summary.
/// Returns the process exit code.
int RunHeadless(HostOptions const& options);

} // namespace host
