#include "game/modules/Module.hpp"

#include <iostream>

namespace game::modules {

void ReportModuleLoadError(char const* text) {
    std::cerr << text << std::endl;
}

} // namespace game::modules
