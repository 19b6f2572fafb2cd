#include "nerox/renderer/Upscaler.hpp"

namespace nerox::renderer {

UPSCALE_ALGO Upscaler::GetAlgoEnumFromStr(std::string const&) {
    return UPSCALE_ALGO::NONE;
}

char const* Upscaler::GetAlgoStrFromEnum(UPSCALE_ALGO) {
    return "NONE";
}

bool Upscaler::IsTemporal(UPSCALE_ALGO) {
    return false;
}

bool Upscaler::IsSupported(UPSCALE_ALGO algo) {
    return algo == UPSCALE_ALGO::NONE;
}

std::vector<UPSCALE_ALGO> const& Upscaler::SupportedAlgorithms() {
    static std::vector<UPSCALE_ALGO> const all{UPSCALE_ALGO::NONE};
    return all;
}

} // namespace nerox::renderer
