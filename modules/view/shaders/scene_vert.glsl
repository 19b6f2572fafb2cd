// The scene, rasterized: each vertex is pulled from the geometry's buffers by
// device address; boxes are drawn as 36 vertices each from their corners.
#extension GL_EXT_shader_16bit_storage : require
#include "scene.glsl"
#include "box.glsl"
#include "sky.glsl"

layout(buffer_reference, scalar, buffer_reference_align = 4) readonly buffer Vec3s { vec3 v[]; };
layout(buffer_reference, scalar, buffer_reference_align = 4) readonly buffer Vec2s { vec2 v[]; };
layout(buffer_reference, scalar, buffer_reference_align = 4) readonly buffer Vec4s { vec4 v[]; };
layout(buffer_reference, scalar, buffer_reference_align = 4) readonly buffer Uints { uint v[]; };
layout(buffer_reference, scalar, buffer_reference_align = 2) readonly buffer Ushorts { uint16_t v[]; };

layout(location = 0) out vec3 vPosition; // camera space
layout(location = 1) out vec3 vNormal;   // camera space; zero without normals
layout(location = 2) out vec4 vColor;
layout(location = 3) out vec2 vTexCoord;
// The material, read once a vertex rather than once a pixel.
layout(location = 4) flat out vec4 vMaterialColor;
layout(location = 5) flat out vec4 vEmission; // w: colour mix
layout(location = 6) flat out uint vMonitor;
// Sky and sun on the face, for a geometry with normals (see SkyAndSunLight).
layout(location = 7) out vec3 vLight;

// Each face's outward normal, in the order of boxCorners.
const vec3 boxNormals[6] = vec3[](vec3(0, 0, -1), vec3(0, 0, 1), vec3(0, -1, 0),
                                  vec3(0, 1, 0), vec3(-1, 0, 0), vec3(1, 0, 0));

uint IndexAt(uint mode, uint vertex)
{
    if (mode == 2u) return uint(Ushorts(draw.indices).v[vertex]);
    if (mode == 3u) return Uints(draw.indices).v[vertex];
    return vertex;
}

void main()
{
    Material material = draw.material;
    vMaterialColor = material.color;
    vEmission = vec4(material.emission, material.colorMix);
    vMonitor = material.monitorIndex;
    uint mode = draw.flags & 3u;
    uint vertex = uint(gl_VertexIndex);
    vec3 position;
    vec3 normal = vec3(0.0);
    vColor = vec4(1.0);
    vTexCoord = vec2(0.0);
    if (mode == 0u) {
        position = BoxVertex(draw.positions, vertex);
        normal = boxNormals[(vertex % 36u) / 6u];
    } else {
        // A triangle with an index that names no vertex is dropped whole: each of
        // its vertices checks all three and, if one is bad, lies outside the clip
        // volume at the same point. (Draws hold whole triangles only.)
        uint first = vertex - vertex % 3u;
        uint index = IndexAt(mode, vertex);
        uint limit = draw.vertexCount;
        if (IndexAt(mode, first) >= limit || IndexAt(mode, first + 1u) >= limit || IndexAt(mode, first + 2u) >= limit) {
            gl_Position = vec4(0.0, 0.0, 2.0, 1.0);
            vPosition = vec3(0.0);
            vNormal = vec3(0.0);
            vLight = vec3(0.0);
            return;
        }
        position = Vec3s(draw.positions).v[index];
        if ((draw.flags & HasNormals) != 0u) normal = Vec3s(draw.normals).v[index];
        if ((draw.flags & ColorsU8) != 0u) vColor = unpackUnorm4x8(Uints(draw.colors).v[index]);
        else if ((draw.flags & ColorsF32) != 0u) vColor = Vec4s(draw.colors).v[index];
        if ((draw.flags & HasTexCoords) != 0u) vTexCoord = Vec2s(draw.texCoords).v[index];
    }
    vec4 cameraPosition = draw.modelView * vec4(position, 1.0);
    vPosition = cameraPosition.xyz;
    vNormal = mat3(draw.modelView) * normal;
    vLight = vec3(0.0);
    if (dot(vNormal, vNormal) >= 1e-12) {
        vec3 n = normalize(vNormal);
        if (dot(n, vPosition) > 0.0) n = -n; // both sides of a face are lit alike
        vLight = SkyAndSunLight(n);
    }
    gl_Position = frame.projection * cameraPosition;
}
