// Records the world view's shaders share: the push constants of one draw and
// the frame's uniform block, both laid out as WorldView.hpp declares them. The
// frame is a uniform block (not read by address) because every pixel reads it.
#extension GL_EXT_buffer_reference : require
#extension GL_EXT_buffer_reference2 : require
#extension GL_EXT_scalar_block_layout : require
#extension GL_EXT_shader_explicit_arithmetic_types_int64 : require

// Draw flags: bits 0-1 the index mode (0 boxes, 1 no indices, 2 16-bit, 3 32-bit),
// then what the geometry has; the texture index sits above bit 8.
const uint HasNormals = 4u;
const uint ColorsU8 = 8u;
const uint ColorsF32 = 16u;
const uint HasTexCoords = 32u;

struct Light {
    vec3 position; // camera space
    float range;   // reach plus radius; 0 hides the light
    vec3 color;
    float power;
    vec3 direction; // camera space, the axis of a spot
    float spread;   // 0 for a light that shines all around
    float radius;
    float cosCone;  // cosine of a spot's half angle
    float pad0;
    float pad1;
};

const uint MaxLights = 252u; // WorldView::MaxLights

layout(set = 1, binding = 0, std140) uniform Frame {
    mat4 projection;   // camera to clip space: reverse depth, no far plane
    mat4 cameraToWorld; // rotation of the camera
    vec4 sunDirection; // camera space, towards the sun; w 0 for no sun
    vec4 sunColor;
    vec4 skyColor;     // overhead
    vec4 horizonColor;
    vec4 groundColor;  // below the horizon and bounced light
    uint lightCount;
    uint options;
    uint pad0;
    uint pad1;
    Light lights[MaxLights];
} frame;

layout(buffer_reference, scalar, buffer_reference_align = 16) readonly buffer Material {
    vec3 emission;
    float colorMix;
    vec4 color;
    float pbrThird;
    float metallic;
    float roughness;
    uint monitorIndex;
};

layout(push_constant, scalar) uniform Draw {
    mat4 modelView;     // object to camera space
    uint64_t positions; // three floats per vertex, or one 32-byte record per box
    uint64_t indices;
    uint64_t normals;
    uint64_t colors;
    uint64_t texCoords;
    Material material;
    uint aimID;         // the instance's, written to the aim target
    uint screen;        // without the texture table: the screen's slot, 1 to MaxScreens; 0 for none
    uint flags;
    uint vertexCount;   // vertices of the geometry: larger indices draw nothing
} draw;
