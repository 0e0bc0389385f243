#pragma once

/// Everything of ombrix::core.
#include <ombrix/core/analysis/curvature_density.h>
#include <ombrix/core/analysis/kd_tree.h>
#include <ombrix/core/analysis/mls.h>
#include <ombrix/core/analysis/noise.h>
#include <ombrix/core/analysis/normal_estimator.h>
#include <ombrix/core/analysis/normal_orientation.h>
#include <ombrix/core/analysis/pca.h>
#include <ombrix/core/analysis/resolution.h>
#include <ombrix/core/analysis/statistical_outliers.h>
#include <ombrix/core/color/color.h>
#include <ombrix/core/color/color_map.h>
#include <ombrix/core/octree/aabb.h>
#include <ombrix/core/octree/full_octree_factory.h>
#include <ombrix/core/octree/knn_search.h>
#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/octree.h>
#include <ombrix/core/octree/octree_converter.h>
#include <ombrix/core/octree/octree_factory.h>
#include <ombrix/core/points/fields.h>
#include <ombrix/core/points/point.h>
#include <ombrix/core/points/point_cloud.h>
#include <ombrix/core/services/memory_mapped.h>
#include <ombrix/core/types.h>
#include <ombrix/core/view/view_frustum.h>
#include <ombrix/core/view/visibility.h>
