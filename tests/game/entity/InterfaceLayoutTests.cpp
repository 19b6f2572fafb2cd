// Module binaries call the interface's operations by their place in the
// virtual table, so the places are part of the module interface.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "game/entity/ServerSideEntityInterface.hpp"

namespace {

using game::entity::ServerSideEntityInterface;

#if defined(__GXX_ABI_VERSION) && defined(__x86_64__)
// A pointer to a virtual member function holds 1 + the byte offset of its slot.
template <class MemberFunction>
size_t Slot(MemberFunction function)
{
    struct {
        uintptr_t pointer;
        ptrdiff_t adjustment;
    } representation;
    static_assert(sizeof(function) == sizeof(representation));
    std::memcpy(&representation, &function, sizeof(representation));
    EXPECT_EQ(representation.pointer % 2, 1u) << "not a virtual function";
    return (representation.pointer - 1) / sizeof(void*);
}

TEST(ServerSideEntityInterfaceLayout, OperationsSitInTheirSlots)
{
    using I = ServerSideEntityInterface;
    EXPECT_EQ(Slot(&I::IsInsideVolume), 2u);
    EXPECT_EQ(Slot(&I::SaveState), 3u);
    EXPECT_EQ(Slot(&I::LoadState), 4u);
    EXPECT_EQ(Slot(&I::SerializeState), 5u);
    EXPECT_EQ(Slot(&I::DeserializeState), 6u);
    EXPECT_EQ(Slot(&I::ModuleSlot7), 7u);
    EXPECT_EQ(Slot(&I::ModuleSlot17), 17u);
    EXPECT_EQ(Slot(&I::InitInterface), 18u);
    EXPECT_EQ(Slot(&I::BeforeUpdate), 19u);
    EXPECT_EQ(Slot(&I::Update), 20u);
    EXPECT_EQ(Slot(&I::AfterUpdate), 21u);
}
#endif

} // namespace
