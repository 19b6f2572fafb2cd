// The single-player client as a newcomer runs it: the sample world offscreen,
// driven by input scripts, its last frame saved and checked where the sample's
// objects must show; and its worlds, which the headless server reads back.
#include "modules/sample/Player.hpp"
#include "modules/sample/Sample.hpp"
#include "nerox/graphics/Texture.hpp"
#include "support/TempDir.hpp"

#include <glm/gtc/matrix_transform.hpp>
#include <glm/gtc/quaternion.hpp>
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

constexpr int Width = 960;
constexpr int Height = 540;
constexpr double Fov = 70.0; // the settings' default

struct Pixel {
    int r, g, b;
};

std::ostream& operator<<(std::ostream& out, Pixel const& p) {
    return out << p.r << ',' << p.g << ',' << p.b;
}

// Brown wood, or wood in the headlight: red about green, both over blue.
bool IsCrate(Pixel p) {
    return p.r >= p.g - 5 && p.g > p.b + 20 && p.r - p.g < 60;
}

class ClientScreenshotTest : public ::testing::Test {
protected:
    // A run of tessara in the build's run directory; returns its exit status.
    // Only the web screen's run starts the webview program.
    static int Run(std::string const& arguments, std::string const& log, std::string const& settings = "settings.ini") {
        bool const web = log.rfind("web", 0) == 0;
        std::string const command = std::string("cd '") + TESSARA_RUN + "' && " + (web ? "" : "TESSARA_NO_WEBVIEW=1 ") +
            "./tessara " + arguments + " --settings '" + scratch->File(settings) + "' > '" + scratch->File(log) +
            "' 2>&1";
        return std::system(command.c_str());
    }
    // A client run driven by script; with menu it starts at the start menu, else in the world.
    static int RunClient(std::string const& world, std::string const& script, std::string const& shot,
                         bool menu = false, std::string const& more = "",
                         std::string const& settings = "settings.ini") {
        std::ofstream(scratch->File(shot + ".input")) << script;
        return Run(std::string("--client --offscreen ") + (menu ? "" : "--play ") + "--size " + std::to_string(Width) +
                       "x" + std::to_string(Height) + " --world " + world + " --input '" +
                       scratch->File(shot + ".input") + "' --screenshot '" + scratch->File(shot) + "' " + more,
                   shot + ".log", settings);
    }

