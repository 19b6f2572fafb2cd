// The content side of the sample module, loaded as a TESSARA_Mod through the
// list of content modules (Game::_mods) when the game starts.
//
// It defines five item types. Each has a description file beside the module
// (modules/TESSARA_sample/NAME.txt: colliders, joints, mass, ...) with its
// mesh (NAME.gltf), a behaviour class derived from ServerSideEntity::Interface
// and a look derived from ClientSideEntity::Interface, whose objects the game
// makes through the factories registered in Load:
//
//   crate  a dynamic box with a label and a count of the times it was loaded,
//          both kept in its state file; it has no per-tick hook, so it costs
//          nothing while the world runs.
//   rover  a chassis on four wheel joints; its Update turns the wheels, and
//          their angles are kept in its state file. Its look adds the headlight.
//   probe  a dense capsule that the client's P key has the server drop from
//          high up (ServerMod.cpp); it keeps no state and is never saved.
//   monitor  a screen on a stand. Each tick its behaviour draws the rover's
//          speed, a graph of it and the time on a pixel screen, which
//          compresses each changed image off the server thread; its look
//          reads the newest image back and shows it on the mesh's "screen"
//          material. Between the two, monitorFrames stands in for what a
//          network module would carry from the server to the client.
//   webscreen  a wide screen that shows a web page (web/clock.html: a clock
//          and a button that counts clicks), rendered by the webview program;
//          the client module moves the page's pointer with the aim and clicks
//          with the left button (WebScreen.hpp).
//
// Load runs in Game::Start, before the host loads the world's entities, and
// Unload in Game::Stop, after the host has saved and released them.
#include "Sample.hpp"
#include "WebScreen.hpp"

#include "game/Game.hpp"
#include "game/NeroxScreen.hpp"
#include "game/entity/ClientSideEntity.hpp"
#include "game/entity/EntityConfig.hpp"
#include "game/entity/ServerSideEntity.hpp"
#include "game/graphics/GameRenderer.hpp"
#include "game/graphics/LightSourceInstance.hpp"
#include "game/graphics/RenderableInstance.hpp"
#include "nerox/graphics/DynamicAsyncTexture.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

using game::entity::ClientSideEntity;
using game::entity::EntityConfig;
using game::entity::JointState;
using game::entity::ServerSideEntity;
using nerox::filesystem::ReadOnlyStream;
using nerox::filesystem::WriteOnlyStream;

/// Layout version of the module's part of a state file, written first.
constexpr uint32_t stateVersion = 1;

/// Labels given to new crates in this run.
unsigned cratesLabelled = 0;

/// The rover's speed over the ground, km/h, as its last tick left it (server thread).
double roverSpeed = 0.0;

/// The monitors' newest compressed images by entity id: written on the server
/// thread as each image is compressed, read by the monitors' looks on the
/// client's. What a network module would carry from one process to the other.
struct MonitorFrames {
    std::mutex mutex; // guards latest
    std::unordered_map<game::entity::Id, std::shared_ptr<std::vector<unsigned char> const>> latest;
} monitorFrames;

/// Reads the module's part of a state file with read, turning any failure into
/// one error that names the entity. An empty part (a new entity) reads nothing.
template <class Read>
void ReadState(ReadOnlyStream& stream, char const* type, game::entity::Id const& id, Read&& read) {
    if (stream.AtEnd()) return;
    try {
        uint32_t version = 0;
        stream.Read(version);
        if (version != stateVersion) throw std::runtime_error("unknown layout version " + std::to_string(version));
        read();
    } catch (std::exception const& failure) {
        throw std::runtime_error(std::string("sample ") + type + " " + static_cast<std::string>(id) +
                                 ": damaged module state: " + failure.what());
    }
}

/// A crate: a box that keeps its label and counts the times it came back from disk.
class Crate final : public ServerSideEntity::Interface {
public:
    void SaveState(WriteOnlyStream& stream) override {
        stream.Write(stateVersion);
        stream.Write(label);
        stream.Write(loads);
    }

    void LoadState(ReadOnlyStream& stream) override {
        ReadState(stream, sample::crateType, id, [&] {
            stream.Read(label);
            stream.Read(loads);
            ++loads;
        });
    }

    void InitInterface() override {
        if (label.empty()) label = "crate " + std::to_string(++cratesLabelled);
        if (auto const owner = entity.lock()) {
            owner->isDynamic = true;
            owner->physicsEnabled = true;
        }
    }

    std::string label;  ///< Given once, when the crate is new.
    uint32_t loads = 0; ///< Times the crate was loaded from its state file.
};

