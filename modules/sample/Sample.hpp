#pragma once
// Names that the libraries of the sample module share.
#include <array>

#include <glm/glm.hpp>

namespace sample {

/// The module's name, also the text form of its ModuleID.
inline constexpr char moduleName[] = "TESSARA_sample";
/// Folder of the description files, relative to the run directory.
inline constexpr char dataFolder[] = "modules/TESSARA_sample/";

/// Item type of the crate: a dynamic box that remembers a label.
inline constexpr char crateType[] = "crate";
/// Item type of the rover: a chassis on four turning wheels.
inline constexpr char roverType[] = "rover";
/// Item type of the probe: a dense capsule dropped from high up, which glows
/// on its way down through the air.
inline constexpr char probeType[] = "probe";

/// Item type of the monitor: a screen on a stand that shows the rover's speed
/// and the time, drawn on the server each tick.
inline constexpr char monitorType[] = "monitor";
/// The monitor's image, pixels (its screen is 1.2 m by 0.8 m).
inline constexpr int monitorWidth = 192;
inline constexpr int monitorHeight = 128;

/// Item type of the web screen: a wide screen that shows a web page (the
/// module's web/clock.html), rendered by the webview program.
inline constexpr char webScreenType[] = "webscreen";
/// The page's size in pixels, one pixel per page pixel (its screen is 1.8 m by 1.2 m).
inline constexpr int webScreenWidth = 480;
inline constexpr int webScreenHeight = 320;
/// The page, relative to the run directory.
inline constexpr char webScreenPage[] = "modules/TESSARA_sample/web/clock.html";
/// The pointer follows the aim on a web screen up to this far away (metres).
inline constexpr double webScreenReach = 8.0;

/// A probe starts this high above the ground (metres), falling this fast (m/s).
inline constexpr double probeAltitude = 20000.0;
inline constexpr double probeSpeed = 2500.0;
/// Keys of Game's inter-module channel by which the client asks the server for
/// a probe: the count of probes asked for so far, and where (x and z) the last
/// one is to come down.
inline constexpr char probeRequestsKey[] = "sample.probe.requests";
inline constexpr char probeXKey[] = "sample.probe.x";
inline constexpr char probeZKey[] = "sample.probe.z";

/// The rover's wheel joints, as its description file names them.
inline constexpr std::array<char const*, 4> roverWheels = {"wheel_fl", "wheel_fr", "wheel_rl", "wheel_rr"};

/// Where a new world gets an entity: dropped at position (metres, game axes: y up),
/// turned by yawDegrees about the vertical axis; restY is the height at which it
/// comes to rest on the sample planet.
struct Placement {
    char const* itemType;
    glm::dvec3 position;
    double yawDegrees;
    double restY;
};

/// The sample set of a new world: the crates drop 2 m onto the ground, one falls
/// on the other two, one drops into the ocean basin (x 40 to 80) and floats; the
/// rover stands on its wheels; the monitor stands to the right of the player's
/// first view, its screen turned towards the player; the web screen stands to
/// the left, facing the player as well.
inline constexpr std::array<Placement, 7> newWorld = {{
    {crateType, {3.0, 2.0, -1.0}, 0.0, 0.0},
    {crateType, {3.0, 2.0, 0.5}, 15.0, 0.0},
    {crateType, {3.0, 4.0, -0.25}, 40.0, 0.8}, // onto the other two
    {crateType, {60.0, 2.0, 0.0}, 25.0, -0.4}, // into the water
    {roverType, {0.0, 0.1, 0.0}, 30.0, 0.0},
    {monitorType, {0.0, 0.0, 3.8}, -167.0, 0.0},
    {webScreenType, {-1.5, 0.0, -1.7}, -103.5, 0.0},
}};

/// The key of Game's inter-module channel that holds the crates of a load
/// test (the host's --stress N), and the pile's corner nearest the origin.
inline constexpr char stressKey[] = "host.stress";
inline constexpr glm::dvec3 stressPileCorner{8.0, 0.0, -12.0};

/// Where the player's feet start, and the point the player first looks at.
inline constexpr glm::dvec3 startFeet{-3.0, 0.0, 4.5};
inline constexpr glm::dvec3 startLookAt{1.5, 0.2, 1.0};

} // namespace sample