    static void SetUpTestSuite() {
        scratch = std::make_unique<testsupport::TempDir>();
        std::string const tag = std::to_string(::getpid());
        stand = "test_client_stand_" + tag;
        walk = "test_client_walk_" + tag;
        // A new world made by the client, then read by the server.
        standStatus = RunClient(stand, "0 mode play\n2.5 quit\n", "stand.png");
        standServerStatus = Run("--headless --ticks 1 --no-profile --world " + stand, "stand_server.log");
        // A new world made by the server, then played: a second of walking towards the crates.
        walkServerStatus = Run("--headless --ticks 1 --no-profile --world " + walk, "walk_server.log");
        walkStatus = RunClient(walk, "0 mode play\n1.0 key KEY_W down\n2.0 key KEY_W up\n2.2 quit\n", "walk.png");
        if (standStatus == 0) standImage = nerox::graphics::Texture::LoadFile(scratch->File("stand.png"), 4);
        if (walkStatus == 0) walkImage = nerox::graphics::Texture::LoadFile(scratch->File("walk.png"), 4);
        // The start menu with the pointer on QUIT; then PLAY, Tab for the
        // inventory windows, a battery dragged onto the storage box's and the
        // wrench onto a storage slot (which takes no tools), and a server run
        // that reads the inventories back.
        menuStatus = RunClient(stand, "0.3 cursor 480 318\n1.5 quit\n", "menu.png", true);
        std::string const drag = "4.0 cursor 277 342\n4.2 mouse MOUSE_BUTTON_LEFT down\n4.4 cursor 400 342\n"
                                 "4.6 cursor 819 342\n4.9 mouse MOUSE_BUTTON_LEFT up\n"
                                 "5.5 cursor 421 342\n5.7 mouse MOUSE_BUTTON_LEFT down\n5.9 cursor 600 342\n"
                                 "6.1 cursor 675 414\n6.4 mouse MOUSE_BUTTON_LEFT up\n";
        inventoryStatus = RunClient(walk,
                                    "0.3 cursor 480 254\n0.5 mouse MOUSE_BUTTON_LEFT down\n"
                                    "0.7 mouse MOUSE_BUTTON_LEFT up\n2.0 key KEY_TAB down\n2.1 key KEY_TAB up\n" +
                                        drag + "7.5 quit\n",
                                    "inventory.png", true);
        inventoryServerStatus = Run("--headless --ticks 1 --no-profile --world " + walk, "inventory_server.log");
        // F1 opens the settings window; a developer's settings file (its hidden
        // switches and admin rights) and F4 in adventure mode show the other four.
        settingsStatus = RunClient(stand, "0.5 key KEY_F1 down\n0.6 key KEY_F1 up\n1.5 quit\n", "settings.png");
        std::ofstream(scratch->File("developer.ini"))
            << "[game]\ndebug_window = true\ndev_tools = true\nadmin_privileges = true\n";
        developerStatus = RunClient(stand, "0.5 key KEY_F4 down\n0.6 key KEY_F4 up\n1.5 quit\n", "developer.png", false,
                                    "--game-mode adventure", "developer.ini");
        // A turn onto the web screen's button and a click there (held over a
        // few frames however slow they come); the click waits in the program
        // until the page has loaded, and the page has time to answer.
        webStatus = RunClient(stand,
                              "0 mode play\n2.5 cursor -257 -55\n4.0 mouse MOUSE_BUTTON_LEFT down\n"
                              "4.6 mouse MOUSE_BUTTON_LEFT up\n10.0 quit\n",
                              "web.png");
        if (webStatus == 0) webImage = nerox::graphics::Texture::LoadFile(scratch->File("web.png"), 4);
        if (menuStatus == 0) menuImage = nerox::graphics::Texture::LoadFile(scratch->File("menu.png"), 4);
        if (inventoryStatus == 0)
            inventoryImage = nerox::graphics::Texture::LoadFile(scratch->File("inventory.png"), 4);
    }

    static void TearDownTestSuite() {
        std::error_code ignored;
        for (std::string const& world : {stand, walk})
            std::filesystem::remove_all(std::string(TESSARA_RUN) + "/../Tessara-data/server/worlds/" + world, ignored);
        scratch.reset();
    }

    // The pixel where a world point shows, from the player's first eye.
    static Pixel At(nerox::graphics::ImageData const& image, glm::dvec3 world) {
        glm::dvec3 const eye = sample::startFeet + glm::dvec3(0.0, sample::Player::eyeHeight, 0.0);
        glm::dmat4 const view = glm::lookAt(eye, sample::startLookAt, glm::dvec3(0.0, 1.0, 0.0));
        glm::dvec3 const p = glm::dvec3(view * glm::dvec4(world, 1.0));
        double const f = 1.0 / std::tan(glm::radians(Fov) * 0.5);
        int const x = static_cast<int>((f * Height / Width * p.x / -p.z * 0.5 + 0.5) * Width);
        int const y = static_cast<int>((-f * p.y / -p.z * 0.5 + 0.5) * Height);
        return At(image, x, y);
    }
    static Pixel At(nerox::graphics::ImageData const& image, int x, int y) {
        EXPECT_TRUE(x >= 0 && x < Width && y >= 0 && y < Height) << x << ", " << y;
        size_t const i = (static_cast<size_t>(y) * Width + x) * 4;
        if (i + 2 >= image.pixels.size()) return {0, 0, 0};
        return {image.pixels[i], image.pixels[i + 1], image.pixels[i + 2]};
    }
    static int CratePixels(nerox::graphics::ImageData const& image) {
        int count = 0;
        for (int y = 0; y < image.height; ++y)
            for (int x = 0; x < image.width; ++x) count += IsCrate(At(image, x, y)) ? 1 : 0;
        return count;
    }
    // The entity ids that a log lists after the line that starts with header.
    static std::set<std::string> Listed(std::string const& log, std::string const& header) {
        std::ifstream in(scratch->File(log));
        std::set<std::string> ids;
        bool on = false;
        std::smatch match;
        for (std::string line; std::getline(in, line);) {
            if (line.rfind(header, 0) == 0) {
                on = true;
            } else if (!on || line.rfind("[sample]   ", 0) != 0) {
                on = false;
            } else if (std::regex_search(line, match, std::regex(R"(^\[sample\]   (ENTT\w+) )"))) {
                ids.insert(match[1]);
            }
        }
        return ids;
    }

