#version 460
// Reads each pixel of an 8 x 4 texture through its sampler into a buffer of
// two floats a pixel, as a later pass of a frame would read a compute texture.
layout(local_size_x = 8, local_size_y = 4) in;
layout(set = 0, binding = 1) uniform sampler2D source;
layout(set = 0, binding = 2, std430) writeonly buffer Pixels { vec2 pixels[]; };

void main()
{
    ivec2 p = ivec2(gl_GlobalInvocationID.xy);
    pixels[p.y * 8 + p.x] = texelFetch(source, p, 0).rg;
}
