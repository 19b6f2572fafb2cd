#include "game/modules/SERVER_Mod.hpp"

#include "game/modules/ModuleImpl.hpp"

namespace game::modules {

void ServerModHooks::BindHooks(void* handle) {
    BindSymbol(handle, "Server_Load", Server_Load);
    BindSymbol(handle, "Server_Serialize", Server_Serialize);
    BindSymbol(handle, "Server_PlayerConnected", Server_PlayerConnected);
    BindSymbol(handle, "Server_PlayerDisconnected", Server_PlayerDisconnected);
    BindSymbol(handle, "Server_BeforeUpdate", Server_BeforeUpdate);
    BindSymbol(handle, "Server_GameUpdate", Server_GameUpdate);
    BindSymbol(handle, "Server_Send", Server_Send);
    BindSymbol(handle, "Server_Receive", Server_Receive);
}

template class Module<SERVER_Mod, ServerModHooks>;
template SERVER_Mod::Ptr LoadModuleLib<SERVER_Mod>(std::string const&, std::string const&, bool, std::string const&);

} // namespace game::modules
