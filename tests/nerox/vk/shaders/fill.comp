#version 460
// Writes (x + offset, 2y) into each pixel of the storage image that the
// dispatch covers.
layout(local_size_x = 4, local_size_y = 4) in;
layout(set = 0, binding = 0, rg32f) uniform writeonly image2D target;
layout(push_constant) uniform Push { float offset; } push;

void main()
{
    ivec2 p = ivec2(gl_GlobalInvocationID.xy);
    if (any(greaterThanEqual(p, imageSize(target)))) return;
    imageStore(target, p, vec4(float(p.x) + push.offset, float(p.y) * 2.0, 0.0, 0.0));
}