/// A probe: a body that falls; its glow comes from the game's client entities.
class Probe final : public ServerSideEntity::Interface {
public:
    void InitInterface() override {
        if (auto const owner = entity.lock()) {
            owner->isDynamic = true;
            owner->physicsEnabled = true;
        }
    }
};

/// A web screen stands where it is put; its look shows the page (WebScreen.hpp).
class WebScreen final : public ServerSideEntity::Interface { };

/// A rover: turns its four wheels at a steady speed and remembers where they stand.
class Rover final : public ServerSideEntity::Interface {
public:
    void SaveState(WriteOnlyStream& stream) override {
        stream.Write(stateVersion);
        stream.Write(speed);
        for (double angle : angles) stream.Write(angle);
    }

    void LoadState(ReadOnlyStream& stream) override {
        ReadState(stream, sample::roverType, id, [&] {
            stream.Read(speed);
            for (double& angle : angles) stream.Read(angle);
            if (!std::isfinite(speed)) throw std::runtime_error("wheel speed is not a number");
            for (double const angle : angles)
                if (!std::isfinite(angle)) throw std::runtime_error("wheel angle is not a number");
        });
    }

    void InitInterface() override {
        auto const owner = entity.lock();
        if (!owner) return;
        owner->isDynamic = true;
        owner->physicsEnabled = true;
        // The joint values live in the entity, whose maps outlive this object;
        // look them up once instead of on every tick.
        for (size_t wheel = 0; wheel < joints.size(); ++wheel) {
            auto const found = owner->jointStates.find(sample::roverWheels[wheel]);
            joints[wheel] = found == owner->jointStates.end() ? nullptr : &found->second;
        }
        Apply(*owner);
    }

    void Update(double dt) override {
        for (double& angle : angles) {
            angle = std::fmod(angle + speed * dt, 360.0);
            if (angle < 0.0) angle += 360.0;
        }
        if (auto const owner = entity.lock()) {
            Apply(*owner);
            double const speed = glm::length(owner->linearVelocity) * 3.6;
            roverSpeed = std::isfinite(speed) ? std::clamp(speed, 0.0, 999.9) : 0.0; // the screen draws what it can
        }
    }

    double speed = 30.0;            ///< Degrees per second, the same for every wheel.
    std::array<double, 4> angles{}; ///< Degrees, 0 to 360, in the order of sample::roverWheels.

private:
    /// Writes the angles into the wheel joints; the entity moves their colliders.
    void Apply(ServerSideEntity& owner) {
        for (size_t wheel = 0; wheel < joints.size(); ++wheel)
            if (joints[wheel]) joints[wheel]->rotation.y = static_cast<float>(angles[wheel]);
        owner.nodesDirty = true;
    }

    std::array<JointState*, 4> joints{}; ///< The entity's wheel joint values; null for a wheel its description lacks.
};

/// How a rover looks: its headlight, on the description's light box, once
/// there is a renderer to show it.
class RoverLook final : public ClientSideEntity::Interface {
public:
    void Update(double) override {
        if (lit || Game::renderer == nullptr) return;
        auto const owner = entity.lock();
        if (!owner) return;
        // On the light box's node: 10 cm ahead of the lamp, pointing ahead and a little down.
        owner->AddLight("headlight",
                        game::graphics::LightSourceInstance::Make(glm::vec3(0.1f, 0.0f, 0.0f), 0.05f,
                                                                  glm::vec3(1.0f, -0.1f, 0.0f), 0.6f,
                                                                  glm::vec3(1.0f, 0.95f, 0.8f), 8.0f));
        lit = true;
    }

    bool lit = false; ///< The headlight is on the entity.
};

/// A monitor: draws the rover's speed, its last 45 seconds as a graph and the
/// time, as often as its screen takes an image (ten times a second); the
/// screen compresses each changed one off this thread.
class Monitor final : public ServerSideEntity::Interface {
public:
    Monitor() { screen.minUpdateInterval = 100.0; }
    ~Monitor() override {
        std::lock_guard lock(monitorFrames.mutex);
        monitorFrames.latest.erase(id);
    }

    void InitInterface() override {
        if (auto const owner = entity.lock()) {
            owner->isDynamic = false;
            owner->physicsEnabled = true;
        }
    }

    void AfterUpdate(double dt) override {
        sinceSample += dt;
        if (sinceSample >= 0.25) {
            sinceSample = std::fmod(sinceSample, 0.25);
            history[next] = static_cast<float>(roverSpeed);
            next = (next + 1) % history.size();
        }
        sinceDrawn += dt;
        if (sinceDrawn >= screen.minUpdateInterval / 1000.0) { // a page drawn sooner would wait anyway
            sinceDrawn = 0.0;
            Draw();
        }
        screen.Update(true);
        if (std::vector<unsigned char> const* frame = screen.NewCompressedFrame()) {
            auto copy = std::make_shared<std::vector<unsigned char> const>(*frame);
            std::lock_guard lock(monitorFrames.mutex);
            monitorFrames.latest[id] = std::move(copy);
        }
    }

