#pragma once

/// This library's measure of each row, named "ombrix"; on a limited number of threads named "1_thread" and
/// so on. What is timed, a row's peers do too; see `rows`.
namespace ombrix::benchmarks::ours {

void fullOctree(int threads = 0);
void nestedOctree();
void dynamicOctree(int threads = 0);
void kdTreeBuild();

void knnQueries();
void knnPass(int threads = 0);
/// In the order given, and as "ombrix_sorted" along a Morton curve, the sorting included.
void radiusLists();
void surfaceDensity(int threads = 0);
void meanNearestDistance(int threads = 0);
void normals(int threads = 0);

void gridMean(int threads = 0);
void gridPick(int threads = 0);
void readPly();

void readObj();
void writeObj();
void meshVoxels();
void smallMeshVoxels();

void hash();
void mortonCodes();

}  // namespace ombrix::benchmarks::ours
