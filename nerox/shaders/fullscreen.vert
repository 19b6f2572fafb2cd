#version 460
// A triangle that covers the whole target: draw 3 vertices with no vertex buffer.
// uv runs from 0,0 at the top left to 1,1 at the bottom right of the target.

layout(location = 0) out vec2 outUv;

void main()
{
    outUv = vec2((gl_VertexIndex << 1) & 2, gl_VertexIndex & 2);
    gl_Position = vec4(outUv * 2.0 - 1.0, 0.0, 1.0);
}
