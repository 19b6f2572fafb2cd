#pragma once
// Component-wise checks of glm vectors, matrices and quaternions, with the
// failing component named in the message.
#include <gtest/gtest.h>

#include <cmath>

#include <glm/glm.hpp>
#include <glm/gtc/quaternion.hpp>

namespace testsupport {

template <int N, typename T, glm::qualifier Q>
void ExpectVecNear(glm::vec<N, T, Q> const& actual, glm::vec<N, T, Q> const& expected, double tolerance = 1e-9) {
    for (int i = 0; i < N; ++i) EXPECT_NEAR(actual[i], expected[i], tolerance) << "component " << i;
}

template <int C, int R, typename T, glm::qualifier Q>
void ExpectMatNear(glm::mat<C, R, T, Q> const& actual, glm::mat<C, R, T, Q> const& expected, double tolerance = 1e-9) {
    for (int column = 0; column < C; ++column)
        for (int row = 0; row < R; ++row)
            EXPECT_NEAR(actual[column][row], expected[column][row], tolerance)
                << "element [" << column << "][" << row << "]";
}

/// Equal as rotations: q and -q turn alike.
template <typename T, glm::qualifier Q>
void ExpectRotationNear(glm::qua<T, Q> const& actual, glm::qua<T, Q> const& expected, double tolerance = 1e-9) {
    EXPECT_NEAR(std::abs(glm::dot(actual, expected)), 1.0, tolerance)
        << "got (" << actual.w << ", " << actual.x << ", " << actual.y << ", " << actual.z << ")";
}

} // namespace testsupport
