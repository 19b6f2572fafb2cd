// Plasma trails, rasterized: the trail's box is drawn, and each of its pixels
// integrates the glowing gas along the view ray through the box (see
// plasma_frag.glsl). The box's record carries the address of the trail's
// PlasmaData, read here once a vertex.
#include "scene.glsl"
#include "box.glsl"

layout(buffer_reference, scalar, buffer_reference_align = 16) readonly buffer Plasma {
    float reach;          // 16 x size: the trail's length along +y
    float width;          // size
    float speedIntensity;
    uint textureIndex;    // the noise field
    vec3 color;
    float heatIntensity;
};

layout(location = 0) out vec3 vObject;          // this point of the box, object space
layout(location = 1) flat out vec3 vEye;        // the camera, object space
layout(location = 2) flat out vec3 vMinimum;    // the box
layout(location = 3) flat out vec3 vMaximum;
layout(location = 4) flat out vec4 vShape;      // length, width, intensity
layout(location = 5) flat out vec3 vColor;
layout(location = 6) flat out uint vTexture;

void main()
{
    uint vertex = uint(gl_VertexIndex);
    Boxes box = Boxes(draw.positions + uint64_t(vertex / 36u) * 32ul);
    vObject = BoxVertex(draw.positions, vertex);
    vMinimum = box.minimum;
    vMaximum = box.maximum;
    vEye = (inverse(draw.modelView) * vec4(0.0, 0.0, 0.0, 1.0)).xyz;
    vShape = vec4(0.0);
    vColor = vec3(0.0);
    vTexture = 0u;
    if (box.data != 0ul) {
        Plasma plasma = Plasma(box.data);
        vShape = vec4(plasma.reach, plasma.width, plasma.speedIntensity + plasma.heatIntensity, 0.0);
        vColor = plasma.color;
        vTexture = plasma.textureIndex;
    }
    gl_Position = frame.projection * (draw.modelView * vec4(vObject, 1.0));
}
