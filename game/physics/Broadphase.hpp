#pragma once
#include <cstdint>
#include <utility>
#include <vector>

#include <glm/glm.hpp>

namespace game::physics {

/// Finds the pairs of spheres that overlap, without testing every pair: the
/// spheres go into a uniform grid hashed by cell, and only spheres that share
/// a cell are compared. The result is exactly that of the full double loop,
/// in the same order, so replacing the loop changes nothing downstream.
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

private:
    /// A cell of the grid holding one body.
    struct Entry {
        uint64_t cell;
        uint32_t body;
        bool operator<(Entry const& other) const
        {
            return cell != other.cell ? cell < other.cell : body < other.body;
        }
    };
    /// Range of cell coordinates a sphere touches.
    struct CellRange {
        glm::i64vec3 low{0};
        glm::i64vec3 high{0};
        bool tooLarge = true; ///< Spans too many cells (or is not finite): compared with everything.
    };

    void ChooseCellSize(std::vector<Body> const& a, std::vector<Body> const* b);
    CellRange RangeOf(Body const& body) const;
    /// Puts bodies into the grid; those too large for it go to _large.
    void Insert(std::vector<Body> const& bodies);
    /// Candidates for a query sphere into _candidates: sorted, unique, all above minimum.
    void Gather(CellRange const& range, uint32_t minimum, uint32_t count);

    double _cellSize = 1.0;
    std::vector<Entry> _entries;
    std::vector<uint32_t> _large;
    std::vector<uint32_t> _candidates;
    std::vector<double> _radii;
};

} // namespace game::physics