    inline static std::unique_ptr<testsupport::TempDir> scratch;
    inline static std::string stand, walk;
    inline static int standStatus = -1, standServerStatus = -1, walkServerStatus = -1, walkStatus = -1;
    inline static int menuStatus = -1, inventoryStatus = -1, inventoryServerStatus = -1;
    inline static int settingsStatus = -1, developerStatus = -1, webStatus = -1;
    inline static nerox::graphics::ImageData standImage, walkImage, menuImage, inventoryImage, webImage;
};

TEST_F(ClientScreenshotTest, TheCratesThatFellRestOnTheGround) {
    ASSERT_EQ(standStatus, 0) << testsupport::ReadText(scratch->File("stand.png.log"));
    ASSERT_EQ(standImage.width, Width);
    ASSERT_EQ(standImage.height, Height);
    Pixel const sky = At(standImage, Width - 10, 4);
    EXPECT_TRUE(sky.b > sky.r && sky.b > 150) << "sky " << sky;
    Pixel const ground = At(standImage, Width - 10, Height - 4);
    EXPECT_TRUE(ground.g > ground.r && ground.g > ground.b) << "ground " << ground;
    int crates = 0;
    for (sample::Placement const& placement : sample::newWorld) {
        if (std::string(placement.itemType) != sample::crateType || placement.position.x > 10.0) continue;
        glm::dvec3 const resting(placement.position.x, placement.restY + 0.4, placement.position.z);
        glm::dvec3 const dropped(placement.position.x, placement.position.y + 0.4, placement.position.z);
        EXPECT_TRUE(IsCrate(At(standImage, resting)))
            << "crate at rest " << resting.x << ", " << resting.z << ": " << At(standImage, resting);
        EXPECT_FALSE(IsCrate(At(standImage, dropped))) << "crate still where it was dropped " << dropped.y;
        ++crates;
    }
    EXPECT_EQ(crates, 3);
    // Orange paint: red far over green, green over blue.
    Pixel const rover = At(standImage, glm::dvec3(0.0, 0.55, 0.0));
    EXPECT_TRUE(rover.r > 150 && rover.r - rover.g > 70 && rover.g > rover.b) << "rover " << rover;
}

TEST_F(ClientScreenshotTest, AClickAtTheAimReachesTheWebScreensPage) {
    ASSERT_EQ(webStatus, 0) << testsupport::ReadText(scratch->File("web.png.log"));
    if (testsupport::ReadText(scratch->File("web.png.log")).find("web screens stay dark") != std::string::npos)
        GTEST_SKIP() << "no webview here: run scripts/setup.sh";
    // The page's dark blue around the crosshair, its orange button under it,
    // and the green bar that the click started.
    int blue = 0, orange = 0, green = 0;
    for (int y = Height / 2 - 60; y < Height / 2 + 60; ++y) {
        for (int x = Width / 2 - 90; x < Width / 2 + 90; ++x) {
            Pixel const p = At(webImage, x, y);
            blue += p.b > p.r + 30 && p.b > p.g + 15 && p.r < 70 ? 1 : 0;
            orange += p.r > 200 && p.g > 120 && p.g < 200 && p.b < 90 ? 1 : 0;
            green += p.g > 160 && p.g - p.r > 110 && p.g - p.b > 90 ? 1 : 0;
        }
    }
    EXPECT_GT(blue, 2000) << "the page";
    EXPECT_GT(orange, 100) << "its button";
    EXPECT_GT(green, 10) << "a click counted";
}

