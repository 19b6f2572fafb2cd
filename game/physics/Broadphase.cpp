#include "game/physics/Broadphase.hpp"

#include <algorithm>
#include <cmath>

namespace game::physics {

namespace {

/// Cells a sphere may span before it is compared with everything instead.
constexpr int64_t MaxCellsPerBody = 64;
/// Cell coordinates are kept within this bound, far beyond any world.
constexpr double MaxCellCoordinate = 1099511627776.0; // 2^40

uint64_t CellKey(int64_t x, int64_t y, int64_t z)
{
    uint64_t key = static_cast<uint64_t>(x) * 0x9E3779B97F4A7C15ull;
    key ^= static_cast<uint64_t>(y) * 0xC2B2AE3D27D4EB4Full + (key << 6) + (key >> 2);
    key ^= static_cast<uint64_t>(z) * 0x165667B19E3779F9ull + (key << 6) + (key >> 2);
    return key;
}

bool Overlap(Broadphase::Body const& a, Broadphase::Body const& b)
{
    return a.radius + b.radius > glm::distance(a.center, b.center);
}

} // namespace

void Broadphase::ChooseCellSize(std::vector<Body> const& a, std::vector<Body> const* b)
{
    // Twice the median radius: a typical body touches a few cells.
    _radii.clear();
    for (Body const& body : a) {
        if (std::isfinite(body.radius) && body.radius > 0.0)
            _radii.push_back(body.radius);
    }
    if (b != nullptr) {
        for (Body const& body : *b) {
            if (std::isfinite(body.radius) && body.radius > 0.0)
                _radii.push_back(body.radius);
        }
    }
    _cellSize = 1.0;
    if (!_radii.empty()) {
        auto const middle = _radii.begin() + static_cast<std::ptrdiff_t>(_radii.size() / 2);
        std::nth_element(_radii.begin(), middle, _radii.end());
        _cellSize = std::max(2.0 * *middle, 1e-6);
    }
}

Broadphase::CellRange Broadphase::RangeOf(Body const& body) const
{
    CellRange range;
    // A small margin keeps spheres that meet at a cell border in a common cell
    // despite rounding.
    double const reach = body.radius * (1.0 + 1e-9) + _cellSize * 1e-9;
    if (!std::isfinite(reach) || reach < 0.0)
        return range;
    int64_t cells = 1;
    for (int axis = 0; axis < 3; ++axis) {
        double const low = (body.center[axis] - reach) / _cellSize;
        double const high = (body.center[axis] + reach) / _cellSize;
        if (!(std::abs(low) < MaxCellCoordinate) || !(std::abs(high) < MaxCellCoordinate))
            return range;
        range.low[axis] = static_cast<int64_t>(std::floor(low));
        range.high[axis] = static_cast<int64_t>(std::floor(high));
        cells *= range.high[axis] - range.low[axis] + 1;
        if (cells > MaxCellsPerBody)
            return range;
    }
    range.tooLarge = false;
    return range;
}

void Broadphase::Insert(std::vector<Body> const& bodies)
{
    _entries.clear();
    _large.clear();
    for (uint32_t index = 0; index < bodies.size(); ++index) {
        CellRange const range = RangeOf(bodies[index]);
        if (range.tooLarge) {
            _large.push_back(index);
            continue;
        }
        for (int64_t x = range.low.x; x <= range.high.x; ++x)
            for (int64_t y = range.low.y; y <= range.high.y; ++y)
                for (int64_t z = range.low.z; z <= range.high.z; ++z)
                    _entries.push_back({CellKey(x, y, z), index});
    }
    std::sort(_entries.begin(), _entries.end());
}

void Broadphase::Gather(CellRange const& range, uint32_t minimum, uint32_t count)
{
    _candidates.clear();
    if (range.tooLarge) {
        for (uint32_t index = minimum; index < count; ++index)
            _candidates.push_back(index);
        return;
    }
    for (int64_t x = range.low.x; x <= range.high.x; ++x) {
        for (int64_t y = range.low.y; y <= range.high.y; ++y) {
            for (int64_t z = range.low.z; z <= range.high.z; ++z) {
                uint64_t const key = CellKey(x, y, z);
                auto it = std::lower_bound(_entries.begin(), _entries.end(), Entry{key, minimum});
                for (; it != _entries.end() && it->cell == key; ++it)
                    _candidates.push_back(it->body);
            }
        }
    }
    for (uint32_t index : _large) {
        if (index >= minimum)
            _candidates.push_back(index);
    }
    std::sort(_candidates.begin(), _candidates.end());
    _candidates.erase(std::unique(_candidates.begin(), _candidates.end()), _candidates.end());
}

void Broadphase::FindPairs(std::vector<Body> const& bodies, std::vector<Pair>& out)
{
    out.clear();
    uint32_t const count = static_cast<uint32_t>(bodies.size());
    if (count < 2)
        return;
    ChooseCellSize(bodies, nullptr);
    Insert(bodies);
    for (uint32_t i = 0; i + 1 < count; ++i) {
        Gather(RangeOf(bodies[i]), i + 1, count);
        for (uint32_t j : _candidates) {
            if (Overlap(bodies[i], bodies[j]))
                out.emplace_back(i, j);
        }
    }
}

void Broadphase::FindOverlaps(std::vector<Body> const& bodies, std::vector<Body> const& others, std::vector<Pair>& out)
{
    out.clear();
    if (bodies.empty() || others.empty())
        return;
    ChooseCellSize(bodies, &others);
    Insert(others);
    uint32_t const count = static_cast<uint32_t>(others.size());
    for (uint32_t i = 0; i < bodies.size(); ++i) {
        Gather(RangeOf(bodies[i]), 0, count);
        for (uint32_t k : _candidates) {
            if (Overlap(bodies[i], others[k]))
                out.emplace_back(i, k);
        }
    }
}

} // namespace game::physics
