// The library's own measure of every row of the performance page, for its growth with the number of points,
// and those that use several threads on one thread as well.
#include "benchmarks/ours/ours.h"
#include "benchmarks/support/measure.h"

namespace {

namespace ours = ombrix::benchmarks::ours;

void trees() {
    for (const int threads : {0, 1}) {
        ours::fullOctree(threads);
        ours::dynamicOctree(threads);
    }
    ours::nestedOctree();
    ours::kdTreeBuild();
}

void neighbourhoods() {
    for (const int threads : {0, 1}) {
        ours::knnPass(threads);
        ours::surfaceDensity(threads);
        ours::meanNearestDistance(threads);
        ours::normals(threads);
    }
}

void clouds() {
    for (const int threads : {0, 1}) {
        ours::gridMean(threads);
        ours::gridPick(threads);
    }
    ours::readPly();
}

void meshes() {
    ours::readObj();
    ours::writeObj();
    ours::meshVoxels();
    ours::smallMeshVoxels();
}

}  // namespace

int main(int argc, char** argv) {
    return ombrix::benchmarks::runMeasures(argc, argv, {trees, neighbourhoods, clouds, meshes});
}
