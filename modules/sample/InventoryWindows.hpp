#pragma once
// The client side of the sample's inventories: the pack's and the storage
// box's windows, which Tab shows and hides, and the wiring of their moves to
// the server module and of its answers back into the windows.

#include <cstddef>

namespace sample::inventory {

/// Game_Ready: the item kinds and the move callbacks of the windows.
void StartWindows();
/// Client_Receive: the inventories as the server now holds them (any thread).
void Receive(void const* data, size_t size);
/// Game_Update: brings the windows to the newest answer of the server.
void UpdateWindows();
/// Shows both windows (freeing the cursor) or hides them (taking it again).
void ToggleWindows();
/// Whether the windows are shown.
bool WindowsShown();
/// Game_Stop: drops the windows and the callbacks.
void StopWindows();

} // namespace sample::inventory
