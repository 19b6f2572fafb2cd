#version 460
// One triangle over the whole output, at the far end of the depth range: drawn
// after the scene, it fills only the pixels the scene left empty.
layout(location = 0) out vec2 vClip;

void main()
{
    vec2 clip = vec2(float((gl_VertexIndex << 1) & 2), float(gl_VertexIndex & 2)) * 2.0 - 1.0;
    vClip = clip;
    gl_Position = vec4(clip, 0.0, 1.0);
}