    game::NeroxScreen screen{sample::monitorWidth, sample::monitorHeight};

private:
    static constexpr uint32_t Background = 0xFF3A2210; // red in the low byte: a dark blue
    static constexpr uint32_t Amber = 0xFF30B0FF;
    static constexpr uint32_t White = 0xFFFFFFFF;
    static constexpr uint32_t Grey = 0xFF707070;
    static constexpr uint32_t Green = 0xFF80FF40;

    void Draw() {
        using game::NeroxScreen;
        screen.Blank(Background);
        screen.WriteLine(4, 2, Amber, "ROVER");
        std::time_t const now = std::time(nullptr);
        std::tm local{};
        char text[32] = "--:--:--";
        if (localtime_r(&now, &local) != nullptr) std::strftime(text, sizeof text, "%H:%M:%S", &local);
        screen.textAlign = NeroxScreen::AlignRight | NeroxScreen::AlignTop;
        screen.Write(-5, 1, White, text);
        std::snprintf(text, sizeof text, "%.1f", roverSpeed);
        screen.textSize = 2;
        screen.WriteLine(6, 24, White, text);
        int const unitX = 6 + 22 * static_cast<int>(std::string_view(text).size()) + 6;
        screen.textSize = 1;
        screen.WriteLine(unitX, 44, Amber, "km/h");
        // The graph: the last samples from the left, the newest at the right edge.
        int const left = 4, top = 72, right = sample::monitorWidth - 4, bottom = sample::monitorHeight - 4;
        screen.DrawRect(left, top, right, bottom, Grey, 0);
        float scale = 10.0f;
        for (float const sample : history) scale = std::max(scale, sample);
        int const span = bottom - top - 4;
        int previousX = 0, previousY = 0;
        for (size_t i = 0; i < history.size(); ++i) {
            float const value = history[(next + i) % history.size()];
            int const x = left + 1 + static_cast<int>(i);
            int const y = bottom - 2 - static_cast<int>(value / scale * static_cast<float>(span));
            if (i > 0) screen.DrawLine(previousX, previousY, x, y, Green);
            previousX = x, previousY = y;
        }
    }

    std::array<float, sample::monitorWidth - 10> history{}; ///< km/h, every quarter second; next is the oldest
    size_t next = 0;
    double sinceSample = 0.0;
    double sinceDrawn = 1.0; // drawn at the first tick
};

/// How a monitor looks: its mesh, with the newest image the server made on the
/// "screen" material, through a texture that takes each image without holding
/// up a frame.
class MonitorLook final : public ClientSideEntity::Interface {
public:
    void Update(double) override {
        game::graphics::GameRenderer* renderer = Game::renderer;
        if (renderer == nullptr || failed) return;
        std::shared_ptr<std::vector<unsigned char> const> frame;
        {
            std::lock_guard lock(monitorFrames.mutex);
            auto const found = monitorFrames.latest.find(id);
            if (found != monitorFrames.latest.end()) frame = found->second;
        }
        try {
            if (frame && frame != shown) {
                shown = frame;
                game::NeroxScreen::Inflate(*frame, pixels);
                if (!texture) {
                    texture = std::make_shared<nerox::graphics::DynamicAsyncTexture>(
                        renderer, sample::monitorWidth, sample::monitorHeight,
                        [renderer](std::shared_ptr<nerox::graphics::Texture> t) {
                            renderer->SchedulePush(std::move(t));
                        },
                        "sample monitor");
                    textureIndex = renderer->AddTexture(nerox::graphics::TextureRef(texture));
                }
                texture->Load(pixels.data(), pixels.size() * sizeof(uint32_t));
            }
        } catch (std::exception const& error) {
            std::fprintf(stderr, "[sample] monitor %s shows nothing: %s\n", static_cast<std::string>(id).c_str(),
                         error.what());
            failed = true; // said once; the screen stays as it is
            return;
        }
        auto const owner = entity.lock();
        if (!texture || !owner) return;
        // The renderables are made again when the mesh is: show the image on the new ones.
        for (ClientSideEntity::Renderable const& renderable : owner->renderables)
            if (renderable.instance && renderable.instance != onInstance &&
                renderable.instance->SetMonitorTexture("screen", textureIndex, glm::vec3(1.0f)))
                onInstance = renderable.instance;
    }

private:
    std::vector<uint32_t> pixels = std::vector<uint32_t>(sample::monitorWidth * sample::monitorHeight);
    std::shared_ptr<std::vector<unsigned char> const> shown;       ///< The compressed image shown.
    std::shared_ptr<nerox::graphics::DynamicAsyncTexture> texture; ///< Made with the first image.
    uint32_t textureIndex = 0;
    std::shared_ptr<game::graphics::RenderableInstance> onInstance; ///< Where the image is shown.
    bool failed = false;
};

