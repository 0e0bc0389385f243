#pragma once

/// Everything of ombrix::mesh.
#include <ombrix/mesh/sparse_grid.h>
#include <ombrix/mesh/sphere_tree.h>
#include <ombrix/mesh/tri_mesh.h>
