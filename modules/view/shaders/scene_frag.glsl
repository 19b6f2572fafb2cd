// Shading of the rasterized scene: the material record, vertex colours and the
// base colour texture, lit by the sun, the sky and every light in range.
// With TEXTURED defined it samples the renderer's texture table (base colour
// textures and screens); without, those show their plain colours.
#include "scene.glsl"
#include "sky.glsl"

#ifdef TEXTURED
#extension GL_EXT_nonuniform_qualifier : require
layout(set = 0, binding = 0) uniform sampler2D textures[];
#else
// Screens one by one (WorldView::MaxScreens), picked by the draw's slot. Each
// access has a constant index: such devices cannot index sampler arrays.
layout(set = 0, binding = 0) uniform sampler2D screens[4];

vec3 Screen(uint slot, vec2 uv)
{
    switch (slot) {
    case 1u: return texture(screens[0], uv).rgb;
    case 2u: return texture(screens[1], uv).rgb;
    case 3u: return texture(screens[2], uv).rgb;
    case 4u: return texture(screens[3], uv).rgb;
    }
    return vec3(1.0);
}
#endif

layout(location = 0) in vec3 vPosition;
layout(location = 1) in vec3 vNormal;
layout(location = 2) in vec4 vColor;
layout(location = 3) in vec2 vTexCoord;
layout(location = 4) flat in vec4 vMaterialColor;
layout(location = 5) flat in vec4 vEmission; // w: colour mix
layout(location = 6) flat in uint vMonitor;
layout(location = 7) in vec3 vLight;

layout(location = 0) out vec4 outColor;
// The aim target: which object this pixel shows, and the screen there, if
// any, with the place on it (WorldView.cpp, AimFormat).
layout(location = 1) out uvec4 outAim;

// Light arriving at a point with normal n from one light.
vec3 LightAt(uint i, vec3 position, vec3 n)
{
    vec3 toLight = frame.lights[i].position - position;
    float range = frame.lights[i].range;
    float squared = dot(toLight, toLight);
    if (squared >= range * range) return vec3(0.0); // most lights, for most pixels
    Light light = frame.lights[i];
    float distance = sqrt(squared);
    vec3 l = toLight / max(distance, 1e-6);
    float facing = max(dot(n, l), 0.0);
    if (facing <= 0.0) return vec3(0.0);
    float d = max(distance - light.radius, 0.05);
    float intensity;
    if (light.spread > 0.0) {
        // A spot lights the cone about its axis, its power spread over the cone.
        float along = dot(-l, light.direction);
        if (along < light.cosCone) return vec3(0.0);
        intensity = light.power / (2.0 * light.spread * d * d);
    } else {
        intensity = light.power / (12.566371 * d * d);
    }
    // Fades to nothing at the light's reach.
    float fade = clamp(1.0 - distance / light.range, 0.0, 1.0);
    return light.color * intensity * fade * facing;
}

void main()
{
    // Boxes and geometries with normals bring the sky and sun from their
    // vertices; the others take their faces' normals from the pixels around.
    bool normals = (draw.flags & 3u) == 0u || (draw.flags & HasNormals) != 0u;
    vec3 n = vec3(0.0);
    vec3 light;
    if (normals) {
        light = vLight;
    } else {
        n = normalize(cross(dFdx(vPosition), dFdy(vPosition)));
        if (dot(n, vPosition) > 0.0) n = -n;
        light = SkyAndSunLight(n);
    }
    if (frame.lightCount > 0u) {
        if (normals) {
            n = normalize(vNormal);
            if (dot(n, vPosition) > 0.0) n = -n; // both sides of a face are lit alike
        }
        for (uint i = 0u; i < frame.lightCount; ++i) light += LightAt(i, vPosition, n);
    }

    vec3 albedo = vMaterialColor.rgb * mix(vColor.rgb, vec3(1.0), clamp(vEmission.w, 0.0, 1.0));
#ifdef TEXTURED
    uint textureIndex = draw.flags >> 8;
    if (textureIndex != 0u) albedo *= texture(textures[nonuniformEXT(textureIndex)], vTexCoord).rgb;
#endif

    vec3 emission = vEmission.rgb;
#ifdef TEXTURED
    if (vMonitor != 0u) emission *= texture(textures[nonuniformEXT(vMonitor)], vTexCoord).rgb;
#else
    if (draw.screen != 0u) emission *= Screen(draw.screen, vTexCoord);
#endif
    vec3 color = emission + albedo * light;
    outColor = vec4(Encode(color), 1.0);
    outAim = uvec4(draw.aimID, vMonitor, vMonitor != 0u ? packUnorm2x16(vTexCoord) : 0u, 0u);
}
