// The scene, rasterized: each vertex is pulled from the geometry's buffers by
// device address; boxes are drawn as 36 vertices each from their corners.
#extension GL_EXT_shader_16bit_storage : require
#include "scene.glsl"
#include "sky.glsl"

layout(buffer_reference, scalar, buffer_reference_align = 4) readonly buffer Vec3s { vec3 v[]; };
layout(buffer_reference, scalar, buffer_reference_align = 4) readonly buffer Vec2s { vec2 v[]; };
layout(buffer_reference, scalar, buffer_reference_align = 4) readonly buffer Vec4s { vec4 v[]; };
layout(buffer_reference, scalar, buffer_reference_align = 4) readonly buffer Uints { uint v[]; };
layout(buffer_reference, scalar, buffer_reference_align = 2) readonly buffer Ushorts { uint16_t v[]; };
layout(buffer_reference, scalar, buffer_reference_align = 8) readonly buffer Boxes { vec3 minimum; vec3 maximum; uint64_t data; };

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

// The corners of a unit box (bit 0 x, bit 1 y, bit 2 z), two triangles a face,
// counter-clockwise from outside; and each face's outward normal.
const uint boxCorners[36] = uint[](0, 2, 3, 0, 3, 1,  4, 5, 7, 4, 7, 6,  0, 1, 5, 0, 5, 4,
                                   2, 6, 7, 2, 7, 3,  0, 4, 6, 0, 6, 2,  1, 3, 7, 1, 7, 5);
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
        Boxes box = Boxes(draw.positions + uint64_t(vertex / 36u) * 32ul);
        uint corner = boxCorners[vertex % 36u];
        position = mix(box.minimum, box.maximum, vec3(corner & 1u, (corner >> 1) & 1u, (corner >> 2) & 1u));
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
