#pragma once
#include "game/modules/Hooks.hpp"
#include "game/modules/Module.hpp"

namespace game::modules {

/// Hooks of SERVER_Mod modules, the server side. The two update hooks run in every
/// Game::ServerUpdate; the others are called by the host or a network module.
///
/// Threads (see Hooks.hpp): Server_BeforeUpdate and Server_GameUpdate run on the server
/// tick's thread, before and after the entities and the physics step, holding the shared
/// lock of the SERVER_Mod table and no other lock; they may run at the same time as the
/// client, input and render passes. The entities' own interface calls of the tick
/// (BeforeUpdate, Update, AfterUpdate) run on the same thread inside
/// ServerSideEntity::ForEach, under the entity registry's shared lock. The other hooks run
/// on the thread of the host or network module that calls them.
struct ServerModHooks {
    /// Class name: key suffix and file name part of these modules.
    static constexpr char const className[] = "SERVER_Mod";
    /// Looks up this table's symbols in the library.
    void BindHooks(void* handle);

    /// Symbol "Server_Load": load the named world.
    ServerLoadHook Server_Load = nullptr;
    /// Symbol "Server_Serialize": write the world's state.
    VoidHook Server_Serialize = nullptr;
    /// Symbol "Server_PlayerConnected": a player joined.
    PlayerHook Server_PlayerConnected = nullptr;
    /// Symbol "Server_PlayerDisconnected": a player left.
    PlayerHook Server_PlayerDisconnected = nullptr;
    /// Symbol "Server_Send": send the pending messages to the players.
    VoidHook Server_Send = nullptr;
    /// Symbol "Server_Receive": one message from a player.
    ServerReceiveHook Server_Receive = nullptr;
    /// Symbol "Server_BeforeUpdate": start of a server tick, before the entities.
    DeltaTimeHook Server_BeforeUpdate = nullptr;
    /// Symbol "Server_GameUpdate": end of a server tick, after the entities and physics.
    DeltaTimeHook Server_GameUpdate = nullptr;
};

/// Server-side modules: modules/NAME/NAME.SERVER_Mod.so.
class SERVER_Mod final : public Module<SERVER_Mod, ServerModHooks> {
public:
    using Module::Module;
};

extern template class Module<SERVER_Mod, ServerModHooks>;
extern template SERVER_Mod::Ptr LoadModuleLib<SERVER_Mod>(std::string const&, std::string const&, bool,
                                                          std::string const&);

} // namespace game::modules
