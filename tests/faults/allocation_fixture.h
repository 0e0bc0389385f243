#pragma once

#include <gtest/gtest.h>
#include <tbb/global_control.h>

#include <ombrix/core.h>

#include "tests/faults/failing_new.h"
#include "tests/support/clouds.h"

namespace ombrix::test {

/// One worker, so that the n-th allocation is always the same.
class Allocation : public ::testing::Test {
private:
    tbb::global_control limit_{tbb::global_control::max_allowed_parallelism, 1};
};

inline const auto NOTHING = [](auto&) {};

inline core::PointCloud smallCloud(std::size_t n = 60, unsigned int seed = 1) {
    core::PointCloud cloud = withAttributes(uniformPoints(n, 1.0f, seed));
    cloud.fields().addField<float>(core::FIELD_DISTANCE).first->data() = cloud.scalars();
    return cloud;
}

/// Every attribute is there for each of n points.
inline void expectEven(const core::PointCloud& cloud, std::size_t n) {
    EXPECT_EQ(cloud.size(), n);
    EXPECT_EQ(cloud.colors().size(), n);
    EXPECT_EQ(cloud.scalars().size(), n);
    for (const auto& [name, field] : cloud.fields()) {
        EXPECT_EQ(field->size(), n) << name;
    }
}

}  // namespace ombrix::test
