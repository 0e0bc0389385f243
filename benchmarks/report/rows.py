"""The rows of the page: their titles, what is asked of them, and how libraries are named."""

from dataclasses import dataclass, field


@dataclass
class Row:
    name: str  # as the benchmark programs have it
    title: str
    # What the time should be at most: as a multiple of another library's, or in seconds.
    at_most: dict = field(default_factory=dict)
    seconds: float | None = None
    rate: float | None = None  # points a second, at least
    note: str = ""


ROWS = [
    Row("full_octree", "full octree, at most 128 points a leaf",
        {"cgal": 1.0, "pcl": 1 / 3, "parallel_sort": 1.6},
        note="the points are copied into the leaves' clouds, which CGAL and PCL do not do"),
    Row("nested_octree", "nested octree, one thread", {"std_sort": 4.0}, rate=2e6),
    Row("dynamic_octree", "growing octree from ten clouds, 65,536 points a leaf"),
    Row("kdtree_build", "k-d tree", note="FLANN, PCL and Open3D share one implementation"),
    Row("knn16_queries", "16 nearest neighbours, 200 thousand single queries", {"nanoflann": 1.03},
        note="tree not included, one thread"),
    Row("knn16_pass", "16 nearest neighbours of every point", {"nanoflann": 0.5, "flann": 1.0, "pcl": 1.0},
        note="tree and mean of the distances included"),
    Row("radius_lists", "neighbours of every point within a radius, about ten, as sorted lists",
        note="tree included; “sorted” sorts the points along a Morton curve first"),
    Row("surface_density", "surface density", {"nanoflann": 0.6}, note="tree included"),
    Row("mean_nearest_distance", "mean nearest distance", {"nanoflann": 0.6}, note="tree included"),
    Row("normals16", "normals, k = 16", {"pcl": 0.5, "open3d": 1.0, "nanoflann": 1.0}, note="tree included"),
    Row("grid_merge_mean", "grid merge, mean of each cell", {"pcl": 1.0, "open3d": 1.0},
        note="about ten points a cell; Open3D's cells are shifted by half"),
    Row("grid_merge_pick", "grid merge, one point of each cell", {"cgal": 1.0},
        note="ours the nearest to the cell's centre, CGAL's the first"),
    Row("ply_read", "binary PLY file read", {"pcl": 1.0, "open3d": 1.0}, note="from the page cache"),
    Row("obj_read", "OBJ file of a million triangles and their normals read", {"open3d": 0.1, "tinyobjloader": 1.0}, seconds=0.2,
        note="from the page cache, on the caller's thread; 85 MB of digits, of which one core converts about 0.7 GB a second"),
    Row("obj_write", "OBJ file of a million triangles written", {"open3d": 1.0}),
    Row("mesh_voxels", "mesh of a million triangles to voxels, 256 along the longest side",
        note="Open3D tries every triangle on every voxel: hours"),
    Row("small_mesh_voxels", "mesh of ten thousand triangles to voxels, 26 along the longest side",
        {"open3d": 1.0}, note="ours also stores the triangles of each voxel"),
    Row("hash64", "64-bit hash of the positions", note="beside copying the same bytes"),
    Row("morton_codes", "Morton codes, one thread", note="beside a loop that reads and writes the same bytes"),
]

LIMITS = {"parallel_sort", "std_sort", "fread", "fwrite", "memcpy", "sums"}

LABELS = {
    "ombrix": "ombrixcore", "ombrix_sorted": "ombrixcore, sorted", "1_thread": "ombrixcore, one thread",
    "cgal": "CGAL", "pcl": "PCL", "open3d": "Open3D", "flann": "FLANN", "nanoflann": "nanoflann",
    "tinyobjloader": "tinyobjloader", "parallel_sort": "tbb::parallel_sort of the codes",
    "std_sort": "std::sort of the codes", "fread": "fread", "fwrite": "fwrite", "memcpy": "memcpy",
    "sums": "the bare loop",
}

COLORS = {
    "ombrix": "#d62728", "ombrix_sorted": "#ff9896", "cgal": "#2ca02c", "pcl": "#1f77b4", "open3d": "#9467bd",
    "flann": "#e0a000", "nanoflann": "#17a2a2", "tinyobjloader": "#8c564b", "1_thread": "#ff9896",
}
LIMIT_COLOR = "#888888"


def label(library):
    return LABELS.get(library, library)


def is_own(library):
    return library.startswith("ombrix") or library.endswith("_thread")
