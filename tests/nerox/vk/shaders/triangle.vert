#version 450
// A fixed triangle in clip space, from the vertex index: its top edge lies on
// y = -0.5 from x = -0.5 to 0.5 and its apex at (0, 0.5).
const vec2 positions[3] = vec2[](vec2(-0.5, -0.5), vec2(0.5, -0.5), vec2(0.0, 0.5));

void main()
{
    gl_Position = vec4(positions[gl_VertexIndex], 0.0, 1.0);
}
