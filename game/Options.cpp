#include "game/Options.hpp"

namespace game {

std::unordered_map<std::string, std::any> Options::_options;
std::mutex Options::_mu;

template double Options::Get<double>(std::string const&, double const&);

void Options::Remove(std::string const& key) {
    std::lock_guard lock(_mu);
    _options.erase(key);
}

void Options::Clear() {
    std::lock_guard lock(_mu);
    _options.clear();
}

} // namespace game
