#pragma once

/// Everything of ombrix::mesh.
#include <ombrix/mesh/tri_mesh.h>
