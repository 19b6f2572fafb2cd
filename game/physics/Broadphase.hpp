#pragma once
#include <cstdint>
#include <utility>
#include <vector>

#include <glm/glm.hpp>

namespace game::physics {

/// Finds the pairs of spheres that overlap, without testing every pair: the
/// spheres are filed by the grid cell of their centre in a hash table, and a
/// sphere is compared only with those filed in the cells within its reach
/// (FindPairs compares the spheres of neighbouring cells, each pair of cells
/// once). Spheres much larger than the typical one are compared with
/// everything. The result is exactly that of the full double loop, in the
/// same order, so replacing the loop changes nothing downstream.
/// Keeps its working memory between calls; not thread-safe.
class Broadphase {
public:
    /// A sphere: centre and radius.
    struct Body {
        glm::dvec3 center{0.0};
        double radius = 0.0;
    };
    /// Indices of two overlapping bodies.
    using Pair = std::pair<uint32_t, uint32_t>;

    /// Every (i, j) with i < j and radius_i + radius_j > distance(center_i,
    /// center_j), sorted by i, then j. Replaces the contents of out.
    void FindPairs(std::vector<Body> const& bodies, std::vector<Pair>& out);
    /// Every (i, k) of bodies[i] and others[k] with radius_i + radius_k >
    /// distance, sorted by i, then k. Replaces the contents of out.
    void FindOverlaps(std::vector<Body> const& bodies, std::vector<Body> const& others, std::vector<Pair>& out);

    /// Files others for FindFiledOverlaps; they stay filed until the next
    /// call of any of these functions, so that bodies which do not move are
    /// filed once for many queries.
    void File(std::vector<Body> const& others);
    /// FindOverlaps against the bodies filed last; others must be the list
    /// given to File, unchanged since.
    void FindFiledOverlaps(std::vector<Body> const& bodies, std::vector<Body> const& others, std::vector<Pair>& out);

private:
    /// Coordinates of a grid cell.
    struct Cell {
        int64_t x = 0, y = 0, z = 0;
        bool operator==(Cell const&) const = default;
    };
    /// Range of cells a query visits.
    struct CellRange {
        glm::i64vec3 low{0};
        glm::i64vec3 high{0};
        bool everything = true; ///< Too many cells (or not finite): compare with every body.
    };

    /// Files the small bodies of grid by the cell of their centre; the others,
    /// and those whose cell lies beyond 2^40, go to _large.
    void Build(std::vector<Body> const& grid);
    /// The cells within reach of a query sphere.
    CellRange RangeOf(Body const& query) const;
    /// Bodies of the grid with an index of at least minimum that may meet
    /// query and that accept takes, into _hits: sorted and unique.
    template <class Accept> void Collect(Body const& query, uint32_t minimum, uint32_t count, Accept&& accept);

    double _cellSize = 1.0;
    double _largestSmallRadius = 0.0;   ///< Largest radius small enough to be filed (at least every filed one's).
    uint64_t _bucketMask = 0;           ///< Buckets - 1; the bucket count is a power of two.
    std::vector<uint32_t> _bucketStart; ///< Where each bucket's bodies begin in _filed (one more entry at the end).
    std::vector<uint32_t> _filed;       ///< Body indices grouped by bucket, ascending within each.
    std::vector<uint32_t> _bucketOf;    ///< Bucket of each body; NotFiled for large ones.
    std::vector<Cell> _cellOf;          ///< Cell of each body; meaningful where _bucketOf is not NotFiled.
    std::vector<Cell> _filedCells;      ///< Cell of each entry of _filed.
    std::vector<uint32_t> _cursor;      ///< Next free place of each bucket (or first body) while filling.
    std::vector<uint32_t> _large;       ///< Bodies compared with every query.
    std::vector<uint32_t> _hits;
    std::vector<Pair> _found;          ///< FindPairs' pairs before sorting.
    std::vector<uint32_t> _firstStart; ///< Where each first body's pairs begin in the sorted list.
    std::vector<double> _radii;
};

} // namespace game::physics
