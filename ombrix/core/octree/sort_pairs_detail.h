#pragma once

#include <ombrix/core/octree/octree_converter.h>

namespace ombrix::core::detail {

/// Sorts (index, code) pairs by code, equal codes by index: on several threads from 500 pairs, on the
/// caller's below. The result does not depend on the number of threads.
void sortByCode(OctreeConverter::PairVector& pairs);

}  // namespace ombrix::core::detail
