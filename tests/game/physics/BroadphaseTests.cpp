// The broadphase returns exactly what the full double loop returns, in its order, whatever the spheres.
#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "game/physics/Broadphase.hpp"

namespace {

using game::physics::Broadphase;
using Bodies = std::vector<Broadphase::Body>;
using Pairs = std::vector<Broadphase::Pair>;

/// The strict sphere test over every pair; with others empty, over the pairs i < j of bodies.
Pairs FullLoop(Bodies const& bodies, Bodies const* others = nullptr) {
    Pairs pairs;
    Bodies const& second = others ? *others : bodies;
    for (uint32_t i = 0; i < bodies.size(); ++i)
        for (uint32_t k = others ? 0 : i + 1; k < second.size(); ++k)
            if (bodies[i].radius + second[k].radius > glm::distance(bodies[i].center, second[k].center))
                pairs.emplace_back(i, k);
    return pairs;
}

TEST(Broadphase, PairsAndOverlapsEqualTheFullLoopInOrder) {
    std::mt19937_64 random(7);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    // Mostly unit spheres in a box, some tiny, some huge (a ground), some far off.
    auto const scene = [&](size_t count, double extent) {
        Bodies bodies(count);
        for (Broadphase::Body& body : bodies) {
            body.center = extent * (2.0 * glm::dvec3(unit(random), unit(random), unit(random)) - 1.0);
            double const kind = unit(random);
            body.radius = kind < 0.05 ? 50.0 * unit(random) : (kind < 0.1 ? 1e-4 : 0.3 + unit(random));
            body.center *= kind > 0.99 ? 1e6 : 1.0;
        }
        return bodies;
    };
    Broadphase broadphase;
    Pairs found;
    for (size_t count : {0u, 1u, 2u, 17u, 300u, 2000u}) {
        for (double extent : {1.0, 20.0, 500.0}) {
            Bodies const bodies = scene(count, extent);
            broadphase.FindPairs(bodies, found);
            EXPECT_EQ(found, FullLoop(bodies)) << count << " bodies in " << extent;
            if (count > 500u) continue;
            Bodies others = scene(count * 3, extent);
            others.push_back({glm::dvec3(0.0), 1e5}); // a planet-sized ground
            broadphase.FindOverlaps(bodies, others, found);
            EXPECT_EQ(found, FullLoop(bodies, &others)) << count << " bodies against " << others.size();
        }
    }
    // Exactly touching: not overlapping. Slightly closer: overlapping, even across a cell border.
    broadphase.FindPairs(
        {{glm::dvec3(0.0), 1.0}, {glm::dvec3(2.0, 0.0, 0.0), 1.0}, {glm::dvec3(3.999999, 0.0, 0.0), 1.0}}, found);
    EXPECT_EQ(found, (Pairs{{1, 2}}));
    // Non-finite bodies match nothing and break nothing.
    double const nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();
    Bodies const odd{{glm::dvec3(0.0), 1.0},
                     {glm::dvec3(nan, 0.0, 0.0), 1.0},
                     {glm::dvec3(0.5), inf},
                     {glm::dvec3(0.1), 1.0},
                     {glm::dvec3(1e300), 1.0}};
    broadphase.FindPairs(odd, found);
    EXPECT_EQ(found, FullLoop(odd));
    broadphase.FindOverlaps(odd, odd, found);
    EXPECT_EQ(found, FullLoop(odd, &odd));
}

} // namespace
