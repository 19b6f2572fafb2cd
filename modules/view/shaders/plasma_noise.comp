#version 460
// The noise field of a plasma trail, filled every frame: two octaves of value
// noise that tile across the field, streaming along the trail (v) with time.
// Red is the turbulence, green a finer flicker, both 0 to 1.
layout(local_size_x = 8, local_size_y = 8) in;
layout(set = 0, binding = 0, rg32f) uniform writeonly image2D field;
layout(push_constant) uniform Push {
    float time; // seconds, wrapped
    uint seed;  // differs between trails
} push;

float Hash(uvec2 p)
{
    uint h = p.x * 374761393u + p.y * 668265263u + push.seed * 2246822519u;
    h = (h ^ (h >> 13)) * 1274126177u;
    return float((h ^ (h >> 16)) & 0xffffu) / 65535.0;
}

// Value noise of period cells (a power of two) at p, in cells.
float ValueNoise(vec2 p, uint period)
{
    vec2 cell = floor(p);
    vec2 f = p - cell;
    vec2 u = f * f * (3.0 - 2.0 * f);
    uvec2 a = uvec2(ivec2(cell)) % period; // wraps correctly for negative cells too
    uvec2 b = (a + 1u) % period;
    return mix(mix(Hash(a), Hash(uvec2(b.x, a.y)), u.x), mix(Hash(uvec2(a.x, b.y)), Hash(b), u.x), u.y);
}

void main()
{
    ivec2 pixel = ivec2(gl_GlobalInvocationID.xy);
    ivec2 size = imageSize(field);
    if (any(greaterThanEqual(pixel, size))) return;
    vec2 uv = (vec2(pixel) + 0.5) / vec2(size);
    float coarse = ValueNoise(vec2(uv.x * 8.0, (uv.y - push.time * 0.8) * 8.0), 8u);
    float fine = ValueNoise(vec2(uv.x * 32.0, (uv.y - push.time * 2.5) * 32.0), 32u);
    imageStore(field, pixel, vec4(0.65 * coarse + 0.35 * fine, fine, 0.0, 0.0));
}
