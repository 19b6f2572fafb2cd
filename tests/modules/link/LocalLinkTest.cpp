// The local link between the server and the client side of one process: client
// entities come and go with the server's, and a tick is handed over whole while
// both threads run (this test is meant for ThreadSanitizer too).
#include "modules/link/LocalLink.hpp"

#include "game/Game.hpp"
#include "game/entity/ClientSideEntity.hpp"
#include "game/entity/ServerSideEntity.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

namespace {

using game::entity::ClientSideEntity;
using game::entity::Id;
using game::entity::ServerSideEntity;
using nerox::modular::ModuleID;

class LocalLinkTest : public ::testing::Test {
protected:
    void TearDown() override {
        ServerSideEntity::ForEach([](ServerSideEntity::Ptr entity) { entity->deleteFilesOnDestroy = false; });
        ServerSideEntity::DestroyAll();
        ClientSideEntity::DestroyAll();
        std::lock_guard lock(Game::_syncMutex);
        Game::_syncQueue.clear();
    }
    static ServerSideEntity::Ptr Make(char const* type) {
        ServerSideEntity::Ptr entity = ServerSideEntity::Create(ModuleID("LINKTEST"), type, Id{});
        entity->deleteFilesOnDestroy = false;
        return entity;
    }
    static std::set<std::string> ClientIds() {
        std::set<std::string> ids;
        ClientSideEntity::ForEach([&](ClientSideEntity::Ptr entity) {
            EXPECT_EQ(entity->moduleId, ModuleID("LINKTEST"));
            EXPECT_EQ(entity->itemType,
                      ServerSideEntity::Get(entity->id) ? ServerSideEntity::Get(entity->id)->itemType
                                                        : entity->itemType);
            ids.insert(static_cast<std::string>(entity->id));
        });
        return ids;
    }

    locallink::LocalLink link;
};

TEST_F(LocalLinkTest, ClientEntitiesComeAndGoWithTheServersAfterTheNextPass) {
    ServerSideEntity::Ptr const box = Make("box");
    ServerSideEntity::Ptr const cart = Make("cart");
    box->position = glm::dvec3(1.0, 2.0, 3.0);
    box->isDynamic = true;
    box->linearVelocity = glm::dvec3(0.0, -30.0, 4.0);
    cart->parentEntity = box->id;
    cart->jointStates["axle"].rotation = glm::vec3(0.0f, 45.0f, 0.0f);
    link.ServerTick();
    link.ServerTick(); // two ticks before a pass: one Apply, of the newer
    EXPECT_EQ(ClientSideEntity::Count(), 0u) << "nothing before the client's pass";
    Game::Update(0.0);
    EXPECT_EQ(ClientIds(),
              (std::set<std::string>{static_cast<std::string>(box->id), static_cast<std::string>(cart->id)}));
    ClientSideEntity::Ptr const shownBox = ClientSideEntity::Get(box->id);
    ClientSideEntity::Ptr const shownCart = ClientSideEntity::Get(cart->id);
    ASSERT_TRUE(shownBox && shownCart);
    EXPECT_EQ(shownBox->position, box->position) << "appears where it is";
    EXPECT_TRUE(shownBox->isDynamic);
    EXPECT_EQ(shownBox->linearVelocity, box->linearVelocity) << "for the plasma trail";
    EXPECT_EQ(shownCart->parentEntity, box->id);
    EXPECT_EQ(shownCart->jointStates["axle"].rotation.y, 45.0f);
    EXPECT_TRUE(shownCart->nodesDirty || shownCart->jointStates.size() == 1);

    box->position.x = 5.0;
    ServerSideEntity::Ptr const third = Make("box");
    ServerSideEntity::Destroy(cart->id);
    link.ServerTick();
    Game::Update(0.0);
    EXPECT_EQ(ClientIds(),
              (std::set<std::string>{static_cast<std::string>(box->id), static_cast<std::string>(third->id)}));
    EXPECT_EQ(shownBox->targetPosition.x, 5.0);
    EXPECT_TRUE(shownBox->interpolationBusy);
    EXPECT_EQ(std::tuple(link.created, link.destroyed), std::tuple(3u, 1u));

    ServerSideEntity::ForEach([](ServerSideEntity::Ptr entity) { entity->deleteFilesOnDestroy = false; });
    ServerSideEntity::DestroyAll();
    link.ServerTick();
    Game::Update(0.0);
    EXPECT_EQ(ClientSideEntity::Count(), 0u) << "an empty world empties the client";
}

TEST_F(LocalLinkTest, EveryHandedOverPlaceIsOneWholeTickWhileBothThreadsRun) {
    std::vector<ServerSideEntity::Ptr> entities;
    for (int i = 0; i < 8; ++i) entities.push_back(Make("box"));
    std::atomic<bool> done{false};
    std::thread server([&] {
        for (int tick = 1; tick <= 1500; ++tick) {
            double const k = tick;
            for (auto& entity : entities) {
                entity->position = glm::dvec3(k, k, k);
                entity->jointStates["joint"].position = glm::vec3(static_cast<float>(k));
            }
            link.ServerTick();
        }
        done = true;
    });
    double lastSeen = 0.0;
    int passes = 0;
    while (!done.load() || passes == 0) {
        Game::Update(0.0);
        ++passes;
        ClientSideEntity::ForEach([&](ClientSideEntity::Ptr entity) {
            glm::dvec3 const& p = entity->targetPosition;
            ASSERT_TRUE(p.x == p.y && p.y == p.z) << p.x << ", " << p.y << ", " << p.z;
            ASSERT_EQ(entity->jointStates["joint"].position.x, static_cast<float>(p.x));
            ASSERT_GE(p.x, lastSeen - 0.5) << "ticks arrive in order";
        });
        ClientSideEntity::ForEach([&](ClientSideEntity::Ptr entity) { lastSeen = entity->targetPosition.x; });
    }
    server.join();
    Game::Update(0.0);
    EXPECT_EQ(ClientSideEntity::Count(), entities.size());
    ClientSideEntity::ForEach([](ClientSideEntity::Ptr entity) { EXPECT_EQ(entity->targetPosition.x, 1500.0); });
    EXPECT_EQ(link.TicksHandedOver(), 1500u);
}

} // namespace
