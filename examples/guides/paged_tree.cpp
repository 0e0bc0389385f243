#include <cmath>
#include <cstdio>
#include <filesystem>
#include <set>

#include <ombrix/core.h>
#include <ombrix/io.h>

#include "expect.h"

using namespace ombrix::core;

// Keeps one file per node in a folder, and in memory only what is in use
class FolderTree : public Octree {
public:
    explicit FolderTree(std::filesystem::path folder) : folder_(std::move(folder)) {
        std::filesystem::create_directories(folder_);
    }

    // A builder calls this when a node is complete
    void update_node(std::uint64_t key) override {
        if (node(key).pc) {
            ombrix::io::writePly(file(key), *node(key).pc);
            recycle_node(key);
        }
    }

    // The points may go: they can be had again
    void recycle_node(std::uint64_t key) override {
        free_node(key);  // keeps the number of points
        loaded_.erase(key);
    }

    // Whoever wants the points asks here
    std::shared_ptr<PointCloud> node_pc(std::uint64_t key) override {
        Node& n = node(key);
        if (!n.pc && n.size > 0) {
            n.pc = std::make_shared<PointCloud>(ombrix::io::readPoints(file(key)).cloud);
            loaded_.insert(key);
        }
        return n.pc;
    }

    // After a frame: drop what was not drawn
    void keepOnlyVisible() {
        const std::set<std::uint64_t> loaded = loaded_;
        for (const std::uint64_t key : loaded) {
            if ((node(key).flags & 2) == 0) {
                recycle_node(key);
            }
        }
    }

    std::size_t loaded() const { return loaded_.size(); }

private:
    std::filesystem::path file(std::uint64_t key) const { return folder_ / (std::to_string(key) + ".ply"); }

    std::filesystem::path folder_;
    std::set<std::uint64_t> loaded_;
};

int main(int count, char** words) {
    PointCloud cloud;
    for (int i = 0; i < 400'000; ++i) {
        Point p;
        p.position = Vector3f(float(i % 800), float(i / 800), 40.0f * std::sin(0.01f * float(i % 800)));
        p.scalar = float(i);
        cloud.push_back(p, true);
    }
    NestedOctreeFactory factory(cloud.aabb_min(), cloud.aabb_max());
    factory.add(cloud);
    FolderTree tree(count > 1 ? words[1] : "guide_output/pages");
    factory(tree);
    expect(tree.size() == cloud.size() && tree.loaded() == 0, "sizes stay, points are on disk");

    // Two frames from two sides
    ViewFrustum camera;
    camera.setIntrinsics(30.0f, 1.0f);
    camera.setPixelSize(1000, 1000);
    camera.setClipPlane(1.0f, 2000.0f);
    Visibility visibility(tree);
    for (const float x : {100.0f, 700.0f}) {
        camera.setPosition(ViewFrustum::Pose(Eigen::Translation3f(x, 250.0f, -300.0f)));
        visibility.update(camera, 200'000, 30.0f);
        std::uint64_t drawn = 0;
        for (const std::uint64_t key : visibility.getVisibleNodeKeys()) {
            if (const auto points = tree.node_pc(key)) {
                drawn += points->size();
            }
        }
        tree.keepOnlyVisible();
        std::printf("%llu points drawn, %zu of %llu nodes in memory\n",
                    static_cast<unsigned long long>(drawn), tree.loaded(),
                    static_cast<unsigned long long>(tree.keyCount()));
        expect(drawn > 0 && tree.loaded() <= visibility.getVisibleNodeKeys().size(), "only what is drawn");
    }
}
