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
/// The cell is this much wider than the largest filed diameter. Below 2^40 a
/// cell coordinate is off by at most 2^-13 after rounding (2^40 * 2^-53), so
/// by less than 2^-12 between two bodies, against a margin of about 1e-3
/// cells: two filed bodies that meet are always in the same or neighbouring
/// cells.
constexpr double CellMargin = 1.001;
/// Marks a body that is not filed in _bucketOf.
constexpr uint32_t NotFiled = UINT32_MAX;

/// The neighbours of a cell that come after it, by x, then y, then z: a
/// pair of neighbouring cells is visited once, from the earlier of the two.
constexpr int LaterNeighbours[13][3] = {{0, 0, 1},  {0, 1, -1}, {0, 1, 0},  {0, 1, 1}, {1, -1, -1},
                                        {1, -1, 0}, {1, -1, 1}, {1, 0, -1}, {1, 0, 0}, {1, 0, 1},
                                        {1, 1, -1}, {1, 1, 0},  {1, 1, 1}};

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
    // Bodies up to a few times the median radius are filed; the cell is a
    // little over twice the largest of them (CellMargin), so that a query
    // looks at a few cells per axis. Bodies whose cell lies beyond 2^40 are
    // not filed either.
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

    _largestSmallRadius = 0.0;
    for (Body const& body : grid) {
        if (Finite(body) && body.radius <= limit) _largestSmallRadius = std::max(_largestSmallRadius, body.radius);
    }
    _cellSize = std::max(2.0 * _largestSmallRadius * CellMargin, 1e-3);

    size_t const buckets = std::bit_ceil(std::max<size_t>(16, 2 * grid.size()));
    _bucketMask = buckets - 1;
    _bucketStart.assign(buckets + 1, 0);
    _bucketOf.resize(grid.size());
    _cellOf.resize(grid.size());
    _large.clear();
    for (uint32_t index = 0; index < grid.size(); ++index) {
        Body const& body = grid[index];
        glm::dvec3 const cell = glm::floor(body.center / _cellSize);
        if (!Finite(body) || body.radius > limit || !(std::abs(cell.x) < MaxCellCoordinate) ||
            !(std::abs(cell.y) < MaxCellCoordinate) || !(std::abs(cell.z) < MaxCellCoordinate)) {
            _large.push_back(index);
            _bucketOf[index] = NotFiled;
            continue;
        }
        Cell const at{static_cast<int64_t>(cell.x), static_cast<int64_t>(cell.y), static_cast<int64_t>(cell.z)};
        uint32_t const bucket = static_cast<uint32_t>(CellHash(at.x, at.y, at.z) & _bucketMask);
        _cellOf[index] = at;
        _bucketOf[index] = bucket;
        ++_bucketStart[bucket + 1];
    }
    for (size_t bucket = 0; bucket < buckets; ++bucket) _bucketStart[bucket + 1] += _bucketStart[bucket];
    // Filled in index order, so each bucket lists its bodies in ascending order.
    _filed.resize(grid.size() - _large.size());
    _filedCells.resize(_filed.size());
    _cursor.assign(_bucketStart.begin(), _bucketStart.end() - 1);
    for (uint32_t index = 0; index < grid.size(); ++index) {
        if (_bucketOf[index] == NotFiled) continue;
        uint32_t const slot = _cursor[_bucketOf[index]]++;
        _filed[slot] = index;
        _filedCells[slot] = _cellOf[index];
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
    NEROX_ASSERT(bodies.size() < NotFiled);
    uint32_t const count = static_cast<uint32_t>(bodies.size());
    if (count < 2) return;
    Build(bodies);

    // Every pair once, in no order: a filed body meets the later ones of its
    // own cell and those of the neighbouring cells after it (two filed radii
    // together are less than the cell, so filed bodies that meet are in the
    // same or neighbouring cells); a large one meets every body but the
    // earlier large ones, which met it already.
    _found.clear();
    for (uint32_t i = 0; i < count; ++i) {
        if (_bucketOf[i] == NotFiled) continue;
        Body const& a = bodies[i];
        Cell const home = _cellOf[i];
        auto const visit = [&](Cell const& cell, uint32_t minimum) {
            uint64_t const bucket = CellHash(cell.x, cell.y, cell.z) & _bucketMask;
            for (uint32_t slot = _bucketStart[bucket]; slot < _bucketStart[bucket + 1]; ++slot) {
                uint32_t const j = _filed[slot];
                if (j < minimum || !(_filedCells[slot] == cell) || !Overlap(a, bodies[j])) continue;
                _found.push_back(i < j ? Pair(i, j) : Pair(j, i));
            }
        };
        visit(home, i + 1);
        for (auto const& step : LaterNeighbours) visit({home.x + step[0], home.y + step[1], home.z + step[2]}, 0);
    }
    for (uint32_t i : _large) {
        Body const& a = bodies[i];
        for (uint32_t j = 0; j < count; ++j) {
            if (j == i || (j < i && _bucketOf[j] == NotFiled) || !Overlap(a, bodies[j])) continue;
            _found.push_back(i < j ? Pair(i, j) : Pair(j, i));
        }
    }

    // Sorted by the first body (counting), then by the second within each.
    NEROX_ASSERT(_found.size() < UINT32_MAX);
    _firstStart.assign(count + 1, 0);
    for (Pair const& pair : _found) ++_firstStart[pair.first + 1];
    for (uint32_t i = 0; i < count; ++i) _firstStart[i + 1] += _firstStart[i];
    out.resize(_found.size());
    _cursor.assign(_firstStart.begin(), _firstStart.end() - 1);
    for (Pair const& pair : _found) out[_cursor[pair.first]++] = pair;
    for (uint32_t i = 0; i < count; ++i) {
        if (_firstStart[i + 1] - _firstStart[i] > 1)
            std::sort(out.begin() + _firstStart[i], out.begin() + _firstStart[i + 1]);
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
