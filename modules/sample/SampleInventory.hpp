#pragma once
// The sample's inventories as both of its libraries see them: the player's
// pack and a storage box, the rules the server applies to each move, and the
// messages between the client's windows and the server. In one process the
// client hands its messages to the server modules' Server_Receive, and the
// server answers through the client modules' Client_Receive, as a network
// module would carry them.
#include "Sample.hpp"

#include "game/Inventory.hpp"
#include "nerox/filesystem/Stream.hpp"

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace sample::inventory {

/// Slots of the player's pack and of the storage box.
inline constexpr uint64_t packSlots = 12;
inline constexpr uint64_t storageSlots = 8;
/// The inventories' ids: fixed, so that a saved world finds them again.
inline game::UniqueId const packId(0x5041434b00000001ull, 0x53414d504c450001ull);
inline game::UniqueId const storageId(0x53544f5200000001ull, 0x53414d504c450002ull);
/// The file beside the world's entities that keeps both inventories.
inline constexpr char fileName[] = "sample_inventories.bin";

/// The sample's item types.
inline constexpr char ore[] = "iron ore";
inline constexpr char battery[] = "battery";
inline constexpr char wrench[] = "wrench";

/// How many units of a type one slot holds: ore 20, batteries 4, a wrench is
/// one of a kind.
inline uint32_t StackLimit(std::string const& type) {
    if (type == ore) return 20;
    if (type == battery) return 4;
    return 1;
}

/// Whether a slot of inventory may hold an item of type: the storage box
/// takes no tools.
inline bool Accepts(game::UniqueId const& inventory, std::string const& type) {
    return !(inventory == storageId && type == wrench);
}

/// A move the player made in the windows, as the client reports it.
struct Request {
    enum class Kind : uint8_t { Move = 1, Swap, Stack, Split, Drop };
    Kind kind = Kind::Move;
    game::UniqueId fromInventory, fromItem; ///< Where the item came from.
    game::UniqueId toInventory, toItem;     ///< Where it went: the other item of a swap or stack.
    std::string slot;                       ///< The target slot of a move or split.
    int32_t count = 0;                      ///< Units of a split.

    std::vector<unsigned char> Encode() const {
        nerox::filesystem::WriteOnlyStream out;
        out.Write(static_cast<uint8_t>(kind));
        for (game::UniqueId const* id : {&fromInventory, &fromItem, &toInventory, &toItem}) {
            out.Write(id->first);
            out.Write(id->second);
        }
        out.Write(slot);
        out.Write(count);
        auto const bytes = out.ReadableBytes();
        return std::vector<unsigned char>(bytes.begin(), bytes.end());
    }

    /// Throws std::runtime_error for a message that is not a request.
    static Request Decode(void const* data, size_t size) {
        nerox::filesystem::ReadOnlyStream in(static_cast<unsigned char const*>(data), size);
        Request request;
        uint8_t kind = 0;
        in.Read(kind);
        if (kind < 1 || kind > 5) throw std::runtime_error("not an inventory request");
        request.kind = static_cast<Kind>(kind);
        for (game::UniqueId* id : {&request.fromInventory, &request.fromItem, &request.toInventory, &request.toItem}) {
            in.Read(id->first);
            in.Read(id->second);
        }
        in.Read(request.slot);
        in.Read(request.count);
        return request;
    }
};

/// The server's answer: every inventory as it now stands.
inline std::vector<unsigned char> EncodeState(std::vector<game::Inventory const*> const& inventories) {
    nerox::filesystem::WriteOnlyStream out;
    out.Write(static_cast<uint32_t>(inventories.size()));
    for (game::Inventory const* inventory : inventories) inventory->Write(out);
    auto const bytes = out.ReadableBytes();
    return std::vector<unsigned char>(bytes.begin(), bytes.end());
}

inline std::vector<game::Inventory> DecodeState(void const* data, size_t size) {
    nerox::filesystem::ReadOnlyStream in(static_cast<unsigned char const*>(data), size);
    uint32_t count = 0;
    in.Read(count);
    std::vector<game::Inventory> inventories;
    for (uint32_t i = 0; i < count && i < 16; ++i) inventories.push_back(game::Inventory::Read(in));
    return inventories;
}

} // namespace sample::inventory
