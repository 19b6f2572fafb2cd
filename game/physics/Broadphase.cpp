#include "game/physics/Broadphase.hpp"

#include <algorithm>
#include <bit>
#include <cmath>

#include "nerox/Assert.hpp"

namespace game::physics {

namespace {

/// Cells a query may visit before it is compared with everything instead.
constexpr int64_t MaxCellsPerQuery = 64;
/// A sphere this many times the median radius is too large to be filed.
constexpr double LargeRadiusFactor = 4.0;
/// Cell coordinates are kept within this bound, far beyond any world.
constexpr double MaxCellCoordinate = 1099511627776.0; // 2^40

uint64_t CellHash(int64_t x, int64_t y, int64_t z) {
    uint64_t key = static_cast<uint64_t>(x) * 0x9E3779B97F4A7C15ull;
    key ^= static_cast<uint64_t>(y) * 0xC2B2AE3D27D4EB4Full + (key << 6) + (key >> 2);
    key ^= static_cast<uint64_t>(z) * 0x165667B19E3779F9ull + (key << 6) + (key >> 2);
    return key ^ (key >> 29);
}

bool Overlap(Broadphase::Body const& a, Broadphase::Body const& b) {
    return a.radius + b.radius > glm::distance(a.center, b.center);
}

bool Finite(Broadphase::Body const& body) {
    return std::isfinite(body.center.x) && std::isfinite(body.center.y) && std::isfinite(body.center.z) &&
        std::isfinite(body.radius) && body.radius >= 0.0;
}

} // namespace

void Broadphase::Build(std::vector<Body> const& grid) {
    // Bodies up to a few times the median radius are filed; the cell is twice
    // the largest of them, so that a query looks at a few cells per axis.
    _radii.clear();
    for (Body const& body : grid) {
        if (Finite(body)) _radii.push_back(body.radius);
    }
    double limit = 0.0;
    if (!_radii.empty()) {
        auto const middle = _radii.begin() + static_cast<std::ptrdiff_t>(_radii.size() / 2);
        std::nth_element(_radii.begin(), middle, _radii.end());
        limit = std::max(*middle * LargeRadiusFactor, 1e-9);
    }

    _large.clear();
    _largestSmallRadius = 0.0;
    for (uint32_t index = 0; index < grid.size(); ++index) {
        Body const& body = grid[index];
        if (!Finite(body) || body.radius > limit || !(std::abs(body.center.x) < MaxCellCoordinate) ||
            !(std::abs(body.center.y) < MaxCellCoordinate) || !(std::abs(body.center.z) < MaxCellCoordinate))
            _large.push_back(index);
        else
            _largestSmallRadius = std::max(_largestSmallRadius, body.radius);
    }
    _cellSize = std::max(2.0 * _largestSmallRadius, 1e-3);

    size_t const filedCount = grid.size() - _large.size();
    size_t const buckets = std::bit_ceil(std::max<size_t>(16, 2 * filedCount));
    _bucketMask = buckets - 1;
    _bucketStart.assign(buckets + 1, 0);
    _bucketOf.resize(grid.size());
    size_t largeAt = 0;
    for (uint32_t index = 0; index < grid.size(); ++index) {
        if (largeAt < _large.size() && _large[largeAt] == index) {
            ++largeAt;
            continue;
        }
        glm::dvec3 const cell = glm::floor(grid[index].center / _cellSize);
        uint32_t const bucket = static_cast<uint32_t>(
            CellHash(static_cast<int64_t>(cell.x), static_cast<int64_t>(cell.y), static_cast<int64_t>(cell.z)) &
            _bucketMask);
        _bucketOf[index] = bucket;
        ++_bucketStart[bucket + 1];
    }
    for (size_t bucket = 0; bucket < buckets; ++bucket) _bucketStart[bucket + 1] += _bucketStart[bucket];
    // Filled in index order, so each bucket lists its bodies in ascending order.
    _filed.resize(filedCount);
    _cursor.assign(_bucketStart.begin(), _bucketStart.end() - 1);
    largeAt = 0;
    for (uint32_t index = 0; index < grid.size(); ++index) {
        if (largeAt < _large.size() && _large[largeAt] == index) {
            ++largeAt;
            continue;
        }
        _filed[_cursor[_bucketOf[index]]++] = index;
    }
}

Broadphase::CellRange Broadphase::RangeOf(Body const& query) const {
    CellRange range;
    if (!Finite(query)) return range;
    // A filed body meets the query only with its centre within this reach; the
    // small margin keeps rounding at cell borders on the safe side.
    double const reach = (query.radius + _largestSmallRadius) * (1.0 + 1e-9) + _cellSize * 1e-9;
    int64_t cells = 1;
    for (int axis = 0; axis < 3; ++axis) {
        double const low = (query.center[axis] - reach) / _cellSize;
        double const high = (query.center[axis] + reach) / _cellSize;
        if (!(std::abs(low) < MaxCellCoordinate) || !(std::abs(high) < MaxCellCoordinate)) return range;
        range.low[axis] = static_cast<int64_t>(std::floor(low));
        range.high[axis] = static_cast<int64_t>(std::floor(high));
        cells *= range.high[axis] - range.low[axis] + 1;
        if (cells > MaxCellsPerQuery) return range;
    }
    range.everything = false;
    return range;
}

template <class Accept> void Broadphase::Collect(Body const& query, uint32_t minimum, uint32_t count, Accept&& accept) {
    _hits.clear();
    CellRange const range = RangeOf(query);
    if (range.everything) {
        for (uint32_t index = minimum; index < count; ++index) {
            if (accept(index)) _hits.push_back(index);
        }
        return; // already in order, each once
    }
    for (int64_t x = range.low.x; x <= range.high.x; ++x) {
        for (int64_t y = range.low.y; y <= range.high.y; ++y) {
            for (int64_t z = range.low.z; z <= range.high.z; ++z) {
                uint64_t const bucket = CellHash(x, y, z) & _bucketMask;
                auto const first = _filed.begin() + _bucketStart[bucket];
                auto const last = _filed.begin() + _bucketStart[bucket + 1];
                for (auto it = std::lower_bound(first, last, minimum); it != last; ++it) {
                    if (accept(*it)) _hits.push_back(*it);
                }
            }
        }
    }
    for (uint32_t index : _large) {
        if (index >= minimum && accept(index)) _hits.push_back(index);
    }
    // Hits come cell by cell; cells that share a bucket give a body twice.
    std::sort(_hits.begin(), _hits.end());
    _hits.erase(std::unique(_hits.begin(), _hits.end()), _hits.end());
}

void Broadphase::FindPairs(std::vector<Body> const& bodies, std::vector<Pair>& out) {
    out.clear();
    uint32_t const count = static_cast<uint32_t>(bodies.size());
    if (count < 2) return;
    Build(bodies);
    for (uint32_t i = 0; i + 1 < count; ++i) {
        Body const& a = bodies[i];
        Collect(a, i + 1, count, [&](uint32_t j) { return Overlap(a, bodies[j]); });
        for (uint32_t j : _hits) out.emplace_back(i, j);
    }
}

void Broadphase::FindOverlaps(std::vector<Body> const& bodies, std::vector<Body> const& others,
                              std::vector<Pair>& out) {
    out.clear();
    if (bodies.empty() || others.empty()) return;
    Build(others);
    FindFiledOverlaps(bodies, others, out);
}

void Broadphase::File(std::vector<Body> const& others) {
    Build(others);
}

void Broadphase::FindFiledOverlaps(std::vector<Body> const& bodies, std::vector<Body> const& others,
                                   std::vector<Pair>& out) {
    out.clear();
    if (bodies.empty() || others.empty()) return;
    NEROX_ASSERT(_bucketOf.size() == others.size());
    uint32_t const count = static_cast<uint32_t>(others.size());
    for (uint32_t i = 0; i < bodies.size(); ++i) {
        Body const& a = bodies[i];
        Collect(a, 0, count, [&](uint32_t k) { return Overlap(a, others[k]); });
        for (uint32_t k : _hits) out.emplace_back(i, k);
    }
}

} // namespace game::physics
