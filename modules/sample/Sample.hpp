#pragma once
// Names that the libraries of the sample module share.
#include <array>

namespace sample {

/// The module's name, also the text form of its ModuleID.
inline constexpr char moduleName[] = "TESSARA_sample";
/// Folder of the description files, relative to the run directory.
inline constexpr char dataFolder[] = "modules/TESSARA_sample/";

/// Item type of the crate: a dynamic box that remembers a label.
inline constexpr char crateType[] = "crate";
/// Item type of the rover: a chassis on four turning wheels.
inline constexpr char roverType[] = "rover";

/// The rover's wheel joints, as its description file names them.
inline constexpr std::array<char const*, 4> roverWheels = {"wheel_fl", "wheel_fr", "wheel_rl", "wheel_rr"};

} // namespace sample
