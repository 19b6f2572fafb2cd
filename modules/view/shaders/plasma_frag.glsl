// Plasma trails, rasterized: light added along the view ray through the box.
// The gas inside the box is integrated whole: an object inside the box (the
// body itself) does not hide the part behind it.
// The gas is a sheath about the body that narrows into a tail along +y,
// brightest at the body, stirred by the trail's noise field where the texture
// table can be read. Each ray is integrated once: at the box's front face, or
// at its back face when the camera is inside; the other faces draw nothing.
#include "scene.glsl"
#include "sky.glsl"

#ifdef TEXTURED
#extension GL_EXT_nonuniform_qualifier : require
layout(set = 0, binding = 0) uniform sampler2D textures[];
#endif

layout(location = 0) in vec3 vObject;
layout(location = 1) flat in vec3 vEye;
layout(location = 2) flat in vec3 vMinimum;
layout(location = 3) flat in vec3 vMaximum;
layout(location = 4) flat in vec4 vShape; // length, width, intensity
layout(location = 5) flat in vec3 vColor;
layout(location = 6) flat in uint vTexture;

layout(location = 0) out vec4 outColor;

// Radiance per unit of intensity and of gas crossed (in widths).
const float GlowScale = 0.002;
const int Steps = 12;

// The noise field at object point p, h along the trail: about 1 on average.
float Stir(vec3 p, float h)
{
#ifdef TEXTURED
    if (vTexture != 0u) {
        float around = dot(p.xz, p.xz) > 1e-12 ? atan(p.z, p.x) * 0.15915494 : 0.0; // on the axis: any
        vec2 uv = vec2(around + 0.5, h);
        vec2 n = texture(textures[nonuniformEXT(vTexture)], uv).rg;
        return 0.4 + 1.2 * n.r * (0.7 + 0.6 * n.g);
    }
#endif
    return 1.0;
}

float Density(vec3 p)
{
    float h = clamp(p.y / max(vShape.x, 1e-6), 0.0, 1.0);
    float radius = max(vShape.y, 1e-6) * mix(1.1, 0.25, h);
    float across = dot(p.xz, p.xz) / (radius * radius);
    float tail = (1.0 - h) * (1.0 - h);
    return exp(-3.0 * across) * tail * Stir(p, h);
}

void main()
{
    vec3 ray = vObject - vEye;
    float here = length(ray);
    if (here <= 0.0) discard;
    vec3 d = ray / here;
    vec3 safe = mix(d, vec3(1e-7), lessThan(abs(d), vec3(1e-7)));
    vec3 t0 = (vMinimum - vEye) / safe, t1 = (vMaximum - vEye) / safe;
    vec3 lo = min(t0, t1), hi = max(t0, t1);
    float enter = max(max(lo.x, lo.y), lo.z);
    float leave = min(min(hi.x, hi.y), hi.z);
    float tolerance = 1e-3 * leave + 1e-5;
    // The face that stands for the ray: where it enters, or where it leaves from inside.
    bool mine = enter > 0.0 ? abs(here - enter) <= tolerance : abs(here - leave) <= tolerance;
    float start = max(enter, 0.0);
    if (!mine || leave <= start) discard;
    float stepLength = (leave - start) / float(Steps);
    float sum = 0.0;
    for (int i = 0; i < Steps; ++i) sum += Density(vEye + d * (start + (float(i) + 0.5) * stepLength));
    float crossed = sum * stepLength / max(vShape.y, 1e-6);
    // Added to the encoded output as it is, not encoded itself: encoding
    // would lift a faint glow into a haze over everything behind it.
    outColor = vec4(clamp(vColor * (vShape.z * GlowScale * crossed), vec3(0.0), vec3(1.0)), 1.0);
}
