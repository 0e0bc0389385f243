// Sequences of operations on an octree with any keys and masks, against a plain map as the model.

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>

#include <ombrix/core/octree/octree.h>

#include "fuzz/fuzz_support.h"

namespace {

using namespace ombrix;
using fuzz::require;
using Key = std::uint64_t;
using Keys = std::vector<Key>;

struct ModelNode {
    std::uint64_t size = 0;
    std::uint8_t children = 0;
    std::optional<std::vector<float>> ids;  // the scalars of its points, when it holds a cloud
    [[nodiscard]] std::uint64_t points() const { return ids ? ids->size() : size; }
};
using Model = std::map<Key, ModelNode>;

unsigned int depthOf(Key key) {
    unsigned int depth = key == 0 ? 21 : 0;
    for (; key >= 8; key /= 8) {
        ++depth;
    }
    return depth;
}

Keys childrenOf(const Model& model, Key key, unsigned int mask) {
    Keys result;
    for (Key octant = 0; octant < 8 && key != 0 && key < (Key{1} << 61); ++octant) {
        if ((mask >> octant & 1) != 0 && model.contains(key * 8 + octant)) {
            result.push_back(key * 8 + octant);
        }
    }
    return result;
}

Keys branchOf(const Model& model, Key key, unsigned int depth) {
    Keys result;
    if (model.contains(key) && depthOf(key) <= depth) {
        result.push_back(key);
    }
    for (std::size_t i = 0; i < result.size(); ++i) {
        if (depthOf(result[i]) < depth) {
            for (const Key child : childrenOf(model, result[i], model.at(result[i]).children)) {
                result.push_back(child);
            }
        }
    }
    return result;
}

unsigned int deepestLeaf(const Model& model) {
    unsigned int depth = 0;
    for (const auto& [key, node] : model) {
        depth = node.children == 0 ? std::max(depth, depthOf(key)) : depth;
    }
    return depth;
}

/// Whether both throw `std::out_of_range` or neither.
template <class Operation>
void requireThrows(bool expected, const Operation& operation) {
    try {
        operation();
        require(!expected, "an absent key is refused");
    } catch (const std::out_of_range&) {
        require(expected, "a key that is there is accepted");
    }
}

void requireFront(const core::Octree& tree, const Model& model, int depth) {
    requireThrows(!model.contains(1), [&] {
        std::list<Key> back;
        std::list<Key> front;
        tree.back_and_front(depth, back, front);
        Keys expectedBack;
        Keys expectedFront;
        for (const Key key : branchOf(model, 1, depth < 0 ? 21 : static_cast<unsigned int>(depth))) {
            const bool inner =
                model.at(key).children != 0 && depthOf(key) < 21 && static_cast<int>(depthOf(key)) != depth;
            (inner ? expectedBack : expectedFront).push_back(key);
        }
        require(std::ranges::equal(back, expectedBack) && std::ranges::equal(front, expectedFront),
                "the front");
        require(tree.front(depth) == front, "one front");
    });
}

void requireSame(core::Octree& tree, const Model& model) {
    require(tree.keyCount() == model.size(), "the number of nodes");
    std::uint64_t points = 0;
    std::set<Key> leaves;
    for (const auto& [key, expected] : model) {
        require(tree.hasKey(key), "every node is there");
        const core::Octree::Node& node = tree.node(key);
        require(node.key == key && node.children == expected.children && node.size == expected.size,
                "a node");
        require((node.pc != nullptr) == expected.ids.has_value(), "clouds are held");
        require(!node.pc || node.pc->scalars() == *expected.ids, "a node's points");
        points += expected.points();
        if (expected.children == 0) {
            leaves.insert(key);
        }
    }
    require(tree.size() == points, "the number of points");
    const Keys treeLeaves = tree.leaves();
    require(std::set<Key>(treeLeaves.begin(), treeLeaves.end()) == leaves, "the leaves");
    require(tree.max_depth() == deepestLeaf(model), "the deepest leaf");
    require(leaves.empty() ? tree.first_leaf() == 0 : leaves.contains(tree.first_leaf()), "the first leaf");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    core::Octree tree;
    const core::Vector3f origin = input.vector();
    tree.setOriginTop(origin, origin + core::Vector3f::Constant(input.number()));
    Model model;
    std::uint64_t nextId = 0;

    const auto someKey = [&]() -> Key {
        if (const unsigned int form = input.below(16); form == 0) {
            return input.take<Key>();
        } else if (form < 8 && !model.empty()) {
            auto node = model.begin();
            std::advance(node,
                         input.below(static_cast<unsigned int>(std::min<std::size_t>(model.size(), 255))));
            return form < 4 ? node->first : node->first * 8 + input.below(8);
        }
        Key key = 1;
        for (unsigned int level = input.below(24); level > 0; --level) {
            key = key * 8 + input.below(8);
        }
        return key;
    };
    while (!input.empty()) {
        const Key key = someKey();
        switch (input.below(12)) {
            case 0: {
                core::Octree::Node& node = tree.add_node(key);
                node.children = input.take<std::uint8_t>();
                node.flags = input.flag() ? 8 : 2;
                model[key].children = node.children;
                break;
            }
            case 1: {
                const auto cloud = std::make_shared<core::PointCloud>(fuzz::cloudOf(input, 8, nextId));
                nextId += cloud->size();
                tree.add_node(key).pc = cloud;
                model[key].ids = cloud->scalars();
                break;
            }
            case 2:
                tree.delete_node(key);
                model.erase(key);
                break;
            case 3: {
                const Keys gone = branchOf(model, key, 21);
                require(tree.remove_branch(key) == gone, "the removed branch");
                if (!gone.empty() && key != 1 && model.contains(key / 8)) {
                    model[key / 8].children &= static_cast<std::uint8_t>(~(1u << (key % 8)));
                }
                for (const Key erased : gone) {
                    model.erase(erased);
                }
                break;
            }
            case 4: {
                Keys keys;
                Keys sizes;
                for (unsigned int n = input.below(16); n > 0; --n) {
                    keys.push_back(someKey());
                    if (sizes.size() + 1 == keys.size() && input.below(8) != 0) {
                        sizes.push_back(input.take<std::uint16_t>());
                    }
                }
                tree.set_hierarchy(keys, sizes);
                model.clear();
                for (std::size_t i = 0; i < keys.size(); ++i) {
                    model[keys[i]].size = i < sizes.size() ? sizes[i] : 0;
                }
                model[1];
                Keys reached{1};
                for (std::size_t i = 0; i < reached.size(); ++i) {
                    for (const Key child : childrenOf(model, reached[i], 0xff)) {
                        reached.push_back(child);
                        model[reached[i]].children |= static_cast<std::uint8_t>(1u << (child % 8));
                    }
                }
                break;
            }
            case 5: {
                const unsigned int depth = input.below(24);
                require(tree.branch(key, depth) == branchOf(model, key, depth), "a branch");
                require(tree.branch(key) == branchOf(model, key, deepestLeaf(model)), "a whole branch");
                break;
            }
            case 6:
                requireThrows(!model.contains(key), [&] { tree.clear_node(key); });
                if (model.contains(key)) {
                    model[key].ids.reset();
                    model[key].size = 0;
                }
                break;
            case 7:
                requireThrows(!model.contains(key), [&] { tree.free_node(key); });
                if (model.contains(key)) {
                    model[key].size = model[key].points();
                    model[key].ids.reset();
                }
                break;
            case 8:
                requireFront(tree, model, static_cast<int>(input.below(24)) - 1);
                break;
            case 9: {
                core::PointCloud out;
                std::vector<float> expected;
                const unsigned int depth = input.below(24);
                tree.extractPointCloud(key, depth, out);
                for (const Key k : branchOf(model, key, depth)) {
                    const auto& ids = model[k].ids;
                    expected.insert(expected.end(), ids ? ids->begin() : expected.end(),
                                    ids ? ids->end() : expected.end());
                }
                require(out.scalars() == expected && out.size() == expected.size(), "extracted points");
                break;
            }
            case 10: {
                // Each point of the root lies in one of its eight cells
                std::multiset<float> extracted;
                for (Key octant = 8; octant < 16; ++octant) {
                    core::PointCloud out;
                    tree.extractUpperPointCloud(octant, out);
                    extracted.insert(out.scalars().begin(), out.scalars().end());
                }
                std::multiset<float> expected;
                if (const auto root = model.find(1); root != model.end() && root->second.ids) {
                    expected.insert(root->second.ids->begin(), root->second.ids->end());
                }
                require(extracted == expected, "the root's points");
                core::PointCloud out;
                tree.extractUpperPointCloud(key, out);
                break;
            }
            default: {
                const unsigned int depth = input.below(24);
                std::uint64_t points = 0;
                for (const auto& [k, node] : model) {
                    points += depthOf(k) <= depth ? node.points() : 0;
                }
                require(tree.size(depth) == points, "the number of points above a depth");
                requireThrows(!model.contains(1), [&] { static_cast<void>(tree.max_depth(input.number())); });
                requireThrows(!model.contains(key), [&] { static_cast<void>(tree.visible_node_pc(key)); });
                require((tree.pc_top() - tree.pc_origin()).minCoeff() >= 0 || !tree.pc_extend().allFinite(),
                        "a box of points");
            }
        }
        require(tree.hasKey(key) == model.contains(key), "look-ups insert nothing");
    }
    requireSame(tree, model);
    return 0;
}
