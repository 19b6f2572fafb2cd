#version 460
// A thin ring with a dot, white with a dark rim so that it reads on any background.

layout(location = 0) out vec4 outColor;

void main()
{
    vec2 p = gl_PointCoord * 2.0 - 1.0;
    float r = length(p);
    float ring = smoothstep(0.06, 0.0, abs(r - 0.72));
    float dot = smoothstep(0.16, 0.08, r);
    float rim = smoothstep(0.16, 0.0, abs(r - 0.72)) + smoothstep(0.26, 0.16, r);
    float white = max(ring, dot);
    float alpha = max(white, 0.45 * min(rim, 1.0));
    if (alpha <= 0.001)
        discard;
    outColor = vec4(vec3(white), alpha);
}