TEST_F(ClientScreenshotTest, TheMonitorShowsTheServersImageInReadableText) {
    ASSERT_EQ(standStatus, 0);
    auto const monitor = std::find_if(sample::newWorld.begin(), sample::newWorld.end(), [](auto const& placement) {
        return std::string(placement.itemType) == sample::monitorType;
    });
    ASSERT_NE(monitor, sample::newWorld.end());
    glm::dquat const turn = glm::angleAxis(glm::radians(monitor->yawDegrees), glm::dvec3(0.0, 1.0, 0.0));
    // The screen's face (1.2 m by 0.8 m, 0.9 m above the foot), sampled on a
    // grid: dark blue ground, white and amber text, and not one plain colour.
    int background = 0, text = 0, amber = 0, samples = 0;
    for (double v = 0.03; v < 1.0; v += 0.02) {
        for (double u = 0.02; u < 1.0; u += 0.01) {
            glm::dvec3 const local(0.0011, 1.7 - 0.8 * v, 0.6 - 1.2 * u);
            Pixel const p = At(standImage, monitor->position + turn * local);
            background += p.b > p.r + 15 && p.r + p.g + p.b < 250 ? 1 : 0;
            text += std::min({p.r, p.g, p.b}) > 180 ? 1 : 0;
            amber += v < 0.2 && u < 0.4 && p.r > 180 && p.g > 90 && p.b < 90 ? 1 : 0;
            ++samples;
        }
    }
    EXPECT_GT(background, samples / 2) << "text " << text << ", amber " << amber << " of " << samples;
    EXPECT_GT(text, samples / 50) << "background " << background << " of " << samples;
    EXPECT_GT(amber, 10) << "the title, top left";
}

TEST_F(ClientScreenshotTest, WalkingTowardsTheCratesMakesThemBigger) {
    ASSERT_EQ(standStatus, 0);
    ASSERT_EQ(walkStatus, 0) << testsupport::ReadText(scratch->File("walk.png.log"));
    int const before = CratePixels(standImage);
    int const after = CratePixels(walkImage);
    EXPECT_GT(before, 500);
    EXPECT_GT(after, before * 3 / 2) << "crate pixels standing " << before << ", after the walk " << after;
}

TEST_F(ClientScreenshotTest, TheServerAndTheClientFindTheSameWorld) {
    ASSERT_EQ(standStatus, 0);
    ASSERT_EQ(standServerStatus, 0) << testsupport::ReadText(scratch->File("stand_server.log"));
    ASSERT_EQ(walkServerStatus, 0);
    ASSERT_EQ(walkStatus, 0);
    std::set<std::string> const savedByClient = Listed("stand.png.log", "[sample] saving 7 entities");
    EXPECT_EQ(savedByClient.size(), sample::newWorld.size());
    EXPECT_EQ(Listed("stand_server.log", "[sample] world has 7 entities"), savedByClient);
    std::set<std::string> const madeByServer = Listed("walk_server.log", "[sample] new world:");
    EXPECT_EQ(madeByServer.size(), sample::newWorld.size());
    EXPECT_EQ(Listed("walk.png.log", "[sample] world has 7 entities"), madeByServer);
}

// Bright text pixels (all channels at least floor, at most ceiling) in a box of the image.
int TextPixels(nerox::graphics::ImageData const& image, int x0, int y0, int x1, int y1, int floor, int ceiling) {
    int count = 0;
    for (int y = y0; y < y1; ++y) {
        for (int x = x0; x < x1; ++x) {
            size_t const i = (static_cast<size_t>(y) * image.width + x) * 4;
            int const low = std::min({image.pixels[i], image.pixels[i + 1], image.pixels[i + 2]});
            int const high = std::max({image.pixels[i], image.pixels[i + 1], image.pixels[i + 2]});
            count += low >= floor && high <= ceiling ? 1 : 0;
        }
    }
    return count;
}

