#pragma once
#include "HostOptions.hpp"

namespace host {

/// Client mode: opens the renderer, on a window or offscreen, runs frames until
/// the window closes, Ctrl+C or --frames, and saves --screenshot. Returns the
/// program's exit status.
int RunClient(HostOptions const& options);

} // namespace host
