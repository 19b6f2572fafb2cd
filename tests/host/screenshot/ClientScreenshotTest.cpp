// The client as a newcomer first runs it: the sample world offscreen, its last
// frame saved, and the pixels where the sample's objects must show.
#include "modules/sample/Sample.hpp"
#include "nerox/graphics/Texture.hpp"
#include "support/TempDir.hpp"

#include <glm/gtc/matrix_transform.hpp>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <memory>
#include <string>

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

class ClientScreenshotTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        scratch = std::make_unique<testsupport::TempDir>();
        shot = scratch->File("shot.png");
        std::string const command = std::string("cd '") + TESSARA_RUN +
            "' && ./tessara --client --offscreen --frames 10 --size " + std::to_string(Width) + "x" +
            std::to_string(Height) + " --settings '" + scratch->File("settings.ini") + "' --screenshot '" + shot +
            "' > '" + scratch->File("log.txt") + "' 2>&1";
        status = std::system(command.c_str());
        if (status == 0) image = nerox::graphics::Texture::LoadFile(shot, 4);
    }

    // The pixel where a world point shows, through the sample's camera and the
    // world view's projection.
    static Pixel At(glm::dvec3 world) {
        glm::dmat4 const view = glm::lookAt(sample::cameraPosition, sample::cameraTarget, glm::dvec3(0.0, 1.0, 0.0));
        glm::dvec3 const p = glm::dvec3(view * glm::dvec4(world, 1.0));
        double const f = 1.0 / std::tan(glm::radians(Fov) * 0.5);
        double const x = (f * Height / Width * p.x / -p.z * 0.5 + 0.5) * Width;
        double const y = (-f * p.y / -p.z * 0.5 + 0.5) * Height;
        return At(static_cast<int>(x), static_cast<int>(y));
    }
    static Pixel At(int x, int y) {
        EXPECT_TRUE(x >= 0 && x < Width && y >= 0 && y < Height) << x << ", " << y;
        size_t const i = (static_cast<size_t>(y) * Width + x) * 4;
        if (i + 2 >= image.pixels.size()) return {0, 0, 0};
        return {image.pixels[i], image.pixels[i + 1], image.pixels[i + 2]};
    }

    static void TearDownTestSuite() { scratch.reset(); }

    inline static std::unique_ptr<testsupport::TempDir> scratch;
    inline static std::string shot;
    inline static int status = -1;
    inline static nerox::graphics::ImageData image;
};

TEST_F(ClientScreenshotTest, ShowsTheSkyTheGroundTheCratesAndTheRover) {
    ASSERT_EQ(status, 0) << "the client run failed";
    ASSERT_EQ(image.width, Width);
    ASSERT_EQ(image.height, Height);
    Pixel const sky = At(Width - 10, 4);
    EXPECT_TRUE(sky.b > sky.r && sky.b > 150) << "sky " << sky;
    Pixel const ground = At(Width - 10, Height - 4);
    EXPECT_TRUE(ground.g > ground.r && ground.g > ground.b) << "ground " << ground;
    // Brown wood: red over green over blue, red at most 60 over green.
    auto isCrate = [](Pixel p) { return p.r > p.g && p.g > p.b + 20 && p.r - p.g < 60; };
    // Orange paint: red far over green, green over blue.
    auto isRover = [](Pixel p) { return p.r > 150 && p.r - p.g > 70 && p.g > p.b; };
    int crates = 0;
    for (sample::Placement const& placement : sample::newWorld) {
        // The middle of the lid, which the camera sees from above.
        glm::dvec3 const centre(placement.position.x, placement.restY + 0.79, placement.position.z);
        if (placement.position.x > 10.0) continue; // the one in the basin is under water
        Pixel const pixel = At(centre);
        if (std::string(placement.itemType) == sample::crateType) {
            EXPECT_TRUE(isCrate(pixel)) << "crate at " << centre.x << ", " << centre.z << ": " << pixel;
            ++crates;
        } else {
            Pixel const side = At(glm::dvec3(0.0, 0.55, 0.0));
            EXPECT_TRUE(isRover(side)) << "rover " << side;
        }
    }
    EXPECT_EQ(crates, 3);
}

} // namespace
