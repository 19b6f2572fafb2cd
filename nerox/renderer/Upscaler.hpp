#pragma once
// The upscaling algorithms the renderer can run, by name.
#include <string>
#include <vector>

namespace nerox::renderer {

/// Upscaling algorithms; only those the renderer really runs are listed. It
/// renders at the output's size, so there is one.
enum class UPSCALE_ALGO : int {
    NONE = 0, ///< No upscaling: the frame is rendered at the output's size.
};

/// Names and properties of the upscaling algorithms.
class Upscaler {
public:
    /// The algorithm of an upper-case name ("NONE"); NONE for any other text.
    static UPSCALE_ALGO GetAlgoEnumFromStr(std::string const& name);
    /// The name of algo; "NONE" for a value that names none.
    static char const* GetAlgoStrFromEnum(UPSCALE_ALGO algo);
    /// Whether algo needs the previous frames; none of ours does.
    static bool IsTemporal(UPSCALE_ALGO algo);
    /// Whether this renderer can run algo.
    static bool IsSupported(UPSCALE_ALGO algo);
    /// Every supported algorithm, in enumerator order.
    static std::vector<UPSCALE_ALGO> const& SupportedAlgorithms();
};

} // namespace nerox::renderer
