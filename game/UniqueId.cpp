#include "game/UniqueId.hpp"

#include "nerox/Base16.hpp"
#include "nerox/RandomGenerator.hpp"

#include <chrono>
#include <cstring>
#include <mutex>
#include <stdexcept>

namespace game {

uint32_t UniqueId::_this_owner = 0;

namespace {

constexpr uint64_t timeMask = (uint64_t(1) << 50) - 1;

void DecodeInto(std::string const& digits, unsigned char* out, size_t size) {
    std::vector<unsigned char> bytes = nerox::Base16::Decode(digits);
    if (bytes.size() != size) throw std::invalid_argument("invalid size");
    std::memcpy(out, bytes.data(), size);
}

} // namespace

UniqueId::UniqueId(std::string const& text) {
    if (text.empty()) return;
    if (text.size() != 28) throw std::runtime_error("UniqueId string length should be 28");
    unsigned char bytes[16];
    std::memcpy(bytes, text.data(), 4);
    DecodeInto(text.substr(4, 8), bytes + 4, 4);
    DecodeInto(text.substr(12, 16), bytes + 8, 8);
    std::memcpy(&first, bytes, 8);
    std::memcpy(&second, bytes + 8, 8);
}

UniqueId UniqueId::Generate(char const (&type)[5]) {
    // Spawns come from several threads: the random generator and the last time
    // part are shared by all of them.
    static std::mutex mutex;
    std::lock_guard<std::mutex> lock(mutex);
    static nerox::RandomGenerator<unsigned int, 1, 16383> random;
    unsigned char bytes[8];
    std::memcpy(bytes, type, 4);
    std::memcpy(bytes + 4, &_this_owner, 4);
    UniqueId id;
    std::memcpy(&id.first, bytes, 8);
    auto nanoseconds =
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
            .count();
    uint64_t time = static_cast<uint64_t>(nanoseconds / 1000) & timeMask;
    // Two ids of one process never share the time part: within one microsecond
    // the part counts on, so that ids made in a tight loop stay unique.
    static uint64_t lastTime = 0;
    if (time <= lastTime && lastTime - time < (uint64_t(1) << 40)) time = (lastTime + 1) & timeMask;
    lastTime = time;
    id.second = time | (static_cast<uint64_t>(random()) << 50);
    return id;
}

UniqueId::operator std::string() const {
    if (first == 0 || second == 0) return {};
    unsigned char bytes[16];
    std::memcpy(bytes, &first, 8);
    std::memcpy(bytes + 8, &second, 8);
    std::string text(reinterpret_cast<char const*>(bytes), 4);
    text += nerox::Base16::Encode(bytes + 4, 12);
    return text;
}

std::string UniqueId::Tag() const {
    char tag[4];
    std::memcpy(tag, &first, 4);
    return std::string(tag, 4);
}

uint32_t UniqueId::Owner() const {
    uint32_t owner;
    std::memcpy(&owner, reinterpret_cast<unsigned char const*>(&first) + 4, 4);
    return owner;
}

} // namespace game