TEST_F(ClientScreenshotTest, TheStartMenuShowsItsButtonsAndAnswersThePointer) {
    ASSERT_EQ(menuStatus, 0) << testsupport::ReadText(scratch->File("menu.png.log"));
    ASSERT_EQ(menuImage.width, Width);
    // The four buttons, 27 pixels high and 0.12 screen heights apart, are grey
    // over the green ground; their labels are light. The pointer rests on QUIT,
    // whose label is white; the others' are light grey.
    int const rows[] = {221, 254, 286, 318}; // WORLD, PLAY, SETTINGS, QUIT
    for (int const y : rows) {
        Pixel const edge = At(menuImage, 418, y);
        EXPECT_TRUE(std::abs(edge.r - edge.b) < 40 && edge.g - edge.b < 40) << "button at " << y << ": " << edge;
        EXPECT_GT(TextPixels(menuImage, 420, y - 8, 540, y + 8, 150, 255), 40) << "label at " << y;
    }
    EXPECT_GT(TextPixels(menuImage, 420, 310, 540, 326, 215, 255), 5) << "QUIT in white";
    EXPECT_EQ(TextPixels(menuImage, 420, 246, 540, 262, 215, 255), 0) << "PLAY in grey (204 at most)";
    EXPECT_GT(TextPixels(menuImage, 400, 160, 560, 186, 200, 255), 60) << "the title";
    EXPECT_NE(testsupport::ReadText(scratch->File("menu.png.log")).find("Start menu: PLAY loads the world"),
              std::string::npos);
}

TEST_F(ClientScreenshotTest, TheInventoryWindowsShowTheItemsAndTheServerKeepsTheMoves) {
    ASSERT_EQ(inventoryStatus, 0) << testsupport::ReadText(scratch->File("inventory.png.log"));
    ASSERT_EQ(inventoryImage.width, Width);
    std::string const log = testsupport::ReadText(scratch->File("inventory.png.log"));
    EXPECT_NE(log.find("inventory move refused: that slot refuses the item"), std::string::npos) << log;
    // Both windows: dark panels side by side, with light item labels in the pack's first row.
    Pixel const pack = At(inventoryImage, 100, 470);
    Pixel const storage = At(inventoryImage, 860, 470);
    EXPECT_LT(pack.r + pack.g + pack.b, 200) << "pack window " << pack;
    EXPECT_LT(storage.r + storage.g + storage.b, 200) << "storage window " << storage;
    EXPECT_GT(TextPixels(inventoryImage, 101, 324, 165, 360, 200, 255), 20) << "ore in the pack's first slot";
    // The battery went onto the storage box's; the wrench came back: 3 items and 2.
    ASSERT_EQ(inventoryServerStatus, 0);
    EXPECT_NE(testsupport::ReadText(scratch->File("inventory_server.log")).find("inventories loaded: 3 and 2 items"),
              std::string::npos)
        << testsupport::ReadText(scratch->File("inventory_server.log"));
}

// Each window's title is among those the host lists for the saved frame.
TEST_F(ClientScreenshotTest, TheFunctionKeysAndTheSettingsFileOpenTheWindows) {
    struct Case {
        char const* log;
        int const* status;
        std::vector<char const*> titles;
    };
    Case const cases[] = {
        {"settings.png.log", &settingsStatus, {"Settings"}},
        {"developer.png.log", &developerStatus, {"Debug Window", "Profiling (milliseconds)", "Admin Panel", "Goals"}},
    };
    for (Case const& c : cases) {
        std::string const log = testsupport::ReadText(scratch->File(c.log));
        ASSERT_EQ(*c.status, 0) << log;
        std::smatch shown;
        ASSERT_TRUE(std::regex_search(log, shown, std::regex("Windows in it: (.*)\n"))) << log;
        std::string const list = "; " + shown[1].str() + ";";
        for (char const* title : c.titles)
            EXPECT_NE(list.find(std::string("; ") + title + ";"), std::string::npos) << title << " in " << list;
    }
    nerox::graphics::ImageData const settings = nerox::graphics::Texture::LoadFile(scratch->File("settings.png"), 4);
    // The settings window's dark body in the middle of the frame, with text on it.
    EXPECT_GT(TextPixels(settings, 200, 60, 760, 200, 200, 255), 100);
}

} // namespace
