#pragma once
// Signatures of the C functions that a module library may export. The host (game.so and
// the program that loads it) and the module authors share them. A module exports a hook
// as a plain C function with the symbol's name, for example
//
//     extern "C" void Game_Update(double deltaTime) { ... }
//
// and may check it against the table with
//
//     static_assert(std::is_same_v<decltype(&Game_Update), game::modules::DeltaTimeHook>);
//
// Every hook is optional; a symbol that the library does not export stays null.
//
// Threads. The host owns four kinds of pass and may run each on a thread of its own,
// at the same time as the others: client passes (Game::Update, Game::ClientUpdate),
// server ticks (Game::ServerUpdate), input passes (Game::InputUpdate and its two
// companions) and render frames (GameRenderer::Frame and its stages). A hook runs on
// the thread of the pass that calls it; GAME_Mod.hpp and SERVER_Mod.hpp say which pass
// that is for each hook. So hooks of different passes may run at the same time and must
// guard what they share, while the hooks of one pass never overlap one another.
// Game_Start, Game_Ready, Game_Stop, ModuleLoad and ModuleUnload run on the host's main
// thread while no pass runs. Hooks named "from the host or a network module" run on
// whatever thread that caller uses. The tessara program runs the client and input passes
// (and the frames, in client mode) on its main thread and the server ticks on a second one.
//
// Locks. A hook called through ForEachModule or ForEachSortedModule holds the shared lock
// of its own module class, and no other lock of the game: inside it, the lookups and
// ForEach calls of every class are safe, while loading, unloading or sorting modules of
// its own class deadlocks (Module.hpp has the whole rule). ModuleLoad runs under the
// exclusive lock of its class. To hand work to the client pass from any thread, use
// Game::Synchronize.
#include <cstddef>
#include <cstdint>

#include <vulkan/vulkan.h>

namespace game::modules {

// Common to all four module classes.

/// "ModuleLoad" and "ModuleUnload": run right after the library is opened and right before it is closed.
using ModuleLifecycleHook = void (*)();
/// "ModuleSort": the module's sort priority, for comparison functions that the host gives to SortModules.
using ModuleSortHook = int (*)();
/// "ModuleSetCustomPtr": hands the module one opaque pointer of the host's choosing.
using ModuleSetCustomPtrHook = void (*)(void* custom);
/// "ModuleGetCustomPtr": returns the module's opaque pointer for the host.
using ModuleGetCustomPtrHook = void* (*)();

// Shapes shared by several hooks.

/// A hook without arguments, e.g. "Game_Start", "Renderer_FrameInit", "Client_Send", "SplashBegin".
using VoidHook = void (*)();
/// A per-pass hook that gets the pass's delta time in seconds, e.g. "Game_Update", "Server_BeforeUpdate".
using DeltaTimeHook = void (*)(double deltaTime);
/// A render hook that records into the frame's command buffer, e.g. "Renderer_FramePushCommands".
using CommandBufferHook = void (*)(VkCommandBuffer commandBuffer);

// Input events, forwarded by the host in play or station mode (GLFW values).

/// "Input_Key_Play", "Input_Key_Station": a key event.
using KeyHook = void (*)(int key, int scancode, int action, int mods);
/// "Input_Char_Play", "Input_Char_Station": a typed Unicode character.
using CharHook = void (*)(unsigned int codepoint);
/// "Input_MouseButton_Play", "Input_MouseButton_Station": a mouse button event.
using MouseButtonHook = void (*)(int button, int action, int mods);
/// "Input_MouseScroll_Play", "Input_MouseScroll_Station": a scroll wheel or touchpad scroll.
using MouseScrollHook = void (*)(double xOffset, double yOffset);

// Client networking and positions, called by the host or a network module.

/// "Client_Receive": one message that arrived from the server.
using ClientReceiveHook = void (*)(void const* data, size_t size);
/// "Physics_PlayerPosition", "Physics_CameraPosition": a world position.
using PositionHook = void (*)(double x, double y, double z);

// Server side, called by the host or a network module.

/// "Server_Load": loads the named world.
using ServerLoadHook = void (*)(char const* worldName);
/// "Server_PlayerConnected", "Server_PlayerDisconnected": a player joined or left.
using PlayerHook = void (*)(uint64_t playerId);
/// "Server_Receive": one message that arrived from a player.
using ServerReceiveHook = void (*)(uint64_t playerId, void const* data, size_t size);

// Early start-up, called by the host while it chooses a device and shows the splash screen.

/// "Vulkan_Init": the created VkInstance, passed as an opaque pointer.
using VulkanInitHook = void (*)(void* instance);
/// "Vulkan_ScoreGPU": the score of one VkPhysicalDevice, passed as an opaque pointer; the highest wins.
using VulkanScoreGPUHook = int (*)(void* physicalDevice);

// Content modules.

/// "Load" and "Unload": get a pointer to one scratch byte that carries no data.
using ContentHook = void (*)(void* scratch);

} // namespace game::modules
