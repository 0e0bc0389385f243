#version 430

// One entry per selected node, breadth first: x is the children mask, y the offset to the first child.
layout(std430, binding = 0) readonly buffer Hierarchy { uvec2 nodes[]; };
uniform float extend;      // edge of the root cube
uniform float rootSpacing; // extend / 128
uniform float pixelsPerUnit; // at distance 1: height / (2 * tan(vertical angle / 2))
uniform mat4 view;
uniform mat4 projection;
layout(location = 0) in vec3 position;  // relative to the tree's origin

int visibleDepth(vec3 p) {
    uint index = 0u;
    float edge = extend;
    vec3 corner = vec3(0.0);
    int depth = 0;
    for (; depth < 21; ++depth) {
        edge *= 0.5;
        bvec3 upper = greaterThanEqual(p, corner + edge);
        uint octant = 4u * uint(upper.x) + 2u * uint(upper.y) + uint(upper.z);
        uvec2 node = nodes[index];
        if ((node.x >> octant & 1u) == 0u) {
            break;
        }
        uint before = node.x & ((1u << octant) - 1u);
        index += node.y + uint(bitCount(before));
        corner += edge * vec3(upper);
    }
    return depth;
}

void main() {
    vec4 eye = view * vec4(position, 1.0);
    float spacing = rootSpacing * exp2(-float(visibleDepth(position)));
    gl_Position = projection * eye;
    gl_PointSize = clamp(spacing * pixelsPerUnit / -eye.z, 1.0, 20.0);
}