/// Adds the rows of itemType on both sides: its description file (read once
/// per side) and the factories of its behaviour and its look.
template <class Behaviour, class Look> void Register(char const* itemType) {
    nerox::modular::ModuleID const module(sample::moduleName);
    std::string const path = std::string(sample::dataFolder) + itemType + ".txt";
    std::error_code error;
    if (!std::filesystem::exists(path, error))
        std::fprintf(stderr, "[sample] description file %s is missing: %s entities get no colliders\n", path.c_str(),
                     itemType);

    ServerSideEntity::TypeDef row;
    row.moduleId = module;
    row.itemType = itemType;
    row.config = std::make_shared<EntityConfig>(path);
    row.factory = [] { return std::make_shared<Behaviour>(); };
    ServerSideEntity::_registered_interfaces[sample::moduleName].insert_or_assign(itemType, std::move(row));
    ServerSideEntity::_registered_items_module[itemType] = module;
    ServerSideEntity::_registered_items[sample::moduleName].push_back(itemType);

    ClientSideEntity::TypeDef look;
    look.moduleId = module;
    look.itemType = itemType;
    look.config = std::make_shared<EntityConfig>(path);
    look.factory = [] { return std::make_shared<Look>(); };
    ClientSideEntity::_registered_interfaces[sample::moduleName].insert_or_assign(itemType, std::move(look));
    ClientSideEntity::_registered_items_module[itemType] = module;
}

} // namespace

extern "C" {

// Version marker of the content interface this module was built for.
extern int const _TESSARA_Mod_VERSION;
int const _TESSARA_Mod_VERSION = 1;

// Game::Start, before the world's entities are loaded: register the item types.
void Load(void*) {
    ServerSideEntity::_registered_items.erase(sample::moduleName);
    Register<Crate, ClientSideEntity::Interface>(sample::crateType);
    Register<Rover, RoverLook>(sample::roverType);
    Register<Probe, ClientSideEntity::Interface>(sample::probeType);
    Register<Monitor, MonitorLook>(sample::monitorType);
    Register<WebScreen, sample::WebScreenLook>(sample::webScreenType);
    std::printf("[sample] content loaded: item types %s, %s, %s, %s, %s\n", sample::crateType, sample::roverType,
                sample::probeType, sample::monitorType, sample::webScreenType);
}

// Game::Stop: remove every row of this module. The entities are gone by now;
// their interfaces and descriptions hold code of this library.
void Unload(void*) {
    nerox::modular::ModuleID const module(sample::moduleName);
    {
        std::lock_guard<std::mutex> lock(ServerSideEntity::_module_entities_mutex);
        auto const found = ServerSideEntity::_module_entities.find(sample::moduleName);
        if (found != ServerSideEntity::_module_entities.end()) {
            size_t live = 0;
            for (auto const& object : found->second) live += object.expired() ? 0 : 1;
            if (live != 0)
                std::fprintf(stderr, "[sample] warning: %zu entities of this module still exist at unload\n", live);
            ServerSideEntity::_module_entities.erase(found);
        }
    }
    sample::StopWebview(); // the game has ended: the pages' program goes too
    for (char const* itemType :
         {sample::crateType, sample::roverType, sample::probeType, sample::monitorType, sample::webScreenType}) {
        auto const found = ServerSideEntity::_registered_items_module.find(itemType);
        if (found != ServerSideEntity::_registered_items_module.end() && found->second == module)
            ServerSideEntity::_registered_items_module.erase(found);
        auto const look = ClientSideEntity::_registered_items_module.find(itemType);
        if (look != ClientSideEntity::_registered_items_module.end() && look->second == module)
            ClientSideEntity::_registered_items_module.erase(look);
    }
    ServerSideEntity::_registered_items.erase(sample::moduleName);
    ServerSideEntity::_registered_interfaces.erase(sample::moduleName);
    ClientSideEntity::_registered_interfaces.erase(sample::moduleName);
    {
        std::lock_guard lock(monitorFrames.mutex);
        monitorFrames.latest.clear();
    }
    std::printf("[sample] content unloaded\n");
}

} // extern "C"
