import * as THREE from "three";

import { LEVELS_WIDTH } from "./levels.js";

/// How the shader numbers the colourings.
export const COLORINGS = ["rgb", "height", "intensity", "normal", "curvature", "density"];

const vertexShader = /* glsl */ `
precision highp float;
precision highp int;
precision highp usampler2D;

uniform mat4 modelMatrix, viewMatrix, projectionMatrix;
uniform bool adaptive;
uniform float size;         // pixels, or a factor on the distance between points
uniform float edge;         // of the tree's cube
uniform float focalPixels;  // pixels that a length of 1 takes at a depth of 1
uniform usampler2D levels;
uniform bool clipping;
uniform vec3 clipMin, clipMax;
uniform int coloring;
uniform bool waiting;       // the node has no such field yet
uniform vec2 heights;
uniform sampler2D ramp;

in vec4 position;  // within the node's cube, and intensity
in vec4 color;
in vec4 normal;
in float curvature;
in float density;

out vec3 shade;

int ones(uint bits) {
  bits -= (bits >> 1) & 85u;
  bits = (bits & 51u) + ((bits >> 2) & 51u);
  return int((bits + (bits >> 4)) & 15u);
}

float spacingAt(vec3 p) {
  int index = 0;
  float spacing = 0.0;
  float half_ = 0.5 * edge;
  vec3 corner = vec3(0.0);
  for (int level = 0; level < 21; ++level) {
    uvec2 entry = texelFetch(levels, ivec2(index & ${LEVELS_WIDTH - 1}, index / ${LEVELS_WIDTH}), 0).rg;
    spacing = uintBitsToFloat(entry.y);
    vec3 upper = step(corner + half_, p);
    int octant = int(dot(upper, vec3(4.0, 2.0, 1.0)) + 0.5);
    uint mask = entry.x & 255u;
    if (((mask >> octant) & 1u) == 0u) break;
    index += int(entry.x >> 8) + ones(mask & ((1u << octant) - 1u));
    corner += upper * half_;
    half_ *= 0.5;
  }
  return spacing;
}

vec3 shadeAt(vec3 p) {
  if (coloring == 0) return color.rgb;
  if (waiting) return vec3(0.5);
  if (coloring == 3) return 0.5 + 0.5 * normal.xyz;
  float t = coloring == 1   ? (p.z - heights.x) / max(heights.y - heights.x, 1e-30)
            : coloring == 2 ? position.w
            : coloring == 4 ? curvature
                            : density;
  return texture(ramp, vec2(clamp(t, 0.0, 1.0), 0.5)).rgb;
}

void main() {
  vec4 p = modelMatrix * vec4(position.xyz, 1.0);
  vec4 seen = viewMatrix * p;
  gl_Position = projectionMatrix * seen;
  if (clipping && (any(lessThan(p.xyz, clipMin)) || any(greaterThan(p.xyz, clipMax))))
    gl_Position = vec4(2.0, 2.0, 2.0, 1.0);
  gl_PointSize = adaptive ? clamp(size * spacingAt(p.xyz) * focalPixels / -seen.z, 1.5, 64.0) : size;
  shade = shadeAt(p.xyz);
}`;

const fragmentShader = /* glsl */ `
precision highp float;
in vec3 shade;
out vec4 fragment;
uniform bool round_;

void main() {
  vec2 offset = gl_PointCoord - 0.5;
  if (round_ && dot(offset, offset) > 0.25) discard;
  fragment = vec4(shade, 1.0);
}`;

/// The material of all nodes.
export function pointMaterial(cloud, levels) {
  const uniform = (value) => ({ value });
  return new THREE.RawShaderMaterial({
    glslVersion: THREE.GLSL3,
    vertexShader,
    fragmentShader,
    uniforms: {
      adaptive: uniform(true),
      size: uniform(1),
      edge: uniform(cloud.edge),
      focalPixels: uniform(1),
      levels: uniform(levels.texture),
      clipping: uniform(false),
      clipMin: uniform(new THREE.Vector3()),
      clipMax: uniform(new THREE.Vector3()),
      coloring: uniform(0),
      waiting: uniform(false),
      heights: uniform(new THREE.Vector2()),
      ramp: uniform(null),
      round_: uniform(true),
    },
  });
}
